#include "tests/support/PlatformAnswers.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "System/SysUtil.h"

namespace TarvexDiags::TestSupport {

namespace {

std::atomic<long> sSecondsAhead{0};
std::atomic<bool> sRefusesToClose{false};
std::atomic<bool> sFailsJoins{false};
// Set while no controller is starting.
std::optional<std::string> sOs;

}  // namespace

PlatformAnswers::PlatformAnswers() = default;

PlatformAnswers::~PlatformAnswers() {
  sSecondsAhead = 0;
  sRefusesToClose = false;
  sFailsJoins = false;
  sOs.reset();
}

void PlatformAnswers::setClockAhead(long seconds) {
  sSecondsAhead = seconds;
}
void PlatformAnswers::setOs(std::optional<std::string> name) {
  sOs = std::move(name);
}
void PlatformAnswers::refuseToClose() {
  sRefusesToClose = true;
}
void PlatformAnswers::failJoins() {
  sFailsJoins = true;
}

}  // namespace TarvexDiags::TestSupport

namespace Support = TarvexDiags::TestSupport;

std::string TarvexDiags::System::SysUtil::getOs() {
  return Support::sOs.value_or("Linux");
}

extern "C" __attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
  timeval now{};
  gettimeofday(&now, nullptr);
  const time_t seconds = now.tv_sec + Support::sSecondsAhead;
  if (result != nullptr) {
    *result = seconds;
  }
  return seconds;
}

extern "C" __attribute__((visibility("default"))) int dlclose(void* handle) noexcept {
  if (Support::sRefusesToClose) {
    return 1;
  }
  static const auto kNext = reinterpret_cast<decltype(&dlclose)>(dlsym(RTLD_NEXT, "dlclose"));
  return kNext(handle);
}

extern "C" __attribute__((visibility("default"))) int pthread_join(pthread_t thread,
                                                                   void** result) {
  static const auto kNext = reinterpret_cast<decltype(&pthread_join)>(  //
      dlsym(RTLD_NEXT, "pthread_join"));
  const int answer = kNext(thread, result);
  return Support::sFailsJoins ? ESRCH : answer;
}
