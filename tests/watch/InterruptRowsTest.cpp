#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/FakeMachine.h"
#include "watch/InterruptRows.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

TEST(InterruptRowsTest, are_read_by_the_cpus_that_the_head_names) {
  const auto rows = parseInterruptRows(
      "           CPU0       CPU2       \n"
      "  1:          9          8   IO-APIC   1-edge  MCE: 5\n"
      "MCE:          0          3   Machine check exceptions\n"
      "MCP:          7          7   Machine check polls\n",
      {"MCE", "THR"});
  EXPECT_THAT(rows, ElementsAre(Pair("MCE", UnorderedElementsAre(Pair(0, 0U), Pair(2, 3U)))));
}

TEST(InterruptRowsTest, are_taken_as_far_as_they_are_well_formed) {
  EXPECT_THAT(parseInterruptRows("", {"MCE"}), IsEmpty());
  EXPECT_THAT(parseInterruptRows("CPU0 CPUx CPU1\nMCE: 1 2 three\nTHR 4 4 4\n", {"MCE", "THR"}),
              ElementsAre(Pair("MCE", UnorderedElementsAre(Pair(0, 1U)))));
}

TEST(InterruptRowsTest, say_what_kind_of_trouble_they_count) {
  Tests::FakeMachine machine;
  EXPECT_THAT(readTroubleRows(machine.files()), IsEmpty());
  machine.has("proc/interrupts", "CPU0\nTRM: 1\nTHR: 2\nDFR: 3\nMCE: 4\nMCP: 5\n");
  std::map<std::string, Trouble> troubles;
  for (const TroubleRow& row : readTroubleRows(machine.files())) {
    troubles[row.label] = row.trouble;
    EXPECT_EQ(row.counts.size(), 1U) << row.label;
  }
  EXPECT_THAT(troubles,
              ElementsAre(Pair("DFR", Trouble::Corrected), Pair("MCE", Trouble::MachineCheck),
                          Pair("THR", Trouble::Corrected), Pair("TRM", Trouble::Throttling)));
}

}  // namespace
}  // namespace TarvexDiags::Watching
