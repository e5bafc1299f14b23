#include "diagctl/command/LogReplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>
#include <variant>

#include "diagctl/command/Reporting.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostStarts = 100'000;  ///< of runs that are known again

/// What two runs do not have in common, however alike their machines are.
std::uint64_t identityOf(const RunEvent& event, const RunStarted& start) {
  std::string text = start.machineId + '\0' + start.machineName + '\0' + start.commandLine;
  for (const auto& [key, value] : start.parameters) {
    text += '\0' + key + '\0' + value;
  }
  text += '\0' + std::to_string(event.time.time_since_epoch().count());
  return std::hash<std::string>()(text);
}

// Of a run that the log itself does not begin.
RunStarted startFor(const std::string& log) {
  RunStarted start;
  start.name = "diagctl";
  start.version = TARVEX_VERSION;
  start.machineId = "unknown";
  start.machineName = log;
  return start;
}

}  // namespace

std::string findLogFault(const std::vector<std::string>& paths) {
  return std::count(paths.begin(), paths.end(), kStandardInputName) > 1
             ? tr("standard input holds one log, and is named twice")
             : "";
}

LogReplay::LogReplay(LogFollowers followers, std::optional<VanishedAs> vanished,
                     std::size_t mostHeld, Fleet& fleet)
    : m_followers(std::move(followers)),
      m_judge(vanished),
      m_mostHeld(mostHeld),
      m_fleet(fleet),
      m_record(RunRecord::Ended::Dropped, mostHeld / 2) {}

void LogReplay::readAll(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    m_hasRun = false;
    try {
      read(path);
    } catch (const std::runtime_error& failure) {
      tellFailure(failure);
      const std::string reason = reasonOf(failure);
      if (m_hasRun) {
        closeRun();
        endRun();
      }
      accountFor(path, reason);
    }
  }
}

void LogReplay::read(const std::string& path) {
  LogFile log(path);
  if (isReadAlready(log)) {
    return;
  }
  JsonlReader reader(log.stream(), log.name());
  const auto begin = [&] {
    m_fleet.beginRun(shownName(log.name()));
    if (m_followers.nextRun) {
      m_followers.nextRun();
    }
  };
  bool isEmpty = true;
  begin();
  while (reader.readRun(
      [&](const RunEvent& written) {
        if (!m_hasRun && !std::holds_alternative<RunStarted>(written.body)) {
          beginRun(log.name(), written.time);
        }
        m_hasRun = true;
        take(log.name(), rewritten(log.name(), written));
      },
      m_followers.lines)) {
    isEmpty = false;
    if (!m_hasRun) {
      beginRun(log.name(), std::chrono::system_clock::now());
    }
    closeRun();
    endRun();
    begin();
  }
  if (isEmpty) {
    throw std::runtime_error(tr("{}: holds no run", log.name()));
  }
}

RunEvent LogReplay::rewritten(const std::string& log, const RunEvent& event) const {
  try {
    return m_followers.rewrite ? m_followers.rewrite(event) : event;
  } catch (const std::length_error& failure) {
    throw std::runtime_error(fmt::format("{}: {}", log, failure.what()));
  }
}

// Logs have the names of machines more often than not.
std::string LogReplay::shownName(const std::string& log) const {
  return std::get<RunStarted>(rewritten(log, {{}, startFor(log)}).body).machineName;
}

// What a log does not begin itself would be taken for the end of the run before it.
void LogReplay::beginRun(const std::string& log, std::chrono::system_clock::time_point time) {
  tell(rewritten(log, {time, startFor(log)}));
}

// A file has several names: two on the command line, and those of links.
bool LogReplay::isReadAlready(const LogFile& log) {
  if (!log.identity()) {
    return false;
  }
  const auto [entry, isNew] = m_read.try_emplace(*log.identity(), log.name());
  if (!isNew) {
    standardError().say("diagctl: {} is the same file as {}, and is read once\n", log.name(),
                        entry->second);
  }
  return !isNew;
}

void LogReplay::take(const std::string& log, const RunEvent& written) {
  if (const auto* start = std::get_if<RunStarted>(&written.body)) {
    noteStart(log, written, *start);
  }
  if (std::holds_alternative<RunEnded>(written.body)) {
    closeRun();  // its end tells of them all
  }
  tell({written.time, m_judge.judge(written.body, m_record)});
  // Ended steps are dropped, so all that can come to that much is steps without an end.
  if (m_record.size() > m_mostHeld) {
    throw std::runtime_error(
        tr("{}: more tests are under way at once than a report can hold", log));
  }
}

// A copy of a log says no more than the log does: its runs are counted, and it is told.
void LogReplay::noteStart(const std::string& log, const RunEvent& event, const RunStarted& start) {
  m_fleet.take(start);
  if (m_starts.size() == kMostStarts) {
    return;
  }
  const auto [entry, isNew] = m_starts.try_emplace(identityOf(event, start), log);
  if (!isNew && entry->second != log && m_lastCopy != log) {
    m_lastCopy = log;
    standardError().say("diagctl: {} holds a run that {} holds as well\n", log, entry->second);
  }
}

void LogReplay::tell(const RunEvent& event) {
  if (const StepRecord* const ended = m_record.handle(event)) {
    m_fleet.take(*ended);
  }
  if (m_followers.events) {
    m_followers.events(event);
  }
}

// What was under way when the run ended by a crash, a kill or a lost machine. A fault that was
// found by then stands; what to do about the run would lead away from it.
void LogReplay::closeRun() {
  for (const std::string& id : m_record.openSteps()) {
    const StepRecord& step = *m_record.find(id);
    const bool hasFailed = step.outcome() == StepRecord::Outcome::Failed;
    tell({m_record.last(),
          StepTrouble{id, "cut-off", tr("It was cut off: the run ended before the test did."),
                      hasFailed ? "" : tr("Run the test again.")}});
    if (step.isUnjudged()) {
      tell(
          {m_record.last(), StepDiagnosis{id, Verdict::Fail, "failed", step.error, step.errorAction,
                                          step.start.hardwareId, step.passes() + 1}});
    }
    tell({m_record.last(), StepEnded{id, RunStatus::Error}});
  }
}

void LogReplay::endRun() {
  m_lastSummary = summaryOf(m_record);
  m_lastCode = m_fleet.endRun(m_record);
  m_record.clear();
  m_hasRun = false;
}

// A reader of the outcome alone must not take it for whole. It is of no machine that another run is
// of, so that no later run of one takes its place.
void LogReplay::accountFor(const std::string& log, const std::string& reason) {
  const auto now = std::chrono::system_clock::now();
  const RunEvent start = rewritten(log, {now, startFor(log)});
  const RunEvent trouble = rewritten(log, {now, RunTrouble{"log-not-read", reason}});
  m_fleet.addUnread(std::get<RunTrouble>(trouble.body).message);
  if (m_followers.account) {
    m_followers.account(start);
    m_followers.account(trouble);
    m_followers.account({now, RunEnded{RunStatus::Error, RunResult::NotApplicable}});
  }
}

}  // namespace TarvexDiags::FrontEnd
