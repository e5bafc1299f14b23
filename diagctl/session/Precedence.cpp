#include "diagctl/session/Precedence.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace TarvexDiags::FrontEnd {

namespace {

// The kernel's least.
constexpr std::uint64_t kShortSlice = 100'000;
// What the thread starts gets the niceness 0 and an ordinary slice (SCHED_FLAG_RESET_ON_FORK).
constexpr std::uint64_t kResetOnFork = 1;

bool schedule(const Scheduling& wanted) {
  return syscall(SYS_sched_setattr, 0, &wanted, 0) == 0;
}

}  // namespace

Precedence::Precedence(int niceness) {
  if (syscall(SYS_sched_getattr, 0, &m_before, sizeof m_before, 0) != 0 ||
      m_before.policy != SCHED_OTHER || m_before.niceness < 0) {
    return;
  }
  Scheduling wanted = m_before;
  wanted.flags = kResetOnFork;
  wanted.slice = kShortSlice;
  if (m_before.niceness == 0) {
    wanted.niceness = niceness;
    m_isChanged = schedule(wanted);
    wanted.niceness = 0;
  }
  m_isChanged = m_isChanged || schedule(wanted);
}

// Only who may lower a niceness may take the flag back; without either it means nothing.
Precedence::~Precedence() {
  if (m_isChanged && !schedule(m_before)) {
    m_before.flags = kResetOnFork;
    static_cast<void>(schedule(m_before));
  }
}

}  // namespace TarvexDiags::FrontEnd
