#pragma once

namespace TarvexDiags::DiagCtrl {

/// Sets a status that several threads write, each under a lock of its own, unless the present one
/// withstands. Decided anew for whatever another writer puts there in between.
/// @param arStatus an atomic, or what behaves like one. @param aWithstands called with a status.
/// @return the status that withstood, or the one that was set.
template <class Cell, class Status, class Withstands>
Status replaceStatus(Cell& arStatus, Status aeNext, Withstands aWithstands) {
  Status present = arStatus.load();
  do {
    if (aWithstands(present)) {
      return present;
    }
  } while (!arStatus.compare_exchange_weak(present, aeNext));
  return aeNext;
}

}  // namespace TarvexDiags::DiagCtrl
