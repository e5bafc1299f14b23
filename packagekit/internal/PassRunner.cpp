#include "packagekit/internal/PassRunner.h"

#include <signal.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <sstream>
#include <system_error>
#include <thread>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/internal/KitSettings.h"
#include "packagekit/internal/ProcessTexts.h"

namespace TarvexDiags::PackageKit {

namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;

constexpr double kDefaultTestTimeout = 3600;
constexpr long kDefaultMaxEvents = 10'000;
constexpr int kDefaultNice = 10;
constexpr int kNicest = 19;
// What the events of a pass may take of the host's memory, and what each verdict may in any case.
constexpr std::size_t kMostEventBytes = std::size_t{16} << 20U;
constexpr std::size_t kVerdictBytes = 4096;
constexpr std::size_t kMostLogLines = 1000;

const char* nameOf(DiagnosticResult::TestResult verdict) {
  switch (verdict) {
    case DiagnosticResult::PASSED:
      return "PASSED";
    case DiagnosticResult::UNUSUAL_STATUS:
      return "UNUSUAL_STATUS";
    case DiagnosticResult::FAILED:
      break;
  }
  return "FAILED";
}

std::string whyNotStarted(const SessionEnd& end) {
  if (end.pid < 0) {
    return Contract::kNoProcess;
  }
  if (!end.protocolError.empty()) {
    return end.protocolError;
  }
  return end.isTimedOut ? Contract::kNotReadyInTime : howItEnded(end.process);
}

bool isClean(const SessionEnd& end) {
  return end.isComplete && end.protocolError.empty() &&
         end.process.kind != ProcessEnd::Kind::Signalled && end.process.number == 0;
}

std::vector<std::string> with(std::vector<std::string> details, const std::string& lastLines) {
  details.push_back(lastLines);
  return details;
}

// "?" when the kernel did not tell it.
std::string addressText(std::uint64_t address) {
  std::ostringstream text;
  text << "0x" << std::hex << address;
  return address == 0 ? "?" : text.str();
}

std::uint64_t randomSeed() {
  std::uint64_t seed = 0;
  if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof seed)) {
    seed = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  return seed >> 1U;  // fits the whole numbers of a configuration file
}

DiagnosticEvent::EventType typeOf(unsigned int code) {
  const Contract::KitCode* const row = Contract::findKitCode(code);
  return row != nullptr ? row->type : DiagnosticEvent::ERROR_EVENT;
}

// Empty parameters take memory as well.
std::size_t bytesOf(const std::vector<std::string>& parameters) {
  std::size_t bytes = sizeof(DiagnosticEvent);
  for (const std::string& parameter : parameters) {
    bytes += sizeof(std::string) + parameter.size();
  }
  return bytes;
}

// What was stopped has no verdict of its own, unless it had found a fault by then.
Contract::Ending endingOf(const TestReport& report, bool isAborted) {
  if (report.ending == TestEnding::Failed) {
    return Contract::Ending::Failed;
  }
  if (report.isTimedOut) {
    return Contract::Ending::Broken;
  }
  if (isAborted) {
    return Contract::Ending::Aborted;
  }
  switch (report.ending) {
    case TestEnding::Passed:
      return Contract::Ending::Passed;
    case TestEnding::Unusual:
      return Contract::Ending::Unusual;
    case TestEnding::Failed:
      return Contract::Ending::Failed;
    case TestEnding::NotSupported:
      return Contract::Ending::NotPossible;
    case TestEnding::Stopped:
      return Contract::Ending::Aborted;
    case TestEnding::Trouble:
      break;
  }
  return report.code == DEVICE_VANISHED ? Contract::Ending::Vanished : Contract::Ending::Broken;
}

PassSetup partOf(const PassSetup& setup, std::size_t test) {
  PassSetup part = setup;
  part.testIds = {setup.testIds[test]};
  return part;
}

// A value that is none of them counts as absent, like all of the kit's.
int niceOf(const Settings& settings, int testId) {
  const long nice = settings.testInteger(testId, kNice.key(), kDefaultNice);
  return nice >= 0 && nice <= kNicest ? static_cast<int>(nice) : kDefaultNice;
}

Contract::Privileges privilegesOf(const Settings& settings, int testId) {
  return Contract::privilegesFrom(settings.test(testId, kPrivileges.key()).value_or(""));
}

}  // namespace

void PassOutcome::worsen(PassOutcome other) noexcept {
  if (other.verdict > verdict) {
    *this = std::move(other);
  }
}

PassRunner::PassRunner(Module& module, RunControl& control, PassObserver& observer,
                       bool reportStatus)
    : m_module(module), m_control(control), m_observer(observer), m_reportStatus(reportStatus) {}

PassOutcome PassRunner::run(PassSetup setup) {
  m_setup = std::move(setup);
  m_outcome = {};
  m_eventsLeft.reset();
  m_bytesLeft = kMostEventBytes;
  m_eventsDropped = 0;
  m_logLinesLeft = kMostLogLines;
  m_offset = 0;
  m_toldAt.reset();
  try {
    runTests();
    reportDropped();
  } catch (const std::bad_alloc&) {
    endForLackOfMemory();
  }
  return std::move(m_outcome);
}

void PassRunner::runTests() {
  bool goesOn = !startIsRefused();
  while (goesOn && m_offset < m_setup.testIds.size()) {
    m_test = m_offset;
    goesOn = judgeSession(runSession()) && !m_control.isAborted() &&
             !(m_setup.haltOnError && m_outcome.verdict != DiagnosticResult::PASSED);
  }
}

// The worker is gone, and what it had sent with it: mostly there is memory again to tell it.
void PassRunner::endForLackOfMemory() noexcept {
  try {
    finishTest(Contract::Ending::Broken,
               raised(unusual(OUT_OF_MEMORY, {Contract::kHostLacksMemory, ""})));
    reportDropped();
  } catch (const std::exception&) {
    PassOutcome last{DiagnosticResult::UNUSUAL_STATUS};
    if (m_errorRaised) {
      last = std::move(*m_errorRaised);
    }
    if (last.verdict > m_outcome.verdict) {
      m_outcome = std::move(last);
    }
  }
}

bool PassRunner::startIsRefused() {
  m_test = 0;
  if (m_setup.testIds.empty()) {
    m_outcome.worsen({DiagnosticResult::UNUSUAL_STATUS});
    return true;
  }
  awaitLeavingWorker();
  const auto hung = m_module.hungWorker(m_setup.device.resourceTag);
  if (!hung) {
    return false;
  }
  m_outcome.worsen(raised(unusual(DEVICE_REFUSED, {std::to_string(*hung)})));
  return true;
}

// The one of an aborted pass before may still read, as long as the kernel has patience with the
// disk. Two at once would disturb each other.
void PassRunner::awaitLeavingWorker() {
  constexpr std::chrono::milliseconds look{20};
  const std::string& device = m_setup.device.resourceTag;
  std::optional<pid_t> leaving = m_module.leavingWorker(device);
  if (!leaving) {
    return;
  }
  const double grace =
      secondsOf(kKillGrace, m_module.settings().package(kKillGrace.key()), m_limits.killGrace);
  const auto end = Clock::now() + std::chrono::duration<double>(grace);
  while (leaving && !m_control.isAborted() && Clock::now() < end) {
    std::this_thread::sleep_for(look);
    leaving = m_module.leavingWorker(device);
  }
  if (leaving && !m_control.isAborted()) {
    m_module.markHung(device, *leaving);
  }
}

SessionEnd PassRunner::runSession() {
  const std::string worker = m_module.workerFile();
  SessionEnd failed;
  if (worker.empty()) {
    failed.lastLines = "no worker executable was found";
    return failed;
  }
  try {
    const int testId = m_setup.testIds[m_offset];
    const Settings settings = m_module.settings();
    WorkerProcess process(worker, m_module.packageFile(), niceOf(settings, testId),
                          {privilegesOf(settings, testId), m_setup.isDebugged});
    // While it loads the package.
    readConfiguration();
    // Whatever a test does to its own process, it ends before the next one begins.
    const PassSetup part = partOf(m_setup, m_offset);
    return WorkerSession(part, m_limits, m_control, *this).run(process);
  } catch (const std::system_error& error) {
    failed.lastLines = error.what();
    return failed;
  }
}

// Anew for each worker; what concerns the pass as a whole, for its first.
void PassRunner::readConfiguration() {
  const Settings settings = m_module.settings();
  const auto seconds = [this, &settings](const auto& setting, double fallback) {
    return secondsOf(setting, settings.package(setting.key()), fallback);
  };
  const auto integer = [&settings](const auto& setting) {
    return Settings::toInteger(settings.package(setting.key()).value_or(""));
  };
  m_limits = {};
  m_limits.start = seconds(kStartTimeout, m_limits.start);
  m_limits.exit = seconds(kExitTimeout, m_limits.exit);
  m_limits.abortGrace = seconds(kAbortGrace, m_limits.abortGrace);
  m_limits.termGrace = seconds(kTermGrace, m_limits.termGrace);
  m_limits.killGrace = seconds(kKillGrace, m_limits.killGrace);
  m_limits.tests = {secondsOf(kTestTimeout,
                              settings.test(m_setup.testIds[m_offset], kTestTimeout.key()),
                              kDefaultTestTimeout)};
  if (m_eventsLeft) {
    return;
  }
  // Nobody listened yet when the devices were looked for.
  static_cast<void>(seconds(kDiscoveryTimeout, kDefaultDiscoveryTimeout.count()));
  m_eventsLeft =
      static_cast<std::size_t>(std::max(0L, integer(kMaxEvents).value_or(kDefaultMaxEvents)));
  if (m_setup.seed == 0) {
    const auto seed = integer(kSeed);
    m_setup.seed = seed ? static_cast<std::uint64_t>(*seed) : randomSeed();
  }
  m_setup.memoryLimit = static_cast<std::uint64_t>(std::max(0L, integer(kMemoryLimit).value_or(0)))
                        << 20U;
  m_setup.coreDumps = settings.packageFlag(kCoreDumps.key(), false);
}

// What is no time, or none that ends, must not switch off what watches over a test.
double PassRunner::secondsOf(const OptionalSetting<Seconds>& setting,
                             const std::optional<std::string>& text, double fallback) {
  const auto value = text ? valueFrom<Seconds>(*text) : Seconds(fallback);
  if (value) {
    return value->count();
  }
  raised(unusual(SETTING_REPLACED, {setting.key(), *text, secondsText(fallback)}));
  return fallback;
}

void PassRunner::testBegan(std::size_t position, Time time) {
  m_toldAt = time;
  m_test = m_offset + position;
  m_testIsOpen = true;
  m_testStart = time;
  m_reportedTens = 0;
  m_throughputAt.reset();
  tell(TEST_STARTED, {std::to_string(m_setup.passNumber), std::to_string(m_setup.seed)});
  tellProgress(0);
}

void PassRunner::testProgressed(unsigned int percent, Time time) {
  m_toldAt = time;
  tellProgress(percent);
}

void PassRunner::tellProgress(unsigned int percent) {
  const std::size_t tests = m_setup.testIds.size();
  m_observer.progressed(static_cast<unsigned int>((m_test * 100 + percent) / tests));
  if (m_reportStatus && m_testIsOpen && percent / 10 > m_reportedTens) {
    m_reportedTens = percent / 10;
    tell(TEST_PROGRESS, {std::to_string(m_reportedTens * 10)});
  }
}

void PassRunner::eventRaised(EventType type, unsigned int code, std::vector<std::string> parameters,
                             Time time) {
  m_toldAt = time;
  if (code == TEST_LOG_LINE) {
    logLineWritten(std::move(parameters));
    return;
  }
  if (code == TEST_THROUGHPUT) {
    throughputTold(std::move(parameters));
    return;
  }
  const bool isOwn = !Contract::isKitCode(code);
  const bool isFirstError = isOwn && type == DiagnosticEvent::ERROR_EVENT && !m_errorRaised;
  if (isFirstError) {
    m_errorRaised.emplace(PassOutcome{DiagnosticResult::FAILED, type, code});
    m_errorRaised->parameters = parameters;  // without memory for them the fault is known still
  }
  const std::size_t bytes = bytesOf(parameters);
  if (*m_eventsLeft == 0 || bytes > m_bytesLeft) {
    ++m_eventsDropped;
    return;
  }
  --*m_eventsLeft;
  m_bytesLeft -= bytes;
  if (isOwn && type == DiagnosticEvent::WARNING_EVENT && !m_warningTold) {
    m_warningTold = PassOutcome{DiagnosticResult::UNUSUAL_STATUS, type, code, parameters};
  }
  m_observer.raise(type, code,
                   code == TEST_MEASUREMENT ? aboutTest(std::move(parameters)) : parameters, now());
  m_errorIsTold = m_errorIsTold || isFirstError;
}

// Beside the events of the test, of which it leaves none out. The file has them all.
void PassRunner::logLineWritten(std::vector<std::string> line) {
  if (m_logLinesLeft == 0) {
    return;
  }
  if (--m_logLinesLeft == 0) {
    line = {"..."};
  }
  tell(TEST_LOG_LINE, std::move(line));
}

// Beside the events of the test as well: no more often and no longer than people can read, whatever
// the test sends.
void PassRunner::throughputTold(std::vector<std::string> throughput) {
  constexpr std::chrono::milliseconds least{
      500};  // sent once a second, and received a little unevenly
  constexpr std::size_t longest = 64;
  const auto now = Clock::now();
  if (m_throughputAt && now - *m_throughputAt < least) {
    return;
  }
  m_throughputAt = now;
  for (std::string& text : throughput) {
    text.resize(std::min(text.size(), longest));
  }
  tell(TEST_THROUGHPUT, std::move(throughput));
}

void PassRunner::testEnded(const TestReport& report) {
  m_toldAt = report.time;
  const Contract::Ending ending = endingOf(report, m_control.isAborted());
  if (ending == Contract::Ending::Failed && !m_errorRaised) {
    // Known before anything asks for memory.
    m_errorRaised.emplace(
        PassOutcome{DiagnosticResult::FAILED, DiagnosticEvent::ERROR_EVENT, report.code});
  }
  TestReport bounded = report;
  boundBytes(bounded.parameters);
  finishTest(ending, told(bounded, ending), report.lastLines);
}

// A verdict is told in any case, but not with any number of words.
void PassRunner::boundBytes(std::vector<std::string>& parameters) {
  std::size_t room = std::max(m_bytesLeft, kVerdictBytes);
  std::size_t kept = 0;
  while (kept < parameters.size() && room >= sizeof(std::string)) {
    room -= sizeof(std::string);
    parameters[kept].resize(std::min(parameters[kept].size(), room));
    room -= parameters[kept].size();
    ++kept;
  }
  parameters.resize(kept);
  m_bytesLeft -= std::min(m_bytesLeft, bytesOf(parameters));
}

PassOutcome PassRunner::told(const TestReport& report, Contract::Ending ending) {
  switch (ending) {
    case Contract::Ending::Passed:
      return {};
    case Contract::Ending::Failed:
      return raisedOnce(
          {DiagnosticResult::FAILED, DiagnosticEvent::ERROR_EVENT, report.code, report.parameters});
    case Contract::Ending::Unusual:
      return raisedOnce({DiagnosticResult::UNUSUAL_STATUS, DiagnosticEvent::WARNING_EVENT,
                         report.code, report.parameters});
    case Contract::Ending::NotPossible:
      return raised(unusual(TEST_NOT_SUPPORTED, report.parameters));
    case Contract::Ending::Aborted:
      return raised(unusual(TEST_ABORTED, {}));
    case Contract::Ending::Vanished:
    case Contract::Ending::Broken:
      break;
  }
  return raised(report.isTimedOut
                    ? unusual(TEST_TIMED_OUT, {timeAllowed(), report.lastLines})
                    : unusual(report.code, with(report.parameters, report.lastLines)));
}

// Tells how a session ended beyond what its tests told; false when the pass can't go on.
bool PassRunner::judgeSession(const SessionEnd& end) {
  m_toldAt.reset();
  if (end.isGivenUp && end.isComplete && m_control.isAborted()) {
    m_module.markLeaving(m_setup.device.resourceTag, end.pid);
    return false;
  }
  if (end.isGivenUp) {
    m_module.markHung(m_setup.device.resourceTag, end.pid);
    finishTest(Contract::Ending::Broken,
               raised(unusual(WORKER_UNKILLABLE, {std::to_string(end.pid), end.lastLines})));
    return false;
  }
  if (!end.isReady) {
    m_outcome.worsen(raised(
        m_control.isAborted() ? unusual(TEST_ABORTED, {})
                              : unusual(WORKER_NOT_STARTED, {whyNotStarted(end), end.lastLines})));
    return false;
  }
  if (!isClean(end)) {
    finishTest(m_control.isAborted() ? Contract::Ending::Aborted : Contract::Ending::Broken,
               raised(earlyEnd(end)));
  }
  const std::size_t handled = end.testsEnded + (end.current ? 1 : 0);
  m_offset += handled;
  // A worker that is ready and then runs nothing would do so again.
  return handled > 0;
}

PassOutcome PassRunner::earlyEnd(const SessionEnd& end) {
  if (end.poison) {
    return unusual(MEMORY_POISONED, {addressText(end.poison->virtualAddress),
                                     addressText(end.poison->physicalAddress), end.lastLines});
  }
  if (!end.protocolError.empty()) {
    return unusual(WORKER_BROKE_PROTOCOL, {end.protocolError, end.lastLines});
  }
  if (m_control.isAborted()) {
    return unusual(TEST_ABORTED, {});
  }
  if (end.isTimedOut) {
    return unusual(TEST_TIMED_OUT, {timeAllowed(), end.lastLines});
  }
  if (end.process.kind != ProcessEnd::Kind::Signalled) {
    return unusual(WORKER_EXITED, {exitStatusOf(end.process), end.lastLines});
  }
  if (end.process.number == SIGKILL) {
    return unusual(WORKER_KILLED, {end.lastLines});
  }
  return unusual(WORKER_CRASHED, {signalName(end.process.number), end.lastLines});
}

std::string PassRunner::timeAllowed() const {
  return secondsText(m_limits.tests[m_test - m_offset]);
}

void PassRunner::finishTest(Contract::Ending ending, const PassOutcome& told,
                            const std::string& lastLines) {
  PassOutcome outcome = judged(ending, told, lastLines);
  const DiagnosticResult::TestResult verdict = outcome.verdict;
  m_outcome.worsen(std::move(outcome));
  m_errorRaised.reset();
  m_errorIsTold = false;
  m_warningTold.reset();
  if (!m_testIsOpen) {
    return;
  }
  const auto took =
      std::chrono::duration_cast<std::chrono::milliseconds>(now() - m_testStart).count();
  tell(TEST_ENDED, {nameOf(verdict), std::to_string(took)});
  tellProgress(100);
  m_testIsOpen = false;
}

// A warning event leaves a pass a pass: whoever reads the events judges that.
PassOutcome PassRunner::judged(Contract::Ending ending, const PassOutcome& told,
                               const std::string& lastLines) {
  switch (Contract::judge({.ending = ending, .hasRaisedError = m_errorRaised.has_value()})) {
    case Contract::Judgement::Failed:
      return told.verdict == DiagnosticResult::FAILED ? told : *m_errorRaised;
    case Contract::Judgement::Contradicts:
      return raised(unusual(TEST_CONTRADICTED_ITSELF, {lastLines}));
    default:
      return told;
  }
}

void PassRunner::reportDropped() {
  if (m_eventsDropped > 0) {
    raised(unusual(EVENTS_DROPPED, {std::to_string(m_eventsDropped)}));
  }
}

// What the kit has to say itself is never a verdict on the hardware.
PassOutcome PassRunner::unusual(unsigned int code, std::vector<std::string> details) {
  return {DiagnosticResult::UNUSUAL_STATUS, typeOf(code), code, aboutTest(std::move(details))};
}

void PassRunner::tell(unsigned int code, std::vector<std::string> details) {
  m_observer.raise(typeOf(code), code, aboutTest(std::move(details)), now());
}

PassOutcome PassRunner::raised(const PassOutcome& outcome) {
  m_observer.raise(outcome.type, outcome.code, outcome.parameters, now());
  return outcome;
}

// A verdict that names the first finding of the test finds it told already.
PassOutcome PassRunner::raisedOnce(const PassOutcome& outcome) {
  const bool isError = outcome.type == DiagnosticEvent::ERROR_EVENT;
  const std::optional<PassOutcome>& first = isError ? m_errorRaised : m_warningTold;
  const bool isTold = first && (!isError || m_errorIsTold) && first->code == outcome.code &&
                      first->parameters == outcome.parameters;
  return isTold ? outcome : raised(outcome);
}

std::vector<std::string> PassRunner::aboutTest(std::vector<std::string> details) {
  const int testId = m_test < m_setup.testIds.size() ? m_setup.testIds[m_test] : 0;
  return Contract::toParameters(
      {std::to_string(testId), m_module.testName(testId), m_setup.device.resourceTag},
      std::move(details));
}

}  // namespace TarvexDiags::PackageKit
