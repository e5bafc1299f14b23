#include "tests/controller/stress/Life.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <set>
#include <thread>

#include "DiagCtrl/ResourceLockManager.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

namespace {

using DiagCtrl::DiagnosticController;
using DiagCtrl::ResourceLockManager;
using DiagCtrl::TestRequest;
using Scripted::AllPackages;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::InsidePass;
using Scripted::Script;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned int kClients = 6;
constexpr std::size_t kMostPending = 40;
constexpr auto kLongestShutDown = seconds(10);
constexpr auto kLongestEnd = seconds(60);
/// A refused request is told of once, then every two seconds, and stands in its queue twice.
constexpr double kSecondsBetweenRefusals = 2;
constexpr int kEntriesOfRefused = 2;

/// Ends the process when a life hangs: nothing could clear up behind it.
class Watchdog {
 public:
  Watchdog(unsigned int seed, milliseconds limit)
      : m_thread([this, seed, limit] {
          std::unique_lock lock(m_mutex);
          if (!m_changed.wait_for(lock, limit, [this] { return m_isOver; })) {
            std::cout << "TARVEX_STRESS_SEED=" << seed << " hangs; inside are";
            for (const InsidePass& pass : AllPackages::inside()) {
              std::cout << ' ' << pass.package << " request " << pass.requestId
                        << (pass.isToldToAbort ? " (told to abort)" : "");
            }
            std::cout << std::endl;
            std::_Exit(1);
          }
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard hold(m_mutex);
      m_isOver = true;
    }
    m_changed.notify_all();
    m_thread.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOver = false;
  std::thread m_thread;  // last: starts when the others are there
};

bool isInside(unsigned long request) {
  const auto passes = AllPackages::inside();
  return std::any_of(passes.begin(), passes.end(),
                     [&](const InsidePass& pass) { return pass.requestId == request; });
}

/// Makes the second call of some objects last for a while.
Scripted::Hook slowSecondCall() {
  auto seen = std::make_shared<std::pair<std::mutex, std::map<unsigned long, int>>>();
  return [seen](const CallRecord& call) {
    int number = 0;
    {
      const std::lock_guard hold(seen->first);
      number = ++seen->second[call.object];
    }
    if (number == 2 && call.object % 3 == 0) {
      std::this_thread::sleep_for(milliseconds(1 + call.object % 20));
    }
  };
}

std::vector<std::string> lotsOf(const Cast& cast) {
  std::vector<std::string> lots;
  for (const auto& [name, role] : cast) {
    lots.insert(lots.end(), role.weight, name);
  }
  return lots;
}

}  // namespace

Life::Life(const LifePlan& plan)
    : m_plan(plan),
      m_cast(castOf(plan.seed, plan.isParallel, plan.isQuick)),
      m_lots(lotsOf(m_cast)),
      m_referee(!plan.isParallel),
      m_planner(plan.seed, plan.isQuick) {}

unsigned long Life::run() {
  const Watchdog watchdog(m_plan.seed, m_plan.length + 2 * kLongestEnd);
  start();
  letClientsPlay();
  if (m_plan.endsUnderLoad) {
    EXPECT_THAT(m_referee.faults(), testing::IsEmpty());
  } else {
    finishEverything();
    check();
  }
  shutDown();
  return m_queued;
}

// ---- The scene ---------------------------------------------------------------------------------

void Life::start() {
  AllPackages::forgetCollisions();
  // From waits that hardly exist, so that every wait ends by time-out, to waits as they are.
  const std::array<int, 4> waits =
      m_plan.isQuick ? std::array<int, 4>{5, 10, 20, 50} : std::array<int, 4>{1, 5, 50, 0};
  m_steps.setWaits(milliseconds(waits[m_plan.seed % 4]));
  if (m_plan.isParallel) {
    m_harness.control().parallel();
  }
  for (const auto& [name, role] : m_cast) {
    setUpPackage(name, role);
  }
  m_harness.start();
  for (const auto& [name, role] : m_cast) {
    m_indices[name] = m_harness.indexOf(name);
  }
  for (int i = 0; i < 3; ++i) {
    m_readers.push_back(std::make_unique<ResultReader>(m_harness.controller(), m_object));
  }
}

void Life::setUpPackage(const std::string& name, const Role& role) {
  PackageConfig config(3);
  if (role.wantsMachine) {
    config.systemLock();
  }
  Script& script = m_harness.addPackage(name, config.disableDevices(3, {"p/y", "q/x"}));
  m_scripts[name] = &script;
  script.recordNothing().setDevices(role.devices).setHabits(role.habits);
  script.planPasses([this, &role](const CallRecord& run) { return m_planner.plan(run, role); });
  script.on(Call::GetResults, role.isSlowToHandOver ? slowSecondCall() : nullptr);
  m_referee.watch(script, role.wantsMachine);
}

// ---- The clients -------------------------------------------------------------------------------

void Life::letClientsPlay() {
  const auto end = Clock::now() + m_plan.length;
  std::vector<std::thread> clients;
  for (unsigned int client = 0; client < kClients; ++client) {
    clients.emplace_back([this, client, end] {
      Random random(m_plan.seed * 1000 + client);
      while (!isOver(end)) {
        act(random, client);
      }
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

bool Life::isOver(Clock::time_point end) const {
  return Clock::now() >= end || (m_plan.requests > 0 && m_queued >= m_plan.requests);
}

void Life::act(Random& random, unsigned int client) {
  const unsigned int dice = below(random, 100);
  if (dice < 45 || (m_plan.isQuick && !oneIn(random, 8))) {
    queueSomething(random);
  } else if (dice < 55) {
    abortOne(random);
  } else if (dice < 58) {
    std::vector<unsigned long> ids{someId(random), someId(random)};
    m_harness->abortTest(ids);
  } else if (dice < 66) {
    m_harness->suspendTest(someId(random));
  } else if (dice < 78) {
    m_harness->resumeTest(someId(random));
  } else if (dice < 86) {
    watch(random);
  } else if (dice < 97 && (!m_plan.isQuick || oneIn(random, 8))) {
    m_readers[below(random, static_cast<unsigned int>(m_readers.size()))]->drain();
    m_harness.ctrlEvents();
    m_harness.events();
  } else if (client == 0 && oneIn(random, 8)) {
    abortAll();  // one thread's business
  } else if (client == 1 && m_lateReaders < 3) {
    ++m_lateReaders;
    ResultReader(m_harness.controller(), m_object).drain();
  } else {
    std::this_thread::sleep_for(std::chrono::microseconds(below(random, 2000)));
  }
}

bool Life::isCrowded(Random& random) {
  // Where queues are short, most requests find all of them empty, and some come in their midst.
  const std::size_t limit = m_plan.hasShortQueues ? (oneIn(random, 12) ? 2 : 0) : kMostPending;
  const auto pending = pendingIds();
  if (pending.size() <= limit) {
    return false;
  }
  if (!m_plan.isQuick || oneIn(random, 8)) {
    unblock(pending);
  }
  std::this_thread::sleep_for(milliseconds(m_plan.isQuick ? 3 : 1));
  return true;
}

/// Suspended requests hold the others up, and an abort of all leaves its ids on the list.
void Life::unblock(const std::vector<unsigned long>& pending) {
  std::vector<unsigned long> aborted;
  for (const unsigned long id : pending) {
    if (m_harness.statusOf(id) == TestRequest::ABORTED) {
      aborted.push_back(id);
    } else {
      m_harness->resumeTest(id);
    }
  }
  m_harness->abortTest(aborted);  // takes them off
}

const std::string& Life::somePackage(Random& random) const {
  return m_lots[below(random, static_cast<unsigned int>(m_lots.size()))];
}

void Life::queueSomething(Random& random) {
  if (isCrowded(random)) {
    return;
  }
  const std::string& package = somePackage(random);
  const bool isLong = m_cast.at(package).isPatient || oneIn(random, m_plan.isQuick ? 10 : 3);
  const int passes = isLong ? 2 + static_cast<int>(below(random, 6)) : 1;
  Diag::DiagnosticSettings settings = ControllerHarness::settings(passes);
  settings.setStressMode(oneIn(random, 8));
  const bool isStress = settings.getStressMode() != 0;
  if (oneIn(random, 20)) {
    for (const unsigned long id : m_harness.queuePackage(package, settings)) {
      note(id, {package, passes, isStress});
    }
    return;
  }
  const auto devices = static_cast<unsigned int>(m_cast.at(package).devices.size());
  const unsigned int device = 1 + below(random, devices);
  std::vector<int> tests;
  for (unsigned int i = 0; i <= below(random, 3); ++i) {
    tests.push_back(1 + static_cast<int>(below(random, 4)));  // the fourth does not exist
  }
  const bool halts = oneIn(random, 3);
  unsigned long id = 0;
  const auto code = m_harness->queueTest(m_indices.at(package), device, tests, settings, halts, id);
  ASSERT_EQ(code, DiagnosticController::SUCCESS) << nameOf(code);
  note(id, {package, passes, isStress || halts});
}

// Every second time one that is inside its package.
void Life::abortOne(Random& random) {
  const auto inside = AllPackages::inside();
  const unsigned long id =
      inside.empty() || oneIn(random, 2)
          ? someId(random)
          : inside[below(random, static_cast<unsigned int>(inside.size()))].requestId;
  std::vector<InsidePass> before;
  for (const InsidePass& pass : AllPackages::inside()) {
    if (pass.requestId == id) {
      before.push_back(pass);
    }
  }
  if (m_harness->abortTest(id) == DiagnosticController::SUCCESS) {
    expectTold(before, "an abort");
  }
}

// It speaks for the ids on the list, which a request leaves with its verdict: one of a package that
// tells of its end too early is not reached any more.
void Life::abortAll() {
  std::vector<InsidePass> before;
  for (const InsidePass& pass : AllPackages::inside()) {
    if (m_cast.at(pass.package).isTruthful()) {
      before.push_back(pass);
    }
  }
  if (m_harness->abortAllTest() == DiagnosticController::SUCCESS) {
    expectTold(before, "an abort of all");
  }
}

/// A pass that was inside before a successful call, and still is, has heard of it.
void Life::expectTold(const std::vector<InsidePass>& before, const std::string& call) {
  if (before.empty()) {
    return;
  }
  for (const InsidePass& after : AllPackages::inside()) {
    const bool wasInside = std::any_of(
        before.begin(), before.end(), [&](const InsidePass& pass) { return pass.isSameAs(after); });
    if (wasInside && !after.isToldToAbort) {
      m_referee.report(call + " succeeded, and run " + std::to_string(after.run) + " of request " +
                       std::to_string(after.requestId) + " of " + after.package +
                       " goes on untold");
    }
  }
}

void Life::watch(Random& random) {
  const auto inside = AllPackages::inside();
  const unsigned long id =
      inside.empty() ? someId(random)
                     : inside[below(random, static_cast<unsigned int>(inside.size()))].requestId;
  unsigned int progress = 0;
  m_harness->getDiagnosticProgress(id, progress);
  TestRequest::TestRequestStatus status = TestRequest::WAIT;
  int current = 0;
  int total = 0;
  bool stress = false;
  const auto code =
      m_harness->getRequestStatus(static_cast<long>(id), status, current, total, stress);
  if (code == DiagnosticController::SUCCESS && status == TestRequest::COMPLETED && isInside(id)) {
    const std::lock_guard hold(m_mutex);
    const auto request = m_requests.find(id);
    if (request != m_requests.end() && m_cast.at(request->second.package).isTruthful()) {
      m_referee.report("request " + std::to_string(id) + " of " + request->second.package +
                       " is completed, and a pass of it is inside");
    }
  }
  pendingIds();
}

void Life::note(unsigned long id, const Queued& request) {
  const std::lock_guard<std::mutex> hold(m_mutex);
  m_requests[id] = request;
  ++m_queued;
  m_newest = std::max(m_newest.load(), id);
}

/// Mostly one of the latest, sometimes an old one, or one that is yet to come.
unsigned long Life::someId(Random& random) const {
  const unsigned long newest = m_newest;
  const unsigned long back = below(random, oneIn(random, 5) ? 500 : 30);
  return newest + 2 > back ? newest + 2 - back : 1;
}

// ---- The end -----------------------------------------------------------------------------------

void Life::finishEverything() {
  // Those of bad or patient packages may need an abort; the others only have to be resumed.
  const auto isIdle = [this] {
    for (const unsigned long id : pendingIds()) {
      m_harness->resumeTest(id);
      const Role& role = m_cast.at(m_requests.at(id).package);
      if (!role.deliversAll || role.isPatient) {
        m_harness->abortTest(id);
      }
    }
    return m_harness.phase() == DiagCtrl::DiagControllerStatus::IDLE;
  };
  if (m_queued > 0 && !eventually(isIdle, kLongestEnd)) {
    const auto pending = pendingIds();
    FAIL() << "not idle; " << pending.size() << " requests are left, the first of them "
           << (pending.empty() ? "" : m_requests[pending.front()].package);
  }
}

void Life::shutDown() {
  const auto begin = Clock::now();
  EXPECT_EQ(m_harness.shutDown(), DiagnosticController::SUCCESS);
  EXPECT_LT(Clock::now() - begin, kLongestShutDown) << "a shut-down that took too long";
  EXPECT_EQ(m_steps.livingThreads(), 0);
  EXPECT_THAT(AllPackages::inside(), testing::IsEmpty());
  EXPECT_THAT(AllPackages::collisions(), testing::IsEmpty());
  for (const auto& [name, script] : m_scripts) {
    EXPECT_EQ(script->living(), Scripted::Living{}) << name;
  }
}

void Life::check() {
  EXPECT_THAT(m_referee.faults(), testing::IsEmpty());
  ASSERT_EQ(m_requests.size(), m_queued);
  if (m_queued > 0) {
    EXPECT_EQ(m_requests.rbegin()->first, m_queued) << "ids are dense";
  }
  checkResources();
  checkRequests();
  checkResults();
}

void Life::checkResources() {
  ResourceLockManager& locks = *ResourceLockManager::getInstance();
  EXPECT_FALSE(locks.getSystemLockFlag());
  for (const auto& [package, role] : m_cast) {
    for (const Scripted::Device& device : role.devices) {
      EXPECT_TRUE(locks.getResourceLock(device.tag)) << device.tag << " is held or shared";
      locks.releaseResourceLock(device.tag);
    }
  }
  EXPECT_EQ(m_steps.livingThreads(), 2);
  for (const auto& [name, script] : m_scripts) {
    EXPECT_EQ(script->living().diagnostics, 0) << name;
    EXPECT_EQ(script->running(), 0) << name;
  }
}

void Life::checkRequests() {
  std::map<std::string, int> events;
  for (const std::string& event : m_harness.ctrlEvents()) {
    ++events[event];
  }
  for (const auto& [id, request] : m_requests) {
    checkRequest(id, request, events);
  }
  for (const unsigned long id : pendingIds()) {
    EXPECT_EQ(m_harness.statusOf(id), TestRequest::ABORTED)
        << "left on the list by an abort of all";
  }
}

void Life::checkRequest(unsigned long id, const Queued& request,
                        std::map<std::string, int>& events) {
  const auto status = m_harness.statusOf(id);
  const std::string number = std::to_string(id);
  const std::string what = "request " + number + " of " + request.package;
  const int dropped = events["DROP_REQUEST_ON_COMPLETION I " + number];
  if (status == TestRequest::COMPLETED) {
    EXPECT_EQ(dropped, 1) << what;
    checkPasses(id, request);
  } else {
    EXPECT_EQ(status, TestRequest::ABORTED) << what;
    EXPECT_EQ(dropped, 0) << what;
  }
  const double age = std::chrono::duration<double>(Clock::now() - m_start).count();
  EXPECT_LE(events["UNABLE_TO_PROCESS_TEST_REQUEST E " + number],
            kEntriesOfRefused * (2 + age / kSecondsBetweenRefusals))
      << what << " was refused aloud again and again";
}

void Life::checkPasses(unsigned long id, const Queued& request) {
  const auto runs = static_cast<int>(m_planner.runsOf(id));
  const Role& role = m_cast.at(request.package);
  if (role.deliversAll && role.isCountedExactly() && !request.mayEndEarly) {
    EXPECT_EQ(runs, request.passes) << "request " << id << " of " << request.package;
  } else {
    EXPECT_LE(runs, request.passes) << "request " << id << " of " << request.package;
  }
}

void Life::checkResults() {
  for (const auto& reader : m_readers) {
    reader->drain();
  }
  const auto& times = m_readers.front()->times();
  for (const auto& reader : m_readers) {
    EXPECT_EQ(reader->times(), times) << "registrations differ";
  }
  for (const auto& [code, number] : times) {
    EXPECT_TRUE(code == 0 || number == 1) << "result " << code << " came " << number << " times";
  }
  for (const auto& [id, request] : m_requests) {
    if (!m_cast.at(request.package).deliversAll ||
        m_harness.statusOf(id) != TestRequest::COMPLETED) {
      continue;
    }
    for (const unsigned int code : m_planner.resultsOf(id)) {
      EXPECT_EQ(times.count(code), 1U) << "a result of request " << id << " was lost";
    }
  }
}

}  // namespace TarvexDiags::TestSupport
