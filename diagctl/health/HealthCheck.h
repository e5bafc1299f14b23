#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "diagctl/health/ChildProcess.h"
#include "diagctl/health/HealthResult.h"

namespace TarvexDiags::FrontEnd {

/// When a check is asked to end, so that it still tells what it has, and when it is killed.
struct CheckTimes {
  ChildProcess::Clock::time_point toEnd;
  ChildProcess::Clock::time_point toKill;
};

/// A run as somebody sees it to whom vanished devices are one thing or the other.
class JudgedRun {
 public:
  explicit JudgedRun(VanishedAs vanished) : m_judge(vanished) {}

  void handle(const RunEvent& event);
  const RunRecord& record() const { return m_record; }
  HealthAccount account() const { return accountOf(m_record, m_locations); }

 private:
  VanishedJudge m_judge;
  RunRecord m_record;
  DeviceLocations m_locations;
};

/// A check that is over.
struct FinishedCheck {
  JudgedRun vanishedIsTrouble{VanishedAs::Trouble};
  JudgedRun vanishedFails{VanishedAs::Failure};
  std::string said;             ///< on standard error
  bool wasInterrupted = false;  ///< by a signal to this process
  bool isStillThere = false;    ///< it could not even be killed

  const JudgedRun& run(VanishedAs vanished) const {
    return vanished == VanishedAs::Failure ? vanishedFails : vanishedIsTrouble;
  }
};

/// Carries a run out in a process of its own and judges what it tells. Whatever becomes of that
/// process, what it has told counts, and a run that came to no end is trouble of the tool.
/// @param run the run, told as a log on standard output. @param limit for people: the time that the
///   check has. @param sink gets the events as they were told.
/// @throws std::system_error
FinishedCheck runCheck(const std::function<int()>& run, const CheckTimes& times,
                       const std::string& limit, const std::function<bool()>& isInterrupted,
                       const std::function<void(const RunEvent&)>& sink);

}  // namespace TarvexDiags::FrontEnd
