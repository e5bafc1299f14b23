#include "diagctl/report/SystemLog.h"

#include <fmt/format.h>
#include <syslog.h>

#include <vector>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

struct LoggedVerdict {
  int priority;
  const char* word;
};

LoggedVerdict loggedVerdictOf(const RunRecord& record, const RunConditions& conditions) {
  switch (exitCodeOf(record, conditions)) {
    case ExitCode::kPassed:
      return summaryOf(record).warned > 0 ? LoggedVerdict{LOG_WARNING, "WARNING"}
                                          : LoggedVerdict{LOG_INFO, "PASSED"};
    case ExitCode::kHardwareFailure:
      return {LOG_ERR, "FAILED"};
    case ExitCode::kNothingRan:
      return {LOG_WARNING, "SKIPPED"};
    default:
      return {LOG_WARNING, "ERROR"};
  }
}

std::string nameOfFailed(const StepRecord& step) {
  return fmt::format("{}: {}", step.start.package,
                     english("{} on {}", step.start.test, step.start.device));
}

}  // namespace

SystemLogLine systemLogLineOf(const std::string& verb, const RunRecord& record,
                              const RunConditions& conditions) {
  const LoggedVerdict verdict = loggedVerdictOf(record, conditions);
  const std::string counts = toEnglish(record.sums());
  std::string text = fmt::format("{}: {}: {}", verb, verdict.word,
                                 counts.empty() ? english("nothing ran") : counts);
  std::size_t omitted = 0;
  const std::size_t room = SystemLogLine::kLongest - 64;  // for how many more there are
  for (const StepRecord* const step : record.steps()) {
    if (step->outcome() != StepRecord::Outcome::Failed) {
      continue;
    }
    const std::string name = "; " + toPrintable(nameOfFailed(*step));
    if (omitted > 0 || text.size() + name.size() > room) {
      ++omitted;
    } else {
      text += name;
    }
  }
  if (omitted > 0) {
    text += "; " + english("and {} more", omitted);
  }
  return {verdict.priority, text};
}

void tellSystemLog(const SystemLogLine& line) {
  openlog("diagctl", LOG_PID, LOG_USER);
  syslog(line.priority, "%s", line.text.c_str());
  closelog();
}

}  // namespace TarvexDiags::FrontEnd
