#include "System/Lock.h"

namespace TarvexDiags::System {

Lock::Lock() = default;
Lock::Lock(const Lock& /*other*/) noexcept {}
// Nothing to take over, and nothing to give up: a self-assignment is no special case.
Lock& Lock::operator=(const Lock& /*other*/) noexcept {
  return *this;
}  // NOLINT
Lock::~Lock() = default;

void Lock::lock() {
  m_mutex.lock();
}
bool Lock::tryLock() {
  return m_mutex.try_lock();
}
void Lock::unlock() {
  m_mutex.unlock();
}

}  // namespace TarvexDiags::System
