#pragma once

#include "DiagCtrl/ClientsAtRest.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// States for a scope that the clients are at rest. Costs nothing and takes nothing: whoever writes
/// it has made sure.
class TARVEXDIAGS_SCOPED_CAPABILITY AtRestScope {
 public:
  // Both are there for their marks.
  AtRestScope() noexcept TARVEXDIAGS_ACQUIRE(kClientsAtRest) {}  // NOLINT(*-equals-default)
  ~AtRestScope() TARVEXDIAGS_RELEASE() {}                        // NOLINT(*-equals-default)
  AtRestScope(const AtRestScope&) = delete;
  AtRestScope& operator=(const AtRestScope&) = delete;
};

}  // namespace TarvexDiags::DiagCtrl
