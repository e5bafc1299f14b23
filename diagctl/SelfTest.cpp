#include "diagctl/SelfTest.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <thread>

#include "diagctl/Configuration.h"
#include "diagctl/ExitStatus.h"
#include "diagctl/Interruption.h"
#include "diagctl/Machine.h"
#include "diagctl/Runner.h"
#include "diagctl/Safety.h"
#include "diagctl/Selection.h"
#include "diagctl/Session.h"
#include "diagctl/StepRecord.h"

namespace TarvexDiags::DiagCtl {

namespace {

namespace fs = std::filesystem;

constexpr const char* device = "Unit 0";
constexpr unsigned long longestSeconds = 120;

const char* wordOf(StepRecord::Outcome outcome) {
  switch (outcome) {
    case StepRecord::Outcome::passed:
      return "passed";
    case StepRecord::Outcome::failed:
      return "failed";
    case StepRecord::Outcome::warning:
      return "warning";
    case StepRecord::Outcome::trouble:
      return "error";
    case StepRecord::Outcome::skipped:
      break;
  }
  return "skipped";
}

std::vector<SelectedPair> expectedPairs(const Catalogue& catalogue) {
  SelectionPatterns patterns;
  patterns.devices = {device};
  for (const SelfTestExpectation& expectation : selfTestExpectations()) {
    patterns.tests.push_back(std::to_string(expectation.test));
  }
  return select(catalogue, patterns);
}

// Every process that a worker made is a descendant of this one, or was given to it.
std::size_t childProcesses() {
  std::size_t count = 0;
  std::error_code failure;
  for (fs::directory_iterator task("/proc/self/task", failure), end; !failure && task != end;
       task.increment(failure)) {
    std::ifstream children(task->path() / "children");
    for (int process = 0; children >> process;) {
      ++count;
    }
  }
  return count;
}

bool noProcessIsLeft() {
  constexpr int attempts = 50;
  for (int i = 0; i < attempts; ++i) {
    if (childProcesses() == 0) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

bool tellRow(std::ostream& out, bool isContained, const std::string& text) {
  fmt::print(out, "{}  {}\n", isContained ? "contained" : "ESCAPED  ", text);
  return isContained;
}

// @return how many rows were not as they must be.
std::size_t compare(std::ostream& out, const std::map<int, const StepRecord*>& steps) {
  std::size_t escaped = 0;
  for (const SelfTestExpectation& expectation : selfTestExpectations()) {
    const auto entry = steps.find(expectation.test);
    const std::string outcome = entry != steps.end() ? wordOf(entry->second->outcome()) : "missing";
    const std::string symptom = entry != steps.end() ? entry->second->symptom : "";
    const bool isContained = outcome == expectation.outcome && symptom == expectation.symptom;
    std::string text = fmt::format("{}: {}", expectation.contains, expectation.outcome);
    if (*expectation.symptom != '\0') {
      text += fmt::format(" ({})", expectation.symptom);
    }
    if (!isContained) {
      text += fmt::format(", but was {} ({})", outcome, symptom);
    }
    escaped += tellRow(out, isContained, text) ? 0 : 1;
  }
  return escaped;
}

std::map<int, const StepRecord*> byTest(const RunRecord& record, const RunPlan& plan) {
  std::map<int, const StepRecord*> steps;
  for (const StepRecord* step : record.steps()) {
    for (const PlannedRequest& request : plan.requests) {
      if (request.pair.test->name == step->start.test) {
        steps[request.pair.test->id] = step;
      }
    }
  }
  return steps;
}

}  // namespace

// clang-format off
const std::vector<SelfTestExpectation>& selfTestExpectations() {
  static const std::vector<SelfTestExpectation> expectations = {
      {1, "passed", "", "a test that behaves"},
      {2, "error", "worker-crashed", "a segmentation fault"},
      {3, "error", "worker-crashed", "a call of abort"},
      {4, "error", "test-threw", "an exception"},
      {5, "error", "test-timed-out", "an endless loop"},
      {6, "error", "test-timed-out", "an endless loop that ignores the request to end"},
      {7, "error", "worker-exited", "an exit in the middle of a message"},
      {8, "passed", "", "a flood of events"},
      {9, "error", "out-of-memory", "a flood of memory"},
      {10, "error", "protocol-broken", "an impossible progress"},
      {11, "error", "test-threw", "something thrown that is no exception"},
      {12, "error", "device-vanished", "a device that vanishes"},
      {13, "error", "no-permission", "a missing permission"},
      {14, "failed", "fault-found", "a fault of the hardware, told as one"},
      {15, "warning", "margin-small", "a warning, told as one"},
      {17, "error", "protocol-broken", "garbage instead of messages"},
      {18, "passed", "", "a flood of output"},
      {19, "passed", "", "a child process left behind"},
      {20, "skipped", "", "a test that is not possible"},
      {22, "error", "worker-exited", "an early exit"},
      {24, "error", "test-timed-out", "a sleep that asks for nothing"},
      {25, "error", "no-result", "a package that lies about its end"},
      {26, "error", "protocol-broken", "the end of another test"},
      {27, "error", "test-threw", "an event that is reserved"},
  };
  return expectations;
}
// clang-format on

int carryOutSelfTest(std::ostream& out, const std::string& packages, const std::string& language,
                     bool allowsInsecure) {
  Interruption::begin();
  const fs::path directory = packages.empty() ? selfTestPackages() : fs::path(packages);
  if (directory.empty()) {
    throw std::runtime_error("the self-test's package was not found");
  }
  const Configuration configuration = Configuration::make(directory);
  if (!allowsInsecure && mustBeSecure()) {
    requireSecureFiles(configuration.path());
  }
  RunRecord record;
  RunPlan plan;
  std::size_t escaped = 0;
  {
    Session session(configuration.path(), language, {});
    RunOptions options;
    options.totalSeconds = longestSeconds;
    plan = makePlan(expectedPairs(session.catalogue()), options);
    RunStarted start = describeMachine();
    start.name = "diagctl";
    Runner(
        session, plan, [&](const RunEvent& event) { record.handle(event); },
        Interruption::requests())
        .run(start);
    escaped += compare(out, byTest(record, plan));
  }
  escaped += tellRow(out, noProcessIsLeft(), "no process is left behind") ? 0 : 1;
  fmt::print(out, "\n{} of {} contained in {:.1f} s\n", selfTestExpectations().size() + 1 - escaped,
             selfTestExpectations().size() + 1, record.seconds());
  if (Interruption::signal() != 0) {
    return ExitCode::signalBase + Interruption::signal();
  }
  return escaped == 0 ? ExitCode::passed : ExitCode::noVerdict;
}

}  // namespace TarvexDiags::DiagCtl
