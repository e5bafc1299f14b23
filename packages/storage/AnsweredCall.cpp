#include "packages/storage/AnsweredCall.h"

#include <exception>
#include <system_error>
#include <thread>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/TestContext.h"
#include "packages/common/KeptException.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief How a call ended; outlives whoever waits for it.
class Outcome {
 public:
  void end(std::exception_ptr thrown) {
    m_thrown.keep(std::move(thrown));
    {
      const System::LockHold hold(m_lock);
      m_hasEnded = true;
    }
    m_changed.notifyAll();
  }

  /// @return whether it has ended within that time
  bool wait(std::chrono::milliseconds atMost) {
    const auto end = std::chrono::steady_clock::now() + atMost;
    const System::LockHold hold(m_lock);
    while (!m_hasEnded && m_changed.waitUntil(m_lock, end)) {
    }
    return m_hasEnded;
  }

  void rethrow() { m_thrown.rethrow(); }

 private:
  System::Mutex m_lock;
  System::ConditionVariable m_changed;
  Common::KeptException m_thrown;
  bool m_hasEnded TARVEXDIAGS_GUARDED_BY(m_lock) = false;
};

}  // namespace

void leaveToItself(std::function<void()> call) {
  constexpr std::chrono::milliseconds kLongest{150};
  const auto outcome = std::make_shared<Outcome>();
  try {
    std::thread([outcome, call] {
      call();
      outcome->end(nullptr);
    }).detach();
  } catch (const std::system_error&) {
    call();
    return;
  }
  outcome->wait(kLongest);
}

void awaitCall(const Waiter& waiter, std::chrono::milliseconds patience,
               std::function<void()> call) {
  const auto outcome = std::make_shared<Outcome>();
  std::thread caller([outcome, call = std::move(call)]() mutable {
    std::exception_ptr thrown;
    try {
      call();
    } catch (...) {
      thrown = std::current_exception();
    }
    call = nullptr;  // what it owns ends here, if nobody waits any more
    outcome->end(std::move(thrown));
  });
  for (Looks looks(waiter.journal, patience); !outcome->wait(Looks::kLength);) {
    switch (looks.inVain()) {
      case Looks::Sight::Nothing:
        break;
      case Looks::Sight::Stop:
        caller.detach();
        throw PackageKit::Stopped();
      case Looks::Sight::Silence:
        caller.detach();
        tellSilence(waiter, "?", "?", patience);
        throw SilentDisk();
    }
  }
  caller.join();
  outcome->rethrow();
}

}  // namespace TarvexDiags::Storage
