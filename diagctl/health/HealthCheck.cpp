#include "diagctl/health/HealthCheck.h"

#include <signal.h>

#include <sstream>
#include <stdexcept>
#include <variant>

#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostOfLog = 64UL << 20U;
constexpr std::chrono::milliseconds kTimeToDie{200};

std::string firstLineOf(const std::string& text) {
  constexpr std::string_view name = "diagctl: ";
  std::string line = text.substr(0, text.find('\n'));
  return line.starts_with(name) ? line.substr(name.size()) : line;
}

/// Why there is no end of the run in what was told; for people.
std::string reasonOf(const ChildProcess& child, bool isTimeOver, const std::string& limit,
                     bool wasInterrupted) {
  if (wasInterrupted) {
    return tr("The check was interrupted.");
  }
  if (isTimeOver) {
    return tr("The check did not end within {}.", limit);
  }
  if (child.endingSignal() != 0) {
    return tr("The check was ended by signal {}.", child.endingSignal());
  }
  const std::string said = firstLineOf(child.err());
  return said.empty() ? tr("The check ended with {} and told nothing.", child.code()) : said;
}

/// Hands the events of a log on, and says what is wrong with it.
std::string readLog(const std::string& log, const JsonlReader::Sink& sink) {
  std::istringstream stream(log);
  try {
    JsonlReader(stream, tr("the log of the check")).readRun(sink);
    return "";
  } catch (const std::runtime_error& fault) {
    return fault.what();
  }
}

}  // namespace

void JudgedRun::handle(const RunEvent& event) {
  if (const auto* const start = std::get_if<RunStarted>(&event.body)) {
    m_locations.learn(*start);
  }
  m_record.handle({event.time, m_judge.judge(event.body, m_record)});
}

FinishedCheck runCheck(const std::function<int()>& run, const CheckTimes& times,
                       const std::string& limit, const std::function<bool()>& isInterrupted,
                       const std::function<void(const RunEvent&)>& sink) {
  ChildProcess child(run, kMostOfLog);
  FinishedCheck check;
  bool hasEnded = child.await(times.toEnd, isInterrupted);
  const bool isTimeOver = !hasEnded;
  check.wasInterrupted = isInterrupted();  // also where the end came at the same moment
  if (!hasEnded) {
    child.signal(SIGTERM);
    hasEnded = child.await(times.toKill);
  }
  if (!hasEnded) {
    child.signal(SIGKILL);
    check.isStillThere = !child.await(ChildProcess::Clock::now() + kTimeToDie);
  }
  const auto take = [&](const RunEvent& event) {
    check.vanishedIsTrouble.handle(event);
    check.vanishedFails.handle(event);
    sink(event);
  };
  const std::string fault = readLog(child.out(), take);
  const bool isWhole = fault.empty() && check.vanishedIsTrouble.record().hasEnded();
  if (isTimeOver || !isWhole) {
    const std::string reason = isTimeOver || fault.empty()
                                   ? reasonOf(child, isTimeOver, limit, check.wasInterrupted)
                                   : fault;
    const auto now = std::chrono::system_clock::now();
    take({now, RunTrouble{"no-end", reason}});
    take({now, endOf(RunVerdict::Troubled)});
  }
  check.said = child.err();
  return check;
}

}  // namespace TarvexDiags::FrontEnd
