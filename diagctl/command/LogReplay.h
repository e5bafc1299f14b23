#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/report/Fleet.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/LogFile.h"
#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"

namespace TarvexDiags::FrontEnd {

/// Who follows the runs of logs. Each may be empty.
struct LogFollowers {
  JsonlReader::Sink events;       ///< of each run, judged anew, and each step with an end
  JsonlReader::LineSink lines;    ///< as they stand in the logs
  std::function<void()> nextRun;  ///< the lines that come belong to another run
  JsonlReader::Sink account;      ///< of a run made up for a log that could not be read
  /// Changes each event before anybody hears of it, and the names of logs with it. What it can't
  /// (std::length_error) is not read.
  std::function<RunEvent(const RunEvent&)> rewrite = {};
};

/// Reads logs one after the other, whoever wrote them, and hands on what they hold.
class LogReplay {
 public:
  /// @param mostHeld bytes of a run by this reader, whose text is bounded for all others as well.
  /// @param fleet kept alive by the caller.
  LogReplay(LogFollowers followers, std::optional<VanishedAs> vanished, std::size_t mostHeld,
            Fleet& fleet);

  /// Reads a log to its end.
  /// @throws std::runtime_error naming the file and the reason why it, or the rest of it, could not
  ///   be read, or why it has nothing to tell.
  void read(const std::string& path);

  /// Reads them all. What cannot be read is told, and the others are read: those who follow get a
  /// run for it that has no verdict and tells why.
  void readAll(const std::vector<std::string>& paths);

  /// The exit code and the outcome of the run that was read last.
  int lastCode() const { return m_lastCode; }
  const RunSummary& lastSummary() const { return m_lastSummary; }

 private:
  bool isReadAlready(const LogFile& log);
  RunEvent rewritten(const std::string& log, const RunEvent& event) const;
  std::string shownName(const std::string& log) const;
  void beginRun(const std::string& log, std::chrono::system_clock::time_point time);
  void take(const std::string& log, const RunEvent& written);
  void noteStart(const std::string& log, const RunEvent& event, const RunStarted& start);
  void tell(const RunEvent& event);
  void closeRun();
  void endRun();
  void accountFor(const std::string& log, const std::string& reason);

  const LogFollowers m_followers;
  const VanishedJudge m_judge;
  const std::size_t m_mostHeld;
  Fleet& m_fleet;
  RunRecord m_record;
  bool m_hasRun = false;  ///< of the present log
  int m_lastCode = ExitCode::kNoVerdict;
  RunSummary m_lastSummary;
  std::map<LogFile::Identity, std::string> m_read;  ///< by what they are, their names
  std::map<std::uint64_t, std::string> m_starts;    ///< of runs, and in which log they stand
  std::string m_lastCopy;                           ///< the log that was told to hold one twice
};

/// What is wrong with the names of logs, for people; empty for nothing.
std::string findLogFault(const std::vector<std::string>& paths);

}  // namespace TarvexDiags::FrontEnd
