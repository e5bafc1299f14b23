#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace TarvexDiags::Watching {

/// @brief What a counter of the kernel has counted between two looks.
/// @param range behind which number it begins at 0 again; 0: it never does, and one that fell was
/// set back, as by a driver that is loaded anew.
inline std::uint64_t grownBy(std::uint64_t now, std::uint64_t before, std::uint64_t range = 0) {
  if (now >= before) {
    return now - before;
  }
  return range >= before ? range - before + now : now;
}

/// @brief By how much a counter of the kernel has grown from look to look. A plain value.
class Growth {
 public:
  /// @param range behind which number the counter begins at 0 again; 0: it never does
  explicit Growth(std::uint64_t range = 0) : m_range(range) {}

  /// @brief The growth since the last number. The first one is where it begins.
  std::uint64_t to(std::uint64_t now) {
    const std::optional<std::uint64_t> before = m_last;
    m_last = now;
    return before ? grownBy(now, *before, m_range) : 0;
  }

 private:
  std::uint64_t m_range;
  std::optional<std::uint64_t> m_last;
};

/// @brief Counters by name, of devices that come and go. A plain value.
class Growths {
 public:
  /// @brief The growth of one of them. What appears only after the first round counts from 0, as
  /// its driver has just begun to.
  std::uint64_t to(const std::string& name, std::uint64_t now) {
    const auto [place, isNew] = m_counters.try_emplace(name);
    if (isNew && m_isOpen) {
      place->second.to(0);
    }
    return place->second.to(now);
  }

  /// @brief Forgets the counters whose names begin so: their device has gone, and counts from 0
  /// when it comes back.
  void forget(const std::string& beginning) {
    std::erase_if(m_counters,
                  [&](const auto& counter) { return counter.first.starts_with(beginning); });
  }

  /// @brief Counters that all count from 0.
  static Growths sinceStart() {
    Growths growths;
    growths.open();
    return growths;
  }

  /// @brief Ends the first round.
  void open() { m_isOpen = true; }

 private:
  std::map<std::string, Growth> m_counters;
  bool m_isOpen = false;
};

}  // namespace TarvexDiags::Watching
