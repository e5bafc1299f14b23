#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief Time as the kernel counts it since its start.
struct Uptime {
  std::chrono::nanoseconds awake;  ///< CLOCK_MONOTONIC
  std::chrono::nanoseconds all;    ///< CLOCK_BOOTTIME: what the machine slept is in it
};

/// @brief The time that clocks are held against, and a way to let it pass.
struct Reference {
  std::function<Uptime()> now;
  std::function<bool(std::chrono::seconds)> wait;  ///< false: asked to stop
};

/// @brief The running kernel's time. @param wait as in Reference.
Reference kernelTime(std::function<bool(std::chrono::seconds)> wait);

/// @brief Judges the source of the kernel's time, and whether the machine's own clocks go as fast
/// as it: a clock that is a second or more off is watched again, as somebody may just have set it.
/// @param watched how long clocks are watched; 0: they are not.
/// @throws NotSupported when there is neither, or the machine slept meanwhile.
void judgeClocks(const std::string& device, const SystemFiles& files, std::chrono::seconds watched,
                 const Reference& reference, RunJournal& journal);

}  // namespace TarvexDiags::Platform
