#include "diagctl/session/Texts.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;
using Controller = DiagCtrl::DiagnosticController;

// What the controller hands out is an array of the caller's.
std::optional<std::string> takeText(Controller::errorCode code, char* text) {
  const std::unique_ptr<char[]> owned(text);
  if (code != Controller::SUCCESS) {
    return std::nullopt;
  }
  return std::string(owned.get());
}

bool canBeTold(const std::optional<std::string>& text, const std::string& language) {
  return text && (language == Contract::kFallbackLanguage || canShow(*text));
}

}  // namespace

std::optional<std::string> Texts::token(int packageIndex,
                                        const Diag::DiagnosticEvent& event) const {
  if (m_archive.keepsTokens(packageIndex)) {
    return m_archive.token(packageIndex, event.getEventType(), event.getEventCode());
  }
  char* text = nullptr;
  const auto code =
      m_controller.getMessageToken(packageIndex, event.getEventType(), event.getEventCode(), text);
  return takeText(code, text);
}

void Texts::keep(int packageIndex, const std::string& directory, const std::string& baseName) {
  m_archive.keep(packageIndex, directory, baseName, {m_language, Contract::kFallbackLanguage});
}

std::optional<std::string> Texts::localise(int packageIndex, const std::string& token,
                                           std::vector<std::string> parameters) const {
  for (std::string language : {m_language, std::string(Contract::kFallbackLanguage)}) {
    if (m_archive.keepsTexts(packageIndex, language)) {
      auto kept = m_archive.message(packageIndex, language, token, parameters);
      if (canBeTold(kept, language)) {
        return kept;
      }
      continue;
    }
    std::string key = token;
    char* text = nullptr;
    const auto code = m_controller.getLocalizedMessage(packageIndex, language.data(), key.data(),
                                                       parameters, text);
    auto found = takeText(code, text);
    if (canBeTold(found, language)) {
      return found;
    }
  }
  return std::nullopt;
}

std::optional<std::string> Texts::message(int packageIndex,
                                          const Diag::DiagnosticEvent& event) const {
  const auto key = token(packageIndex, event);
  return key ? localise(packageIndex, *key, event.getParamVector()) : std::nullopt;
}

std::optional<std::string> Texts::action(int packageIndex,
                                         const Diag::DiagnosticEvent& event) const {
  const auto key = token(packageIndex, event);
  return key ? localise(packageIndex, Contract::toActionToken(*key), event.getParamVector())
             : std::nullopt;
}

std::string Texts::reason(int packageIndex, const std::string& wordsOrToken) const {
  for (const std::string& language : {m_language, std::string(Contract::kFallbackLanguage)}) {
    auto kept = m_archive.message(packageIndex, language, wordsOrToken, {});
    if (canBeTold(kept, language)) {
      return std::move(*kept);
    }
  }
  return wordsOrToken;
}

std::string Texts::localName(int packageIndex, const std::string& section) const {
  return local(packageIndex, section, TextArchive::kNameToken);
}

std::string Texts::localDescription(int packageIndex, const std::string& section) const {
  return local(packageIndex, section, TextArchive::kDescriptionToken);
}

// In English a thing has the name by which it is asked for, and no other.
std::string Texts::local(int packageIndex, const std::string& section, const char* key) const {
  auto text = m_language == Contract::kFallbackLanguage
                  ? std::nullopt
                  : m_archive.name(packageIndex, m_language, section, key);
  return canBeTold(text, m_language) ? std::move(*text) : std::string();
}

std::optional<std::string> Texts::deviceStatus(int packageIndex, unsigned int status) const {
  char* text = nullptr;
  const auto code = m_controller.getDeviceStatusToken(packageIndex, status, text);
  const auto key = takeText(code, text);
  return key ? localise(packageIndex, *key, {}) : std::nullopt;
}

std::string languageOfLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') {
      continue;
    }
    const std::string language =
        std::string(value).substr(0, std::string(value).find_first_of("_.@"));
    return language == "C" || language == "POSIX" ? Contract::kFallbackLanguage : language;
  }
  return Contract::kFallbackLanguage;
}

}  // namespace TarvexDiags::FrontEnd
