#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "tests/pipeline/PipelineSteps.h"
#include "tests/scripted/Script.h"
#include "tests/stress/Dice.h"
#include "tests/stress/Planner.h"
#include "tests/stress/Referee.h"
#include "tests/stress/ResultReader.h"
#include "tests/support/ControllerHarness.h"

namespace TarvexDiags::TestSupport {

/** One controller, from its start to its shut-down, and the clients that play with it. */
class Life {
 public:
  Life(unsigned int seed, bool isParallel, std::chrono::milliseconds length);

  /** @return the number of requests that were queued. */
  unsigned long run();

 private:
  struct Queued {
    std::string package;
    bool isOver = false;
  };

  void start();
  Scripted::Habits badHabits(Random& random) const;
  void letClientsPlay();
  void act(Random& random, unsigned int client);
  void queueSomething(Random& random);
  void watch(unsigned long id);
  void note(unsigned long id, const std::string& package);
  unsigned long someId(Random& random) const;
  std::vector<unsigned long> pendingIds();
  void finishEverything();
  void check();
  void checkResources();
  void checkRequests();
  void checkResults();

  const unsigned int m_seed;
  const bool m_isParallel;
  const std::chrono::milliseconds m_length;
  Referee m_referee;
  Planner m_planner;
  PipelineSteps m_steps;
  ControllerHarness m_harness;
  DiagCtrl::CallBackObject m_object;  // goes before the controller
  std::map<std::string, Scripted::Script*> m_scripts;
  std::vector<std::unique_ptr<ResultReader>> m_readers;
  std::atomic<int> m_lateReaders{0};
  std::mutex m_mutex;  // guards the requests while the clients play
  std::map<unsigned long, Queued> m_requests;
  std::atomic<unsigned long> m_queued{0};
  std::atomic<unsigned long> m_newest{0};
};

}  // namespace TarvexDiags::TestSupport
