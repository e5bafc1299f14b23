#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "watch/SystemFiles.h"

namespace TarvexDiags::FrontEnd {

/// Makes the kernel ask the processors for corrected machine checks more often, for as long as it
/// lives. A process of its own holds the interval that was and writes it back, however this one
/// ends; the next run does not begin in between.
class PollInterval {
 public:
  /// To be made before the program has threads. What cannot be done is told by problem().
  PollInterval(const Watching::SystemFiles& files, std::chrono::seconds interval);
  /// Waits until the interval that was is back.
  ~PollInterval();
  PollInterval(const PollInterval&) = delete;
  PollInterval& operator=(const PollInterval&) = delete;

  /// Why the interval is as it was, for people; empty when it was changed.
  const std::string& problem() const { return m_problem; }

 private:
  std::string m_problem;
  int m_life = -1;  ///< closed at the end of this process
  pid_t m_keeper = -1;
};

}  // namespace TarvexDiags::FrontEnd
