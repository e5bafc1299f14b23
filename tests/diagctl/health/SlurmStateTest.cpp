// What Slurm says of a node.

#include <gtest/gtest.h>

#include <string>

#include "diagctl/health/SlurmState.h"

namespace TarvexDiags::FrontEnd {
namespace {

SlurmState stateOf(const std::string& states, const std::string& reason = "") {
  return slurmStateFrom("NodeName=n1 Arch=x86_64 CoresPerSocket=1\n   State=" + states +
                        " ThreadsPerCore=1 TmpDisk=0\n   Comment=State=DRAIN Reason=none\n" +
                        (reason.empty() ? "" : "   Reason=" + reason + " [root@2026-01-01]\n") +
                        "\n")
      .value();
}

TEST(SlurmStates, are_read_with_their_marks) {
  for (const std::string states : {"IDLE", "ALLOCATED", "MIXED#", "IDLE+CLOUD", "RESERVED+MAINT"}) {
    EXPECT_TRUE(stateOf(states).isFree()) << states;
  }
  for (const std::string states : {"IDLE+DRAIN", "DRAINED", "DRAINING*", "DOWN*+DRAIN"}) {
    EXPECT_TRUE(stateOf(states).isDrained) << states;
    EXPECT_FALSE(stateOf(states).isFree()) << states;
  }
  EXPECT_TRUE(stateOf("DOWN*").isDown);
}

TEST(SlurmStates, of_a_node_that_is_down_are_somebodys_unless_slurm_could_not_reach_it) {
  EXPECT_FALSE(stateOf("DOWN", "fan").isFree());
  EXPECT_TRUE(stateOf("DOWN").isFree());
  EXPECT_TRUE(stateOf("DOWN*", "Not responding").isFree());
  EXPECT_TRUE(stateOf("DOWN", "diagctl: FAILED Read on Disk").isFree());
  EXPECT_TRUE(stateOf("IDLE+DRAIN", "diagctl: FAILED Read on Disk").isOwn());
  EXPECT_FALSE(stateOf("IDLE+DRAIN", "not diagctl: FAILED Read on Disk").isOwn());
}

TEST(SlurmStates, are_none_where_none_is_told) {
  EXPECT_FALSE(slurmStateFrom(""));
  EXPECT_FALSE(slurmStateFrom("Node n7 not found\n"));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
