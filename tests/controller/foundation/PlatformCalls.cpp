#include "tests/controller/foundation/PlatformCalls.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <optional>

namespace TarvexDiags::TestSupport {

namespace {

struct Watch {
  int yields = 0;
  int tryLocks = 0;
  int unlocks = 0;
  bool swallowUnlocks = false;
  int attributesResult = 0;
  int policyResult = 0;
  std::optional<int> timedWaitResult;
  timespec deadline{};
};

thread_local Watch sWatch;

}  // namespace

PlatformCalls::PlatformCalls() {
  sWatch = {};
}
PlatformCalls::~PlatformCalls() {
  sWatch = {};
}

int PlatformCalls::yields() const {
  return sWatch.yields;
}
int PlatformCalls::tryLocks() const {
  return sWatch.tryLocks;
}
int PlatformCalls::unlocks() const {
  return sWatch.unlocks;
}
void PlatformCalls::swallowUnlocks() {
  sWatch.swallowUnlocks = true;
}
void PlatformCalls::refuseAttributes(int result) {
  sWatch.attributesResult = result;
}
void PlatformCalls::refuseSchedulingPolicy(int result) {
  sWatch.policyResult = result;
}
void PlatformCalls::endTimedWaits(int result) {
  sWatch.timedWaitResult = result;
}
timespec PlatformCalls::deadline() const {
  return sWatch.deadline;
}

}  // namespace TarvexDiags::TestSupport

// The runtime of a sanitizer may come here before it is ready itself.
#define TARVEX_INTERPOSED \
  extern "C"              \
      __attribute__((visibility("default"), no_sanitize("address", "thread", "undefined"))) int

#define TARVEX_PASS_ON(name, ...)                                                      \
  static const auto next = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name)); \
  return next(__VA_ARGS__)

using TarvexDiags::TestSupport::sWatch;

TARVEX_INTERPOSED sched_yield() noexcept {
  ++sWatch.yields;
  return static_cast<int>(syscall(SYS_sched_yield));
}

TARVEX_INTERPOSED pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  ++sWatch.tryLocks;
  TARVEX_PASS_ON(pthread_mutex_trylock, mutex);
}

TARVEX_INTERPOSED pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  ++sWatch.unlocks;
  if (sWatch.swallowUnlocks) {
    return 0;
  }
  TARVEX_PASS_ON(pthread_mutex_unlock, mutex);
}

TARVEX_INTERPOSED pthread_attr_init(pthread_attr_t* attributes) noexcept {
  if (sWatch.attributesResult != 0) {
    return sWatch.attributesResult;
  }
  TARVEX_PASS_ON(pthread_attr_init, attributes);
}

TARVEX_INTERPOSED pthread_attr_setschedpolicy(pthread_attr_t* attributes, int policy) noexcept {
  if (sWatch.policyResult != 0) {
    return sWatch.policyResult;
  }
  TARVEX_PASS_ON(pthread_attr_setschedpolicy, attributes, policy);
}

// Not noexcept: the end of a thread unwinds through it.
TARVEX_INTERPOSED pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                         const timespec* deadline) {
  if (sWatch.timedWaitResult.has_value()) {
    sWatch.deadline = *deadline;
    return *sWatch.timedWaitResult;
  }
  TARVEX_PASS_ON(pthread_cond_timedwait, condition, mutex, deadline);
}
