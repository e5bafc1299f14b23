#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::Watching {

/// @brief The kernel's files (/sys, /proc) below a root that tests replace by a folder of their
/// own.
///
/// Paths are relative to the root and begin without a slash. Thread-safety: a plain value.
class SystemFiles {
 public:
  explicit SystemFiles(std::filesystem::path root = "/") : m_root(std::move(root)) {}

  /// @brief The whole file; nothing when it cannot be read, is no plain file, leads out of the root
  /// or is longer than 16 MiB.
  std::optional<std::string> text(const std::filesystem::path& path) const;

  /// @brief The decimal number with which the file begins; nothing when there is none.
  std::optional<std::uint64_t> number(const std::filesystem::path& path) const;

  /// @brief The same for a number that the kernel writes as "0x1f".
  std::optional<std::uint64_t> hexadecimal(const std::filesystem::path& path) const;

  /// @brief The first line of the file without the blanks around it; empty when there is none.
  std::string line(const std::filesystem::path& path) const;

  /// @brief The first word of the file; empty when there is none.
  std::string word(const std::filesystem::path& path) const;

  /// @brief The numbers N of the entries "<prefix>N" in a folder, rising.
  std::vector<int> numberedEntries(const std::filesystem::path& folder,
                                   std::string_view prefix) const;

  /// @brief The names in a folder, in order; none when it cannot be read or leads out of the root.
  std::vector<std::string> entries(const std::filesystem::path& folder) const;

  bool exists(const std::filesystem::path& path) const;

  /// @brief Where the path lies below the root when all links are followed; empty when it does not
  /// exist or leads out of the root.
  std::filesystem::path resolved(const std::filesystem::path& path) const;

  /// @brief The path as the system's calls take it.
  std::filesystem::path absolute(const std::filesystem::path& path) const { return m_root / path; }

 private:
  std::filesystem::path m_root;
};

}  // namespace TarvexDiags::Watching
