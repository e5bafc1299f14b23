#include "diagctl/terminal/Translation.h"

#include <libintl.h>
#include <strings.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kDomain = "diagctl";
constexpr std::string_view kLanguageOfSources = "en";

/// Written by speak alone, while there is one thread.
bool isTranslated = false;

// Installed as in the build tree.
fs::path catalogues() {
  std::error_code failure;
  const fs::path program = fs::read_symlink("/proc/self/exe", failure);
  return program.parent_path().parent_path() / "share" / "locale";
}

/// What the environment says of characters; empty where it says nothing.
std::string localeOfCharacters() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "";
}

thread_local int filesOfAnyCharacters = 0;

bool showsUnicode() {
  if (filesOfAnyCharacters > 0) {
    return true;
  }
  const std::string locale = localeOfCharacters();
  const std::size_t dot = locale.find('.');
  if (dot == std::string::npos) {
    return locale.empty();
  }
  const std::string set = locale.substr(dot + 1, locale.find('@') - dot - 1);
  return strcasecmp(set.c_str(), "UTF-8") == 0 || strcasecmp(set.c_str(), "utf8") == 0;
}

// Two letters: anything else could lead the library to another directory.
bool isCode(std::string_view language) {
  const auto isLetter = [](char sign) { return sign >= 'a' && sign <= 'z'; };
  return language.size() == 2 && std::all_of(language.begin(), language.end(), isLetter);
}

}  // namespace

void speak(const std::string& language) {
  const std::string directory = catalogues();
  // The library looks at LANGUAGE in any locale but "C", and this one comes with it.
  isTranslated = isCode(language) && language != kLanguageOfSources &&
                 std::setlocale(LC_MESSAGES, "C.UTF-8") != nullptr &&
                 setenv("LANGUAGE", language.c_str(), 1) == 0 &&
                 bindtextdomain(kDomain, directory.c_str()) != nullptr &&
                 bind_textdomain_codeset(kDomain, "UTF-8") != nullptr;
}

std::string languageOfTexts() {
  // A catalogue's own description stands under the empty text.
  const bool hasCatalogue = isTranslated && showsUnicode() && *dgettext(kDomain, "") != '\0';
  const char* const language = hasCatalogue ? std::getenv("LANGUAGE") : nullptr;
  return language != nullptr ? language : std::string(kLanguageOfSources);
}

OfAnyCharacters::OfAnyCharacters() {
  ++filesOfAnyCharacters;
}

OfAnyCharacters::~OfAnyCharacters() {
  --filesOfAnyCharacters;
}

bool canShow(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char character) { return static_cast<unsigned char>(character) < 0x80; }) ||
         showsUnicode();
}

std::string_view inLanguage(const char* text) {
  // The catalogue's own description stands under the empty text.
  if (!isTranslated || *text == '\0') {
    return text;
  }
  const std::string_view found = dgettext(kDomain, text);
  return canShow(found) ? found : text;
}

std::string_view inLanguage(const char* one, const char* many, std::size_t count) {
  const char* const source = count == 1 ? one : many;
  if (!isTranslated) {
    return source;
  }
  const std::string_view found = dngettext(kDomain, one, many, count);
  return canShow(found) ? found : source;
}

std::string fillIn(std::string_view text, std::string_view source, fmt::format_args arguments) {
  try {
    return fmt::vformat({text.data(), text.size()}, arguments);
  } catch (const fmt::format_error&) {
    return fmt::vformat({source.data(), source.size()}, arguments);
  }
}

}  // namespace TarvexDiags::FrontEnd
