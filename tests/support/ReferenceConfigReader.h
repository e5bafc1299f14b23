#pragma once

#include <optional>
#include <sstream>
#include <string>

namespace TarvexDiags::TestSupport {

/// The format of configuration files, line by line and as plainly as it can be written: what the
/// library's own reader is compared with.
class ReferenceConfigReader {
 public:
  explicit ReferenceConfigReader(const std::string& text)
      : m_text(text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? text.substr(3) : text) {}

  /// The value, or nothing when there is no such key.
  std::optional<std::string> read(const std::string& section, const std::string& key) const {
    std::istringstream lines(m_text);
    std::string raw;
    std::string current;  // empty outside of any section: no section has an empty name
    while (std::getline(lines, raw, '\n')) {
      const std::string line = strip(raw);
      if (line.empty() || line[0] == '#' || line[0] == ';') {
        continue;
      }
      if (line[0] == '[') {
        const auto end = line.find(']');
        current = end == std::string::npos ? "" : strip(line.substr(1, end - 1));
        continue;
      }
      const auto equals = line.find('=');
      if (equals != std::string::npos && !current.empty() && current == section && !key.empty() &&
          strip(line.substr(0, equals)) == key) {
        return strip(line.substr(equals + 1));
      }
    }
    return std::nullopt;
  }

 private:
  static std::string strip(const std::string& text) {
    static const char kBlanks[] = " \t\r\v\f";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
      return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
  }

  const std::string m_text;
};

}  // namespace TarvexDiags::TestSupport
