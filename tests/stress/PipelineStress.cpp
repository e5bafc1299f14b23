// Many clients do at random whatever a client may do, to packages good and bad, in both run modes.
// What must hold at every moment is watched from inside the packages; what must hold in the end is
// checked when all requests are over.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/pipeline/PipelineFixture.h"

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
using Random = std::mt19937;

int numberFrom(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr || *text == '\0' ? otherwise : std::atoi(text);
}

unsigned int below(Random& random, unsigned int limit) {
  return static_cast<unsigned int>(random() % limit);
}
bool oneIn(Random& random, unsigned int number) {
  return below(random, number) == 0;
}

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

std::vector<std::string> componentsOf(const std::string& tag) {
  std::vector<std::string> components;
  std::stringstream stream(tag);
  for (std::string component; std::getline(stream, component, '/');) {
    components.push_back(component);
  }
  return components;
}

/** Watches, from inside the packages, who runs beside whom. */
class Referee {
 public:
  explicit Referee(bool isSerial) : m_isSerial(isSerial) {}

  void watch(Script& script, bool wantsMachine) {
    script.on(Call::RunEnter,
              [this, wantsMachine](const CallRecord& run) { enter(run, wantsMachine); });
    script.on(Call::RunReturn, [this](const CallRecord& run) { leave(run); });
  }
  std::vector<std::string> faults() {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_faults;
  }

 private:
  struct Inside {
    unsigned int request;
    std::string tag;
    bool wantsMachine;
  };

  void enter(const CallRecord& run, bool wantsMachine) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    for (const Inside& other : m_inside) {
      if (other.request == run.requestId) {
        fault(run, other, "runs twice at once");
      } else if (m_isSerial || wantsMachine || other.wantsMachine) {
        fault(run, other, "does not run alone");
      } else if (excludes(run.device, other.tag) || excludes(other.tag, run.device)) {
        fault(run, other, "runs beside its own resource");
      }
    }
    m_inside.push_back({run.requestId, run.device, wantsMachine});
  }
  void leave(const CallRecord& run) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    const auto self = std::find_if(m_inside.begin(), m_inside.end(), [&](const Inside& inside) {
      return inside.request == run.requestId;
    });
    m_inside.erase(self);
  }
  /** A device excludes those of the same last component, and those below it. */
  static bool excludes(const std::string& one, const std::string& other) {
    const auto leaf = componentsOf(one).back();
    const auto components = componentsOf(other);
    return std::find(components.begin(), components.end(), leaf) != components.end();
  }
  void fault(const CallRecord& run, const Inside& other, const std::string& text) {
    m_faults.push_back(describe(run) + " " + text + ": request " + std::to_string(other.request) +
                       " on " + other.tag);
  }

  const bool m_isSerial;
  std::mutex m_mutex;
  std::vector<Inside> m_inside;
  std::vector<std::string> m_faults;
};

/** Plans passes, each result with a code of its own, and knows which codes a request must deliver.
 */
class Planner {
 public:
  explicit Planner(unsigned int seed) : m_seed(seed) {}

  Scripted::Pass plan(const CallRecord& run) {
    Random random(m_seed * 7919 + run.requestId * 31 + run.run);
    Scripted::Pass pass;
    pass.duration = std::chrono::microseconds(oneIn(random, 30) ? 15000 : below(random, 600));
    pass.unwinding = std::chrono::microseconds(oneIn(random, 10) ? 3000 : 0);
    const unsigned int events = below(random, 3);
    for (unsigned int i = 0; i < events; ++i) {
      pass.events.push_back({.code = ++m_lastCode});
      pass.lastEvents.push_back({.code = ++m_lastCode});
    }
    pass.results.clear();
    const unsigned int results = 1 + below(random, 2);
    const std::lock_guard<std::mutex> hold(m_mutex);
    for (unsigned int i = 0; i < results; ++i) {
      const auto verdict = static_cast<Diag::DiagnosticResult::TestResult>(
          oneIn(random, 8) ? 1 + below(random, 2) : 0);
      const unsigned int code = ++m_lastCode;  // other passes count on meanwhile
      pass.results.push_back({.verdict = verdict, .code = code});
      m_resultsOf[run.requestId].push_back(code);
    }
    return pass;
  }
  std::vector<unsigned int> resultsOf(unsigned long request) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_resultsOf[request];
  }

 private:
  const unsigned int m_seed;
  std::atomic<unsigned int> m_lastCode{0};
  std::mutex m_mutex;
  std::map<unsigned long, std::vector<unsigned int>> m_resultsOf;
};

/** One registration for results, and how often each code was delivered to it. */
class ResultReader {
 public:
  ResultReader(DiagnosticController& controller, DiagCtrl::CallBackObject& object)
      : m_controller(controller) {
    controller.registerForDiagResults(&object, m_id);
  }
  void drain() {
    DiagCtrl::ResultVector* drained = nullptr;
    m_controller.getDiagnosticResults(static_cast<long>(m_id), drained);
    const std::unique_ptr<DiagCtrl::ResultVector> owned(drained);
    const std::lock_guard<std::mutex> hold(m_mutex);
    for (Diag::DiagnosticResult* const result : *drained) {
      ++m_times[result->getEventCode()];
      delete result;
    }
  }
  const std::map<unsigned int, int>& times() const { return m_times; }

 private:
  DiagnosticController& m_controller;
  unsigned long m_id = 0;
  std::mutex m_mutex;
  std::map<unsigned int, int> m_times;
};

/** One controller, from its start to its shut-down. */
class Epoch {
 public:
  Epoch(unsigned int seed, bool isParallel, std::chrono::milliseconds length)
      : m_seed(seed),
        m_isParallel(isParallel),
        m_length(length),
        m_referee(!isParallel),
        m_planner(seed) {}

  unsigned long run() {
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

 private:
  struct Queued {
    std::string package;
    bool isOver = false;
  };

  // ---- The scene -------------------------------------------------------------------------------

  void start() {
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

  Habits badHabits(Random& random) const {
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

  void letClientsPlay() {
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

  void act(Random& random, unsigned int client) {
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

  void queueSomething(Random& random) {
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

  void watch(unsigned long id) {
    unsigned int progress = 0;
    m_harness->getDiagnosticProgress(id, progress);
    TestRequest::TestRequestStatus status = TestRequest::WAIT;
    int current = 0;
    int total = 0;
    bool stress = false;
    m_harness->getRequestStatus(static_cast<long>(id), status, current, total, stress);
    pendingIds();
  }

  void note(unsigned long id, const std::string& package) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    m_requests[id].package = package;
    ++m_queued;
    m_newest = std::max(m_newest.load(), id);
  }
  /** Mostly one of the latest, sometimes an old one, or one that is yet to come. */
  unsigned long someId(Random& random) const {
    const unsigned long newest = m_newest;
    const unsigned long back = below(random, oneIn(random, 5) ? 500 : 30);
    return newest + 2 > back ? newest + 2 - back : 1;
  }
  std::vector<unsigned long> pendingIds() { return m_harness.requestIds(); }

  // ---- The end ---------------------------------------------------------------------------------

  void finishEverything() {
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

  void check() {
    EXPECT_THAT(m_referee.faults(), testing::IsEmpty());
    ASSERT_EQ(m_requests.size(), m_queued);
    if (m_queued > 0) {
      EXPECT_EQ(m_requests.rbegin()->first, m_queued) << "ids are dense";
    }
    checkResources();
    checkRequests();
    checkResults();
  }

  void checkResources() {
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

  void checkRequests() {
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

  void checkResults() {
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

  const unsigned int m_seed;
  const bool m_isParallel;
  const std::chrono::milliseconds m_length;
  Referee m_referee;
  Planner m_planner;
  PipelineSteps m_steps;
  ControllerHarness m_harness;
  DiagCtrl::CallBackObject m_object;  // goes before the controller
  std::map<std::string, Script*> m_scripts;
  std::vector<std::unique_ptr<ResultReader>> m_readers;
  std::atomic<int> m_lateReaders{0};
  std::mutex m_mutex;  // guards the requests while the clients play
  std::map<unsigned long, Queued> m_requests;
  std::atomic<unsigned long> m_queued{0};
  std::atomic<unsigned long> m_newest{0};
};

TEST(PipelineStress, whatever_clients_do_every_request_ends_and_nothing_is_left) {
  const auto seconds = std::chrono::seconds(std::max(1, numberFrom("TARVEX_STRESS_SECONDS", 5)));
  const auto length = std::min<std::chrono::milliseconds>(std::chrono::seconds(3), seconds / 2);
  auto seed = static_cast<unsigned int>(numberFrom("TARVEX_STRESS_SEED", 1));
  const auto end = Clock::now() + seconds;
  unsigned long survived = 0;
  int epochs = 0;
  while (Clock::now() < end && !HasFailure()) {
    SCOPED_TRACE("TARVEX_STRESS_SEED=" + std::to_string(seed));
    survived += Epoch(seed, seed % 2 == 0, length).run();
    ++seed;
    ++epochs;
  }
  EXPECT_GT(survived, 0U);
  std::cout << "survived " << survived << " requests in " << epochs << " lives of a controller, "
            << seconds.count() << " s, last seed " << seed - 1 << std::endl;
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
