// What a lock costs, free and fought over, and how long a signal takes to wake its waiter. The
// peers are the same things of the standard library, which have no oddities to keep.

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlLock.h"

namespace {

using TarvexDiags::DiagCtrl::DiagCtrlConditionVar;
using TarvexDiags::DiagCtrl::DiagCtrlConstants;
using TarvexDiags::DiagCtrl::DiagCtrlLock;

// ---- Lock and unlock, by so many threads
// ---------------------------------------------------------

DiagCtrlLock sLock(DiagCtrlConstants::mSconlDefaultLockTimeOut);
std::mutex sMutex;
std::uint64_t sGuarded = 0;

void lockAndUnlock(benchmark::State& state) {
  for (auto _ : state) {
    sLock.lock(0);
    benchmark::DoNotOptimize(++sGuarded);
    sLock.unlock();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(lockAndUnlock)->ThreadRange(1, 4)->UseRealTime();

void peerStandardMutex(benchmark::State& state) {
  for (auto _ : state) {
    sMutex.lock();
    benchmark::DoNotOptimize(++sGuarded);
    sMutex.unlock();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(peerStandardMutex)->ThreadRange(1, 4)->UseRealTime();

// ---- From a signal to the wake-up
// ----------------------------------------------------------------

/// Hands a ball to and fro; neither side can miss the other's signal.
class DiagCtrlBall {
 public:
  unsigned long ticket() { return m_condition.ticket(); }
  void hit() { m_condition.signal(); }
  void await(unsigned long ticket) {
    constexpr long oneHour = 3'600'000;
    m_condition.timedWaitSince(oneHour, ticket);
  }

 private:
  DiagCtrlConditionVar m_condition;
};

class StandardBall {
 public:
  unsigned long ticket() {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_signals;
  }
  void hit() {
    const std::lock_guard<std::mutex> hold(m_mutex);
    ++m_signals;
    m_condition.notify_one();
  }
  void await(unsigned long ticket) {
    std::unique_lock<std::mutex> hold(m_mutex);
    m_condition.wait(hold, [&] { return m_signals != ticket; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  unsigned long m_signals = 0;
};

/// One item is one signal and the wake-up that it brings.
template <class Ball>
void signalToWakeUp(benchmark::State& state) {
  Ball there;
  Ball back;
  std::atomic<bool> isPlaying{true};
  unsigned long seen = there.ticket();
  std::thread partner([&] {
    while (isPlaying) {
      there.await(seen);
      seen = there.ticket();
      back.hit();
    }
  });
  for (auto _ : state) {
    const unsigned long before = back.ticket();
    there.hit();
    back.await(before);
  }
  isPlaying = false;
  there.hit();
  partner.join();
  state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(signalToWakeUp<DiagCtrlBall>)->UseRealTime();
BENCHMARK(signalToWakeUp<StandardBall>)->Name("peerStandardCondition")->UseRealTime();

}  // namespace
