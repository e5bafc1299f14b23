#pragma once

#include <pthread.h>

namespace TarvexDiags::DiagCtrl {

/// Keeps a cancellation of the calling thread waiting until the end of the scope: what runs inside
/// is done to its end, and may stand in a destructor.
class CancellationHeld {
 public:
  CancellationHeld() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &miFormerState); }
  ~CancellationHeld() { pthread_setcancelstate(miFormerState, nullptr); }
  CancellationHeld(const CancellationHeld&) = delete;
  CancellationHeld& operator=(const CancellationHeld&) = delete;

 private:
  int miFormerState = PTHREAD_CANCEL_ENABLE;
};

}  // namespace TarvexDiags::DiagCtrl
