// The scripted package: a package like any other, written against the framework's headers, which
// asks the script of its name what to be. It keeps the contract of a package unless the script
// tells it not to.

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/GlobalSettings.h"
#include "tests/support/scripted/Script.h"

namespace {

using TarvexDiags::DeviceEnum::IDevice;
using TarvexDiags::DeviceEnum::IDeviceEnumerator;
using TarvexDiags::DeviceEnum::VirtualDevice;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::Diag::DiagnosticSettings;
using TarvexDiags::Diag::DiagnosticStatus;
using TarvexDiags::Diag::IDiagnostics;
using TarvexDiags::DiagCtrl::GlobalSettings;
using TarvexDiags::Scripted::AllPackages;
using TarvexDiags::Scripted::Call;
using TarvexDiags::Scripted::CallRecord;
using TarvexDiags::Scripted::Device;
using TarvexDiags::Scripted::Event;
using TarvexDiags::Scripted::Habits;
using TarvexDiags::Scripted::Living;
using TarvexDiags::Scripted::Pass;
using TarvexDiags::Scripted::Result;
using TarvexDiags::Scripted::RunningPass;
using TarvexDiags::Scripted::Script;

typedef std::unique_lock<std::mutex> Lock;

/// The script of this copy of the shared object: its own, since each copy has its own variables.
std::atomic<Script*> ownScript{nullptr};

Script& script() {
  Script* const own = ownScript.load();
  return own != nullptr ? *own : Script::of("");
}

/// "/some/where/NAME.cfg" is of the package NAME.
std::string baseNameOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  return file.substr(0, file.rfind(".cfg"));
}

std::string textOf(const char* text) {
  return text == nullptr ? "<null>" : text;
}

/// Counts an object among the living.
class Counted {
 public:
  Counted(Script& arScript, int Living::*kind) : m_script(arScript), m_kind(kind) {
    m_script.addLiving(m_kind, 1);
  }
  ~Counted() { m_script.addLiving(m_kind, -1); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  Script& m_script;
  int Living::*const m_kind;
};

class ScriptedDevice final : public IDevice {
 public:
  ScriptedDevice(Script& arScript, const Device& device)
      : IDevice(device.tag, device.name,
                device.disableName.empty() ? device.name : device.disableName),
        m_script(arScript),
        m_counted(arScript, &Living::devices) {}
  ~ScriptedDevice() override {
    m_script.enter({.call = Call::DestroyDevice, .device = getDeviceName()});
  }

  unsigned int getDeviceStatus() override {
    m_script.enter({.call = Call::DeviceStatus, .device = getDeviceName()});
    return m_script.deviceStatus(getDeviceName());
  }

 private:
  Script& m_script;
  const Counted m_counted;
};

class ScriptedEnumerator final : public IDeviceEnumerator {
 public:
  ScriptedEnumerator(Script& arScript, bool diagLog, DiagnosticMode mode)
      : IDeviceEnumerator(diagLog, mode),
        m_script(arScript),
        m_counted(arScript, &Living::enumerators) {}
  ~ScriptedEnumerator() override { m_script.enter({.call = Call::DestroyEnumerator}); }

  VirtualDeviceVector* getDeviceVector(const char* resource, TarvexDiags::Uint type) override {
    m_script.enter({.call = Call::GetDevices, .text = textOf(resource), .deviceType = type});
    if (m_script.habits().givesNoDevices) {
      return nullptr;
    }
    m_devices.clear();
    const std::vector<Device> devices = m_script.devices();
    m_devices.reserve(devices.size());
    for (const Device& device : devices) {
      m_devices.emplace_back(new ScriptedDevice(m_script, device));
    }
    return &m_devices;
  }

 private:
  Script& m_script;
  const Counted m_counted;
  VirtualDeviceVector m_devices;
};

template <class Message>
std::vector<Message*>* handOver(std::deque<std::unique_ptr<Message>>& queue, bool evenEmpty) {
  if (queue.empty() && !evenEmpty) {
    return nullptr;
  }
  auto messages = std::make_unique<std::vector<Message*>>();
  messages->reserve(queue.size());
  for (std::unique_ptr<Message>& message : queue) {
    messages->push_back(message.release());
  }
  queue.clear();
  return messages.release();
}

/// The tests of the package, for one request. The script's mutex guards all of its state.
class ScriptedDiagnostics final : public IDiagnostics, private RunningPass {
 public:
  explicit ScriptedDiagnostics(Script& arScript)
      : m_script(arScript), m_counted(arScript, &Living::diagnostics) {
    m_latest.object = arScript.nextObject();
  }
  ~ScriptedDiagnostics() override {
    m_latest.call = Call::DestroyDiagnostics;
    m_script.enter(std::move(m_latest));  // not copied: a destructor may find no memory
  }

  DiagnosticResult* runDiagnostic(VirtualDevice& device, DiagnosticSettings* settings) override;
  bool IsDeviceSupported(VirtualDevice& device, int testId) override;
  DiagnosticStatus getDiagnosticStatus() override;
  void abortDiagnostic() override;
  void suspendDiagnostic() override;
  void resumeDiagnostic() override;
  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override;
  std::vector<DiagnosticResult*>* getDiagnosticResults() override;

 private:
  class Inside;

  CallRecord record(Call call) const;
  bool begin(VirtualDevice& device, const DiagnosticSettings& settings);
  void perform(const Pass& pass, const std::string& device);
  void finish(const Pass& pass, bool wasAborted);
  void stay(Lock& lock, const Pass& pass, const std::string& device);
  bool mustEnd() const { return m_aborted && !m_script.currentHabits().ignoresAbort; }
  DiagnosticStatus::Status status() const;
  bool isSuspended() const;
  void queueEvent(const Event& event) override;
  void queueResults(const std::vector<Result>& results);
  void setReturned(DiagnosticResult::TestResult verdict);
  template <class Message>
  void fill(DiagnosticEvent& message, const Message& from) const;

  Script& m_script;
  const Counted m_counted;
  CallRecord m_latest;  // the pass under way, or the last one
  bool m_inside = false;
  bool m_completed = false;  // a pass has ended, and its results were not fetched since
  bool m_aborted = false;
  bool m_toldToAbort = false;  // never forgotten
  bool m_suspended = false;
  unsigned int m_ended = 0;
  std::deque<std::unique_ptr<DiagnosticEvent>> m_events;
  std::deque<std::unique_ptr<DiagnosticResult>> m_results;
  DiagnosticResult m_returned;
};

/// A pass is inside, also when something is thrown out of it.
class ScriptedDiagnostics::Inside {
 public:
  explicit Inside(ScriptedDiagnostics& owner) : m_owner(owner) {}
  ~Inside() { end(); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  void end() {
    AllPackages::leave(&m_owner);  // before anybody can see that the pass is over
    const Lock lock(m_owner.m_script.mutex());
    if (m_owner.m_inside) {
      m_owner.m_inside = false;
      m_owner.m_completed = true;
      ++m_owner.m_ended;
      m_owner.m_script.passEnds(m_owner);
    }
  }

 private:
  ScriptedDiagnostics& m_owner;
};

CallRecord ScriptedDiagnostics::record(Call call) const {
  const Lock lock(m_script.mutex());
  CallRecord copy = m_latest;
  copy.call = call;
  return copy;
}

DiagnosticResult* ScriptedDiagnostics::runDiagnostic(VirtualDevice& device,
                                                     DiagnosticSettings* settings) {
  const bool wasAborted = begin(device, *settings);
  Inside inside(*this);
  const CallRecord run = record(Call::RunEnter);
  m_script.enter(run, this);
  const Pass pass = m_script.passFor(run);
  if (!wasAborted) {
    perform(pass, run.device);
  }
  m_script.enter(record(Call::RunEnd));
  finish(pass, wasAborted);
  inside.end();
  m_script.enter(record(Call::RunReturn));
  return &m_returned;
}

/// @return whether an abort came first, so that the device is not to be touched.
bool ScriptedDiagnostics::begin(VirtualDevice& device, const DiagnosticSettings& settings) {
  const Lock lock(m_script.mutex());
  m_latest.requestId = settings.getTestRequestId();
  m_latest.device = device.getDevice()->getDeviceName();
  m_latest.tests = settings.getTestNumberVector();
  m_latest.pass = settings.getPassCount();
  m_latest.openMode = settings.getOpenMode();
  m_latest.stress = settings.getStressMode() != 0;
  m_latest.haltOnError = settings.getHaltOnError() != 0;
  m_latest.estimation = settings.getEstimationMode();
  ++m_latest.run;
  if (m_script.currentHabits().forgetsAbort) {
    m_aborted = false;
  }
  AllPackages::enter(this, {.package = m_script.package(),
                            .requestId = m_latest.requestId,
                            .object = m_latest.object,
                            .run = m_latest.run,
                            .tag = device.getDevice()->getResourceTag(),
                            .isToldToAbort = m_toldToAbort});
  m_inside = true;
  m_completed = m_completed && m_script.currentHabits().keepsReportingCompleted;
  return mustEnd();
}

void ScriptedDiagnostics::perform(const Pass& pass, const std::string& device) {
  Lock lock(m_script.mutex());
  for (const Event& event : pass.events) {
    queueEvent(event);
  }
  if (m_script.currentHabits().completesEarly) {
    queueResults(pass.results);
    m_completed = true;
  }
  stay(lock, pass, device);
}

/// Stays inside until the pass is over, let go and not suspended, or was aborted and unwound.
void ScriptedDiagnostics::stay(Lock& lock, const Pass& pass, const std::string& device) {
  const auto end = std::chrono::steady_clock::now() + pass.duration;
  while (!mustEnd()) {
    if (isSuspended() || m_script.holds(device)) {
      m_script.changed().wait(lock);
    } else if (pass.duration.count() == 0 || std::chrono::steady_clock::now() >= end) {
      return;
    } else {
      m_script.changed().wait_until(lock, end);
    }
  }
  const auto unwound = std::chrono::steady_clock::now() + pass.unwinding;
  while (std::chrono::steady_clock::now() < unwound) {
    m_script.changed().wait_until(lock, unwound);
  }
}

void ScriptedDiagnostics::finish(const Pass& pass, bool wasAborted) {
  const Lock lock(m_script.mutex());
  std::vector<Result> results = pass.results;
  if (wasAborted || mustEnd()) {
    results = {Result{.verdict = m_script.abortedVerdict()}};
  } else {
    for (const Event& event : pass.lastEvents) {
      queueEvent(event);
    }
  }
  auto worst = DiagnosticResult::PASSED;
  for (const Result& result : results) {
    worst = std::max(worst, result.verdict);
  }
  setReturned(worst);
  if (!m_script.currentHabits().completesEarly) {
    queueResults(results);
  }
}

void ScriptedDiagnostics::setReturned(DiagnosticResult::TestResult verdict) {
  m_returned = DiagnosticResult();
  m_returned.setTestRequestId(m_latest.requestId);
  m_returned.setTestResult(verdict);
}

template <class Message>
void ScriptedDiagnostics::fill(DiagnosticEvent& message, const Message& from) const {
  message.setEventCode(from.code);
  message.setTestRequestId(m_latest.requestId);
  message.setParamVector(from.parameters);
}

void ScriptedDiagnostics::queueEvent(const Event& event) {
  auto message = std::make_unique<DiagnosticEvent>();
  fill(*message, event);
  message->setEventType(event.type);
  m_events.push_back(std::move(message));
}

void ScriptedDiagnostics::queueResults(const std::vector<Result>& results) {
  if (m_script.currentHabits().dropsResults) {
    return;
  }
  for (const Result& result : results) {
    auto message = std::make_unique<DiagnosticResult>();
    fill(*message, result);
    message->setTestResult(result.verdict);
    message->setEstimatedTime(result.estimatedTime);
    m_results.push_back(std::move(message));
  }
}

bool ScriptedDiagnostics::IsDeviceSupported(VirtualDevice& device, int testId) {
  CallRecord call = record(Call::IsSupported);
  call.device = device.getDevice()->getDeviceName();
  call.test = testId;
  m_script.enter(call);
  return m_script.supports(call.device, testId);
}

DiagnosticStatus ScriptedDiagnostics::getDiagnosticStatus() {
  m_script.enter(record(Call::GetStatus));
  const Lock lock(m_script.mutex());
  return m_script.report(status(), m_ended);
}

/// A pass that has been reported as over is joined by the host and never resumed: it goes on.
bool ScriptedDiagnostics::isSuspended() const {
  return m_suspended && status() != DiagnosticStatus::COMPLETED;
}

/// EXECUTING while events are queued, so that a poll that sees the end has seen all events.
DiagnosticStatus::Status ScriptedDiagnostics::status() const {
  const Habits& habits = m_script.currentHabits();
  if (m_inside) {
    if ((habits.completesEarly && m_completed) || (habits.completesOnAbort && m_aborted)) {
      return DiagnosticStatus::COMPLETED;
    }
    return m_suspended && !mustEnd() ? DiagnosticStatus::SUSPENDED : DiagnosticStatus::EXECUTING;
  }
  if (habits.neverCompletes && m_ended > 0) {
    return DiagnosticStatus::EXECUTING;
  }
  if (!m_completed && !m_aborted) {
    return DiagnosticStatus::READY;
  }
  return m_events.empty() || habits.losesEvents ? DiagnosticStatus::COMPLETED
                                                : DiagnosticStatus::EXECUTING;
}

void ScriptedDiagnostics::abortDiagnostic() {
  m_script.enter(record(Call::Abort));
  const Lock lock(m_script.mutex());
  m_aborted = true;
  m_toldToAbort = true;
  AllPackages::noteAbort(this);
  m_suspended = false;  // also a pass that will go on all the same
  m_script.changed().notify_all();
}

void ScriptedDiagnostics::suspendDiagnostic() {
  m_script.enter(record(Call::Suspend));
  const Lock lock(m_script.mutex());
  m_suspended = m_suspended || m_inside || !m_completed;
}

void ScriptedDiagnostics::resumeDiagnostic() {
  m_script.enter(record(Call::Resume));
  const Lock lock(m_script.mutex());
  m_suspended = false;
  m_script.changed().notify_all();
}

std::vector<DiagnosticEvent*>* ScriptedDiagnostics::getDiagnosticEvents() {
  m_script.enter(record(Call::GetEvents));
  const Lock lock(m_script.mutex());
  const Habits& habits = m_script.currentHabits();
  if (habits.givesNullEvents) {
    m_events.clear();
    return nullptr;
  }
  return handOver(m_events, habits.givesEmptyVectors);
}

std::vector<DiagnosticResult*>* ScriptedDiagnostics::getDiagnosticResults() {
  m_script.enter(record(Call::GetResults));
  const Lock lock(m_script.mutex());
  const Habits& habits = m_script.currentHabits();
  if (!m_inside && !m_latest.stress && !habits.keepsReportingCompleted &&
      status() == DiagnosticStatus::COMPLETED) {
    m_completed = false;  // the next pass may come; an abort stays in force all the same
  }
  if (habits.givesNullResults) {
    m_results.clear();
    return nullptr;
  }
  return handOver(m_results, habits.givesEmptyVectors);
}

}  // namespace

#define PACKAGE_EXPORT extern "C" __attribute__((visibility("default")))

PACKAGE_EXPORT void setPackageConfigFile(const char* path) {
  ownScript = &Script::of(baseNameOf(textOf(path)));
  script().enter({.call = Call::SetConfigFile, .text = textOf(path)});
}

PACKAGE_EXPORT void setPackageLogDir(const char* directory) {
  script().enter({.call = Call::SetLogDir, .text = textOf(directory)});
}

PACKAGE_EXPORT IDeviceEnumerator* getIDeviceEnumerator(bool log, GlobalSettings::diagMode mode) {
  script().enter({.call = Call::GetEnumerator, .diagLog = log, .diagMode = mode});
  if (script().habits().givesNoEnumerator) {
    return nullptr;
  }
  return new ScriptedEnumerator(script(), log,
                                static_cast<IDeviceEnumerator::DiagnosticMode>(mode));
}

PACKAGE_EXPORT IDiagnostics* getIDiagnostics(bool log, GlobalSettings::diagMode mode) {
  script().enter({.call = Call::GetDiagnostics, .diagLog = log, .diagMode = mode});
  return script().habits().givesNoDiagnostics ? nullptr : new ScriptedDiagnostics(script());
}
