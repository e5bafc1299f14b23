#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// Who else than root decides what a file system holds. A program of a user's own can serve one
/// (FUSE), and then says what stands in it, and whose that is, as it likes at each look. And a
/// medium that a user brings has been written elsewhere.
class MountTable {
 public:
  /// Reads what is mounted, as this process sees it.
  MountTable();

  /// The number of the user who has mounted what a file lies in, or "?" where that cannot be told;
  /// nothing where it is root or a file system whose owners are true. Asks nobody who serves one,
  /// as far as the mount is one that this process may see.
  std::optional<std::string> strangerServing(const OpenedFile& file);

  /// Whether a file lies on a medium that can have been written elsewhere, and that is mounted
  /// without set-uid programs, as those who mount for users do: there the kernel does not believe
  /// the owners of files either. One that root has mounted with them is believed.
  bool isOnMediumOfOthers(const OpenedFile& file);

 private:
  struct Mount {
    std::string server;  ///< empty for none
    std::string device;  ///< whose files are not to be believed if others can write it; or empty
  };

  void read();
  /// Nothing for one that is above what this process may see.
  const Mount* mountOf(const OpenedFile& file);

  std::unordered_map<std::uint64_t, Mount> m_mounts;
};

/// The user who serves what a line of the kernel's table of mounts is about; empty for none.
std::string serverIn(std::string_view line);

/// The device of a line of that table, as its number or, where the file system has one of its own,
/// by its path; empty unless it is mounted without set-uid programs.
std::string deviceWithoutSetUidIn(std::string_view line);

}  // namespace TarvexDiags::FrontEnd
