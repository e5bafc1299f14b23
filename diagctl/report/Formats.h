#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "diagctl/report/ReportSettings.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// A format of a report. A new one is a row of the table and a pair of files for its reporter; the
/// command line, its help and the outputs follow.
struct Format {
  std::string name;  ///< as it is asked for
  bool isChoice;     ///< may be asked for; the others come with a style of exit codes
  bool isLog;        ///< appended to as it happens; the others are written whole

  /// @param out kept alive by the caller.
  std::unique_ptr<Reporter> (*makeReporter)(Printer& out, const ReportSettings& settings);
};

/// For people, and what is told unless another is asked for.
inline constexpr const char* kTextFormat = "text";
/// What a run leaves to be told again in any other.
inline constexpr const char* kLogFormat = "jsonl";
/// A page to be looked at.
inline constexpr const char* kPageFormat = "html";
/// What --textfile writes.
inline constexpr const char* kMetricsFormat = "prometheus";
/// Closes the run's text for a monitor.
inline constexpr const char* kSummaryFormat = "summary";

const std::vector<Format>& formats();

/// @return null for a name that no format has.
const Format* findFormat(const std::string& name);
/// @throws std::invalid_argument for a name that no format has.
const Format& formatNamed(const std::string& name);

/// The names that may be asked for, in the table's order.
std::vector<std::string> choosableFormats();

/// The same for people: "text, jsonl, junit or tap".
std::string listOfFormats();

}  // namespace TarvexDiags::FrontEnd
