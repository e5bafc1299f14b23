#pragma once

#include <mutex>

namespace TarvexDiags::DiagCtrl {

/// The instance behind `arpInstance`, made by `aMake` on first use. Under a lock, so that two
/// threads that ask first get the same object.
template <class T, class Make>
T* instanceOf(T*& arpInstance, std::mutex& arMutex, Make aMake) {
  const std::lock_guard<std::mutex> hold(arMutex);
  if (arpInstance == nullptr) {
    arpInstance = aMake();
  }
  return arpInstance;
}

/// Forgets an instance that is being destroyed, so that the next use makes a new one.
template <class T>
void forgetInstance(T*& arpInstance, std::mutex& arMutex) {
  const std::lock_guard<std::mutex> hold(arMutex);
  arpInstance = nullptr;
}

}  // namespace TarvexDiags::DiagCtrl
