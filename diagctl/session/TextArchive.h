#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Diag/DiagnosticEvent.h"

namespace TarvexDiags::FrontEnd {

/// What packages say of their events, read once and kept: the controller reads their files at each
/// look-up, which holds up a run when many events come, and these may be gone when a fault is to be
/// told, with the disk that they lay on.
class TextArchive {
 public:
  /// The keys by which a section tells the tokens of a name and of a description.
  static constexpr const char* kNameToken = "NameToken";
  static constexpr const char* kDescriptionToken = "DescriptionToken";

  /// Reads the files of one package; what cannot be read is not kept.
  /// @param directory of the packages.
  void keep(int packageIndex, const std::string& directory, const std::string& baseName,
            const std::vector<std::string>& languages);

  /// What a package or one of its tests is called in a language; nothing where that has no text.
  /// @param section of the package's description. @param key that names the token there.
  std::optional<std::string> name(int packageIndex, const std::string& language,
                                  const std::string& section, const std::string& key) const;

  /// Whether a package's tokens are kept: what is none of them has no token.
  bool keepsTokens(int packageIndex) const { return m_packages.contains(packageIndex); }
  /// Whether a package's texts in a language are kept: what is none of them has no text.
  bool keepsTexts(int packageIndex, const std::string& language) const {
    return m_texts.contains({packageIndex, language});
  }

  /// The token of an event, as the controller looks it up.
  std::optional<std::string> token(int packageIndex, Diag::DiagnosticEvent::EventType type,
                                   unsigned int code) const;
  /// The text of a token, filled in as the controller does it. A parameter that is a token itself
  /// is told as its text, and so is a list of tokens (kBetweenWords).
  std::optional<std::string> message(int packageIndex, const std::string& language,
                                     const std::string& token,
                                     std::vector<std::string> parameters) const;

 private:
  using Entries = std::map<std::string, std::string>;

  std::set<int> m_packages;                                 ///< whose tokens are kept
  std::map<std::pair<int, std::string>, Entries> m_tokens;  ///< by package and section
  std::map<std::pair<int, std::string>, Entries> m_names;   ///< tokens of names, the same
  std::map<std::pair<int, std::string>, Entries> m_texts;   ///< by package and language
};

/// A text without its last sentence, where that ends in a variable which has nothing to tell: "Last
/// output: $5$".
std::string withoutEmptyEnd(const std::string& text, const std::vector<std::string>& parameters);

/// A text with its variables filled in: "$1$" is the first parameter, "$$" a dollar sign, "$word$"
/// the parameter whose turn it is.
std::string fillIn(const std::string& text, const std::vector<std::string>& parameters);

}  // namespace TarvexDiags::FrontEnd
