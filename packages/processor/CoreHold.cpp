#include "packages/processor/CoreHold.h"

#include <sched.h>

#include "packages/common/CpuList.h"
#include "packages/processor/ProcessorReasons.h"

namespace TarvexDiags::Processor {

CoreHold::CoreHold(int core) : m_core(core), m_before(Common::allowedCpus()) {
  if (!Common::pinThisThread(core)) {
    throw Common::NotSupported(Reasons::kCoreForbidden);
  }
}

CoreHold::~CoreHold() {
  Common::allowThisThread(m_before);
}

void CoreHold::require() const {
  // A kernel that cannot tell answers -1; the look at the set of CPUs is left then.
  const int current = sched_getcpu();
  if (current >= 0 && current != m_core) {
    throw CoreTakenAway(m_core);
  }
}

void CoreHold::requireAlone() const {
  require();
  if (!Common::runsOnlyOn(m_core)) {
    throw CoreTakenAway(m_core);
  }
}

}  // namespace TarvexDiags::Processor
