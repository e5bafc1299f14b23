#include "tests/support/ThreadCreation.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <utility>

namespace TarvexDiags::TestSupport {

namespace {

std::atomic<bool> sActive{false};
std::atomic<int> sWanted{0};
std::atomic<int> sFirstRefused{0};
std::atomic<int> sRefusedCount{0};
// Set before the threads that it watches are created.
std::function<void(int)> sObserver;

}  // namespace

ThreadCreation::ThreadCreation() {
  sWanted = 0;
  sRefusedCount = 0;
  sObserver = nullptr;
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
  return kNext(thread, attributes, entry, argument);
}
