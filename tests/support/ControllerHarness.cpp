#include "tests/support/ControllerHarness.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <stdexcept>

#include "DiagCtrl/DiagnosticPackage.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticSettings;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using DiagCtrl::DiagnosticPackage;
using DiagCtrl::TestRequest;
using Lock = std::lock_guard<std::mutex>;

void require(DiagnosticController::errorCode code, const std::string& call) {
  if (code != DiagnosticController::SUCCESS) {
    throw std::runtime_error(call + " returned " + nameOf(code));
  }
}

/// Takes over a vector that a call handed out, with its messages, as lines.
template <class Message>
std::vector<std::string> consume(std::vector<Message*>* handedOut) {
  const std::unique_ptr<std::vector<Message*>> messages(handedOut);
  std::vector<std::string> lines;
  for (Message* const message : *messages) {
    const std::unique_ptr<Message> owned(message);
    lines.push_back(describe(*owned));
  }
  return lines;
}

void append(std::vector<std::string>& to, std::vector<std::string> lines) {
  std::move(lines.begin(), lines.end(), std::back_inserter(to));
}

std::string verdictOf(const DiagnosticResult& result) {
  static constexpr const char* kNames[] = {"PASSED", "UNUSUAL_STATUS", "FAILED"};
  const auto verdict = static_cast<std::size_t>(result.getTestResult());
  return verdict < std::size(kNames) ? kNames[verdict] : std::to_string(verdict);
}

}  // namespace

std::string describe(const DiagCtrlEvent& event) {
  return nameOf(static_cast<DiagCtrlEvent::eventCode>(event.getEventCode())) + " " +
         letterOf(event.getEventType()) + " " + std::to_string(event.getTestRequestId());
}

std::string describe(const DiagnosticEvent& event) {
  std::string text = std::to_string(event.getEventCode()) + " " + letterOf(event.getEventType()) +
                     " " + std::to_string(event.getTestRequestId());
  const char* separator = " [";
  for (const std::string& parameter : event.getParamVector()) {
    text += separator + parameter;
    separator = ", ";
  }
  return event.getParamVector().empty() ? text : text + "]";
}

std::string describe(const DiagnosticResult& result) {
  std::string text = verdictOf(result) + " " + std::to_string(result.getTestRequestId());
  if (result.getEstimatedTime() != 0) {
    text += " est " + std::to_string(result.getEstimatedTime());
  }
  return text;
}

ControllerHarness::ControllerHarness() : m_callBack(std::make_unique<DiagCtrl::CallBackObject>()) {
  m_control.packDirPath(m_packages.path());
}

ControllerHarness::~ControllerHarness() {
  for (Scripted::Script* const script : m_scripts) {
    script->releaseRuns();
  }
  shutDown();
  m_callBack.reset();
  delete DiagnosticController::getInstance();
}

Scripted::Script& ControllerHarness::addPackage(const std::string& name,
                                                const PackageConfig& config) {
  Scripted::Script& script = m_packages.add(name, config);
  m_scripts.push_back(&script);
  return script;
}

void ControllerHarness::start() {
  initialize();
  registerForAll();
  enumerate();
}

void ControllerHarness::initialize() {
  const std::string path = m_control.writeTo(m_directory);
  require(controller().initialize(path.c_str()), "initialize");
}

void ControllerHarness::registerForAll() {
  DiagCtrl::CallBackObject* const object = m_callBack.get();
  require(controller().registerForDiagEvents(object, m_eventId), "registerForDiagEvents");
  require(controller().registerForDiagResults(object, m_resultId), "registerForDiagResults");
  require(controller().registerForDiagCtrlEvents(object, m_ctrlEventId),
          "registerForDiagCtrlEvents");
}

void ControllerHarness::enumerate() {
  require(controller().enumerateAllPackages(), "enumerateAllPackages");
}

ControllerHarness::ErrorCode ControllerHarness::shutDown() {
  m_eventId = m_resultId = m_ctrlEventId = 0;
  return controller().shutDown();
}

DiagnosticController& ControllerHarness::controller() {
  return *DiagnosticController::getInstance();
}

std::vector<std::string> ControllerHarness::catalogue() {
  int count = 0;
  require(controller().getNumberOfDiagPackages(count), "getNumberOfDiagPackages");
  std::vector<std::string> names;
  for (int index = 1; index <= count; ++index) {
    DiagnosticPackage* package = nullptr;
    require(controller().getDiagPackage(index, package), "getDiagPackage");
    names.emplace_back(package->getPackageBaseName());
  }
  return names;
}

int ControllerHarness::indexOf(const std::string& package) {
  const std::vector<std::string> names = catalogue();
  const auto found = std::find(names.begin(), names.end(), package);
  if (found == names.end()) {
    throw std::runtime_error("no package " + package + " in the catalogue");
  }
  return static_cast<int>(found - names.begin()) + 1;
}

DiagnosticSettings ControllerHarness::settings(int passes) {
  DiagnosticSettings settings;
  settings.setRequestedPassCount(passes);
  settings.setRunTime(3600);
  return settings;
}

unsigned long ControllerHarness::queue(const std::string& package, unsigned int device,
                                       std::vector<int> tests, DiagnosticSettings settings) {
  unsigned long id = 0;
  require(controller().queueTest(indexOf(package), device, tests, settings, id), "queueTest");
  return id;
}

unsigned long ControllerHarness::queueAllTests(const std::string& package, unsigned int device,
                                               DiagnosticSettings settings) {
  unsigned long id = 0;
  require(controller().queueTest(indexOf(package), device, settings, id), "queueTest");
  return id;
}

std::vector<unsigned long> ControllerHarness::queuePackage(const std::string& package,
                                                           DiagnosticSettings settings) {
  DiagCtrl::VectorTestReqId* ids = nullptr;
  const ErrorCode code = controller().queueTest(indexOf(package), settings, ids);
  const std::unique_ptr<DiagCtrl::VectorTestReqId> owned(ids);
  require(code, "queueTest");
  return *owned;
}

ControllerHarness::Phase ControllerHarness::phase() {
  return controller().getDiagCtrlPhase(-1);
}

bool ControllerHarness::awaitPhase(Phase wanted, std::chrono::milliseconds limit) {
  return eventually([&] { return phase() == wanted; }, limit);
}

bool ControllerHarness::awaitIdle(std::chrono::milliseconds limit) {
  return awaitPhase(DiagControllerStatus::IDLE, limit);
}

bool ControllerHarness::awaitStatus(unsigned long requestId, TestRequest::TestRequestStatus status,
                                    std::chrono::milliseconds limit) {
  return eventually([&] { return statusOf(requestId) == status; }, limit);
}

bool ControllerHarness::awaitCtrlEvent(const std::string& text, std::chrono::milliseconds limit) {
  return eventually(
      [&] {
        const auto events = ctrlEvents();
        return std::find(events.begin(), events.end(), text) != events.end();
      },
      limit);
}

bool ControllerHarness::awaitResults(std::size_t number, std::chrono::milliseconds limit) {
  return eventually([&] { return results().size() >= number; }, limit);
}

bool ControllerHarness::awaitEvents(std::size_t number, std::chrono::milliseconds limit) {
  return eventually([&] { return events().size() >= number; }, limit);
}

bool ControllerHarness::awaitEnd(unsigned long requestId, std::chrono::milliseconds limit) {
  return eventually(
      [&] {
        const auto ids = requestIds();
        return std::find(ids.begin(), ids.end(), requestId) == ids.end();
      },
      limit);
}

void ControllerHarness::drainEvents() {
  DiagCtrl::EventVector* drained = nullptr;
  require(controller().getDiagnosticEvents(static_cast<long>(m_eventId), drained),
          "getDiagnosticEvents");
  append(m_events, consume(drained));
}

void ControllerHarness::drainResults() {
  DiagCtrl::ResultVector* drained = nullptr;
  require(controller().getDiagnosticResults(static_cast<long>(m_resultId), drained),
          "getDiagnosticResults");
  append(m_results, consume(drained));
}

void ControllerHarness::drainCtrlEvents() {
  DiagCtrl::CtrlEventVector* drained = nullptr;
  require(controller().getDiagnosticCtrlEvents(static_cast<long>(m_ctrlEventId), drained),
          "getDiagnosticCtrlEvents");
  append(m_ctrlEvents, consume(drained));
}

std::vector<std::string> ControllerHarness::ctrlEvents() {
  const Lock lock(m_mutex);
  drainCtrlEvents();
  return m_ctrlEvents;
}

std::vector<std::string> ControllerHarness::ctrlEventsOf(unsigned long requestId) {
  const std::string end = " " + std::to_string(requestId);
  std::vector<std::string> found;
  for (const std::string& event : ctrlEvents()) {
    const std::size_t space = event.rfind(' ');
    if (event.substr(space) == end) {
      found.push_back(event.substr(0, space));
    }
  }
  return found;
}

std::vector<std::string> ControllerHarness::events() {
  const Lock lock(m_mutex);
  drainEvents();
  return m_events;
}

std::vector<std::string> ControllerHarness::results() {
  const Lock lock(m_mutex);
  drainResults();
  return m_results;
}

void ControllerHarness::forget() {
  const Lock lock(m_mutex);
  drainEvents();
  drainResults();
  drainCtrlEvents();
  m_events.clear();
  m_results.clear();
  m_ctrlEvents.clear();
}

TestRequest::TestRequestStatus ControllerHarness::statusOf(unsigned long requestId) {
  TestRequest::TestRequestStatus status = TestRequest::WAIT;
  int pass = 0;
  int passes = 0;
  bool stress = false;
  require(controller().getRequestStatus(static_cast<long>(requestId), status, pass, passes, stress),
          "getRequestStatus");
  return status;
}

std::vector<unsigned long> ControllerHarness::requestIds() {
  std::vector<unsigned long>* ids = nullptr;
  const ErrorCode code = controller().getRequestIdList(ids);
  const std::unique_ptr<std::vector<unsigned long>> owned(ids);
  require(code, "getRequestIdList");
  return *owned;
}

}  // namespace TarvexDiags::TestSupport
