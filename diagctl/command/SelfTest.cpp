#include "diagctl/command/SelfTest.h"

#include <fmt/format.h>
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
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kDevice = "Unit 0";
constexpr unsigned long kLongestSeconds = 180;

std::vector<SelectedPair> expectedPairs(const Catalogue& catalogue) {
  SelectionPatterns patterns;
  patterns.devices = {kDevice};
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

bool tellRow(Printer& out, bool isContained, const std::string& text) {
  out.print("{}  {}\n", isContained ? tr("contained") : tr("ESCAPED  "), text);
  return isContained;
}

std::string describe(StepRecord::Outcome outcome, const std::string& symptom) {
  const std::string text = told(toText(outcome));
  return symptom.empty() ? text : fmt::format("{} ({})", text, symptom);
}

// @return how many rows were not as they must be.
std::size_t compare(Printer& out, const std::map<int, const StepRecord*>& steps) {
  std::size_t escaped = 0;
  for (const SelfTestExpectation& expectation : selfTestExpectations()) {
    const auto entry = steps.find(expectation.test);
    const StepRecord* step = entry != steps.end() ? entry->second : nullptr;
    const bool isContained = step != nullptr && step->outcome() == expectation.outcome &&
                             step->symptom == expectation.symptom;
    std::string text = told(expectation.contains);
    text += ": " + describe(expectation.outcome, expectation.symptom);
    if (!isContained) {
      text += tr(", but was {}", step != nullptr ? describe(step->outcome(), step->symptom)
                                                 : tr("not told at all"));
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
  static const std::vector<SelfTestExpectation> kExpectations = {
      {1, Outcome::Passed, "", marked("a test that behaves")},
      {2, Outcome::Trouble, "worker-crashed", marked("a segmentation fault")},
      {3, Outcome::Trouble, "worker-crashed", marked("a call of abort")},
      {4, Outcome::Trouble, "test-threw", marked("an exception")},
      {5, Outcome::Trouble, "test-timed-out", marked("an endless loop")},
      {6, Outcome::Trouble, "test-timed-out", marked("an endless loop that ignores the request to end")},
      {7, Outcome::Trouble, "worker-exited", marked("an exit in the middle of a message")},
      {8, Outcome::Warning, "", marked("a flood of events")},
      {9, Outcome::Trouble, "out-of-memory", marked("a flood of memory")},
      {10, Outcome::Trouble, "protocol-broken", marked("an impossible progress")},
      {11, Outcome::Trouble, "test-threw", marked("something thrown that is no exception")},
      {12, Outcome::Trouble, "device-vanished", marked("a device that vanishes")},
      {13, Outcome::Trouble, "no-permission", marked("a missing permission")},
      {14, Outcome::Failed, "fault-found", marked("a fault of the hardware, told as one")},
      {15, Outcome::Warning, "margin-small", marked("a warning, told as one")},
      {17, Outcome::Trouble, "protocol-broken", marked("garbage instead of messages")},
      {18, Outcome::Passed, "", marked("a flood of output")},
      {19, Outcome::Passed, "", marked("a child process left behind")},
      {20, Outcome::Skipped, "", marked("a test that is not possible")},
      {22, Outcome::Trouble, "worker-exited", marked("an early exit")},
      {24, Outcome::Trouble, "test-timed-out", marked("a sleep that asks for nothing")},
      {25, Outcome::Trouble, "no-result", marked("a package that lies about its end")},
      {26, Outcome::Trouble, "protocol-broken", marked("the end of another test")},
      {27, Outcome::Trouble, "test-threw", marked("an event that is reserved")},
      {29, Outcome::Failed, "fault-found", marked("a fault, and a crash behind it")},
      {30, Outcome::Failed, "fault-found", marked("a fault, and an exit behind it")},
      {31, Outcome::Failed, "fault-found", marked("a fault, and a kill behind it")},
      {32, Outcome::Failed, "fault-found", marked("a fault, and an endless loop behind it")},
      {33, Outcome::Failed, "fault-found", marked("a fault, and an exception behind it")},
      {34, Outcome::Failed, "fault-found", marked("a fault, and garbage behind it")},
      {35, Outcome::Failed, "fault-found", marked("a fault, and no verdict behind it")},
      {37, Outcome::Trouble, "test-contradicted-itself", marked("a test that contradicts itself")},
      {38, Outcome::Warning, "", marked("a warning of a test that passed")},
      {39, Outcome::Trouble, "taken-away", marked("a core that was taken away")},
      {40, Outcome::Trouble, "memory-poisoned", marked("poisoned memory")},
      {41, Outcome::Trouble, "worker-crashed", marked("a bus error that is no poison")},
      {42, Outcome::Trouble, "protocol-broken", marked("a verdict with a reserved code")},
      {43, Outcome::Trouble, "protocol-broken", marked("the verdict of the next test")},
      {44, Outcome::Passed, "", marked("a child process that has left the group")},
  };
  return kExpectations;
}
// clang-format on

int carryOutSelfTest(Printer& out, const std::string& packages, const std::string& language,
                     bool allowsInsecure) {
  Interruption::begin();
  const fs::path directory = packages.empty() ? selfTestPackages() : fs::path(packages);
  if (directory.empty()) {
    throw std::runtime_error(tr("the self-test's package was not found"));
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
    options.totalSeconds = kLongestSeconds;
    options.watch.settings.sources.clear();  // none of these tests is of the hardware
    plan = makePlan(expectedPairs(session.catalogue()), options);
    RunStarted start = describeMachine();
    start.name = "diagctl";
    Runner runner(
        session, plan, [](const RunEvent& /*event*/) {}, Interruption::requests());
    record = runner.run(start);
    escaped += compare(out, byTest(record, plan));
  }
  escaped += tellRow(out, noProcessIsLeft(), tr("no process is left behind")) ? 0 : 1;
  out.say("\n{} of {} contained in {:.1f} s\n", selfTestExpectations().size() + 1 - escaped,
          selfTestExpectations().size() + 1, record.seconds());
  if (Interruption::signal() != 0) {
    return ExitCode::kSignalBase + Interruption::signal();
  }
  return escaped == 0 ? ExitCode::kPassed : ExitCode::kNoVerdict;
}

}  // namespace TarvexDiags::FrontEnd
