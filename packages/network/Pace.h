#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace TarvexDiags::Network {

/// @brief How slow a path may be before it is as good as dead, and for how long it is used.
struct PaceLimits {
  /// Without any byte. Pauses from a fifth of a second on are added up, so that a path that lets a
  /// little through now and then does not hold the test for hours.
  std::chrono::nanoseconds stall;
  /// Bytes a second, while it is waited for: a tenth of what the slowest wire carries.
  double deadRate = 125'000;
  /// How long that is watched at a time. Within less, a busy machine may starve the best path.
  std::chrono::nanoseconds window = std::chrono::seconds(5);
  /// Waited in all: of a path that is slow but not dead, only so much is used.
  std::chrono::nanoseconds whole = std::chrono::nanoseconds::max();
  /// Bytes a second within that time: half of what the slowest wire carries. Less is a warning.
  double poorRate = 625'000;
};

/// @brief Watches whether a path carries anything to speak of. Only the time counts in which it is
/// waited for: a busy machine is no slow path. Used by one thread.
class Pace {
 public:
  explicit Pace(const PaceLimits& limits) : m_limits(limits) {}

  /// @brief What is wrong with a path.
  struct Fault {
    enum class Kind { Stalled, Trickled } kind;
    std::chrono::nanoseconds time;  ///< that was waited
    std::uint64_t bytes = 0;        ///< that came meanwhile
  };

  /// @brief Something has moved.
  void go() {
    m_pauses += m_idle < kPause ? std::chrono::nanoseconds{} : m_idle;
    m_idle = {};
  }

  /// @brief It was waited in vain.
  /// @param carried bytes that the path has carried since its beginning
  std::optional<Fault> wait(std::chrono::nanoseconds time, std::uint64_t carried) {
    m_idle += time;
    m_window += time;
    m_whole += time;
    if (m_pauses + m_idle >= m_limits.stall) {
      return Fault{Fault::Kind::Stalled, m_limits.stall};
    }
    if (m_window < m_limits.window) {
      return std::nullopt;
    }
    const Fault fault{Fault::Kind::Trickled, m_window, carried - m_carriedBefore};
    m_window = {};
    m_carriedBefore = carried;
    const double wanted = m_limits.deadRate * std::chrono::duration<double>(fault.time).count();
    return static_cast<double>(fault.bytes) < wanted ? std::optional(fault) : std::nullopt;
  }

  /// @brief Whether the path has had all the time that it gets.
  bool isOver() const { return m_whole >= m_limits.whole; }

  /// @brief Waited in vain since something moved.
  std::chrono::nanoseconds idle() const { return m_idle; }

  /// The shortest time after which a lost segment is sent again.
  static constexpr std::chrono::milliseconds kPause{200};

 private:
  PaceLimits m_limits;
  std::chrono::nanoseconds m_idle{0};
  std::chrono::nanoseconds m_pauses{0};  ///< earlier waits that were long
  std::chrono::nanoseconds m_window{0};  ///< waits since the rate was looked at
  std::chrono::nanoseconds m_whole{0};   ///< all waits
  std::uint64_t m_carriedBefore = 0;
};

}  // namespace TarvexDiags::Network
