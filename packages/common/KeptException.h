#pragma once

#include <exception>
#include <utility>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::Common {

/// @brief What a thread threw, for the one that waits for it to throw again. From any thread; of
/// several exceptions the last one is kept.
class KeptException {
 public:
  void keep(std::exception_ptr thrown) {
    const System::LockHold hold(m_lock);
    m_thrown = std::move(thrown);
  }

  /// @brief Does nothing where nothing was thrown.
  void rethrow() {
    const System::LockHold hold(m_lock);
    if (m_thrown) {
      std::rethrow_exception(m_thrown);
    }
  }

 private:
  System::Mutex m_lock;
  std::exception_ptr m_thrown TARVEXDIAGS_GUARDED_BY(m_lock);
};

}  // namespace TarvexDiags::Common
