#pragma once

#include <optional>
#include <string>

namespace TarvexDiags::TestSupport {

/// Changes what the platform answers to this process while the object lives. The program's own
/// definitions of time, dlclose, pthread_join and SysUtil::getOs stand in front of the others. One
/// object at a time.
class PlatformAnswers {
 public:
  PlatformAnswers();
  ~PlatformAnswers();
  PlatformAnswers(const PlatformAnswers&) = delete;
  PlatformAnswers& operator=(const PlatformAnswers&) = delete;

  /// The wall clock goes ahead by that many seconds.
  void setClockAhead(long seconds);
  /// The name of the operating system; no value: the real one.
  void setOs(std::optional<std::string> name);
  /// Libraries are not closed any more.
  void refuseToClose();
  /// Threads are joined, and the join is told to have failed all the same.
  void failJoins();
};

}  // namespace TarvexDiags::TestSupport
