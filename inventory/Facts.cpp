#include "inventory/Facts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
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

/// How long the character is with which the text begins; 0 when it is no valid one.
std::size_t lengthOfCharacter(std::string_view text) {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(0);
  const std::size_t length = lead < 0x80    ? 1
                             : lead < 0xC2  ? 0
                             : lead < 0xE0  ? 2
                             : lead < 0xF0  ? 3
                             : lead <= 0xF4 ? 4
                                            : 0;
  if (length == 0 || length > text.size()) {
    return 0;
  }
  std::uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0U) != 0x80) {
      return 0;
    }
    code = (code << 6U) | (byte(index) & 0x3FU);
  }
  const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool isCharacter = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
  return isOverlong || !isCharacter || isControl ? 0 : length;
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
