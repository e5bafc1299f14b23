#include "inventory/Facts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

namespace TarvexDiags::Inventory {

namespace {

constexpr const char* kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// How many bytes a character of UTF-8 has, by its first; 0 for one that begins none.
std::size_t lengthFor(unsigned char lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead < 0xC2) {
    return 0;
  }
  if (lead < 0xE0) {
    return 2;
  }
  if (lead < 0xF0) {
    return 3;
  }
  return lead <= 0xF4 ? 4 : 0;
}

/// The code of a character; nothing when its bytes are none.
std::optional<std::uint32_t> codeOf(std::string_view character) {
  const auto lead = static_cast<unsigned char>(character.front());
  std::uint32_t code = character.size() == 1 ? lead : lead & (0xFFU >> (character.size() + 1));
  for (const char next : character.substr(1)) {
    const auto byte = static_cast<unsigned char>(next);
    if ((byte & 0xC0U) != 0x80) {
      return std::nullopt;
    }
    code = (code << 6U) | (byte & 0x3FU);
  }
  return code;
}

/// Whether a code that takes so many bytes is a character and steers nothing.
bool isHarmless(std::uint32_t code, std::size_t bytes) {
  const bool isOverlong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
  const bool isCharacter = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
  return isCharacter && !isOverlong && !isControl;
}

/// How long the character is with which the text begins; 0 when it is no harmless one.
std::size_t lengthOfCharacter(std::string_view text) {
  const std::size_t length = lengthFor(static_cast<unsigned char>(text.front()));
  if (length == 0 || length > text.size()) {
    return 0;
  }
  const std::optional<std::uint32_t> code = codeOf(text.substr(0, length));
  return code && isHarmless(*code, length) ? length : 0;
}

}  // namespace

std::string cleaned(std::string_view text) {
  text = trimmed(text);
  std::string clean;
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    clean += length == 0 ? std::string_view("?") : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return clean;
}

bool isWithheld(const SystemFiles& files, const std::filesystem::path& path) {
  const int file = open(files.absolute(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (file < 0) {
    return errno == EACCES || errno == EPERM;
  }
  char byte = 0;
  const bool isRefused = read(file, &byte, 1) < 0 && (errno == EACCES || errno == EPERM);
  close(file);
  return isRefused;
}

void addText(Json& tree, const char* key, const SystemFiles& files,
             const std::filesystem::path& path) {
  if (const auto text = files.text(path)) {
    addUnlessEmpty(tree, key, *text);
  } else if (isWithheld(files, path)) {
    tree[key] = kUnknown;
  }
}

void addNumber(Json& tree, const char* key, const SystemFiles& files,
               const std::filesystem::path& path) {
  if (const auto number = files.number(path)) {
    tree[key] = *number;
  } else if (isWithheld(files, path)) {
    tree[key] = kUnknown;
  }
}

void addUnlessEmpty(Json& tree, const char* key, std::string_view text) {
  if (std::string clean = cleaned(text); !clean.empty()) {
    tree[key] = std::move(clean);
  }
}

void addTree(Json& tree, const char* key, Json&& subtree) {
  if (!subtree.empty()) {
    tree[key] = std::move(subtree);
  }
}

std::string listOf(const std::vector<int>& numbers) {
  std::string list;
  for (std::size_t first = 0; first < numbers.size();) {
    std::size_t last = first;
    while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
      ++last;
    }
    list += (list.empty() ? "" : ",") + std::to_string(numbers[first]);
    if (last > first) {
      list += "-" + std::to_string(numbers[last]);
    }
    first = last + 1;
  }
  return list;
}

void Shares::add(const std::string& value, int part) {
  if (std::string clean = cleaned(value); !clean.empty()) {
    m_parts[std::move(clean)].push_back(part);
  }
}

Json Shares::asJson() const {
  Json shares = Json::object();
  for (const auto& [value, parts] : m_parts) {
    shares[value] = listOf(parts);
  }
  return shares;
}

}  // namespace TarvexDiags::Inventory
