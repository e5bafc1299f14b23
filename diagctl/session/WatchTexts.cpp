#include "diagctl/session/WatchTexts.h"

#include <cctype>

#include "diagctl/session/TextArchive.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

WatchTexts::WatchTexts(const std::string& language) {
  for (const std::string& wanted :
       {language, std::string(PackageKit::Contract::kFallbackLanguage)}) {
    for (const File& file : files()) {
      if (file.language == wanted) {
        m_languages.push_back({wanted, ConfigurationText::parse(file.text)});
      }
    }
  }
}

const std::string* WatchTexts::find(const std::string& token) const {
  for (const Language& language : m_languages) {
    const auto& texts = language.texts.keys(language.name);
    if (const auto text = texts.find(token); text != texts.end()) {
      return &text->second;
    }
  }
  return nullptr;
}

std::string WatchTexts::text(const std::string& token,
                             const std::vector<std::string>& parameters) const {
  const std::string* const found = find(token);
  return found != nullptr ? fillIn(*found, parameters) : std::string();
}

std::string WatchTexts::nameOf(const std::string& token) {
  std::string name;
  for (const char character : token) {
    const auto byte = static_cast<unsigned char>(character);
    name += character == '_' ? '-' : static_cast<char>(std::tolower(byte));
  }
  return name;
}

// Of each kind there is something to be done.
std::vector<std::string> WatchTexts::tokens() {
  constexpr std::string_view kAction = "_ACTION";
  const WatchTexts english(PackageKit::Contract::kFallbackLanguage);
  std::vector<std::string> tokens;
  for (const auto& [key, text] :
       english.m_languages.front().texts.keys(PackageKit::Contract::kFallbackLanguage)) {
    if (key.ends_with(kAction)) {
      tokens.push_back(key.substr(0, key.size() - kAction.size()));
    }
  }
  return tokens;
}

std::string WatchTexts::tokenOf(std::string_view kind) {
  std::string token;
  for (const char character : kind) {
    const auto byte = static_cast<unsigned char>(character);
    token += character == '-' ? '_' : static_cast<char>(std::toupper(byte));
  }
  return token;
}

}  // namespace TarvexDiags::FrontEnd
