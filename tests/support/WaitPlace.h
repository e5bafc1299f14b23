#pragma once

#include <pthread.h>
#include <sys/syscall.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(MutexOfLockTag, DiagCtrl::DiagCtrlLock::mpCtrlLock);
TARVEX_PRIVATE_MEMBER(ConditionOfCallBackTag, DiagCtrl::CallBackObject::mpCondVar);
TARVEX_PRIVATE_MEMBER(PlatformConditionTag, DiagCtrl::DiagCtrlConditionVar::mcondConditionVar);

namespace TarvexDiags::TestSupport {

/// The words in memory on which the kernel lets a thread sleep that waits for a lock, or for a
/// signal. A thread that sleeps may do so anywhere, for a moment: one that sleeps there has got as
/// far as a test wants it.
struct WaitPlace {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;

  template <class Object>
  static WaitPlace of(const Object* object) {
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    return {address, address + sizeof(Object)};
  }
};

inline WaitPlace waitPlaceOf(DiagCtrl::DiagCtrlLock& lock) {
  return WaitPlace::of(privateMember<MutexOfLockTag>(lock));
}
inline WaitPlace waitPlaceOf(DiagCtrl::CallBackObject& object) {
  return WaitPlace::of(
      &privateMember<PlatformConditionTag>(*privateMember<ConditionOfCallBackTag>(object)));
}

/// Whether a thread of this process sleeps there. Where the kernel does not tell what a thread is
/// doing, whether it sleeps at all.
inline bool threadWaitsAt(const std::string& kernelId, const WaitPlace& place) {
  std::ifstream call("/proc/self/task/" + kernelId + "/syscall");
  std::string number;
  if (!(call >> number)) {
    return isAsleep(kernelId);
  }
  std::string argument;  // none stands behind "running"
  if (number != std::to_string(SYS_futex) || !(call >> argument)) {
    return false;
  }
  const std::uintptr_t address = std::stoull(argument, nullptr, 16);
  return place.begin <= address && address < place.end;
}

/// Waits until a companion sleeps there. @return false if its action ends before.
inline bool waitsAt(const Companion& companion, const WaitPlace& place) {
  return companion.comesTo([&](const std::string& id) { return threadWaitsAt(id, place); });
}

/// Whether any thread of this process does.
inline bool anyThreadWaitsAt(const WaitPlace& place) {
  std::error_code ignored;  // threads come and go meanwhile
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", ignored)) {
    if (threadWaitsAt(task.path().filename().string(), place)) {
      return true;
    }
  }
  return false;
}

}  // namespace TarvexDiags::TestSupport
