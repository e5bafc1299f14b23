#include "diagctl/session/SettingOverrides.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "System/SysUtil.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kPackageSection = "Package";

// Without the mark that some editors put before the first: it would hide the head of a section.
std::vector<std::string> linesOf(const std::string& text) {
  constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
  std::vector<std::string> lines;
  std::istringstream stream(text.starts_with(byteOrderMark) ? text.substr(byteOrderMark.size())
                                                            : text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string sectionIn(const std::string& line) {
  const std::string text = System::SysUtil::stripSpaces(line);
  const std::size_t end = text.find(']');
  return text.starts_with('[') && end != std::string::npos
             ? System::SysUtil::stripSpaces(text.substr(1, end - 1))
             : "";
}

bool isHead(const std::string& line) {
  return System::SysUtil::stripSpaces(line).starts_with('[');
}

bool setsKey(const std::string& line, const std::string& key) {
  const std::size_t equals = line.find('=');
  const std::string text = System::SysUtil::stripSpaces(line);
  return equals != std::string::npos && !text.starts_with('#') && !text.starts_with(';') &&
         System::SysUtil::stripSpaces(line.substr(0, equals)) == key;
}

std::string joined(const std::vector<std::string>& lines) {
  return fmt::format("{}\n", fmt::join(lines, "\n"));
}

// Whether a reader of the file would find it again.
bool isReadAsKey(const std::string& key) {
  return !key.empty() && System::SysUtil::stripSpaces(key) == key &&
         std::string_view("#;[").find(key.front()) == std::string_view::npos;
}

[[noreturn]] void refuse(const std::string& text) {
  throw std::invalid_argument(
      tr("'{}' is not PACKAGE.KEY=VALUE, or PACKAGE.NUMBER.KEY=VALUE for one test", text));
}

}  // namespace

SettingOverride parseOverride(const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::size_t dot = text.find('.');
  if (equals == std::string::npos || dot == std::string::npos || dot > equals || dot == 0 ||
      equals + 1 == text.size() || text.find_first_of("\r\n") != std::string::npos) {
    refuse(text);
  }
  SettingOverride override;
  override.package = text.substr(0, dot);
  override.key = text.substr(dot + 1, equals - dot - 1);
  override.value = System::SysUtil::stripSpaces(text.substr(equals + 1));
  if (const std::size_t next = override.key.find('.'); next != std::string::npos) {
    const char* const end = override.key.data() + next;
    const auto [stop, error] = std::from_chars(override.key.data(), end, override.test);
    if (error != std::errc() || stop != end || override.test < 1) {
      refuse(text);
    }
    override.key.erase(0, next + 1);
  }
  if (!isReadAsKey(override.key) || override.value.empty()) {
    refuse(text);
  }
  return override;
}

std::string withValue(const std::string& description, const std::string& section,
                      const std::string& key, const std::string& value) {
  std::vector<std::string> lines = linesOf(description);
  const std::string wanted = fmt::format("{}={}", key, value);
  bool isInSection = false;
  std::size_t behindHead = 0;
  for (std::size_t index = 0; index < lines.size(); ++index) {
    if (isHead(lines[index])) {
      isInSection = sectionIn(lines[index]) == section;
      behindHead = isInSection && behindHead == 0 ? index + 1 : behindHead;
    } else if (isInSection && setsKey(lines[index], key)) {
      lines[index] = wanted;
      return joined(lines);
    }
  }
  if (behindHead == 0) {
    lines.push_back(fmt::format("[{}]", section));
    behindHead = lines.size();
  }
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(behindHead), wanted);
  return joined(lines);
}

std::string withOverlay(std::string description, const std::string& overlayFile) {
  std::string reason;
  const auto overlay = ConfigurationText::read(overlayFile, reason);
  if (!overlay) {
    throw std::runtime_error(fmt::format("{}: {}", overlayFile, reason));
  }
  for (const std::string& section : overlay->sections()) {
    for (const auto& [key, value] : overlay->keys(section)) {
      description = withValue(description, section, key, value);
    }
  }
  return description;
}

std::string withOverride(std::string description, const SettingOverride& override) {
  if (override.test != 0) {
    return withValue(description, fmt::format("TestID{}", override.test), override.key,
                     override.value);
  }
  std::vector<std::string> sections;
  std::string section;
  for (const std::string& line : linesOf(description)) {
    if (isHead(line)) {
      section = sectionIn(line);
    } else if (section.starts_with("TestID") && setsKey(line, override.key)) {
      sections.push_back(section);
    }
  }
  for (const std::string& each : sections) {
    description = withValue(description, each, override.key, override.value);
  }
  return withValue(description, kPackageSection, override.key, override.value);
}

}  // namespace TarvexDiags::FrontEnd
