#include "tests/support/scripted/Script.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace TarvexDiags::Scripted {

namespace {

using Diag::DiagnosticStatus;
using Lock = std::lock_guard<std::mutex>;

bool isPoll(Call call) {
  return call == Call::GetStatus || call == Call::GetEvents || call == Call::GetResults;
}

std::size_t indexOf(Call call) {
  return static_cast<std::size_t>(call);
}

}  // namespace

const char* nameOf(Call call) {
  static constexpr const char* kNames[] = {"SetConfigFile",
                                           "SetLogDir",
                                           "GetEnumerator",
                                           "GetDiagnostics",
                                           "GetDevices",
                                           "DestroyEnumerator",
                                           "DeviceStatus",
                                           "DestroyDevice",
                                           "IsSupported",
                                           "RunEnter",
                                           "RunEnd",
                                           "RunReturn",
                                           "GetStatus",
                                           "Abort",
                                           "Suspend",
                                           "Resume",
                                           "GetEvents",
                                           "GetResults",
                                           "DestroyDiagnostics"};
  static_assert(std::size(kNames) == static_cast<std::size_t>(Call::Count));
  return call < Call::Count ? kNames[indexOf(call)] : "?";
}

std::string describe(const CallRecord& record) {
  std::ostringstream text;
  text << nameOf(record.call);
  if (!record.device.empty()) {
    text << ' ' << record.device;
  }
  if (record.test != 0) {
    text << " test " << record.test;
  }
  if (!record.tests.empty()) {
    const char* separator = " [";
    for (const int test : record.tests) {
      text << separator << test;
      separator = ",";
    }
    text << ']';
  }
  if (record.requestId != 0) {
    text << " request " << record.requestId << " pass " << record.pass;
  }
  if (!record.text.empty()) {
    text << ' ' << record.text;
  }
  return text.str();
}

namespace {

constexpr std::size_t kMostCollisions = 100;

struct Everybody {
  std::mutex mutex;
  std::map<const void*, InsidePass> inside;
  std::vector<std::string> collisions;
};

// Never destroyed: packages may still be used while the process ends.
Everybody& everybody() {
  static auto& all = *new Everybody;
  return all;
}

std::string lastPartOf(const std::string& tag) {
  return tag.substr(tag.rfind('/') + 1);  // all of it where there is no separator
}

std::string describe(const InsidePass& pass) {
  return pass.package + " request " + std::to_string(pass.requestId) + " run " +
         std::to_string(pass.run) + " on " + pass.tag;
}

}  // namespace

std::vector<InsidePass> AllPackages::inside() {
  const Lock lock(everybody().mutex);
  std::vector<InsidePass> passes;
  for (const auto& entry : everybody().inside) {
    passes.push_back(entry.second);
  }
  return passes;
}

std::vector<std::string> AllPackages::collisions() {
  const Lock lock(everybody().mutex);
  return everybody().collisions;
}

void AllPackages::forgetCollisions() {
  const Lock lock(everybody().mutex);
  everybody().collisions.clear();
}

void AllPackages::enter(const void* who, InsidePass pass) {
  const Lock lock(everybody().mutex);
  for (const auto& [other, present] : everybody().inside) {
    const bool isOneDevice = lastPartOf(present.tag) == lastPartOf(pass.tag);
    if ((isOneDevice || other == who) && everybody().collisions.size() < kMostCollisions) {
      everybody().collisions.push_back(describe(pass) + " began beside " + describe(present));
    }
  }
  everybody().inside[who] = std::move(pass);
}

void AllPackages::leave(const void* who) {
  const Lock lock(everybody().mutex);
  everybody().inside.erase(who);
}

void AllPackages::noteAbort(const void* who) {
  const Lock lock(everybody().mutex);
  if (const auto found = everybody().inside.find(who); found != everybody().inside.end()) {
    found->second.isToldToAbort = true;
  }
}

RunningPass::~RunningPass() = default;

Script::Script(std::string package)
    : m_package(std::move(package)),
      m_devices({Device{.tag = m_package + "/" + m_package + "-1", .name = m_package + "-device"}}),
      m_plan([](const CallRecord&) { return Pass{}; }),
      m_counts(indexOf(Call::Count)) {}

// Never destroyed: packages may still be used while the process ends.
Script& Script::of(const std::string& package) {
  static auto& mutex = *new std::mutex;
  static auto& scripts = *new std::map<std::string, Script*>;
  const Lock lock(mutex);
  Script*& script = scripts[package];
  if (script == nullptr) {
    script = new Script(package);
  }
  return *script;
}

template <class Change>
Script& Script::change(Change aChange) {
  {
    const Lock lock(m_mutex);
    aChange();
  }
  m_changed.notify_all();
  return *this;
}

Script& Script::setDevices(std::vector<Device> devices) {
  return change([&] { m_devices = std::move(devices); });
}

Script& Script::setDevices(int count) {
  std::vector<Device> devices;
  for (int number = 1; number <= count; ++number) {
    const std::string text = std::to_string(number);
    const std::string name = m_package + "-" + text;
    devices.push_back({.tag = m_package + "/" + name, .name = name});
  }
  return setDevices(std::move(devices));
}

Script& Script::setDeviceStatus(const std::string& device, unsigned int status) {
  return change([&] {
    for (Device& entry : m_devices) {
      if (entry.name == device) {
        entry.status = status;
      }
    }
  });
}

Script& Script::setSupport(SupportRule rule) {
  return change([&] { m_supports = std::move(rule); });
}

Script& Script::everyPass(Pass pass) {
  return planPasses([pass = std::move(pass)](const CallRecord&) { return pass; });
}

Script& Script::planPasses(Plan plan) {
  return change([&] { m_plan = std::move(plan); });
}

Script& Script::setAbortedVerdict(Diag::DiagnosticResult::TestResult verdict) {
  return change([&] { m_abortedVerdict = verdict; });
}

Script& Script::setProgress(unsigned int progress) {
  return change([&] { m_progress = progress; });
}

Script& Script::setTimeRemaining(int seconds) {
  return change([&] { m_timeRemaining = seconds; });
}

Script& Script::setReportedPassCount(std::optional<unsigned int> passCount) {
  return change([&] { m_reportedPassCount = passCount; });
}

Script& Script::forceStatus(std::optional<DiagnosticStatus::Status> status) {
  return change([&] { m_forcedStatus = status; });
}

Script& Script::setHabits(Habits habits) {
  return change([&] { m_habits = habits; });
}

Habits Script::habits() const {
  const Lock lock(m_mutex);
  return m_habits;
}

Script& Script::on(Call call, Hook hook) {
  return change(
      [&] { m_hooks[call] = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr; });
}

Script& Script::throwAt(Call call, const std::string& text) {
  return on(call, [text](const CallRecord&) { throw std::runtime_error(text); });
}

Script& Script::holdRuns() {
  return change([&] { m_holdsAll = true; });
}

Script& Script::holdRunsOn(const std::string& device) {
  return change([&] { m_heldDevices.insert(device); });
}

Script& Script::releaseRuns() {
  return change([&] {
    m_holdsAll = false;
    m_heldDevices.clear();
  });
}

Script& Script::releaseRunsOn(const std::string& device) {
  return change([&] { m_heldDevices.erase(device); });
}

int Script::emit(const Event& event) {
  const Lock lock(m_mutex);
  for (RunningPass* const pass : m_running) {
    pass->queueEvent(event);
  }
  return static_cast<int>(m_running.size());
}

std::vector<CallRecord> Script::calls() const {
  const Lock lock(m_mutex);
  return m_calls;
}

std::vector<CallRecord> Script::calls(Call call) const {
  const Lock lock(m_mutex);
  std::vector<CallRecord> found;
  std::copy_if(m_calls.begin(), m_calls.end(), std::back_inserter(found),
               [call](const CallRecord& record) { return record.call == call; });
  return found;
}

unsigned long Script::count(Call call) const {
  const Lock lock(m_mutex);
  return m_counts[indexOf(call)];
}

Living Script::living() const {
  const Lock lock(m_mutex);
  return m_living;
}

int Script::running() const {
  const Lock lock(m_mutex);
  return static_cast<int>(m_running.size());
}

int Script::mostRunning() const {
  const Lock lock(m_mutex);
  return m_mostRunning;
}

bool Script::awaitCalls(Call call, unsigned long number, std::chrono::milliseconds limit) const {
  std::unique_lock lock(m_mutex);
  return m_recorded.wait_for(lock, limit, [&] { return m_counts[indexOf(call)] >= number; });
}

bool Script::awaitRunning(int number, std::chrono::milliseconds limit) const {
  std::unique_lock lock(m_mutex);
  return m_recorded.wait_for(lock, limit,
                             [&] { return static_cast<int>(m_running.size()) == number; });
}

Script& Script::recordPolls(bool record) {
  return change([&] { m_recordsPolls = record; });
}

Script& Script::recordNothing() {
  return change([&] { m_records = false; });
}

void Script::clearLog() {
  const Lock lock(m_mutex);
  m_calls.clear();
  std::fill(m_counts.begin(), m_counts.end(), 0UL);
  m_mostRunning = static_cast<int>(m_running.size());
}

void Script::enter(CallRecord record, RunningPass* begins) {
  record.thread = std::this_thread::get_id();
  std::shared_ptr<const Hook> hook;
  {
    const Lock lock(m_mutex);
    ++m_counts[indexOf(record.call)];
    const auto found = m_hooks.find(record.call);
    hook = found == m_hooks.end() ? nullptr : found->second;
    if (m_records && (m_recordsPolls || !isPoll(record.call))) {
      m_calls.push_back(record);
    }
    if (begins != nullptr) {
      m_running.insert(begins);
      m_mostRunning = std::max(m_mostRunning, static_cast<int>(m_running.size()));
    }
  }
  m_recorded.notify_all();
  if (hook) {
    (*hook)(record);
  }
}

std::vector<Device> Script::devices() const {
  const Lock lock(m_mutex);
  return m_devices;
}

unsigned int Script::deviceStatus(const std::string& device) const {
  const Lock lock(m_mutex);
  const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                  [&](const Device& entry) { return entry.name == device; });
  return found == m_devices.end() ? 0 : found->status;
}

bool Script::supports(const std::string& device, int test) const {
  SupportRule rule;
  {
    const Lock lock(m_mutex);
    rule = m_supports;
  }
  return !rule || rule(device, test);
}

Pass Script::passFor(const CallRecord& run) const {
  Plan plan;
  {
    const Lock lock(m_mutex);
    plan = m_plan;
  }
  return plan(run);
}

void Script::addLiving(int Living::*kind, int difference) {
  const Lock lock(m_mutex);
  m_living.*kind += difference;
  m_recorded.notify_all();
}

unsigned long Script::nextObject() {
  const Lock lock(m_mutex);
  return ++m_lastObject;
}

bool Script::holds(const std::string& device) const {
  return m_holdsAll || m_heldDevices.count(device) != 0;
}

DiagnosticStatus Script::report(DiagnosticStatus::Status status, unsigned int passes) const {
  const bool inside =
      status == DiagnosticStatus::EXECUTING || status == DiagnosticStatus::SUSPENDED;
  DiagnosticStatus report;
  report.setStatus(m_forcedStatus.value_or(status));
  report.setProgress(inside ? m_progress : status == DiagnosticStatus::COMPLETED ? 100 : 0);
  report.setPassCount(m_reportedPassCount.value_or(passes));
  report.setTimeRemaining(inside ? m_timeRemaining : 0);
  return report;
}

void Script::passEnds(RunningPass& pass) {
  m_running.erase(&pass);
  m_recorded.notify_all();
}

}  // namespace TarvexDiags::Scripted
