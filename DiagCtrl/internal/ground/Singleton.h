#pragma once

namespace TarvexDiags::DiagCtrl {

/// The instance behind `arpInstance`, made by `aMake` on first use. The caller holds the lock that
/// guards the pointer, so that two threads that ask first get the same object.
template <class T, class Make>
T* instanceOf(T*& arpInstance, Make aMake) {
  if (arpInstance == nullptr) {
    arpInstance = aMake();
  }
  return arpInstance;
}

}  // namespace TarvexDiags::DiagCtrl
