#pragma once

#include <algorithm>
#include <chrono>

namespace TarvexDiags::Network {

/// @brief Waits, and returns for how long: no longer than it was meant to last, for time also
/// passes while a test is suspended.
/// @param wait called with the time that it may take at most
template <class Wait>
std::chrono::nanoseconds countedWait(std::chrono::milliseconds atMost, Wait wait) {
  const auto begin = std::chrono::steady_clock::now();
  wait(atMost);
  return std::min<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - begin, atMost);
}

/// @brief Time that may be waited in all, spent in looks that are short enough to hear a stop in
/// between.
class Patience {
 public:
  explicit Patience(std::chrono::nanoseconds total) : m_left(total) {}

  bool isOver() const { return m_left.count() <= 0; }

  /// @brief One look of at most a twentieth of a second.
  template <class Wait>
  void look(Wait wait) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_left);
    m_left -= countedWait(std::clamp(left, std::chrono::milliseconds(1), kLook), wait);
  }

  static constexpr std::chrono::milliseconds kLook{50};

 private:
  std::chrono::nanoseconds m_left;
};

}  // namespace TarvexDiags::Network
