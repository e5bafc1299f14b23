#include "diagctl/command/SelfTest.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <thread>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/run/Machine.h"
#include "diagctl/run/Runner.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Selection.h"
#include "diagctl/session/Session.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* device = "Unit 0";
constexpr unsigned long longestSeconds = 120;

std::vector<SelectedPair> expectedPairs(const Catalogue& catalogue) {
  SelectionPatterns patterns;
  patterns.devices = {device};
  for (const SelfTestExpectation& expectation : selfTestExpectations()) {
    patterns.tests.push_back(std::to_string(expectation.test));
  }
  return select(catalogue, patterns);
}

// What a worker leaves behind is given to this process from now on.
void adoptOrphans() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

// Reaps what has ended. @return whether no child, own or adopted, is there any more.
bool hasNoChild() {
  pid_t process = 0;
  do {
    process = waitpid(-1, nullptr, WNOHANG);
  } while (process > 0);
  return process < 0 && errno == ECHILD;
}

bool noProcessIsLeft() {
  constexpr int attempts = 50;
  for (int i = 0; i < attempts; ++i) {
    if (hasNoChild()) {
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

std::string describe(StepRecord::Outcome outcome, const std::string& symptom) {
  return symptom.empty() ? toText(outcome) : fmt::format("{} ({})", toText(outcome), symptom);
}

// @return how many rows were not as they must be.
std::size_t compare(std::ostream& out, const std::map<int, const StepRecord*>& steps) {
  std::size_t escaped = 0;
  for (const SelfTestExpectation& expectation : selfTestExpectations()) {
    const auto entry = steps.find(expectation.test);
    const StepRecord* step = entry != steps.end() ? entry->second : nullptr;
    const bool isContained = step != nullptr && step->outcome() == expectation.outcome &&
                             step->symptom == expectation.symptom;
    std::string text = expectation.contains;
    text += ": " + describe(expectation.outcome, expectation.symptom);
    if (!isContained) {
      text += ", but was " +
              (step != nullptr ? describe(step->outcome(), step->symptom) : "not told at all");
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
  using Outcome = StepRecord::Outcome;
  static const std::vector<SelfTestExpectation> expectations = {
      {1, Outcome::passed, "", "a test that behaves"},
      {2, Outcome::trouble, "worker-crashed", "a segmentation fault"},
      {3, Outcome::trouble, "worker-crashed", "a call of abort"},
      {4, Outcome::trouble, "test-threw", "an exception"},
      {5, Outcome::trouble, "test-timed-out", "an endless loop"},
      {6, Outcome::trouble, "test-timed-out", "an endless loop that ignores the request to end"},
      {7, Outcome::trouble, "worker-exited", "an exit in the middle of a message"},
      {8, Outcome::passed, "", "a flood of events"},
      {9, Outcome::trouble, "out-of-memory", "a flood of memory"},
      {10, Outcome::trouble, "protocol-broken", "an impossible progress"},
      {11, Outcome::trouble, "test-threw", "something thrown that is no exception"},
      {12, Outcome::trouble, "device-vanished", "a device that vanishes"},
      {13, Outcome::trouble, "no-permission", "a missing permission"},
      {14, Outcome::failed, "fault-found", "a fault of the hardware, told as one"},
      {15, Outcome::warning, "margin-small", "a warning, told as one"},
      {17, Outcome::trouble, "protocol-broken", "garbage instead of messages"},
      {18, Outcome::passed, "", "a flood of output"},
      {19, Outcome::passed, "", "a child process left behind"},
      {20, Outcome::skipped, "", "a test that is not possible"},
      {22, Outcome::trouble, "worker-exited", "an early exit"},
      {24, Outcome::trouble, "test-timed-out", "a sleep that asks for nothing"},
      {25, Outcome::trouble, "no-result", "a package that lies about its end"},
      {26, Outcome::trouble, "protocol-broken", "the end of another test"},
      {27, Outcome::trouble, "test-threw", "an event that is reserved"},
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
  adoptOrphans();
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

}  // namespace TarvexDiags::FrontEnd
