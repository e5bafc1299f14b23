#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/session/TextArchive.h"

namespace TarvexDiags::FrontEnd {

/// Texts of packages in one language, by way of their tokens. What has no text in the language is
/// looked up in English, so that a technician sees words and not numbers.
class Texts {
 public:
  Texts(DiagCtrl::DiagnosticController& controller, std::string language)
      : m_controller(controller), m_language(std::move(language)) {}

  /// The token of an event: a name for its kind, whatever the language.
  std::optional<std::string> token(int packageIndex, const Diag::DiagnosticEvent& event) const;
  /// The message of an event, its parameters filled in.
  std::optional<std::string> message(int packageIndex, const Diag::DiagnosticEvent& event) const;
  /// What to do about an event: the text beside that of its token.
  std::optional<std::string> action(int packageIndex, const Diag::DiagnosticEvent& event) const;
  /// What a package gives as a reason, which may be words of its own or a token of its texts. Only
  /// of packages whose texts are kept: to the controller, words that are no token are an error.
  std::string reason(int packageIndex, const std::string& wordsOrToken) const;
  /// Keeps the texts of a package's events for when its files are gone.
  /// @param directory of the packages.
  void keep(int packageIndex, const std::string& directory, const std::string& baseName);

  /// What a package, or one of its tests, is called in the language. Empty where its texts have no
  /// name, or one that cannot be shown, and in English, where it bears its own. Only of packages
  /// whose texts are kept.
  /// @param section of the package's description.
  std::string localName(int packageIndex, const std::string& section) const;
  /// The same for what describes it.
  std::string localDescription(int packageIndex, const std::string& section) const;

  std::optional<std::string> deviceStatus(int packageIndex, unsigned int status) const;

  const std::string& language() const { return m_language; }

 private:
  std::optional<std::string> localise(int packageIndex, const std::string& token,
                                      std::vector<std::string> parameters) const;

  std::string local(int packageIndex, const std::string& section, const char* key) const;

  DiagCtrl::DiagnosticController& m_controller;
  std::string m_language;
  TextArchive m_archive;
};

/// The language of the environment's locale (LC_ALL, LC_MESSAGES, LANG), "en" if there is none.
std::string languageOfLocale();

}  // namespace TarvexDiags::FrontEnd
