#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// Who else than root decides what a file system holds. A program of a user's own can serve one
/// (FUSE), and then says what stands in it, and whose that is, as it likes at each look.
class MountTable {
 public:
  /// Reads what is mounted, as this process sees it.
  MountTable();

  /// The number of the user who has mounted what a file lies in, or "?" where that cannot be told;
  /// nothing where it is root or a file system whose owners are true. Asks nobody who serves one,
  /// as far as the mount is one that this process may see.
  std::optional<std::string> strangerServing(const OpenedFile& file);

 private:
  void read();

  std::unordered_map<std::uint64_t, std::string> m_servers;  ///< of each mount; "" for none
};

/// The user who serves what a line of the kernel's table of mounts is about; empty for none.
std::string serverIn(std::string_view line);

}  // namespace TarvexDiags::FrontEnd
