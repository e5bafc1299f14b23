#include "tests/support/ThreadCreation.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <utility>

namespace TarvexDiags::TestSupport {

namespace {

std::atomic<bool> sActive{false};
std::atomic<int> sWanted{0};
std::atomic<int> sFirstRefused{0};
std::atomic<int> sRefusedCount{0};
// Set before the threads that they watch are created.
std::function<void(int)> sObserver;
std::function<void()> sBeginning;

/// What a new thread is to run.
struct Entry {
  void* (*function)(void*);
  void* argument;
};

void* begin(void* entry) {
  const std::unique_ptr<Entry> own(static_cast<Entry*>(entry));
  sBeginning();
  return own->function(own->argument);
}

}  // namespace

ThreadCreation::ThreadCreation() {
  sWanted = 0;
  sRefusedCount = 0;
  sObserver = nullptr;
  sBeginning = nullptr;
  sActive = true;
}

ThreadCreation::~ThreadCreation() {
  sActive = false;
}

void ThreadCreation::refuse(int number, int count) {
  sFirstRefused = number;
  sRefusedCount = count;
}

void ThreadCreation::watch(std::function<void(int)> observer) {
  sObserver = std::move(observer);
}

void ThreadCreation::atStart(std::function<void()> beginning) {
  sBeginning = std::move(beginning);
}

int ThreadCreation::wanted() const {
  return sWanted;
}

}  // namespace TarvexDiags::TestSupport

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
    void* argument) noexcept {
  namespace Support = TarvexDiags::TestSupport;
  if (Support::sActive) {
    const int number = ++Support::sWanted;
    if (Support::sObserver) {
      Support::sObserver(number);
    }
    const int first = Support::sFirstRefused;
    if (number >= first && number < first + Support::sRefusedCount) {
      return EAGAIN;
    }
  }
  static const auto kNext = reinterpret_cast<decltype(&pthread_create)>(  //
      dlsym(RTLD_NEXT, "pthread_create"));
  if (!Support::sActive || !Support::sBeginning) {
    return kNext(thread, attributes, entry, argument);
  }
  auto own = std::make_unique<Support::Entry>(Support::Entry{entry, argument});
  const int failure = kNext(thread, attributes, Support::begin, own.get());
  if (failure == 0) {
    static_cast<void>(own.release());
  }
  return failure;
}
