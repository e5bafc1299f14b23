#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// A configuration file, whole, by the rules of the library's reader, which looks up one key at a
/// time and so cannot tell what a file holds beside.
class ConfigurationText {
 public:
  struct Remark {
    int line = 0;
    std::string section;
    std::string key;
    std::string text;
  };

  /// The most bytes of a file that are read.
  static constexpr std::size_t kLargestFile = 16UL << 20U;

  /// @return nothing if the file cannot be read, is no regular file or too large: a pipe or a
  ///   device may never end.
  static std::optional<ConfigurationText> read(const std::string& path);
  /// @param reason is told when there is nothing, for people.
  static std::optional<ConfigurationText> read(const std::string& path, std::string& reason);

  /// The same for a text that is there already.
  static ConfigurationText parse(const std::string& content);

  bool hasSection(const std::string& section) const { return m_sections.contains(section); }
  /// The value of a key; nothing where the library takes it for missing: absent, empty, too long.
  std::optional<std::string> value(const std::string& section, const std::string& key) const;
  /// All keys of a section with their values; empty without the section.
  const std::map<std::string, std::string>& keys(const std::string& section) const;
  std::vector<std::string> sections() const;
  /// Where a key that counts stands, from 1; 0 where it stands nowhere.
  int lineOf(const std::string& section, const std::string& key) const;
  /// What is written and never read: keys outside of a section, second ones, lines without "=".
  const std::vector<Remark>& remarks() const { return m_remarks; }

 private:
  void take(const std::string& line, int number);
  void remark(int number, const std::string& key, const std::string& text);

  std::map<std::string, std::map<std::string, std::string>> m_sections;
  std::map<std::pair<std::string, std::string>, int> m_lines;  ///< by section and key
  std::vector<Remark> m_remarks;
  std::optional<std::string> m_section;
};

}  // namespace TarvexDiags::FrontEnd
