#include "diagctl/command/ReportCommand.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "diagctl/command/LogRedaction.h"
#include "diagctl/command/LogReplay.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Fleet.h"
#include "diagctl/report/FleetText.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/SummaryReporter.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

// A log may come from anywhere. Each report holds what it needs of a run, and so does what judges.
constexpr std::size_t kMostHeld = 30UL << 20U;  ///< bytes, by all of them together

/// Those of the outputs and standard output, and what judges.
std::size_t mostHeldByEach(const ReportCommandOptions& options) {
  return kMostHeld / (options.reporting.outputs.size() + (options.pages ? 3 : 2));
}

RunConditions conditionsOf(const ReportingOptions& reporting) {
  return {.isStrict = reporting.isStrict, .failOnSkip = reporting.failOnSkip};
}

/// What standard output is told, beside the files.
class Told {
 public:
  explicit Told(const ReportCommandOptions& options)
      : m_format(isTaken(options) ? std::string() : formatOf(options.reporting)),
        m_isMany(options.logs.size() > 1),
        m_isVerbose(options.reporting.verbosity > 0) {}

  bool isSummary() const { return m_format == kSummaryFormat; }
  bool isText() const { return m_format == kTextFormat; }
  /// The format in which each run is told as it is read; empty for none: of many logs it would bury
  /// what they came to, and the line for a monitor is one for all.
  std::string ofEachRun() const {
    return isSummary() || (isText() && m_isMany && !m_isVerbose) ? "" : m_format;
  }

 private:
  // The page goes where its parts go.
  static bool isTaken(const ReportCommandOptions& options) {
    return isStandardOutputTaken(options.reporting.outputs) ||
           (options.pages && options.reporting.format == kPageFormat);
  }

  std::string m_format;
  bool m_isMany;
  bool m_isVerbose;
};

/// Whether all runs count, and not the last one alone.
bool isOfMany(const ReportCommandOptions& options, const Fleet& fleet) {
  return options.logs.size() > 1 || fleet.machineCount() > 1;
}

void tellMany(const ReportCommandOptions& options, const Told& told, const Fleet& fleet) {
  if (told.isText()) {
    standardOutput().write(told.ofEachRun().empty() ? "" : "\n");
    writeFleet(standardOutput(), fleet, options.reporting.onlyProblems);
  } else if (told.isSummary()) {
    writeMonitorLine(standardOutput(), fleet.exitCode(), fleet.summary(), lineOf(fleet));
  }
}

int reportRuns(const ReportCommandOptions& options, RunSummary& summary) {
  const RunConditions conditions = conditionsOf(options.reporting);
  const std::size_t mostHeld = mostHeldByEach(options);
  const ReportSettings settings{false,
                                conditions,
                                mostHeld,
                                lineWidthOfOutput(),
                                options.reporting.onlyProblems,
                                options.reporting.verbosity};
  const Told told(options);
  Outputs outputs(options.reporting.outputs, told.ofEachRun(), settings);
  if (options.pages) {
    outputs.add(Output::toFolder(*options.pages, settings));
  }
  SummaryReporter lastRun(standardOutput(), conditions, mostHeld);
  Fleet fleet(conditions);
  const auto follow = [&](const RunEvent& event) {
    outputs.handle(event);
    if (told.isSummary()) {
      lastRun.handle(event);
    }
  };
  std::optional<LogRedaction> redaction;
  std::function<RunEvent(const RunEvent&)> hide;
  if (options.redaction.areAny()) {
    redaction.emplace(keyOf(options.redaction));
    hide = [&](const RunEvent& event) { return redaction->redacted(event); };
  }
  LogReplay replay({follow, {}, {}, [&](const RunEvent& event) { outputs.handle(event); }, hide},
                   vanishedOf(options.reporting), mostHeld, fleet);
  if (options.logs.size() == 1) {
    replay.read(options.logs.front());
  } else {
    replay.readAll(options.logs);
  }
  const bool isMany = isOfMany(options, fleet);
  summary = isMany ? fleet.summary() : replay.lastSummary();
  const int code = finish(outputs, isMany ? fleet.exitCode() : replay.lastCode());
  if (isMany) {
    tellMany(options, told, fleet);
  } else if (told.isSummary()) {
    lastRun.finish();
  }
  return code;
}

/// Whether a page could take the place of a file.
bool isPageOf(const std::string& folder, const std::string& file) {
  const fs::path path(file);
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::error_code ignored;
  return path.extension() == "." + std::string(kPageFormat) &&
         fs::equivalent(folder, parent, ignored);
}

}  // namespace

std::string findPagesFault(const ReportCommandOptions& options) {
  if (!options.pages) {
    return "";
  }
  std::error_code ignored;
  if (fs::exists(*options.pages, ignored) && !fs::is_directory(*options.pages, ignored)) {
    return tr("'{}' is no directory", *options.pages);
  }
  std::vector<std::string> files = options.logs;
  for (const std::string& output : options.reporting.outputs) {
    const std::size_t separator = output.find('=');
    if (output.substr(0, separator) == kPageFormat) {
      return tr("the page goes into '{}', and --output names another place for it", *options.pages);
    }
    files.push_back(output.substr(separator + 1));
  }
  for (const std::string& file : files) {
    if (isPageOf(*options.pages, file)) {
      return tr("a page could take the place of '{}'", file);
    }
  }
  return "";
}

int carryOutReport(const ReportCommandOptions& options) {
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return reportRuns(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
