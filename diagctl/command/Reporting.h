#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/Vanished.h"

namespace TarvexDiags::FrontEnd {

/// What the verbs that report a run have in common.
struct ReportingOptions {
  std::string format;                ///< of standard output; empty: as the exit style has it
  std::vector<std::string> outputs;  ///< FORMAT=FILE
  bool isStrict = false;
  FailOnSkip failOnSkip = FailOnSkip::Nothing;
  std::optional<VanishedAs> vanished;  ///< nothing: as the exit style has it
  ExitStyle exitStyle = ExitStyle::Plain;
  bool onlyProblems = false;
  int verbosity = 0;  ///< see ReportSettings
};

std::string formatOf(const ReportingOptions& options);

/// Whether somebody reads what tests write into their package's log: with the text, or in a log.
bool wantsLog(const ReportingOptions& options);

/// Whether verdicts may be coloured on what a descriptor leads to.
bool isColoured(int descriptor);

/// Whether a log is written, to a file or standard output.
bool writesLog(const ReportingOptions& options);

/// Where a text on standard output breaks its lines: at the window's width; 0 where there is none.
std::size_t lineWidthOfOutput();

/// What a device that vanished is asked to be told as: a monitor is to hear of it. Nothing: nobody
/// asked.
std::optional<VanishedAs> vanishedOf(const ReportingOptions& options);

/// Why the program ends, without the words of a library.
std::string reasonOf(const std::exception& failure);

/// Tells why the program ends.
void tellFailure(const std::exception& failure);

/// Tells the patterns that nothing matches, to a monitor as well: nothing was begun.
void tellUnmatched(const ReportingOptions& options, const std::vector<std::string>& unmatched);

/// Closes the outputs and tells what became of those that were dropped.
/// @return the code, unless it says that all is well and a report is missing.
[[nodiscard]] int finish(Outputs& outputs, int code);

/// Makes a run whose libraries are cut short end without a verdict, in the style of exit codes.
void endWithoutVerdictWhenCutShort(const ReportingOptions& options);

/// Carries a verb out that fills in what became of the run, and puts its exit code into the style.
/// A monitor gets its line of standard output for an exception, too; it is passed on in plain
/// style.
[[nodiscard]] int carryOutInStyle(const ReportingOptions& options,
                                  const std::function<int(RunSummary&)>& carryOut);

}  // namespace TarvexDiags::FrontEnd
