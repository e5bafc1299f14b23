// What of a log identifies a machine, and that none of it is left.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "diagctl/command/LogRedaction.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kSecrets[] = {"node017", "0123456789abcdef0123456789abcdef", "S5XANA0R1",
                                    "a0:88:c2:01:02:03", "123e4567-e89b-12d3-a456-426614174000"};

/// A run that tells each of them, in places of all kinds.
std::vector<RunEvent> tellingRun() {
  std::vector<RunEvent> run = wholeRun();
  auto& start = std::get<RunStarted>(run[0].body);
  start.machineName = kSecrets[0];
  start.machineId = kSecrets[1];
  start.commandLine = "diagctl run -o jsonl=/logs/node017.jsonl";
  start.software.push_back({"firmware", "Firmware of S5XANA0R1", "as on node017"});
  std::get<StepMessage>(run[3].body).text =
      "disk S5XANA0R1 at a0:88:c2:01:02:03, 123e4567-e89b-12d3-a456-426614174000";
  std::get<StepTrouble>(run[4].body).message = "node017 lost S5XANA0R1";
  std::get<StepTrouble>(run[4].body).symptom = "lost-S5XANA0R1";
  std::get<StepDiagnosis>(run[5].body).message = "S5XANA0R1 is worn";
  std::get<StepDiagnosis>(run[5].body).symptom = "S5XANA0R1-worn";
  return run;
}

std::string logOf(const std::vector<RunEvent>& run, const std::string& key) {
  LogRedaction redaction(key);
  std::ostringstream out;
  Printer printer(out);
  JsonlReporter reporter(printer);
  for (const RunEvent& event : run) {
    reporter.handle(redaction.redacted(event));
  }
  return out.str();
}

TEST(LogRedaction, leaves_nothing_that_identifies_the_machine) {
  const std::string log = logOf(tellingRun(), "key");
  for (const char* const secret : kSecrets) {
    EXPECT_THAT(log, Not(HasSubstr(secret)));
  }
  EXPECT_THAT(log, HasSubstr(" is worn"));
  EXPECT_THAT(log, HasSubstr("Disk of 4 TB")) << "what many machines have stays";
}

TEST(LogRedaction, keeps_equal_what_was_equal_under_one_key_alone) {
  EXPECT_EQ(logOf(tellingRun(), "key"), logOf(tellingRun(), "key"));
  EXPECT_NE(logOf(tellingRun(), "key"), logOf(tellingRun(), "another"));
  LogRedaction redaction("key");
  const auto run = tellingRun();
  const auto start = std::get<RunStarted>(redaction.redacted(run[0]).body);
  const auto finding = std::get<StepDiagnosis>(redaction.redacted(run[5]).body);
  EXPECT_EQ(finding.message, start.hardware.at(0).serialNumber + " is worn");
}

TEST(LogRedaction, hides_the_name_of_a_host_however_short) {
  std::vector<RunEvent> run = tellingRun();
  std::get<RunStarted>(run[0].body).machineName = "vm";
  LogRedaction redaction("key");
  EXPECT_THAT(std::get<RunStarted>(redaction.redacted(run[0]).body).machineName,
              HasSubstr("redacted-"));
}

TEST(LogRedaction, forgets_the_parts_of_a_run_at_the_next) {
  LogRedaction redaction("key");
  redaction.redacted(tellingRun()[0]);
  std::vector<RunEvent> next = wholeRun();
  std::get<RunStarted>(next[0].body).hardware[0].serialNumber = "";
  redaction.redacted(next[0]);
  std::get<StepDiagnosis>(next[5].body).message = "S5XANA0R1";
  EXPECT_EQ(std::get<StepDiagnosis>(redaction.redacted(next[5]).body).message, "S5XANA0R1");
}

std::string messageIn(LogRedaction& redaction, const std::string& text) {
  RunEvent event = wholeRun()[3];
  std::get<StepMessage>(event.body).text = text;
  return std::get<StepMessage>(redaction.redacted(event).body).text;
}

TEST(LogRedaction, hides_the_name_of_a_host_without_its_domain_too) {
  std::vector<RunEvent> run = tellingRun();
  std::get<RunStarted>(run[0].body).machineName = "node017.example.com";
  LogRedaction redaction("key");
  redaction.redacted(run[0]);
  EXPECT_THAT(messageIn(redaction, "node017: link down"), Not(HasSubstr("node017")));
}

TEST(LogRedaction, leaves_a_machine_without_a_name_without_one) {
  std::vector<RunEvent> run = tellingRun();
  std::get<RunStarted>(run[0].body).machineName = "";
  LogRedaction redaction("key");
  EXPECT_EQ(std::get<RunStarted>(redaction.redacted(run[0]).body).machineName, "")
      << "or all such machines would be one";
}

TEST(LogRedaction, hides_an_address_however_often_another_was_told_before) {
  LogRedaction redaction("key");
  for (int time = 0; time < 1'500; ++time) {
    messageIn(redaction, "a0:88:c2:01:02:03 answers");
  }
  EXPECT_THAT(messageIn(redaction, "a0:88:c2:01:02:04 answers"), HasSubstr("redacted-"));
}

TEST(LogRedaction, refuses_a_run_rather_than_leaving_something_in_it) {
  LogRedaction redaction("key");
  const auto tellThousand = [&] {
    for (int number = 10'000; number < 12'000; ++number) {
      const std::string digits = std::to_string(number);
      messageIn(redaction, "a0:88:c2:0" + digits.substr(0, 1) + ":" + digits.substr(1, 2) + ":" +
                               digits.substr(3));
    }
  };
  EXPECT_THROW(tellThousand(), std::length_error);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
