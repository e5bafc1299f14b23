// The program as monitors and schedulers call it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class Health : public Diagctl {
 protected:
  std::vector<std::string> asked(const std::vector<std::string>& options) const {
    std::vector<std::string> words = {"health", "--state", m_state};
    words.insert(words.end(), options.begin(), options.end());
    return withControlFile(words);
  }
  Outcome health(const std::vector<std::string>& options = {}) const {
    return diagctl(asked(options), {.environment = m_environment});
  }
  static std::string firstLineOf(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find('\n'));
  }
  std::vector<fs::path> results() const {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(m_state)) {
      if (entry.path().extension() == ".json") {
        files.push_back(entry.path());
      }
    }
    return files;
  }
  /// As if the last result were older.
  void makeOlder(const std::string& age) const {
    const std::string file = results().front().string();
    const std::string text = contentsOf(file);
    const std::string key = "\"endedMilliseconds\": ";
    const std::size_t begin = text.find(key) + key.size();
    const std::string ended = text.substr(begin, text.find(',', begin) - begin);
    place.replaceIn(file, ended, std::to_string(std::stoll(ended) - std::stoll(age) * 1000));
  }
  bool awaitBegin(const std::string& package) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!fs::exists(place.markOf(package, 1, "One"))) {
      if (std::chrono::steady_clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }
  void addHeldPackage() {
    place.addPackage("HELD", {{.name = "Long", .behaviour = "held"}}, {{"One", "bus/one"}});
  }
  void letGo() const { place.write(place.packageFile("HELD") + ".go", ""); }

  const std::string m_state = place.path("state");
  std::map<std::string, std::string> m_environment;
};

TEST_F(Health, tells_what_has_failed_in_a_line_and_what_to_do_behind_it) {
  addMixedPackage();
  const Outcome outcome = health();
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(firstLineOf(outcome), AllOf(StartsWith("FAIL Package MIX Bad Left: "),
                                          HasSubstr(" (+1)"), SizeIs(Le(80U))));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FAIL Package MIX Bad Right"), HasSubstr("    -> "),
                                 HasSubstr("WARN Package MIX Weak Left")));
}

TEST_F(Health, keeps_its_result_for_who_asks_later) {
  addMixedPackage();
  health();
  const Outcome later = health({"--cached", "1h"});
  EXPECT_EQ(later.exitCode, kHardwareFailure);
  EXPECT_THAT(firstLineOf(later), MatchesRegex("FAIL Package MIX Bad Left.* \\(\\+1\\), .* s ago"));
  EXPECT_THAT(later.out, HasSubstr("FAIL Package MIX Bad Right"));
  place.write(place.packageFile("MIX"), "");  // nothing of it is read any more
  EXPECT_EQ(health({"--cached", "1h"}).exitCode, kHardwareFailure);
}

TEST_F(Health, does_not_know_what_an_old_result_is_worth) {
  addMixedPackage();
  health({"-t", "Good"});
  EXPECT_EQ(health({"-t", "Good", "--cached", "1h"}).exitCode, kPassed);
  makeOlder("7200");
  const Outcome old = health({"-t", "Good", "--cached", "1h"});
  EXPECT_EQ(old.exitCode, kNoVerdict);
  EXPECT_THAT(firstLineOf(old), "UNKNOWN the last result is 2 h old: OK 2 passed");
  EXPECT_EQ(health({"-t", "Good", "--cached", "3h"}).exitCode, kPassed);
}

TEST_F(Health, of_a_part_says_nothing_of_the_rest) {
  addMixedPackage();
  EXPECT_EQ(health({"-t", "Good"}).exitCode, kPassed);
  const Outcome all = health({"--cached", "1h"});
  EXPECT_EQ(all.exitCode, kNoVerdict);
  EXPECT_EQ(firstLineOf(all), "UNKNOWN no check has left a result yet");
}

TEST_F(Health, is_checked_by_one_at_a_time_and_others_get_the_last_result_at_once) {
  addHeldPackage();
  letGo();
  EXPECT_EQ(health().exitCode, kPassed);
  fs::remove(place.packageFile("HELD") + ".go");
  fs::remove(place.markOf("HELD", 1, "One"));
  Program first(asked({}), {});
  ASSERT_TRUE(awaitBegin("HELD"));
  const Outcome second = health();
  EXPECT_EQ(second.exitCode, kPassed);
  EXPECT_THAT(firstLineOf(second), MatchesRegex("OK 1 passed, [0-9]+ (s|min) ago"));
  makeOlder("7200");
  EXPECT_EQ(health().exitCode, kNoVerdict) << "of what is old nobody knows what it is worth";
  letGo();
  EXPECT_EQ(first.finish().exitCode, kPassed);
}

TEST_F(Health, that_is_under_way_for_the_first_time_is_unknown_to_others) {
  addHeldPackage();
  Program first(asked({}), {});
  ASSERT_TRUE(awaitBegin("HELD"));
  const Outcome second = health();
  EXPECT_EQ(second.exitCode, kNoVerdict);
  EXPECT_THAT(firstLineOf(second), HasSubstr("another check is under way"));
  letGo();
  EXPECT_EQ(first.finish().exitCode, kPassed);
}

TEST_F(Health, ends_within_its_time_and_tells_the_failure_that_was_found_by_then) {
  place.addPackage("BAD", {{.name = "Bad", .behaviour = "fail", .more = "Event=7"}},
                   {{"Left", "bus/left"}});
  addHeldPackage();
  Program check(asked({"--max-time", "8s"}), {});
  const Outcome outcome = check.finish(std::chrono::seconds(30));
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(firstLineOf(outcome), StartsWith("FAIL Package BAD Bad Left"));
  EXPECT_THAT(outcome.out, HasSubstr("did not end within 8 s"));
}

TEST_F(Health, that_is_interrupted_leaves_no_result) {
  addHeldPackage();
  Program check(asked({}), {});
  ASSERT_TRUE(awaitBegin("HELD"));
  check.signal(SIGTERM);
  letGo();
  EXPECT_EQ(check.finish().exitCode, 128 + SIGTERM);
  EXPECT_THAT(results(), IsEmpty());
}

TEST_F(Health, that_cannot_begin_is_unknown_and_says_why) {
  const Outcome outcome =
      diagctl({"--config", place.path("none.cfg"), "health", "--state", m_state});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(firstLineOf(outcome), StartsWith("UNKNOWN "));
  EXPECT_THAT(outcome.out, HasSubstr("The control file could not be read"));
}

TEST_F(Health, believes_no_result_that_is_none) {
  addMixedPackage();
  health({"-t", "Good"});
  for (const std::string text : {"", "{", "[]", "\x1b[2J\nforged", "{\"version\": 1}"}) {
    place.write(results().front().string(), text);
    const Outcome outcome = health({"-t", "Good", "--cached", "1h"});
    EXPECT_EQ(outcome.exitCode, kNoVerdict) << text;
    EXPECT_THAT(firstLineOf(outcome), StartsWith("UNKNOWN ")) << text;
    EXPECT_THAT(firstLineOf(outcome), SizeIs(Le(80U)));
  }
  EXPECT_EQ(health({"-t", "Good"}).exitCode, kPassed) << "a new one takes its place";
  EXPECT_EQ(health({"-t", "Good", "--cached", "1h"}).exitCode, kPassed);
}

TEST_F(Health, leaves_metrics_of_each_check_for_a_server) {
  addMixedPackage();
  fs::create_directories(place.path("metrics"));
  health({"--textfile", place.path("metrics")});
  const std::string file = place.path("metrics/tarvexdiags-health.prom");
  EXPECT_THAT(contentsOf(file),
              AllOf(HasSubstr("tarvexdiags_run_exit_code{verb=\"health\"} 1\n"),
                    HasSubstr("test=\"Bad\",device=\"Left\",location=\"bus/left\"} 4\n")));
  const Outcome failed = health({"-t", "Good", "--textfile", place.path("none")});
  EXPECT_EQ(failed.exitCode, kNoVerdict) << "what the server does not get is no pass";
  EXPECT_THAT(failed.out, HasSubstr("none/tarvexdiags-health.prom: No such file or directory"));
}

TEST_F(Health, of_a_check_that_did_not_end_is_no_verdict_in_its_metrics) {
  addHeldPackage();
  fs::create_directories(place.path("metrics"));
  EXPECT_EQ(health({"--max-time", "4s", "--textfile", place.path("metrics")}).exitCode, kNoVerdict);
  EXPECT_THAT(contentsOf(place.path("metrics/tarvexdiags-health.prom")),
              HasSubstr("tarvexdiags_run_exit_code{verb=\"health\"} 2\n"));
}

struct StyleCase {
  std::string test;
  std::vector<int> codes;  ///< plain, slurm, nhc, nagios, npd
  std::string word;
  std::string state;  ///< of a monitoring plug-in
};

class HealthStyleContracts : public Health, public ::testing::WithParamInterface<StyleCase> {};

TEST_P(HealthStyleContracts, are_kept_by_code_and_line) {
  addMixedPackage();
  place.addMisbehavingPackage("odd", "");
  const std::vector<std::string> what = {"-t", GetParam().test, "-d", "Left,Unit 0"};
  std::vector<std::string> check = what;
  health(check);
  std::size_t index = 0;
  for (const std::string style : {"plain", "slurm", "nhc", "nagios", "npd"}) {
    std::vector<std::string> words = what;
    words.insert(words.end(), {"--style", style, "--cached", "1h"});
    const Outcome outcome = health(words);
    const std::string line = firstLineOf(outcome);
    const std::string text = line.substr(0, line.find(" | "));
    EXPECT_EQ(outcome.exitCode, GetParam().codes[index++]) << style;
    EXPECT_THAT(text, SizeIs(Le(80U)));
    EXPECT_THAT(text, StartsWith(style == std::string("nagios") ? GetParam().state + " - "
                                                                : GetParam().word + " "));
    EXPECT_EQ(line != text, style == std::string("nagios")) << "figures: " << line;
    if (style == std::string("npd")) {
      EXPECT_THAT(linesOf(outcome.out), SizeIs(1));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Of, HealthStyleContracts,
    ::testing::Values(StyleCase{"Good", {0, 0, 0, 0, 0}, "OK", "OK"},
                      StyleCase{"Weak", {0, 0, 0, 1, 0}, "WARN", "WARNING"},
                      StyleCase{"Bad", {1, 1, 1, 2, 1}, "FAIL", "CRITICAL"},
                      StyleCase{"Segmentation fault", {2, 0, 0, 3, 2}, "UNKNOWN", "UNKNOWN"},
                      StyleCase{"Silent", {2, 0, 0, 3, 2}, "UNKNOWN", "UNKNOWN"}));

/// A scontrol that writes down what it is asked, and tells a state of the node.
class DrainedNode : public Health {
 protected:
  DrainedNode() {
    addMixedPackage();
    fs::create_directories(place.path("bin"));
    m_environment = {{"SLURMD_NODENAME", "n1"}, {"PATH", place.path("bin") + ":/usr/bin:/bin"}};
    isIn("IDLE", "");
    answersWith("exit 0");
  }
  void isIn(const std::string& state, const std::string& reason) const {
    std::string text = "NodeName=n1 Arch=x86_64\n   State=" + state +
                       " ThreadsPerCore=1 Comment=State=IDLE\n   Partitions=p\n";
    if (!reason.empty()) {
      text += "   Reason=" + reason + " [root@2026-01-01T00:00:00]\n";
    }
    place.write(place.path("node"), text);
  }
  /// @param update what it does when it is asked to change the node.
  void answersWith(const std::string& update) const {
    const std::string program = place.path("bin/scontrol");
    place.write(program, "#!/bin/sh\n[ $1 = show ] && exec /bin/cat " + place.path("node") +
                             "\n{ printf '%s\\n' \"$@\" \"conf=$SLURM_CONF\"; } >" +
                             place.path("asked") + "\n" + update + "\n");
    fs::permissions(program, fs::perms::owner_all);
  }
  /// The words of what it was asked to change, a line each; empty for nothing.
  std::vector<std::string> change() const {
    return fs::exists(place.path("asked")) ? linesOf(contentsOf(place.path("asked")))
                                           : std::vector<std::string>();
  }
  Outcome slurm(std::vector<std::string> options) const {
    options.insert(options.begin(), {"--style", "slurm"});
    return health(options);
  }
};

TEST_F(DrainedNode, is_drained_for_a_failure_with_our_reason) {
  const Outcome outcome = slurm({"-t", "Bad", "--drain"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(change(), ElementsAre("update", "NodeName=n1", "State=DRAIN",
                                    "Reason=diagctl: FAILED Bad on Left (+1)", "conf="));
  EXPECT_THAT(outcome.err, HasSubstr("node n1 is drained"));
}

TEST_F(DrainedNode, is_drained_for_nothing_else) {
  for (const std::string test : {"Good", "Weak", "Silent"}) {
    EXPECT_EQ(slurm({"-t", test, "--drain"}).exitCode, 0) << test;
  }
  EXPECT_EQ(slurm({"-t", "Bad"}).exitCode, 1) << "unless it is asked for";
  EXPECT_EQ(slurm({"-p", "no such package", "--drain"}).exitCode, 0);
  EXPECT_THAT(change(), IsEmpty());
}

TEST_F(DrainedNode, is_left_alone_when_somebody_has_drained_it_or_taken_it_down) {
  for (const std::string state : {"IDLE+DRAIN", "DOWN*+DRAIN", "ALLOCATED+DRAIN", "DOWN"}) {
    isIn(state, "fan to be changed");
    const Outcome outcome = slurm({"-t", "Bad", "--drain"});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("left as it is: fan to be changed")) << state;
  }
  EXPECT_THAT(change(), IsEmpty());
  isIn("DOWN*", "Not responding");
  slurm({"-t", "Bad", "--drain"});
  EXPECT_THAT(change(), SizeIs(5)) << "that was nobody";
}

TEST_F(DrainedNode, is_given_back_only_if_it_was_drained_here_and_has_passed) {
  const std::vector<std::string> words = {"-t", "Good", "--undrain-own"};
  slurm(words);
  isIn("IDLE+DRAIN", "fan to be changed");
  slurm(words);
  isIn("DOWN+DRAIN", "diagctl: FAILED Bad on Left");
  slurm(words);
  isIn("IDLE+DRAIN", "diagctl: FAILED Bad on Left");
  slurm({"-t", "Bad", "--undrain-own", "--drain"});
  slurm({"-t", "Silent", "--undrain-own"});
  EXPECT_THAT(change(), IsEmpty());
  slurm(words);
  EXPECT_THAT(change(), ElementsAre("update", "NodeName=n1", "State=RESUME", "conf="));
}

TEST_F(DrainedNode, is_drained_by_the_last_result_too) {
  health({"-t", "Bad"});
  EXPECT_EQ(slurm({"-t", "Bad", "--drain", "--cached", "1h"}).exitCode, 1);
  EXPECT_THAT(change(), SizeIs(5));
}

TEST_F(DrainedNode, is_warned_of_when_it_cannot_be_drained) {
  answersWith("echo 'slurm_update error: Invalid user id' >&2; exit 1");
  Outcome outcome = slurm({"-t", "Bad", "--drain"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("warning: node n1: scontrol update: slurm_update error"));
  answersWith("exec /bin/sleep 1000");
  outcome = slurm({"-t", "Bad", "--drain", "--max-time", "6s"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("it did not end in time"));
  fs::remove(place.path("node"));
  EXPECT_THAT(slurm({"-t", "Bad", "--drain"}).err, HasSubstr("warning: node n1: scontrol show"));
}

TEST_F(DrainedNode, is_the_one_that_slurm_names) {
  m_environment["SLURMD_NODENAME"] = "n1 State=RESUME";
  EXPECT_THAT(slurm({"-t", "Bad", "--drain"}).err, HasSubstr("is no name of a node"));
  m_environment.erase("SLURMD_NODENAME");
  EXPECT_THAT(slurm({"-t", "Bad", "--drain"}).err, HasSubstr("SLURMD_NODENAME is not set"));
  EXPECT_THAT(change(), IsEmpty());
}

TEST_F(DrainedNode, is_found_by_the_configuration_that_is_named) {
  slurm({"-t", "Bad", "--drain", "--slurm-conf", "/srv/a b.conf"});
  EXPECT_THAT(change().back(), "conf=/srv/a b.conf");
  m_environment["SLURM_CONF"] = "/srv/other.conf";
  slurm({"-t", "Bad", "--drain"});
  EXPECT_THAT(change().back(), "conf=/srv/other.conf");
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
