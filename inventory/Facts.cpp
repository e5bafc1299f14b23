#include "inventory/Facts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "System/internal/Utf8.h"

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

}  // namespace

std::string cleaned(std::string_view text) {
  text = trimmed(text);
  std::string clean;
  while (!text.empty()) {
    const System::Character character = System::firstCharacterOf(text);
    const bool isControl =
        character.code < 0x20 || (character.code >= 0x7f && character.code < 0xa0);
    if (character.isValid && !isControl) {
      clean += character.bytes;
    } else {
      clean.append(character.bytes.size(), '?');
    }
    text.remove_prefix(character.bytes.size());
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
