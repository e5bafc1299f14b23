#pragma once

#include <ctime>

namespace TarvexDiags::TestSupport {

/// Watches what the calling thread asks of the platform while the object lives. The program's own
/// definitions of these functions stand in front of the platform's and pass the calls on. One
/// object at a time on a thread.
class PlatformCalls {
 public:
  PlatformCalls();
  ~PlatformCalls();
  PlatformCalls(const PlatformCalls&) = delete;
  PlatformCalls& operator=(const PlatformCalls&) = delete;

  int yields() const;
  int tryLocks() const;
  int unlocks() const;

  /// From now on an unlock is only counted.
  void swallowUnlocks();
  /// What the next calls return instead of being made.
  void refuseAttributes(int result);
  void refuseSchedulingPolicy(int result);
  void endTimedWaits(int result);
  /// Until when the latest of these was to last.
  timespec deadline() const;
};

}  // namespace TarvexDiags::TestSupport
