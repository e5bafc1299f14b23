#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::TestSupport {

/// The text of a configuration file, built section by section in the order in which they are named.
///
///   ConfigText().set("Package", "Mnemonic", "MEM").set("TestID1", "TestName", "walk").text()
class ConfigText {
 public:
  /// Adds the key, or gives it another value.
  ConfigText& set(const std::string& section, const std::string& key, const std::string& value) {
    for (auto& [name, old] : keysOf(section)) {
      if (name == key) {
        old = value;
        return *this;
      }
    }
    keysOf(section).emplace_back(key, value);
    return *this;
  }

  ConfigText& remove(const std::string& section, const std::string& key) {
    auto& keys = keysOf(section);
    keys.erase(std::remove_if(keys.begin(), keys.end(),
                              [&key](const Key& candidate) { return candidate.first == key; }),
               keys.end());
    return *this;
  }

  ConfigText& removeSection(const std::string& section) {
    m_sections.erase(
        std::remove_if(m_sections.begin(), m_sections.end(),
                       [&section](const Section& known) { return known.first == section; }),
        m_sections.end());
    return *this;
  }

  std::string text() const {
    std::string result;
    for (const auto& [section, keys] : m_sections) {
      result += "[" + section + "]\n";
      for (const auto& [key, value] : keys) {
        result += key + "=" + value + "\n";
      }
    }
    return result;
  }

  /// @return the path of the file.
  std::string writeTo(const TemporaryDirectory& directory, const std::string& name) const {
    return directory.write(name, text());
  }

 private:
  using Key = std::pair<std::string, std::string>;
  using Section = std::pair<std::string, std::vector<Key>>;

  std::vector<Key>& keysOf(const std::string& section) {
    for (auto& [name, keys] : m_sections) {
      if (name == section) {
        return keys;
      }
    }
    return m_sections.emplace_back(section, std::vector<Key>()).second;
  }

  std::vector<Section> m_sections;
};

}  // namespace TarvexDiags::TestSupport
