#include "diagctl/session/ConfigurationText.h"

#include <fstream>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "System/SysUtil.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kByteOrderMark = "\xef\xbb\xbf";

}  // namespace

std::optional<ConfigurationText> ConfigurationText::read(const std::string& path) {
  std::ifstream file(path);
  if (!file || file.peek() == std::ifstream::traits_type::eof()) {
    file.clear();
    if (!std::ifstream(path)) {
      return std::nullopt;
    }
  }
  ConfigurationText text;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    if (++number == 1 && line.rfind(kByteOrderMark, 0) == 0) {
      line.erase(0, 3);
    }
    text.take(System::SysUtil::stripSpaces(line), number);
  }
  return text;
}

void ConfigurationText::take(const std::string& line, int number) {
  if (line.empty() || line[0] == '#' || line[0] == ';') {
    return;
  }
  if (line[0] == '[') {
    const std::size_t end = line.find(']');
    m_section.reset();
    if (end == std::string::npos) {
      remark(number, "", tr("the section has no \"]\", so its keys are not read"));
      return;
    }
    m_section = System::SysUtil::stripSpaces(line.substr(1, end - 1));
    m_sections[*m_section];
    return;
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos) {
    remark(number, "", tr("the line has no \"=\", so it is not read: {}", line));
    return;
  }
  const std::string key = System::SysUtil::stripSpaces(line.substr(0, equals));
  if (!m_section) {
    remark(number, key, tr("the key stands outside of a section, so it is not read"));
    return;
  }
  const bool isFirst = m_sections[*m_section]
                           .emplace(key, System::SysUtil::stripSpaces(line.substr(equals + 1)))
                           .second;
  if (!isFirst) {
    remark(number, key, tr("the key stands in the section twice, and the first one counts"));
  }
}

void ConfigurationText::remark(int number, const std::string& key, const std::string& text) {
  m_remarks.push_back({number, m_section.value_or(""), key, text});
}

std::optional<std::string> ConfigurationText::value(const std::string& section,
                                                    const std::string& key) const {
  const auto& entries = keys(section);
  const auto entry = entries.find(key);
  if (entry == entries.end() || entry->second.empty() ||
      entry->second.size() >= static_cast<std::size_t>(DiagCtrl::DiagCtrlConstants::miSBuffSize)) {
    return std::nullopt;
  }
  return entry->second;
}

const std::map<std::string, std::string>& ConfigurationText::keys(
    const std::string& section) const {
  static const std::map<std::string, std::string> kNone;
  const auto entry = m_sections.find(section);
  return entry != m_sections.end() ? entry->second : kNone;
}

std::vector<std::string> ConfigurationText::sections() const {
  std::vector<std::string> names;
  for (const auto& [name, keys] : m_sections) {
    names.push_back(name);
  }
  return names;
}

}  // namespace TarvexDiags::FrontEnd
