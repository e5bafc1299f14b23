// A library to preload. It stands in front of the platform's locks and condition variables and lets
// a thread sleep, at random, in front of and behind each of their calls: threads then meet in
// orders that a quiet machine never shows. Set by the environment:
//
//   TARVEX_SCHEDULE_SEED          the seed (1)
//   TARVEX_SCHEDULE_ONE_IN        one point in so many is followed by a sleep (50); 0: none
//   TARVEX_SCHEDULE_MICROSECONDS  the longest sleep (3000); short ones are the most frequent
//   TARVEX_SCHEDULE_TRAIL         a file to which each sleep is added: thread, point, call, length
//
// A thread draws its sleeps from the seed, from its place in the family of threads (its maker's
// place, and how many that one made before it) and from the number of points that it has passed.
// The same program thus sleeps at the same points again as far as its threads do the same again.

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace {

struct Plan {
  std::uint64_t seed = 1;
  std::uint64_t oneIn = 50;
  std::uint64_t longest = 3000;
  int trail = -1;
};

std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 10);
}

const Plan& plan() {
  static const Plan kMade = [] {
    Plan read;
    read.seed = numberFrom("TARVEX_SCHEDULE_SEED", read.seed);
    read.oneIn = numberFrom("TARVEX_SCHEDULE_ONE_IN", read.oneIn);
    read.longest = numberFrom("TARVEX_SCHEDULE_MICROSECONDS", read.longest);
    if (const char* const path = std::getenv("TARVEX_SCHEDULE_TRAIL"); path != nullptr) {
      read.trail = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
    return read;
  }();
  return kMade;
}

/// Spreads a number over all its bits.
std::uint64_t scatter(std::uint64_t number) {
  number += 0x9e3779b97f4a7c15;
  number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9;
  number = (number ^ (number >> 27)) * 0x94d049bb133111eb;
  return number ^ (number >> 31);
}

/// What a thread draws from; no constructor, so that it is there before and after all others.
struct Self {
  std::uint64_t place;
  std::uint64_t points;
  std::uint64_t children;
};
thread_local Self sSelf{0, 0, 0};

void sleepFor(std::uint64_t microseconds) {
  timespec rest{};
  rest.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
  rest.tv_nsec = static_cast<long>(microseconds % 1'000'000 * 1000);
  clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, nullptr);
}

void note(const char* call, std::uint64_t microseconds) {
  char line[128];
  const int length = std::snprintf(line, sizeof line, "%016llx %llu %s %llu\n",
                                   static_cast<unsigned long long>(sSelf.place),
                                   static_cast<unsigned long long>(sSelf.points), call,
                                   static_cast<unsigned long long>(microseconds));
  if (write(plan().trail, line, static_cast<std::size_t>(length)) < 0) {
    std::abort();  // a trail with holes leads astray
  }
}

/// A point at which the thread may have to wait for a while.
void point(const char* call) {
  const Plan& set = plan();
  ++sSelf.points;
  const std::uint64_t drawn = scatter(scatter(set.seed ^ sSelf.place) + sSelf.points);
  if (set.oneIn == 0 || drawn % set.oneIn != 0) {
    return;
  }
  // The cube of an even spread: half of the sleeps stay below an eighth of the longest.
  const double share = static_cast<double>(scatter(drawn) >> 11) / 9007199254740992.0;
  const auto length =
      static_cast<std::uint64_t>(static_cast<double>(set.longest) * share * share * share);
  if (set.trail >= 0) {
    note(call, length);
  }
  sleepFor(length);
}

struct Start {
  std::uint64_t place;
  void* (*routine)(void*);
  void* argument;
};

void* enterThread(void* argument) {
  const std::unique_ptr<Start> owned(static_cast<Start*>(argument));
  const Start start = *owned;
  sSelf.place = start.place;
  point("thread");
  return start.routine(start.argument);
}

}  // namespace

#define TARVEX_INTERPOSED extern "C" __attribute__((visibility("default")))

#define TARVEX_NEXT(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

#define TARVEX_BETWEEN_POINTS(name, ...)      \
  static const auto next = TARVEX_NEXT(name); \
  point(#name " >");                          \
  const int result = next(__VA_ARGS__);       \
  point(#name " <");                          \
  return result

TARVEX_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_mutex_lock, mutex);
}
TARVEX_INTERPOSED int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_mutex_trylock, mutex);
}
TARVEX_INTERPOSED int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_mutex_unlock, mutex);
}
TARVEX_INTERPOSED int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_rwlock_rdlock, lock);
}
TARVEX_INTERPOSED int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_rwlock_wrlock, lock);
}
TARVEX_INTERPOSED int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_rwlock_unlock, lock);
}
TARVEX_INTERPOSED int pthread_cond_signal(pthread_cond_t* variable) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_cond_signal, variable);
}
TARVEX_INTERPOSED int pthread_cond_broadcast(pthread_cond_t* variable) noexcept {
  TARVEX_BETWEEN_POINTS(pthread_cond_broadcast, variable);
}
// A wait may end by cancellation, so these three let exceptions through.
TARVEX_INTERPOSED int pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex) {
  TARVEX_BETWEEN_POINTS(pthread_cond_wait, variable, mutex);
}
TARVEX_INTERPOSED int pthread_cond_timedwait(pthread_cond_t* variable, pthread_mutex_t* mutex,
                                             const timespec* deadline) {
  TARVEX_BETWEEN_POINTS(pthread_cond_timedwait, variable, mutex, deadline);
}
TARVEX_INTERPOSED int pthread_cond_clockwait(pthread_cond_t* variable, pthread_mutex_t* mutex,
                                             clockid_t clock, const timespec* deadline) {
  TARVEX_BETWEEN_POINTS(pthread_cond_clockwait, variable, mutex, clock, deadline);
}

TARVEX_INTERPOSED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*routine)(void*), void* argument) noexcept {
  static const auto kNext = TARVEX_NEXT(pthread_create);
  const std::uint64_t place = scatter(sSelf.place + ++sSelf.children);
  auto start = std::make_unique<Start>(Start{place, routine, argument});
  const int result = kNext(thread, attributes, enterThread, start.get());
  if (result == 0) {
    start.release();  // the thread's own
  }
  point("pthread_create <");
  return result;
}
