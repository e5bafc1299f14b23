// A package that fails while it looks for its devices: it is named, and all others go on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::eventually;

// For what a busy machine does late.
constexpr std::chrono::seconds kPatience{120};

class DiagctlDiscovery : public Diagctl {
 protected:
  DiagctlDiscovery() {
    place.addPackage("MIX", {{.name = "Good"}}, {{"Left", "bus/left"}});
    std::filesystem::create_directories(meetingPlace);
  }

  const std::string meetingPlace = place.path("meeting");
};

constexpr const char* kCrashed =
    "package bad was left out: looking for its devices failed: its process crashed with SIGSEGV; "
    "last output: about to look behind the bus";

TEST_F(DiagctlDiscovery, that_crashes_is_named_with_its_last_output) {
  place.addMisbehavingPackage("bad", "Discovery=crashes\n");
  const Outcome listed = run({"list"});
  EXPECT_EQ(listed.exitCode, kNoVerdict);
  EXPECT_THAT(listed.out, AllOf(HasSubstr("Package MIX"), Not(HasSubstr("Misbehaving"))));
  EXPECT_THAT(listed.err, HasSubstr(kCrashed));
  EXPECT_THAT(run({"check"}).out, HasSubstr(kCrashed));
}

TEST_F(DiagctlDiscovery, that_crashes_leaves_a_run_of_the_others_without_a_verdict_on_all) {
  place.addMisbehavingPackage("bad", "Discovery=crashes\n");
  const Outcome outcome = run({"run", "--quiet"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Good"), HasSubstr(kCrashed)));
}

TEST_F(DiagctlDiscovery, whose_last_output_would_steer_a_terminal_is_shown_without_harm) {
  place.addMisbehavingPackage("bad",
                              "Discovery=exits\nDiscoverySays=\xc2\x9b[2J\xe2\x80\xae\x1b[m\n");
  const std::string told = run({"list"}).err;
  EXPECT_THAT(told, HasSubstr("leaving early"));
  for (const char* const harm : {"\x1b", "\xc2\x9b", "\xe2\x80\xae"}) {
    EXPECT_THAT(told, Not(HasSubstr(harm)));
  }
}

TEST_F(DiagctlDiscovery, that_hangs_is_ended_by_its_time) {
  const std::string mark = place.path("mark");
  place.addMisbehavingPackage("bad",
                              "Discovery=hangs\nTermGrace=0.05\nMarkOfHanging=" + mark + "\n");
  Outcome outcome;
  std::string seconds;
  // On a busy machine it takes longer to get as far as to say something.
  for (const char* const tried : {"0.2", "2", "20", "200"}) {
    seconds = tried;
    outcome = run({"list", "--set", "bad.DiscoveryTimeout=" + seconds});
    if (std::filesystem::exists(mark)) {
      break;
    }
  }
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err,
              HasSubstr("it was not done within " + seconds + " s; last output: waiting"));
}

TEST_F(DiagctlDiscovery, that_hangs_is_ended_by_the_first_signal) {
  const std::string mark = place.path("mark");
  place.addMisbehavingPackage(
      "bad", "Discovery=hangs\nDiscoveryTimeout=600\nMarkOfHanging=" + mark + "\n");
  Program program(withControlFile({"run"}));
  ASSERT_TRUE(eventually([&mark] { return std::filesystem::exists(mark); }, kPatience));
  program.signal(SIGINT);
  EXPECT_EQ(program.finish().exitCode, 128 + SIGINT);
}

TEST_F(DiagctlDiscovery, that_hangs_is_told_to_whoever_waits_for_it) {
  place.addMisbehavingPackage("bad", "Discovery=hangs\nDiscoveryTimeout=600\n");
  Program program(withControlFile({"run"}));
  EXPECT_TRUE(
      program.waitFor("package bad is still looking for its devices, for 600 s", kPatience));
  program.signal(SIGINT);
  EXPECT_EQ(program.finish().exitCode, 128 + SIGINT);
}

TEST_F(DiagctlDiscovery, runs_beside_that_of_other_packages) {
  const std::string keys = "DiscoveryTimeout=60\nMeetingPlace=" + meetingPlace + "\n";
  place.addMisbehavingPackage("first", keys).addMisbehavingPackage("second", keys);
  const Outcome outcome = run({"list", "devices"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
}

// Each process that looks for devices leaves a file there.
TEST_F(DiagctlDiscovery, runs_once_wherever_its_package_was_found) {
  place.addMisbehavingPackage(
      "first", "DiscoveryTimeout=60\nMeetingPlace=" + meetingPlace + "\nDeviceType=7 of a kind\n");
  place.write(meetingPlace + "/another", "here");
  const std::string packages = place.path("packages");
  std::ptrdiff_t processes = 1;
  for (const std::vector<std::string>& places : std::vector<std::vector<std::string>>{
           {"--packages", packages + "/../packages/"},
           {"--packages", packages, "--packages", Workplace::misbehavingPackages()},
           {"--set", "first.ExitTimeout=60"}}) {
    std::vector<std::string> arguments = {"list", "devices"};
    arguments.insert(arguments.end(), places.begin(), places.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("selftest/unit0"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(meetingPlace),
                            std::filesystem::directory_iterator()),
              ++processes)
        << ::testing::PrintToString(places);
  }
}

TEST_F(DiagctlDiscovery, of_a_package_that_is_left_out_does_not_begin) {
  place.addMisbehavingPackage("first", "DiscoveryTimeout=60\nMeetingPlace=" + meetingPlace + "\n");
  place.replaceIn(place.controlFile(), "[GlobalSettings]\n",
                  "[DisablePackage]\nNumPackages=1\n[Package1]\nPackageName=first\n"
                  "[GlobalSettings]\n");
  EXPECT_EQ(run({"list"}).exitCode, kPassed);
  EXPECT_TRUE(std::filesystem::is_empty(meetingPlace));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
