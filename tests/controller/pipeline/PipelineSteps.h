#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <utility>

#include "tests/support/Barrier.h"
#include "tests/support/ThreadState.h"

namespace TarvexDiags::TestSupport {

/// The kinds of thread of the pipeline, and a client's.
enum class Actor : unsigned int { Dispatcher, Monitor, Worker, Client, None };

/// Forces the order in which the threads of the pipeline meet. The test program's own definitions
/// of pthread_create, pthread_mutex_trylock and pthread_cond_timedwait stand in front of the
/// platform's, and that of pthread_cond_signal; they know the controller's threads and can stop one
/// of them in front of any lock that it takes.
///
///   PipelineSteps steps;
///   steps.setWaits(std::chrono::hours(1));          // what is not signalled never happens
///   steps.atLock(Actor::worker, 7, [&] { ... });    // in front of a pass thread's seventh lock
///
/// One object at a time, made before the controller is initialised.
class PipelineSteps {
 public:
  typedef std::function<void()> Action;

  PipelineSteps();
  ~PipelineSteps();
  PipelineSteps(const PipelineSteps&) = delete;
  PipelineSteps& operator=(const PipelineSteps&) = delete;

  /// The length of each timed wait of the controller's threads, in place of two seconds.
  void setWaits(std::chrono::milliseconds length);
  void restoreWaits();

  /// Timed waits of the actor so far, and the length in whole seconds that the latest asked for.
  unsigned long waits(Actor actor) const;
  /// How often the threads of an actor have tried to take a lock.
  unsigned long tries(Actor actor) const;
  long latestWait(Actor actor) const;
  /// Whether an actor is in a timed wait of the length that was set last, and nobody has signalled
  /// it since: it has done all that it had to.
  bool isAtRest(Actor actor) const;

  /// The action runs once, on the actor's thread, in front of its n-th lock from now on. It
  /// replaces one of the same actor that is still to come; those of other actors stay.
  void atLock(Actor actor, unsigned int number, Action action);
  /// Makes the calling thread a client that can be stopped like the controller's own threads.
  static void actAsClient();
  /// Whether the lock that was asked for last has come.
  bool isReached() const;
  /// Takes all actions away again; waits until those under way are over.
  void disarm();

  /// The platform refuses the next so many pass threads.
  void refuseWorkers(int number);
  /// The loader refuses to load, or to release, the next so many libraries.
  void refuseLoads(int number);
  void refuseReleases(int number);
  /// Runs on the dispatcher's thread before each pass thread is created.
  void beforeWorkerIsCreated(Action action);
  /// Threads of the pipeline that exist.
  int livingThreads() const;
};

/// What a test does on a thread of its own while a thread of the pipeline is stopped: until it has
/// ended or waits for something that the stopped thread holds. Joined in the end.
class Interjection {
 public:
  explicit Interjection(std::function<void()> action) : m_companion(std::move(action)) {
    m_companion.blocks();
  }
  bool ended() const { return m_companion.ended(); }

 private:
  Companion m_companion;
};

}  // namespace TarvexDiags::TestSupport
