#include "packagekit/internal/RunControl.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace TarvexDiags::PackageKit {

void RunControl::abort() {
  const System::LockHold hold(m_lock);
  m_aborted = true;
  m_suspended = false;
  wake();
}

void RunControl::suspend() {
  const System::LockHold hold(m_lock);
  m_suspended = !m_aborted;
  wake();
}

void RunControl::resume() {
  const System::LockHold hold(m_lock);
  m_suspended = false;
  wake();
}

void RunControl::abortWhileReadable(int descriptor) {
  const System::LockHold hold(m_lock);
  m_end = descriptor;
}

bool RunControl::isAborted() const {
  const System::LockHold hold(m_lock);
  pollfd end{m_end, POLLIN, 0};
  return m_aborted || (m_end >= 0 && poll(&end, 1, 0) > 0);
}

int RunControl::endDescriptor() const {
  const System::LockHold hold(m_lock);
  return m_end;
}

bool RunControl::isSuspended() const {
  const System::LockHold hold(m_lock);
  return m_suspended;
}

void RunControl::beginRun() {
  UniqueDescriptor wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wakeUp) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  const System::LockHold hold(m_lock);
  m_wake = std::move(wakeUp);
}

void RunControl::endRun() noexcept {
  const System::LockHold hold(m_lock);
  m_suspended = false;
  m_wake.close();
}

int RunControl::wakeDescriptor() const {
  const System::LockHold hold(m_lock);
  return m_wake.get();
}

void RunControl::clearWake() {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t size = ::read(wakeDescriptor(), &count, sizeof count);
}

void RunControl::wake() {
  if (m_wake) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = ::write(m_wake.get(), &one, sizeof one);
  }
}

}  // namespace TarvexDiags::PackageKit
