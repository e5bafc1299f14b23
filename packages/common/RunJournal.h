#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "packages/common/Reason.h"

namespace TarvexDiags::Common {

/// @brief What an event says about the hardware; decides the verdict of the test that reports it.
enum class Severity { Information, Warning, Error };

/// @brief How the packages number their events: below 100, from 100 on, from 200 on.
constexpr Severity severityOfCode(unsigned int code) {
  if (code < 100) {
    return Severity::Information;
  }
  return code < 200 ? Severity::Warning : Severity::Error;
}

/// @brief Where a test's engine tells what it sees and learns whether to go on. The engines know
/// nothing of the controller: a package hands them a journal of its own, the tests a recording one.
///
/// An engine calls it from one thread at a time.
class RunJournal {
 public:
  RunJournal() = default;
  RunJournal(const RunJournal&) = delete;
  RunJournal& operator=(const RunJournal&) = delete;
  virtual ~RunJournal() = default;

  /// @brief Reports one event, whose code says how severe it is. The parameters fill the variables
  /// of the event's text, in order.
  virtual void report(unsigned int code, std::vector<std::string> parameters) = 0;

  /// @brief How much of the run is done, in percent.
  virtual void progress(unsigned int percent) = 0;

  /// @brief How much was done since the last call, for those who watch how fast the test is.
  /// @param unit "MB"; the same in all calls
  virtual void processed(double amount, const char* unit) {
    static_cast<void>(amount);
    static_cast<void>(unit);
  }

  /// @brief Whether the run shall end as soon as it can. Cheap: asked for every few transfers.
  virtual bool stopRequested() = 0;

  /// @brief Whether the run shall end at its first error instead of looking for more.
  virtual bool haltsOnError() { return false; }
};

/// @brief Reports an event of a package's own enumeration of them, whose numbers are the codes.
template <class Event>
requires std::is_enum_v<Event>
void report(RunJournal& journal, Event event, std::vector<std::string> parameters) {
  journal.report(static_cast<unsigned int>(event), std::move(parameters));
}

}  // namespace TarvexDiags::Common
