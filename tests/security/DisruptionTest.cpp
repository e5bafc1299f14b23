// Tests that take devices out of service or overwrite them run for those alone who said so.

#include <gmock/gmock.h>

#include <vector>

#include "tests/diagctl/Diagctl.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::Outcome;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Disruption : public DiagctlTest::Diagctl {
 protected:
  Disruption() {
    place.addPackage("DISKS",
                     {{.name = "Read"},
                      {.name = "Overwrite", .more = "TestCapabilities=quick, destructive"},
                      {.name = "Erase", .more = "TestCapabilities=destructive\nUnsupportedOn=One"}},
                     {{"One", "bus/one"}});
  }

  void expectRefusal(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kUsage);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("Package DISKS: Overwrite on One"),
                                   HasSubstr("--allow-disruptive")));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
};

TEST_F(Disruption, is_refused_where_nobody_allowed_it) {
  expectRefusal({"run"});
  expectRefusal({"run", "-t", "Over*", "--exit-style", "nagios"});
  expectRefusal({"run", "--dry-run"});
}

TEST_F(Disruption, is_refused_whatever_mode_the_run_or_its_control_file_asks_for) {
  expectRefusal({"run", "--mode", "factory"});
  place.replaceIn(place.controlFile(), "DiagnosticMode=CUSTOMER", "DiagnosticMode=FACTORY");
  expectRefusal({"run", "-q"});
}

TEST_F(Disruption, is_carried_out_for_somebody_who_allows_it) {
  const Outcome outcome = run({"run", "-t", "Overwrite", "--allow-disruptive"});
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kPassed);
  EXPECT_THAT(outcome.out, HasSubstr("Overwrite on One"));
}

TEST_F(Disruption, keeps_no_run_from_beginning_that_does_without_it) {
  EXPECT_EQ(run({"run", "--exclude-test", "Overwrite"}).exitCode, DiagctlTest::kPassed);
  EXPECT_EQ(run({"run", "-t", "Read"}).exitCode, DiagctlTest::kPassed);
  EXPECT_THAT(run({"list", "tests"}).out, HasSubstr("Overwrite"));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
