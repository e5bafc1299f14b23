// Tests that take devices out of service or overwrite them run for those alone who said so.

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::Outcome;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

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

// What a file says of the test, nobody has said who starts the run.
TEST_F(Disruption, is_refused_to_files_that_allow_it_or_call_the_test_another) {
  const std::string reason = "has the word 'destructive' there, which no setting takes away";
  const std::string control = DiagctlTest::contentsOf(place.controlFile());
  place.write(place.controlFile(), control + "\n[Settings]\nDISKS.2.TestCapabilities=quick\n");
  EXPECT_THAT(run({"run"}).err, HasSubstr(reason));
  EXPECT_THAT(run({"check"}).out, HasSubstr(reason));
  place.write(place.controlFile(), control);
  EXPECT_THAT(run({"run", "--set", "DISKS.2.TestCapabilities=quick"}).err, HasSubstr(reason));

  DiagctlTest::Program::Options options;
  options.environment["XDG_CONFIG_HOME"] = place.path("config");
  const std::string folder = place.path("config/tarvexdiags/");
  fs::create_directories(folder + "packages.d");
  place.write(folder + "packages.d/DISKS.cfg", "[TestID2]\nTestCapabilities=quick\n");
  EXPECT_THAT(run({"run"}, options).err, HasSubstr(reason));
  fs::remove_all(folder + "packages.d");

  fs::create_directories(folder + "plans");
  place.write(folder + "plans/all.cfg", "[Plan]\nallow-disruptive=TRUE\n");
  const Outcome planned = run({"run", "--profile", "all"}, options);
  EXPECT_EQ(planned.exitCode, DiagctlTest::kNoVerdict) << planned.err;
  EXPECT_THAT(planned.err, HasSubstr("allow-disruptive: it counts on the command line alone"));
}

TEST_F(Disruption, is_found_however_its_word_is_written) {
  for (const char* const words :
       {"Destructive", "DESTRUCTIVE", "destructive;quick", "quick/Destructive"}) {
    place.replaceIn(place.packageFile("DISKS"), "quick, destructive", words);
    expectRefusal({"run", "-t", "Over*"});
    place.replaceIn(place.packageFile("DISKS"), words, "quick, destructive");
  }
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
