#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Inventory {

/// @brief A fact or a tree of them. Keys are sorted; texts are valid UTF-8 without control
/// characters. A part that the machine does not have has no key.
using Json = nlohmann::json;

using Watching::SystemFiles;

/// @brief What this process may not read, or what firmware and kernel do not tell although the part
/// is there. Never to be taken for a part that is missing.
inline constexpr const char* kUnknown = "unknown";

/// @brief A text as a fact: blanks at both ends taken away, control characters and invalid UTF-8
/// replaced by "?".
std::string cleaned(std::string_view text);

/// @brief Puts the text of a file into a tree; kUnknown when the file is there and this process may
/// not read it, nothing when it is absent or empty.
void addText(Json& tree, const char* key, const SystemFiles& files,
             const std::filesystem::path& path);

/// @brief The same for a number.
void addNumber(Json& tree, const char* key, const SystemFiles& files,
               const std::filesystem::path& path);

/// @brief Puts a text there unless it is empty.
void addUnlessEmpty(Json& tree, const char* key, std::string_view text);

/// @brief Puts a subtree there unless it is empty.
void addTree(Json& tree, const char* key, Json&& subtree);

/// @brief Whether a file is there that this process may not read.
bool isWithheld(const SystemFiles& files, const std::filesystem::path& path);

/// @brief Numbers as the kernel writes a list of them: "0-3,8". @param numbers rising.
std::string listOf(const std::vector<int>& numbers);

/// @brief Values that parts have, each with the parts that have it: {"0x2b": "0-31"}.
class Shares {
 public:
  /// @param value an empty one is left out. @param part rising from call to call.
  void add(const std::string& value, int part);
  Json asJson() const;
  std::size_t size() const { return m_parts.size(); }

 private:
  std::map<std::string, std::vector<int>> m_parts;
};

}  // namespace TarvexDiags::Inventory
