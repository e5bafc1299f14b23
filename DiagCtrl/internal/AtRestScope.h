#pragma once

#include "DiagCtrl/ClientsAtRest.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// States for a scope that the clients are at rest. Costs nothing and takes nothing: whoever writes
/// it has made sure.
class TARVEXDIAGS_SCOPED_CAPABILITY AtRestScope {
 public:
  AtRestScope() noexcept TARVEXDIAGS_ACQUIRE(kClientsAtRest) {}
  ~AtRestScope() TARVEXDIAGS_RELEASE() {}  // NOLINT(modernize-use-equals-default): carries the mark
  AtRestScope(const AtRestScope&) = delete;
  AtRestScope& operator=(const AtRestScope&) = delete;
};

}  // namespace TarvexDiags::DiagCtrl
