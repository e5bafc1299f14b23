#include "tests/stress/Life.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <thread>

#include "DiagCtrl/ResourceLockManager.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

namespace {

using DiagCtrl::DiagnosticController;
using DiagCtrl::ResourceLockManager;
using DiagCtrl::TestRequest;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Habits;
using Scripted::Script;
using Clock = std::chrono::steady_clock;

constexpr int kClients = 6;
constexpr std::size_t kMostPending = 40;

const std::map<std::string, std::vector<Scripted::Device>>& devicesByPackage() {
  static const std::map<std::string, std::vector<Scripted::Device>> devices = {
      {"ALPHA",
       {{.tag = "p/x", .name = "p/x"}, {.tag = "p/y", .name = "p/y"}, {.tag = "p", .name = "p"}}},
      {"BETA",
       {{.tag = "q/x", .name = "q/x"},
        {.tag = "p/q/z", .name = "p/q/z"},
        {.tag = "q", .name = "q"}}},
      {"GAMMA", {{.tag = "p/g", .name = "p/g"}, {.tag = "h", .name = "h"}}},
      {"WHOLE", {{.tag = "whole", .name = "whole"}}}};
  return devices;
}

}  // namespace

Life::Life(unsigned int seed, bool isParallel, std::chrono::milliseconds length)
    : m_seed(seed),
      m_isParallel(isParallel),
      m_length(length),
      m_referee(!isParallel),
      m_planner(seed) {}

unsigned long Life::run() {
  start();
  letClientsPlay();
  finishEverything();
  check();
  const unsigned long survived = m_queued;
  EXPECT_EQ(m_harness.shutDown(), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_steps.livingThreads(), 0);
  for (const auto& [name, script] : m_scripts) {
    EXPECT_EQ(script->living(), Scripted::Living{}) << name;
  }
  return survived;
}

// ---- The scene -------------------------------------------------------------------------------

void Life::start() {
  Random random(m_seed);
  // From waits that hardly exist, so that every wait ends by time-out, to waits as they are.
  m_steps.setWaits(std::chrono::milliseconds(std::array<int, 4>{1, 5, 50, 0}[m_seed % 4]));
  if (m_isParallel) {
    m_harness.control().parallel();
  }
  for (const auto& [name, devices] : devicesByPackage()) {
    PackageConfig config(3);
    if (name == "WHOLE") {
      config.systemLock();
    }
    Script& script = m_harness.addPackage(name, config.disableDevices(3, {"p/y", "q/x"}));
    m_scripts[name] = &script;
    script.recordNothing().setDevices(devices).setHabits({});
    script.planPasses([this](const CallRecord& run) { return m_planner.plan(run); });
    m_referee.watch(script, name == "WHOLE");
  }
  m_scripts["GAMMA"]->setHabits(badHabits(random));
  m_harness.start();
  for (int i = 0; i < 3; ++i) {
    m_readers.push_back(std::make_unique<ResultReader>(m_harness.controller(), m_object));
  }
}

Habits Life::badHabits(Random& random) const {
  Habits habits;
  habits.keepsReportingCompleted = oneIn(random, 2);
  habits.completesEarly = oneIn(random, 3);
  habits.completesOnAbort = oneIn(random, 2);
  habits.losesEvents = oneIn(random, 2);
  habits.ignoresAbort = oneIn(random, 3);
  habits.forgetsAbort = oneIn(random, 4);
  habits.givesEmptyVectors = oneIn(random, 2);
  habits.neverCompletes = m_isParallel && oneIn(random, 4);
  return habits;
}

// ---- The clients -----------------------------------------------------------------------------

void Life::letClientsPlay() {
  const auto end = Clock::now() + m_length;
  std::vector<std::thread> clients;
  for (unsigned int client = 0; client < kClients; ++client) {
    clients.emplace_back([this, client, end] {
      Random random(m_seed * 1000 + client);
      while (Clock::now() < end) {
        act(random, client);
      }
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

void Life::act(Random& random, unsigned int client) {
  const unsigned int dice = below(random, 100);
  if (dice < 45) {
    queueSomething(random);
  } else if (dice < 55) {
    m_harness->abortTest(someId(random));
  } else if (dice < 58) {
    std::vector<unsigned long> ids{someId(random), someId(random)};
    m_harness->abortTest(ids);
  } else if (dice < 66) {
    m_harness->suspendTest(someId(random));
  } else if (dice < 78) {
    m_harness->resumeTest(someId(random));
  } else if (dice < 86) {
    watch(someId(random));
  } else if (dice < 97) {
    m_readers[below(random, static_cast<unsigned int>(m_readers.size()))]->drain();
    m_harness.ctrlEvents();
    m_harness.events();
  } else if (client == 0 && oneIn(random, 8)) {
    m_harness->abortAllTest();  // one thread's business
  } else if (client == 1 && m_lateReaders < 3) {
    ++m_lateReaders;
    ResultReader(m_harness.controller(), m_object).drain();
  } else {
    std::this_thread::sleep_for(std::chrono::microseconds(below(random, 2000)));
  }
}

void Life::queueSomething(Random& random) {
  if (pendingIds().size() > kMostPending) {
    for (const unsigned long id : pendingIds()) {
      m_harness->resumeTest(id);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return;
  }
  static const std::array<std::string, 10> kinds = {"ALPHA", "ALPHA", "ALPHA", "BETA", "BETA",
                                                    "BETA",  "ALPHA", "GAMMA", "BETA", "WHOLE"};
  const std::string& package = kinds[below(random, 10)];
  Diag::DiagnosticSettings settings =
      ControllerHarness::settings(oneIn(random, 3) ? 2 + static_cast<int>(below(random, 3)) : 1);
  settings.setStressMode(oneIn(random, 8));
  if (oneIn(random, 20)) {
    const auto ids = m_harness.queuePackage(package, settings);
    for (const unsigned long id : ids) {
      note(id, package);
    }
    return;
  }
  const auto devices = static_cast<unsigned int>(devicesByPackage().at(package).size());
  const unsigned int device = 1 + below(random, devices);
  std::vector<int> tests;
  for (unsigned int i = 0; i <= below(random, 3); ++i) {
    tests.push_back(1 + static_cast<int>(below(random, 4)));  // the fourth does not exist
  }
  unsigned long id = 0;
  const auto code = m_harness->queueTest(m_harness.indexOf(package), device, tests, settings,
                                         oneIn(random, 3), id);
  ASSERT_EQ(code, DiagnosticController::SUCCESS) << nameOf(code);
  note(id, package);
}

void Life::watch(unsigned long id) {
  unsigned int progress = 0;
  m_harness->getDiagnosticProgress(id, progress);
  TestRequest::TestRequestStatus status = TestRequest::WAIT;
  int current = 0;
  int total = 0;
  bool stress = false;
  m_harness->getRequestStatus(static_cast<long>(id), status, current, total, stress);
  pendingIds();
}

void Life::note(unsigned long id, const std::string& package) {
  const std::lock_guard<std::mutex> hold(m_mutex);
  m_requests[id].package = package;
  ++m_queued;
  m_newest = std::max(m_newest.load(), id);
}
/** Mostly one of the latest, sometimes an old one, or one that is yet to come. */
unsigned long Life::someId(Random& random) const {
  const unsigned long newest = m_newest;
  const unsigned long back = below(random, oneIn(random, 5) ? 500 : 30);
  return newest + 2 > back ? newest + 2 - back : 1;
}
std::vector<unsigned long> Life::pendingIds() {
  return m_harness.requestIds();
}

// ---- The end ---------------------------------------------------------------------------------

void Life::finishEverything() {
  // Those of bad packages may need an abort; the others only have to be resumed.
  const auto isIdle = [this] {
    for (const unsigned long id : pendingIds()) {
      m_harness->resumeTest(id);
      if (m_requests[id].package == "GAMMA") {
        m_harness->abortTest(id);
      }
    }
    return m_harness.phase() == DiagCtrl::DiagControllerStatus::IDLE;
  };
  if (m_queued > 0 && !eventually(isIdle, std::chrono::seconds(60))) {
    FAIL() << "not idle; " << pendingIds().size() << " requests are left, the first of them "
           << (pendingIds().empty() ? "" : m_requests[pendingIds().front()].package);
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
  for (const auto& [package, devices] : devicesByPackage()) {
    for (const Scripted::Device& device : devices) {
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
  std::map<std::string, int> times;
  for (const std::string& event : m_harness.ctrlEvents()) {
    ++times[event];
  }
  for (const auto& [id, request] : m_requests) {
    const auto status = m_harness.statusOf(id);
    const std::string number = std::to_string(id);
    const int dropped = times["DROP_REQUEST_ON_COMPLETION I " + number];
    if (status == TestRequest::COMPLETED) {
      EXPECT_EQ(dropped, 1) << "request " << id << " of " << request.package;
    } else {
      EXPECT_EQ(status, TestRequest::ABORTED) << "request " << id << " of " << request.package;
      EXPECT_EQ(dropped, 0) << "request " << id << " of " << request.package;
    }
  }
  for (const unsigned long id : pendingIds()) {
    EXPECT_EQ(m_harness.statusOf(id), TestRequest::ABORTED)
        << "left on the list by an abort of all";
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
    if (request.package == "GAMMA" || m_harness.statusOf(id) != TestRequest::COMPLETED) {
      continue;
    }
    for (const unsigned int code : m_planner.resultsOf(id)) {
      EXPECT_EQ(times.count(code), 1U) << "a result of request " << id << " was lost";
    }
  }
}

}  // namespace TarvexDiags::TestSupport
