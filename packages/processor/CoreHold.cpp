#include "packages/processor/CoreHold.h"

#include <sched.h>

#include <utility>

#include "packages/common/CpuList.h"
#include "packages/common/RunJournal.h"

namespace TarvexDiags::Processor {

CoreHold::CoreHold(int core, std::string whose)
    : m_core(core), m_whose(std::move(whose)), m_before(Common::allowedCpus()) {
  if (!Common::pinThisThread(core)) {
    throw Common::NotSupported("this process may not run on core " + std::to_string(core));
  }
}

CoreHold::~CoreHold() {
  Common::allowThisThread(m_before);
}

void CoreHold::require() const {
  // A kernel that cannot tell answers -1; the look at the set of CPUs is left then.
  const int current = sched_getcpu();
  if (current >= 0 && current != m_core) {
    lost();
  }
}

void CoreHold::requireAlone() const {
  require();
  if (!Common::runsOnlyOn(m_core)) {
    lost();
  }
}

void CoreHold::lost() const {
  throw CoreTakenAway(m_whose + " was taken away");
}

}  // namespace TarvexDiags::Processor
