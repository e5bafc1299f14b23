#include "packagekit/internal/KitDiagnostics.h"

#include <poll.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "packagekit/contract/DebugWish.h"
#include "packagekit/contract/Estimate.h"
#include "packagekit/contract/LogWish.h"
#include "packagekit/contract/Seed.h"
#include "packagekit/contract/SupportLines.h"
#include "packagekit/contract/ThroughputWish.h"
#include "packagekit/contract/TimeWish.h"
#include "packagekit/internal/Guard.h"
#include "packagekit/internal/KitDevice.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/PackageLog.h"

namespace TarvexDiags::PackageKit {

namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticSettings;
using Diag::DiagnosticStatus;

// A device that is not the kit's, such as a client's stand-in, has no properties.
Device describe(DeviceEnum::VirtualDevice& device) {
  DeviceEnum::IDevice* const given = device.getDevice();
  if (given == nullptr) {
    return {};
  }
  if (const auto* const own = dynamic_cast<const KitDevice*>(given)) {
    return own->description();
  }
  Device description;
  description.name = given->getDeviceName();
  description.resourceTag = given->getResourceTag();
  description.disableName = given->getDisableDeviceName();
  return description;
}

// The elements of a vector that is given away, or null when there are none.
template <class Element>
std::vector<Element*>* handOver(std::vector<Element*>& gathered) {
  if (gathered.empty()) {
    return nullptr;
  }
  auto given = std::make_unique<std::vector<Element*>>();
  given->swap(gathered);
  return given.release();
}

// As far back from the present as the moment is: setting the clock moves no event against another.
std::chrono::system_clock::time_point onTheWall(std::chrono::steady_clock::time_point time) {
  return std::chrono::system_clock::now() -
         std::chrono::duration_cast<std::chrono::system_clock::duration>(
             std::chrono::steady_clock::now() - time);
}

template <class Element>
void deleteAll(std::vector<Element*>& elements) {
  for (Element* const element : elements) {
    delete element;
  }
  elements.clear();
}

}  // namespace

KitDiagnostics::KitDiagnostics(Module& module, const Package& package, bool diagLog,
                               DiagnosticMode mode)
    : m_module(module), m_package(package), m_diagLog(diagLog), m_mode(mode) {
  module.keepTestNames();
  provideSpare();
}

KitDiagnostics::~KitDiagnostics() {
  deleteAll(m_events);
  deleteAll(m_results);
}

DiagnosticResult* KitDiagnostics::runDiagnostic(DeviceEnum::VirtualDevice& device,
                                                DiagnosticSettings* settings) {
  const auto failure = failureOf([&] {
    enter(settings);
    m_control.beginRun();
    if (settings != nullptr) {
      run(describe(device), *settings);
    }
  });
  m_control.endRun();
  leave(failure);
  return &m_result;
}

// Until a verdict is known the result is that there is none.
void KitDiagnostics::enter(const DiagnosticSettings* settings) {
  m_result = DiagnosticResult();
  m_hasDelivered = false;
  const System::LockHold hold(m_lock);
  m_phase = Phase::Inside;
  m_passProgress = 0;
  m_passesDone = 0;
  m_passesWanted = 1;
  m_start = Clock::now();
  provideSpare();
  if (settings == nullptr) {
    return;
  }
  m_result.setTestRequestId(settings->getTestRequestId());
  m_requestId = settings->getTestRequestId();
  m_isStress = settings->getStressMode() != 0 && !settings->getEstimationMode();
  m_reportsStatus = settings->getReportStatusMessage();
  m_tellsTime = Contract::isTimeWanted(static_cast<const char*>(settings->getParameterPointer()));
  m_eventLog.clear();
  if (settings->getLogEvents()) {
    m_eventLog = m_module.logFile(settings->getLogfileName());
  }
  if (m_isStress) {
    m_passesWanted = static_cast<unsigned int>(std::max(settings->getRequestedPassCount(), 1));
  }
}

void KitDiagnostics::leave(const std::optional<std::string>& failure) {
  if (failure) {
    failureOf([&] { m_module.log("a run ended early: " + *failure); });
  }
  if (!m_hasDelivered) {
    failureOf([this] { deliver({m_result.getTestResult()}); });
  }
  if (!m_hasDelivered) {
    failureOf([this] { deliverSpare(); });
  }
  const System::LockHold hold(m_lock);
  m_passProgress = 100;
  m_phase = Phase::Complete;
}

void KitDiagnostics::run(const Device& device, const DiagnosticSettings& settings) {
  if (!waitWhileSuspended()) {
    deliver({DiagnosticResult::UNUSUAL_STATUS});
  } else if (settings.getEstimationMode()) {
    estimate(device, settings);
  } else if (settings.getStressMode() != 0) {
    runStress(device, settings);
  } else {
    runOnce(device, settings);
  }
}

void KitDiagnostics::runOnce(const Device& device, const DiagnosticSettings& settings) {
  deliver(runPass(device, settings, settings.getPassCount()));
}

// The controller only looks on: passes and time are counted here. It writes the count of passes
// done into the settings meanwhile, so the first pass is 1 whatever stands there.
void KitDiagnostics::runStress(const Device& device, const DiagnosticSettings& settings) {
  PassOutcome worst;
  unsigned int wanted = 0;
  Clock::time_point start;
  {
    const System::LockHold hold(m_lock);
    wanted = m_passesWanted;
    start = m_start;
  }
  for (unsigned int pass = 1; pass <= wanted; ++pass) {
    const PassOutcome outcome = runPass(device, settings, static_cast<int>(pass));
    {
      const System::LockHold hold(m_lock);
      m_passesDone = pass;
      m_passProgress = 0;
    }
    deliver(outcome);
    worst.worsen(outcome);
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
    if (static_cast<Ulong>(elapsed.count()) >= settings.getRunTime() ||
        (settings.getHaltOnError() != 0 && outcome.verdict != DiagnosticResult::PASSED) ||
        !waitWhileSuspended()) {
      break;
    }
  }
  m_result.setTestResult(worst.verdict);
}

// The controller counts whole seconds; whoever wants them finer reads the parameters.
void KitDiagnostics::estimate(const Device& device, const DiagnosticSettings& settings) {
  Environment environment = m_module.environment(m_mode);
  environment.isQuick = settings.getQuickTestMode() != 0;
  double total = 0;
  for (const int testId : settings.getTestNumberVector()) {
    const double figure = estimateOf(testId, device, environment);
    if (figure < 0) {
      deliver({DiagnosticResult::PASSED}, -1);
      return;
    }
    total += figure;
  }
  PassOutcome answer{DiagnosticResult::PASSED};
  answer.parameters = Contract::toEstimate(total);
  deliver(answer, Contract::wholeSeconds(total));
}

double KitDiagnostics::estimateOf(int testId, const Device& device,
                                  const Environment& environment) const {
  const TestEntry* const entry = m_package.find(testId);
  const double figure = entry == nullptr ? 0 : entry->estimateFor(device, environment);
  if (figure != 0) {
    return figure;
  }
  const std::string section = "TestID" + std::to_string(testId);
  auto configured = environment.settings.read(section, "TestEstimatedTime");
  if (environment.isQuick) {
    const auto quick = environment.settings.read(section, Contract::kQuickEstimateKey);
    configured = quick ? quick : configured;
  }
  return Settings::toNumber(configured.value_or("")).value_or(0);
}

PassOutcome KitDiagnostics::runPass(const Device& device, const DiagnosticSettings& settings,
                                    int passNumber) {
  return PassRunner(m_module, m_control, *this, m_reportsStatus)
      .run(setupOf(device, settings, passNumber));
}

PassSetup KitDiagnostics::setupOf(const Device& device, const DiagnosticSettings& settings,
                                  int passNumber) const {
  PassSetup setup;
  setup.testIds = settings.getTestNumberVector();
  setup.device = device;
  setup.openMode = settings.getOpenMode();
  setup.quickMode = settings.getQuickTestMode() != 0;
  setup.haltOnError = settings.getHaltOnError() != 0;
  setup.diagnosticMode = m_mode;
  setup.passNumber = passNumber;
  const char* const wishes = static_cast<const char*>(settings.getParameterPointer());
  setup.seed = Contract::seedOf(wishes);
  setup.isDebugged = Contract::isToBeDebugged(wishes);
  setup.tellsLog = Contract::isLogWanted(wishes);
  setup.tellsThroughput = Contract::isThroughputWanted(wishes);
  setup.configFile = m_module.settings().file();
  setup.logFile = m_diagLog ? m_module.logFile() : "";
  return setup;
}

// Before a pass: false when it is not to start at all.
bool KitDiagnostics::waitWhileSuspended() {
  while (!m_control.isAborted() && m_control.isSuspended()) {
    pollfd wake{m_control.wakeDescriptor(), POLLIN, 0};
    poll(&wake, 1, -1);
    m_control.clearWake();
  }
  return !m_control.isAborted();
}

void KitDiagnostics::deliver(const PassOutcome& outcome, int estimatedTime) {
  m_result.setTestResult(outcome.verdict);
  m_result.setEventType(outcome.type);
  m_result.setEventCode(outcome.code);
  m_result.setParamVector(outcome.parameters);
  m_result.setEstimatedTime(estimatedTime);
  auto copy = std::make_unique<DiagnosticResult>(m_result);
  const System::LockHold hold(m_lock);
  m_results.push_back(copy.get());
  static_cast<void>(copy.release());
  m_hasDelivered = true;
}

void KitDiagnostics::provideSpare() {
  if (!m_spareResult) {
    m_spareResult = std::make_unique<DiagnosticResult>();
  }
  m_results.reserve(m_results.size() + 1);
}

// Takes no memory: what a pass hands over in any case was made before it began.
void KitDiagnostics::deliverSpare() {
  if (m_spareResult) {
    m_spareResult->setTestResult(m_result.getTestResult());
    m_spareResult->setTestRequestId(m_requestId);
    const System::LockHold hold(m_lock);
    m_results.push_back(m_spareResult.get());
    static_cast<void>(m_spareResult.release());
    m_hasDelivered = true;
  }
}

void KitDiagnostics::raise(DiagnosticEvent::EventType type, unsigned int code,
                           std::vector<std::string> parameters, Clock::time_point time) {
  for (std::string& parameter : parameters) {
    parameter = toValidUtf8(parameter);
  }
  auto event = std::make_unique<DiagnosticEvent>();
  event->setEventType(type);
  event->setEventCode(code);
  event->setParamVector(std::move(parameters));
  event->setTestRequestId(m_requestId);
  logEvent(*event);
  if (m_tellsTime) {
    std::vector<std::string> timed = event->getParamVector();
    timed.push_back(Contract::toTimeDetail(onTheWall(time)));
    event->setParamVector(std::move(timed));
  }
  const System::LockHold hold(m_lock);
  m_events.push_back(event.get());
  static_cast<void>(event.release());
}

void KitDiagnostics::logEvent(DiagnosticEvent& event) {
  if (!m_eventLog.empty()) {
    writeLogLine(m_eventLog, event.dump());
  }
}

void KitDiagnostics::progressed(unsigned int percentOfPass) {
  const System::LockHold hold(m_lock);
  m_passProgress = std::min(percentOfPass, 100U);
}

namespace {

void tellSize(const std::string& package, const std::string& tag, const Device& device) {
  if (const std::string bytes = device.property(Contract::kBytesOfDevice); !bytes.empty()) {
    Contract::sendSupportLine({package, Contract::kNoTest, tag, Contract::kBytesOfDevice, bytes});
  }
}

}  // namespace

// Settled by discovery, so no code of the package's author runs here.
bool KitDiagnostics::IsDeviceSupported(DeviceEnum::VirtualDevice& device, int testId) {
  Support answer = Support::no(Contract::kNoSuchTest);
  std::string tag;
  failureOf([&] {
    DeviceEnum::IDevice* const given = device.getDevice();
    tag = given == nullptr ? "" : given->getResourceTag();
    if (const auto* const own = dynamic_cast<const KitDevice*>(given)) {
      answer = own->supports(testId);
      tellSize(m_module.baseName(), tag, own->description());
    }
  });
  if (!answer) {
    failureOf([&] {
      m_module.log("test " + std::to_string(testId) + " is not supported on " + tag + ": " +
                   answer.reason() + Contract::inBrackets(answer.detail()));
      Contract::sendSupportLine(
          {m_module.baseName(), testId, tag, answer.reason(), answer.detail()});
    });
  }
  return static_cast<bool>(answer);
}

DiagnosticStatus KitDiagnostics::getDiagnosticStatus() {
  DiagnosticStatus status;
  const System::LockHold hold(m_lock);
  const bool isOver =
      m_phase == Phase::Complete || (m_phase == Phase::Ready && m_control.isAborted());
  if (m_phase == Phase::Inside) {
    status.setStatus(m_control.isSuspended() ? DiagnosticStatus::SUSPENDED
                                             : DiagnosticStatus::EXECUTING);
  } else if (isOver) {
    // The end is not told before the last event was taken.
    status.setStatus(m_events.empty() ? DiagnosticStatus::COMPLETED : DiagnosticStatus::EXECUTING);
  } else {
    status.setStatus(DiagnosticStatus::READY);
  }
  const unsigned int progress = progressLocked();
  status.setProgress(progress);
  status.setPassCount(m_passesDone);
  if (m_phase == Phase::Inside && progress > 0) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_start);
    status.setTimeRemaining(static_cast<int>(elapsed.count() * (100 - progress) / progress));
  }
  return status;
}

unsigned int KitDiagnostics::progressLocked() const {
  if (m_phase == Phase::Ready) {
    return 0;
  }
  if (m_phase == Phase::Complete) {
    return 100;
  }
  return (m_passesDone * 100 + m_passProgress) / m_passesWanted;
}

void KitDiagnostics::abortDiagnostic() {
  m_control.abort();
}

void KitDiagnostics::suspendDiagnostic() {
  const System::LockHold hold(m_lock);
  if (m_phase != Phase::Complete) {
    m_control.suspend();
  }
}

void KitDiagnostics::resumeDiagnostic() {
  m_control.resume();
}

std::vector<DiagnosticEvent*>* KitDiagnostics::getDiagnosticEvents() {
  const System::LockHold hold(m_lock);
  return handOver(m_events);
}

// Once the results of a pass were taken it is over, unless the request itself is. Taken before the
// end was told, they leave it to be told.
std::vector<DiagnosticResult*>* KitDiagnostics::getDiagnosticResults() {
  const System::LockHold hold(m_lock);
  if (m_phase == Phase::Complete && m_events.empty() && !m_isStress && !m_control.isAborted()) {
    m_phase = Phase::Ready;
  }
  return handOver(m_results);
}

}  // namespace TarvexDiags::PackageKit
