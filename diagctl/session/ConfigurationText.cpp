#include "diagctl/session/ConfigurationText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <system_error>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "System/SysUtil.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kByteOrderMark = "\xef\xbb\xbf";

/// Closes what it holds.
struct Descriptor {
  int number;

  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) {
      close(number);
    }
  }
};

// Opened without waiting for anybody, and looked at before it is read.
std::optional<std::string> contentOf(const std::string& path, std::string& reason) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (file.number < 0 || fstat(file.number, &info) != 0) {
    reason = std::generic_category().message(errno);
    return std::nullopt;
  }
  if (!S_ISREG(info.st_mode)) {
    reason = tr("it is no regular file");
    return std::nullopt;
  }
  std::string content;
  for (char block[8192];;) {
    const ssize_t count = ::read(file.number, block, sizeof block);
    if (count == 0) {
      return content;
    }
    if (count < 0 && errno != EINTR) {
      reason = std::generic_category().message(errno);
      return std::nullopt;
    }
    content.append(block, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (content.size() > ConfigurationText::kLargestFile) {
      reason = tr("it is larger than {} bytes", ConfigurationText::kLargestFile);
      return std::nullopt;
    }
  }
}

}  // namespace

std::optional<ConfigurationText> ConfigurationText::read(const std::string& path) {
  std::string ignored;
  return read(path, ignored);
}

std::optional<ConfigurationText> ConfigurationText::read(const std::string& path,
                                                         std::string& reason) {
  const auto content = contentOf(path, reason);
  if (!content) {
    return std::nullopt;
  }
  return parse(*content);
}

ConfigurationText ConfigurationText::parse(const std::string& content) {
  std::istringstream file(content);
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
    const std::string name = System::SysUtil::stripSpaces(line.substr(1, end - 1));
    if (name.empty()) {
      remark(number, "", tr("the section has no name, so its keys are not read"));
      return;
    }
    m_section = name;
    m_sections[name];
    return;
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos) {
    remark(number, "", tr("the line has no \"=\", so it is not read: {}", line));
    return;
  }
  const std::string key = System::SysUtil::stripSpaces(line.substr(0, equals));
  if (key.empty()) {
    remark(number, "", tr("the line has no key, so it is not read: {}", line));
    return;
  }
  if (!m_section) {
    remark(number, key, tr("the key stands outside of a section, so it is not read"));
    return;
  }
  const bool isFirst = m_sections[*m_section]
                           .emplace(key, System::SysUtil::stripSpaces(line.substr(equals + 1)))
                           .second;
  if (isFirst) {
    m_lines[{*m_section, key}] = number;
  } else {
    remark(number, key, tr("the key stands in the section twice, and the first one counts"));
  }
}

void ConfigurationText::remark(int number, const std::string& key, const std::string& text) {
  m_remarks.push_back({number, m_section.value_or(""), key, text});
}

int ConfigurationText::lineOf(const std::string& section, const std::string& key) const {
  const auto entry = m_lines.find({section, key});
  return entry != m_lines.end() ? entry->second : 0;
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
