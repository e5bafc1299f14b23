#pragma once

#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagCtrlLock;

/// The clients are at rest: the state of the program in which one thread may write what all the
/// others only read, without a lock. The catalogue and what the controller is built of are kept in
/// this way. It is a capability like a mutex, but there is nothing to take: a thread that acts in
/// the state says so (AtRestScope), and each place that says so is one of these:
///  - `initialize`, before the controller's own threads run: all calls but those of the start are
///    turned away by the phase;
///  - an enumeration: no request is accepted, no test can begin, and the client has its other
///    threads out of the library, as the guide asks;
///  - `shutDown` and the failure of `initialize`, once the controller's threads have ended and the
///    last call inside has left.
///
/// What a lock guards may be written in the state without that lock, if only clients take it.
/// Constructors and destructors need no leave: nobody else knows the object.
class TARVEXDIAGS_EXPORT TARVEXDIAGS_CAPABILITY("state") ClientsAtRest {
 public:
  /// Said by an operation that only reads, which is allowed at any time: the caller's phase says
  /// that nobody writes now.
  void mayRead() const noexcept TARVEXDIAGS_ASSERT_SHARED_CAPABILITY() {}

  /// Said by an operation that writes what the lock guards and does not take the lock.
  void standsFor(const DiagCtrlLock& arLock) const noexcept TARVEXDIAGS_REQUIRES(this)
      TARVEXDIAGS_ASSERT_CAPABILITY(arLock) {
    static_cast<void>(arLock);
  }
};

inline constexpr ClientsAtRest kClientsAtRest{};

}  // namespace TarvexDiags::DiagCtrl
