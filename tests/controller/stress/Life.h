#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "tests/controller/pipeline/PipelineSteps.h"
#include "tests/controller/stress/Cast.h"
#include "tests/controller/stress/Planner.h"
#include "tests/controller/stress/Referee.h"
#include "tests/controller/stress/ResultReader.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// What a life is to be; everything else follows from the seed.
struct LifePlan {
  unsigned int seed = 1;
  bool isParallel = false;
  std::chrono::milliseconds length{3000};  ///< the clients stop then,
  unsigned long requests = 0;              ///< or when so many were queued, if it is not 0
  bool isQuick = false;                    ///< many short requests in place of many situations
  bool hasShortQueues = false;             ///< a request that goes back is the next to start
  bool endsUnderLoad = false;              ///< the shut-down comes while tests run
};

/// One controller, from its start to its shut-down, and the clients that play with it.
class Life {
 public:
  explicit Life(const LifePlan& plan);

  /// @return the number of requests that were queued.
  unsigned long run();

 private:
  struct Queued {
    std::string package;
    int passes = 1;
    bool mayEndEarly = false;  ///< halts on an error, or counts its passes itself
  };
  typedef std::chrono::steady_clock Clock;

  // The scene.
  void start();
  void setUpPackage(const std::string& name, const Role& role);

  // The clients.
  void letClientsPlay();
  bool isOver(Clock::time_point end) const;
  void act(Random& random, unsigned int client);
  void queueSomething(Random& random);
  bool isCrowded(Random& random);
  void unblock(const std::vector<unsigned long>& pending);
  void abortOne(Random& random);
  void abortAll();
  void expectTold(const std::vector<Scripted::InsidePass>& before, const std::string& call);
  void watch(Random& random);
  void note(unsigned long id, const Queued& request);
  unsigned long someId(Random& random) const;
  std::vector<unsigned long> pendingIds() { return m_harness.requestIds(); }
  const std::string& somePackage(Random& random) const;

  // The end.
  void finishEverything();
  void shutDown();
  void check();
  void checkResources();
  void checkRequests();
  void checkRequest(unsigned long id, const Queued& request, std::map<std::string, int>& events);
  void checkPasses(unsigned long id, const Queued& request);
  void checkResults();

  const LifePlan m_plan;
  const Cast m_cast;
  std::vector<std::string> m_lots;  ///< each package as often as its weight says
  Referee m_referee;
  Planner m_planner;
  PipelineSteps m_steps;
  ControllerHarness m_harness;
  DiagCtrl::CallBackObject m_object;  // goes before the controller
  std::map<std::string, Scripted::Script*> m_scripts;
  std::map<std::string, int> m_indices;
  std::vector<std::unique_ptr<ResultReader>> m_readers;
  std::atomic<int> m_lateReaders{0};
  std::mutex m_mutex;  // guards the requests while the clients play
  std::map<unsigned long, Queued> m_requests;
  std::atomic<unsigned long> m_queued{0};
  std::atomic<unsigned long> m_newest{0};
  const Clock::time_point m_start = Clock::now();
};

}  // namespace TarvexDiags::TestSupport
