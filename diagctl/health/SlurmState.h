#pragma once

#include <optional>
#include <string>

namespace TarvexDiags::FrontEnd {

/// What begins the reason of each node that was drained here.
inline constexpr const char* kOwnReason = "diagctl:";

/// What Slurm says of a node.
struct SlurmState {
  bool isDrained = false;
  bool isDown = false;
  std::string reason = {};  ///< as somebody gave it; empty for none

  /// Whether it was drained here, if it is.
  bool isOwn() const { return reason.starts_with(kOwnReason); }
  /// Whether nobody has taken it out of use, but Slurm itself for that it could not reach it.
  bool isFree() const;
};

/// @param answer of "scontrol show node". @return nothing if no state stands in it.
std::optional<SlurmState> slurmStateFrom(const std::string& answer);

}  // namespace TarvexDiags::FrontEnd
