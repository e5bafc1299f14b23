#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "packages/network/Links.h"

namespace TarvexDiags::Network {

/// @brief The records of interfaces that a test has taken from their namespace, each in a file of
/// its own, so that they can be put back when nobody else does: the kernel brings an interface of
/// hardware back when the process that took it has died, but switched off.
///
/// A record is written before its interface is touched and removed when all is as before. Records
/// are good until the machine is restarted. Thread-safe: a plain value.
class InterfaceRecords {
 public:
  /// @param directory is made when it is needed
  explicit InterfaceRecords(std::filesystem::path directory) : m_directory(std::move(directory)) {}

  /// @brief Records an interface of the calling thread's namespace as taken by this process.
  /// @return the file. Throws NotSupported when it cannot be written.
  std::filesystem::path add(const Link& link) const;

  /// @brief Switches on again what was on when a process that is dead took it. What is in use, or
  /// belongs to another namespace, is left alone; may be repeated at will.
  /// @return what was done, a line for each interface
  std::vector<std::string> restore() const;

 private:
  static std::optional<std::string> restoreFrom(const std::filesystem::path& file);

  std::filesystem::path m_directory;
};

}  // namespace TarvexDiags::Network
