#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::Common {

/// @brief The kernel's files (/sys, /proc) below a root that tests replace by a folder of their
/// own.
///
/// Paths are relative to the root and begin without a slash. Thread-safety: a plain value.
class SystemFiles {
 public:
  explicit SystemFiles(std::filesystem::path root = "/") : m_root(std::move(root)) {}

  /// @brief The whole file; nothing when it cannot be read.
  std::optional<std::string> text(const std::filesystem::path& path) const;

  /// @brief The decimal number with which the file begins; nothing when there is none.
  std::optional<std::uint64_t> number(const std::filesystem::path& path) const;

  /// @brief The numbers N of the entries "<prefix>N" in a folder, rising.
  std::vector<int> numberedEntries(const std::filesystem::path& folder,
                                   std::string_view prefix) const;

  bool exists(const std::filesystem::path& path) const;

 private:
  std::filesystem::path m_root;
};

}  // namespace TarvexDiags::Common
