#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/health/ChildProcess.h"
#include "diagctl/health/SlurmState.h"

namespace TarvexDiags::FrontEnd {

/// The node that Slurm has started this program for. What somebody else has said of it stays.
class SlurmNode {
 public:
  /// @param configuration of Slurm; nothing: the one that it finds. @param isSecure as root: run no
  ///   program that others could change. @param until when each command has to be over.
  /// @throws std::runtime_error for people, naming what is missing.
  SlurmNode(std::optional<std::string> configuration, bool isSecure,
            ChildProcess::Clock::time_point until);

  /// Drains the node unless it is drained, or somebody has taken it down.
  /// @param reason goes behind kOwnReason. @return what was done, or why nothing was; for people.
  /// @throws std::runtime_error for people, if it could not be done.
  std::string drain(const std::string& reason) const;

  /// Gives a node back that was drained here.
  /// @return what was done; empty for nothing. @throws as above.
  std::string undrainOwn() const;

 private:
  std::string ask(const std::vector<std::string>& words) const;
  SlurmState state() const;

  std::string m_name;
  std::string m_program;
  std::vector<std::string> m_environment;
  ChildProcess::Clock::time_point m_until;
};

}  // namespace TarvexDiags::FrontEnd
