#include "tests/controller/pipeline/PipelineSteps.h"

#include <dlfcn.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/DiagThreadArgument.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/ExecutionThread.h"
#include "DiagCtrl/MonitorThread.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(ThreadEntryTag, DiagCtrl::DiagThread::proxyRun);

namespace TarvexDiags::TestSupport {

namespace {

struct Stop {
  unsigned int remaining = 0;
  PipelineSteps::Action action;
  std::atomic<bool> isArmed{false};
};

std::mutex sMutex;  // guards the actions
std::array<Stop, 4> sStops;
Actor sLatest = Actor::None;  // whose stop was asked for last
PipelineSteps::Action sBeforeWorker;
std::atomic<bool> sReached{false};
std::atomic<int> sActing{0};
std::atomic<long> sWaitMs{0};
std::array<std::atomic<unsigned long>, 4> sWaits{};
std::array<std::atomic<unsigned long>, 4> sTries{};
std::array<std::atomic<long>, 4> sLatestWait{};
// What an actor waits for, until it is signalled, and the length that it found set.
std::array<std::atomic<pthread_cond_t*>, 4> sWaitsFor{};
std::array<std::atomic<long>, 4> sPresentWaitMs{};
std::atomic<int> sRefusedWorkers{0};
std::atomic<int> sRefusedLoads{0};
std::atomic<int> sRefusedReleases{0};
std::atomic<int> sLiving{0};

thread_local Actor sSelf = Actor::None;
thread_local bool sIsActing = false;

Actor actorOf(void* (*routine)(void*), void* argument) {
  if (routine != memberOf(ThreadEntryTag()) || routine == nullptr) {
    return Actor::None;
  }
  auto* thread = static_cast<DiagCtrl::DiagThread*>(
      static_cast<DiagCtrl::DiagThreadArgument*>(argument)->getThreadPtr());
  if (dynamic_cast<DiagCtrl::ExecutionThread*>(thread) != nullptr) {
    return Actor::Worker;
  }
  if (dynamic_cast<DiagCtrl::MonitorThread*>(thread) != nullptr) {
    return Actor::Monitor;
  }
  return dynamic_cast<DiagCtrl::ExecutionManagerThread*>(thread) != nullptr ? Actor::Dispatcher
                                                                            : Actor::None;
}

struct Start {
  Actor actor;
  void* (*routine)(void*);
  void* argument;
};

/// Counted off also when the thread ends with pthread_exit.
struct Living {
  Living() { ++sLiving; }
  ~Living() { --sLiving; }
};

void* enterThread(void* argument) {
  const std::unique_ptr<Start> owned(static_cast<Start*>(argument));
  const Start start = *owned;
  sSelf = start.actor;
  if (start.actor == Actor::None) {
    return start.routine(start.argument);
  }
  const Living living;
  return start.routine(start.argument);
}

Stop& stopOf(Actor actor) {
  return sStops[static_cast<std::size_t>(actor)];
}

/// The action that is due on this thread, if it is.
PipelineSteps::Action takeStep() {
  const std::lock_guard<std::mutex> hold(sMutex);
  Stop& stop = stopOf(sSelf);
  if (!stop.isArmed || --stop.remaining > 0) {
    return nullptr;
  }
  stop.isArmed = false;
  sReached = sReached || sLatest == sSelf;
  ++sActing;
  return std::exchange(stop.action, nullptr);
}

void step() {
  if (sSelf == Actor::None || sIsActing || !stopOf(sSelf).isArmed.load(std::memory_order_relaxed)) {
    return;
  }
  sIsActing = true;
  if (const PipelineSteps::Action action = takeStep()) {
    action();
    --sActing;
  }
  sIsActing = false;
}

void beforeWorker() {
  PipelineSteps::Action action;
  {
    const std::lock_guard<std::mutex> hold(sMutex);
    action = sBeforeWorker;
  }
  if (action) {
    action();
  }
}

/// A wait as others see it, also when the thread ends out of it.
class PresentWait {
 public:
  PresentWait(std::size_t self, pthread_cond_t* variable, long milliseconds) : m_self(self) {
    sPresentWaitMs[m_self] = milliseconds;
    sWaitsFor[m_self] = variable;
  }
  ~PresentWait() { sWaitsFor[m_self] = nullptr; }
  PresentWait(const PresentWait&) = delete;
  PresentWait& operator=(const PresentWait&) = delete;

 private:
  const std::size_t m_self;
};

timespec fromNow(long milliseconds) {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  constexpr long second = 1'000'000'000;
  const long nanoseconds = time.tv_nsec + (milliseconds % 1000) * 1'000'000;
  time.tv_sec += milliseconds / 1000 + nanoseconds / second;
  time.tv_nsec = nanoseconds % second;
  return time;
}

}  // namespace

PipelineSteps::PipelineSteps() = default;

PipelineSteps::~PipelineSteps() {
  disarm();
  restoreWaits();
  sRefusedWorkers = 0;
  sRefusedLoads = 0;
  sRefusedReleases = 0;
  beforeWorkerIsCreated(nullptr);
}

void PipelineSteps::setWaits(std::chrono::milliseconds length) {
  sWaitMs = length.count();
}

void PipelineSteps::restoreWaits() {
  sWaitMs = 0;
}

void PipelineSteps::atLock(Actor actor, unsigned int number, Action action) {
  const std::lock_guard<std::mutex> hold(sMutex);
  Stop& stop = stopOf(actor);
  stop.remaining = number;
  stop.action = std::move(action);
  stop.isArmed = true;
  sLatest = actor;
  sReached = false;
}

unsigned long PipelineSteps::waits(Actor actor) const {
  return sWaits[static_cast<std::size_t>(actor)];
}

unsigned long PipelineSteps::tries(Actor actor) const {
  return sTries[static_cast<std::size_t>(actor)];
}

long PipelineSteps::latestWait(Actor actor) const {
  return sLatestWait[static_cast<std::size_t>(actor)];
}

bool PipelineSteps::isAtRest(Actor actor) const {
  const auto which = static_cast<std::size_t>(actor);
  return sWaitsFor[which] != nullptr && sPresentWaitMs[which] == sWaitMs;
}

void PipelineSteps::actAsClient() {
  sSelf = Actor::Client;
}

bool PipelineSteps::isReached() const {
  return sReached;
}

void PipelineSteps::disarm() {
  {
    const std::lock_guard<std::mutex> hold(sMutex);
    for (Stop& stop : sStops) {
      stop.isArmed = false;
      stop.action = nullptr;
    }
  }
  eventually([] { return sActing == 0; });
}

void PipelineSteps::refuseWorkers(int number) {
  sRefusedWorkers = number;
}

void PipelineSteps::refuseLoads(int number) {
  sRefusedLoads = number;
}

void PipelineSteps::refuseReleases(int number) {
  sRefusedReleases = number;
}

void PipelineSteps::beforeWorkerIsCreated(Action action) {
  const std::lock_guard<std::mutex> hold(sMutex);
  sBeforeWorker = std::move(action);
}

int PipelineSteps::livingThreads() const {
  return sLiving;
}

}  // namespace TarvexDiags::TestSupport

// The runtime of a sanitizer may come here before it is ready itself.
#define TARVEX_INTERPOSED \
  extern "C" __attribute__((visibility("default"), no_sanitize("address", "thread", "undefined")))

#define TARVEX_NEXT(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

namespace Steps = TarvexDiags::TestSupport;

TARVEX_INTERPOSED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*routine)(void*), void* argument) noexcept {
  static const auto kNext = TARVEX_NEXT(pthread_create);
  const Steps::Actor actor = Steps::actorOf(routine, argument);
  if (actor == Steps::Actor::None) {
    return kNext(thread, attributes, routine, argument);
  }
  if (actor == Steps::Actor::Worker) {
    Steps::beforeWorker();
    if (Steps::sRefusedWorkers > 0) {
      --Steps::sRefusedWorkers;
      return EAGAIN;
    }
  }
  return kNext(thread, attributes, Steps::enterThread, new Steps::Start{actor, routine, argument});
}

TARVEX_INTERPOSED int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static const auto kNext = TARVEX_NEXT(pthread_mutex_trylock);
  if (Steps::sSelf != Steps::Actor::None) {
    ++Steps::sTries[static_cast<std::size_t>(Steps::sSelf)];
  }
  Steps::step();
  return kNext(mutex);
}

TARVEX_INTERPOSED void* dlopen(const char* path, int mode) noexcept {
  static const auto kNext = TARVEX_NEXT(dlopen);
  if (Steps::sRefusedLoads > 0) {
    --Steps::sRefusedLoads;
    return nullptr;
  }
  return kNext(path, mode);
}

TARVEX_INTERPOSED int dlclose(void* handle) noexcept {
  static const auto kNext = TARVEX_NEXT(dlclose);
  if (Steps::sRefusedReleases > 0) {
    --Steps::sRefusedReleases;
    return -1;
  }
  return kNext(handle);
}

TARVEX_INTERPOSED int pthread_cond_timedwait(pthread_cond_t* variable, pthread_mutex_t* mutex,
                                             const timespec* deadline) {
  static const auto kNext = TARVEX_NEXT(pthread_cond_timedwait);
  if (Steps::sSelf == Steps::Actor::None) {
    return kNext(variable, mutex, deadline);
  }
  const auto self = static_cast<std::size_t>(Steps::sSelf);
  ++Steps::sWaits[self];
  Steps::sLatestWait[self] = deadline->tv_sec - time(nullptr);
  const long length = Steps::sWaitMs;
  const Steps::PresentWait present(self, variable, length);
  if (length == 0) {
    return kNext(variable, mutex, deadline);
  }
  const timespec nearer = Steps::fromNow(length);
  return kNext(variable, mutex, &nearer);
}

// With the mutex held that the waiter gives up only inside of its wait.
TARVEX_INTERPOSED int pthread_cond_signal(pthread_cond_t* variable) noexcept {
  static const auto kNext = TARVEX_NEXT(pthread_cond_signal);
  for (std::atomic<pthread_cond_t*>& waitsFor : Steps::sWaitsFor) {
    pthread_cond_t* signalled = variable;
    waitsFor.compare_exchange_strong(signalled, nullptr);
  }
  return kNext(variable);
}
