// The built program with poisoned memory under a test of something else: the test has no verdict,
// and the memory has failed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

class MachineWatch : public Diagctl {
 protected:
  MachineWatch() { place.useMisbehavingPackage(); }

  ReportedRun runOn(const std::vector<std::string>& devices) {
    std::vector<std::string> arguments = {"run", "--serial", "-t", "Poisoned memory"};
    for (const std::string& device : devices) {
      arguments.insert(arguments.end(), {"-d", device});
    }
    return reportedRun(withControlFile(arguments));
  }

  const std::string m_test = "Misbehaving package: Poisoned memory on Unit 0";
  const std::string m_step = "diagctl: Machine watch on this machine";
};

TEST_F(MachineWatch, tells_poisoned_memory_as_a_failure_beside_the_test_that_met_it) {
  const ReportedRun run = runOn({"Unit 0"});
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
  EXPECT_THAT(run.steps(), UnorderedElementsAre(m_test, m_step));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("ERROR"));
  EXPECT_THAT(run.symptomsOf(m_test), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.formatsWithout(m_step, "test Poisoned memory met"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "address 0x"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "Replace the memory module"), IsEmpty());
}

TEST_F(MachineWatch, tells_of_all_that_is_met_in_one_step) {
  const ReportedRun run = runOn({"Unit 0", "Unit 1"});
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
  EXPECT_THAT(run.steps(), UnorderedElementsAre(
                               m_test, "Misbehaving package: Poisoned memory on Unit 1", m_step));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
}

TEST_F(MachineWatch, tells_nothing_where_the_machine_shows_no_fault) {
  const ReportedRun run =
      reportedRun(withControlFile({"run", "-t", "Segmentation fault", "-d", "Unit 0"}));
  EXPECT_EQ(run.exitCode(), kNoVerdict);
  EXPECT_THAT(run.steps(), Not(::testing::Contains(m_step)));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
