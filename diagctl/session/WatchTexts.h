#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "diagctl/session/ConfigurationText.h"

namespace TarvexDiags::FrontEnd {

/// What the watch over the machine finds, in words. The texts are part of the program, so that they
/// are there when the disk is not.
class WatchTexts {
 public:
  /// @param language of the texts; what it has not is told in English.
  explicit WatchTexts(const std::string& language);

  /// The text of a token, its parameters filled in; empty where there is none.
  std::string text(const std::string& token, const std::vector<std::string>& parameters = {}) const;

  /// The token of a kind of finding: "MEMORY_CORRECTED" for "memory-corrected".
  static std::string tokenOf(std::string_view kind);
  /// The other way round.
  static std::string nameOf(const std::string& token);
  /// The tokens of all kinds of findings.
  static std::vector<std::string> tokens();

  /// The language files as they were built in.
  struct File {
    const char* language;
    const char* text;
  };
  static const std::vector<File>& files();

 private:
  const std::string* find(const std::string& token) const;

  struct Language {
    std::string name;
    ConfigurationText texts;
  };
  std::vector<Language> m_languages;  ///< in the order of preference
};

}  // namespace TarvexDiags::FrontEnd
