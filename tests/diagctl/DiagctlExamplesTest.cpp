// The examples for schedulers and monitors, held against what those promise and demand: arguments,
// exit status, length and time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Json = nlohmann::json;

std::string example(const std::string& name) {
  return contentsOf(TestSupport::sourcePath("examples/fleet/" + name));
}

/// The words behind the program's name in the first line that begins so.
std::vector<std::string> commandIn(const std::string& text, const std::string& before) {
  const std::size_t begin = text.find("\n" + before);
  EXPECT_NE(begin, std::string::npos) << before;
  std::istringstream line(text.substr(begin + 1 + before.size(),
                                      text.find('\n', begin + 1) - begin - 1 - before.size()));
  std::vector<std::string> words;
  for (std::string word; line >> word;) {
    words.push_back(word);
  }
  return words;
}

/// The program as an example calls it, on a machine whose last check has a result or none.
class FleetExamples : public Diagctl {
 protected:
  Outcome called(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", place.path("state")});
    return diagctl(withControlFile(words));
  }
  void checkWith(const std::string& behaviour) {
    place.addPackage("FLEET", {{.name = "Only", .behaviour = behaviour, .more = "Event=7"}},
                     {{"One", "bus/one"}});
    called({"health"});
  }
  static std::string lineOf(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find('\n'));
  }
};

TEST_F(FleetExamples, of_a_node_health_check_end_with_0_unless_the_hardware_has_failed) {
  const std::vector<std::string> words =
      commandIn(example("nhc.conf"), "* || check_cmd_status -t 50 -r 0 diagctl ");
  const Outcome unknown = called(words);
  EXPECT_EQ(unknown.exitCode, 0);
  EXPECT_THAT(lineOf(unknown), StartsWith("UNKNOWN"));
  checkWith("pass");
  EXPECT_EQ(called(words).exitCode, 0);
}

TEST_F(FleetExamples, of_a_node_health_check_end_with_1_for_a_failure) {
  checkWith("fail");
  const Outcome failed =
      called(commandIn(example("nhc.conf"), "* || check_cmd_status -t 50 -r 0 diagctl "));
  EXPECT_EQ(failed.exitCode, 1);
  EXPECT_THAT(lineOf(failed), AllOf(StartsWith("FAIL Package FLEET Only One"), SizeIs(Le(80U))));
}

TEST_F(FleetExamples, of_a_problem_detector_answer_within_its_time_and_length) {
  const Json document = Json::parse(example("node-problem-detector.json"));
  EXPECT_EQ(document["plugin"], "custom");
  const Json rule = document["rules"].at(0);
  EXPECT_EQ(rule["path"], "/usr/bin/diagctl");
  EXPECT_EQ(rule["condition"], document["conditions"].at(0)["type"]);
  const std::vector<std::string> words = rule["args"];
  EXPECT_THAT(words, Contains("--cached")) << "what tests takes longer than it waits";
  EXPECT_EQ(called(words).exitCode, 2) << "nothing is known";
  checkWith("fail");
  const Outcome failed = called(words);
  EXPECT_EQ(failed.exitCode, 1);
  EXPECT_THAT(linesOf(failed.out), SizeIs(1));
  EXPECT_THAT(lineOf(failed), SizeIs(Le(document["pluginConfig"]["max_output_length"])));
  EXPECT_THAT(failed.err, IsEmpty());
}

TEST_F(FleetExamples, of_a_monitor_have_its_states_and_figures) {
  const std::string text = example("nagios.cfg");
  const std::vector<std::string> words = commandIn(text, "  command_line  /usr/bin/diagctl ");
  EXPECT_EQ(commandIn(text, "#   command[check_diagctl]=/usr/bin/diagctl "), words);
  EXPECT_EQ(called(words).exitCode, 3) << "nothing is known";
  checkWith("fail");
  const Outcome failed = called(words);
  EXPECT_EQ(failed.exitCode, 2);
  EXPECT_THAT(lineOf(failed), MatchesRegex("[A-Z ]*CRITICAL.* \\| .*=.*"));
}

TEST_F(FleetExamples, of_a_prolog_test_nothing_and_refuse_no_job_for_what_is_unknown) {
  std::vector<std::string> words = commandIn(example("slurm-prolog.sh"), "exec diagctl ");
  EXPECT_THAT(words, AllOf(Contains("--cached"), Contains("--drain")));
  EXPECT_EQ(called(words).exitCode, 0);
  checkWith("fail");
  const Outcome failed = called(words);
  EXPECT_EQ(failed.exitCode, 1) << "though nobody could be asked to drain the node";
}

TEST_F(FleetExamples, of_a_check_end_before_the_scheduler_ends_them) {
  checkWith("fail");
  const std::vector<std::string> words =
      commandIn(example("slurm-healthcheck.sh"), "exec diagctl ");
  ASSERT_THAT(words, Contains("--max-time"));
  const std::string limit = *(std::find(words.begin(), words.end(), "--max-time") + 1);
  EXPECT_LT(std::stoi(limit), 60);
  EXPECT_EQ(called(words).exitCode, 1);
}

TEST_F(FleetExamples, of_containers_call_the_program_as_it_is) {
  const std::string text = example("daemonset.yaml");
  EXPECT_THAT(text, AllOf(HasSubstr("kind: DaemonSet\n"), HasSubstr("apiVersion: apps/v1\n"),
                          HasSubstr("mountPath: /var/lib/tarvexdiags\n"), Not(HasSubstr("\t"))));
  place.addPackage("FLEET", {{.name = "Only"}}, {{"One", "bus/one"}});
  EXPECT_EQ(called(commandIn(text, "                diagctl ")).exitCode, 0);
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
