#include "diagctl/command/Reporting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "diagctl/report/Formats.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/FailureInLines.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// A monitor reads the first line of standard output, whatever became of the run.
int tellMonitor(const ReportingOptions& options, const std::exception& failure) {
  tellFailure(failure);
  if (formatOf(options) == kSummaryFormat) {
    standardOutput().print("DIAGCTL UNKNOWN: {}\n", reasonOf(failure));
  }
  return ExitCode::kNoVerdict;
}

}  // namespace

std::string reasonOf(const std::exception& failure) {
  const auto* const ofFile = dynamic_cast<const std::filesystem::filesystem_error*>(&failure);
  return ofFile == nullptr
             ? failure.what()
             : fmt::format("{}: {}", ofFile->path1().string(), ofFile->code().message());
}

void tellFailure(const std::exception& failure) {
  if (dynamic_cast<const FailureInLines*>(&failure) == nullptr) {
    standardError().print("diagctl: {}\n", reasonOf(failure));
    return;
  }
  standardError().write("diagctl: ");
  standardError().write(failure.what());
  standardError().write("\n");
}

std::string formatOf(const ReportingOptions& options) {
  if (!options.format.empty()) {
    return options.format;
  }
  return options.exitStyle == ExitStyle::Plain ? kTextFormat : kSummaryFormat;
}

bool wantsLog(const ReportingOptions& options) {
  return options.verbosity > 1 || writesLog(options);
}

bool writesLog(const ReportingOptions& options) {
  const std::string head = std::string(kLogFormat) + "=";
  return formatOf(options) == kLogFormat ||
         std::any_of(options.outputs.begin(), options.outputs.end(),
                     [&](const std::string& output) { return output.starts_with(head); });
}

bool isColoured(int descriptor) {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) != 0 && (noColour == nullptr || *noColour == '\0');
}

std::size_t lineWidthOfOutput() {
  return isatty(STDOUT_FILENO) != 0 ? widthOfOutput() : 0;
}

std::optional<VanishedAs> vanishedOf(const ReportingOptions& options) {
  const bool isForMonitor = options.exitStyle != ExitStyle::Plain;
  return isForMonitor && !options.vanished ? VanishedAs::Failure : options.vanished;
}

void tellUnmatched(const ReportingOptions& options, const std::vector<std::string>& unmatched) {
  for (const std::string& pattern : unmatched) {
    standardError().say("diagctl: nothing matches {}\n", pattern);
  }
  if (formatOf(options) == kSummaryFormat) {
    standardOutput().print("DIAGCTL UNKNOWN: {}\n", tr("nothing matches {}", unmatched.front()));
  }
}

int finish(Outputs& outputs, int code) {
  outputs.finish();
  for (const std::string& failure : outputs.failures()) {
    standardError().print("diagctl: {}\n", failure);
  }
  // A failure of the hardware outranks a report that is lost; that nothing ran does not.
  const bool isOutranked = code == ExitCode::kPassed || code == ExitCode::kNothingRan;
  return !outputs.failures().empty() && isOutranked ? ExitCode::kNoVerdict : code;
}

void endWithoutVerdictWhenCutShort(const ReportingOptions& options) {
  const bool isForMonitor = formatOf(options) == kSummaryFormat;
  Interruption::endWhenCutShort(
      translate(ExitCode::kNoVerdict, {}, options.exitStyle),
      isForMonitor ? tr("DIAGCTL UNKNOWN: a file in use was cut short") : std::string());
}

int carryOutInStyle(const ReportingOptions& options,
                    const std::function<int(RunSummary&)>& carryOut) {
  RunSummary summary;
  try {
    return translate(carryOut(summary), summary, options.exitStyle);
  } catch (const std::exception& failure) {
    if (options.exitStyle == ExitStyle::Plain) {
      throw;
    }
    return translate(tellMonitor(options, failure), summary, options.exitStyle);
  }
}

}  // namespace TarvexDiags::FrontEnd
