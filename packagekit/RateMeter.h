#pragma once

#include <chrono>
#include <optional>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::PackageKit {

/// @brief How much is done a second, told once a second. Thread-safety: any thread.
class RateMeter {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds kBetween{1};

  /// @brief Adds what was done since the call before. The first call begins the count, as nobody
  /// knows how long its amount took.
  /// @return what was done a second since the last rate; nothing before a second is over
  std::optional<double> add(double amount, Clock::time_point now) {
    const System::LockHold hold(m_lock);
    if (!m_since) {
      m_since = now;
      return std::nullopt;
    }
    m_amount += amount;
    if (now - *m_since < kBetween) {
      return std::nullopt;
    }
    const double rate = m_amount / std::chrono::duration<double>(now - *m_since).count();
    m_since = now;
    m_amount = 0;
    return rate;
  }

 private:
  System::Mutex m_lock;
  std::optional<Clock::time_point> m_since TARVEXDIAGS_GUARDED_BY(m_lock);
  double m_amount TARVEXDIAGS_GUARDED_BY(m_lock) = 0;
};

}  // namespace TarvexDiags::PackageKit
