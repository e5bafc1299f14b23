#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "diagctl/session/MountTable.h"

namespace TarvexDiags::FrontEnd {

/// Looks whether anybody but root could decide what paths lead to, now or later.
///
/// A path is followed name by name, as the kernel does, and everything on the way is looked at:
/// each directory in which a name is looked up, each symbolic link, and what stands at the end. All
/// of it must be root's, and nobody else may write to it; a directory on the way may be sticky
/// instead, which keeps what root owns in it. A name that is not there yet is judged by the
/// directory in which it could be made. Of a file system that a program of somebody else's serves,
/// or that lies on a medium that others can have written, nothing is believed. So a path without
/// findings leads to the same file until root itself changes that, however much later and by
/// whichever process it is opened: nothing has to be opened twice for it, and the dynamic loader,
/// debuggers and packages see the names that they are used to.
class PathInspection {
 public:
  /// Follows a path, which need not exist. The empty path and relative ones begin at the working
  /// directory. A directory at the end must not be writable by others even if it is sticky, as they
  /// could add to what it holds.
  void inspect(const std::string& path);

  /// Adds a finding of another kind, unless it is there.
  void tell(const std::string& finding);

  /// A line for each finding so far, naming the file and the reason, in the order in which they
  /// were found, each once.
  const std::vector<std::string>& findings() const { return m_findings; }

 private:
  class Walk;

  MountTable m_mounts;
  std::set<std::string, std::less<>> m_inspected;
  std::set<std::string> m_told;
  std::vector<std::string> m_findings;
};

}  // namespace TarvexDiags::FrontEnd
