#include "diagctl/session/TextArchive.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "diagctl/session/ConfigurationText.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Diag::DiagnosticEvent;

constexpr std::array kKeysOfNames = {TextArchive::kNameToken, TextArchive::kDescriptionToken};

// Null for what is missing or empty, which the controller takes for the same.
const std::string* find(const std::map<std::string, std::string>& entries, const std::string& key) {
  const auto entry = entries.find(key);
  return entry != entries.end() && !entry->second.empty() ? &entry->second : nullptr;
}

// Every variable takes its turn, whether it names a number or not.
std::string valueOf(const std::string& variable, std::size_t turn,
                    const std::vector<std::string>& parameters) {
  if (parameters.empty()) {
    return {};
  }
  const long number = std::strtol(variable.c_str(), nullptr, 10);
  const std::size_t order = number > 0 ? static_cast<std::size_t>(number) : turn;
  return parameters[std::min(order, parameters.size()) - 1];
}

std::vector<std::string> partsOf(std::string_view list, std::string_view between) {
  std::vector<std::string> parts;
  for (std::size_t end = 0; (end = list.find(between)) != std::string_view::npos;) {
    parts.emplace_back(list.substr(0, end));
    list.remove_prefix(end + between.size());
  }
  parts.emplace_back(list);
  return parts;
}

// A token as its text; so is each of a list of them. Anything else as it is.
std::string toldWord(const std::map<std::string, std::string>& texts,
                     const std::string& parameter) {
  std::string told;
  for (const std::string& part : partsOf(parameter, PackageKit::Contract::kBetweenWords)) {
    const std::string* const text = find(texts, part);
    if (text == nullptr) {
      return parameter;
    }
    told += (told.empty() ? "" : PackageKit::Contract::kBetweenWords) + *text;
  }
  return told;
}

}  // namespace

void TextArchive::keep(int packageIndex, const std::string& directory, const std::string& baseName,
                       const std::vector<std::string>& languages) {
  if (const auto file = ConfigurationText::read(directory + "/" + baseName + ".cfg")) {
    for (const auto type : {DiagnosticEvent::INFORMATION_EVENT, DiagnosticEvent::WARNING_EVENT,
                            DiagnosticEvent::ERROR_EVENT}) {
      const std::string section = PackageKit::Contract::sectionOf(type);
      m_tokens[{packageIndex, section}] = file->keys(section);
    }
    for (const std::string& section : file->sections()) {
      for (const char* const key : kKeysOfNames) {
        if (auto token = file->value(section, key)) {
          m_names[{packageIndex, section}].emplace(key, std::move(*token));
        }
      }
    }
    m_packages.insert(packageIndex);
  }
  for (const std::string& language : languages) {
    if (const auto file =
            ConfigurationText::read(directory + "/" + language + "/" + baseName + ".cfg")) {
      m_texts[{packageIndex, language}] = file->keys(language);
    }
  }
}

std::optional<std::string> TextArchive::token(int packageIndex, DiagnosticEvent::EventType type,
                                              unsigned int code) const {
  const auto tokens = m_tokens.find({packageIndex, PackageKit::Contract::sectionOf(type)});
  const std::string* found =
      tokens != m_tokens.end() ? find(tokens->second, std::to_string(code)) : nullptr;
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::optional<std::string> TextArchive::name(int packageIndex, const std::string& language,
                                             const std::string& section,
                                             const std::string& key) const {
  const auto tokens = m_names.find({packageIndex, section});
  const std::string* const token = tokens != m_names.end() ? find(tokens->second, key) : nullptr;
  return token != nullptr ? message(packageIndex, language, *token, {}) : std::nullopt;
}

std::optional<std::string> TextArchive::message(int packageIndex, const std::string& language,
                                                const std::string& token,
                                                std::vector<std::string> parameters) const {
  const auto texts = m_texts.find({packageIndex, language});
  const std::string* found = texts != m_texts.end() ? find(texts->second, token) : nullptr;
  if (found == nullptr) {
    return std::nullopt;
  }
  for (std::string& parameter : parameters) {
    parameter = toldWord(texts->second, parameter);
  }
  return fillIn(withoutEmptyEnd(*found, parameters), parameters);
}

std::string withoutEmptyEnd(const std::string& text, const std::vector<std::string>& parameters) {
  const std::size_t begin =
      text.ends_with('$') && text.size() > 2 ? text.rfind('$', text.size() - 2) : std::string::npos;
  if (begin == std::string::npos) {
    return text;
  }
  const long number = std::strtol(text.c_str() + begin + 1, nullptr, 10);
  const auto place = static_cast<std::size_t>(number);
  if (number <= 0 || place > parameters.size() || !parameters[place - 1].empty()) {
    return text;
  }
  std::size_t end = 0;
  for (const std::string_view stop : {". ", "。"}) {
    const std::size_t found = text.rfind(stop, begin);
    end =
        found != std::string::npos ? std::max(end, found + (stop == ". " ? 1 : stop.size())) : end;
  }
  return end > 0 ? text.substr(0, end) : text;
}

std::string fillIn(const std::string& text, const std::vector<std::string>& parameters) {
  std::string filled;
  std::size_t turn = 0;
  std::size_t position = 0;
  for (std::size_t begin = 0; (begin = text.find('$', position)) != std::string::npos;) {
    filled += text.substr(position, begin - position);
    position = begin + 1;
    const std::size_t end = text.find('$', position);
    if (end == std::string::npos) {
      break;
    }
    const std::string variable = text.substr(position, end - position);
    filled += variable.empty() ? "$" : valueOf(variable, ++turn, parameters);
    position = end + 1;
  }
  return filled + text.substr(position);
}

}  // namespace TarvexDiags::FrontEnd
