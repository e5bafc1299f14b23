#include "diagctl/command/MergeCommand.h"

#include <cerrno>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "diagctl/command/LogRedaction.h"
#include "diagctl/command/LogReplay.h"
#include "diagctl/report/Fleet.h"
#include "diagctl/report/FleetText.h"
#include "diagctl/report/MergedLog.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/report/WrittenFile.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostHeldOfRun = 15UL << 20U;  ///< bytes

bool isToStandardOutput(const MergeCommandOptions& options) {
  return !options.output || leadsToWhatIsOpen(*options.output);
}

}  // namespace

int carryOutMerge(const MergeCommandOptions& options) {
  const auto file = options.output ? std::make_unique<WrittenFile>(*options.output) : nullptr;
  MergedLog merged(file != nullptr ? file->out() : standardOutput());
  Fleet fleet({.isStrict = options.reporting.isStrict, .failOnSkip = options.reporting.failOnSkip});
  // At once: the system's reason is gone with the next call, and the logs may be many.
  const auto write = [&](const auto& part) {
    errno = 0;
    part();
    if (file != nullptr) {
      file->requireWritten();
    }
  };
  const auto takeLine = [&](const std::string& text, const nlohmann::json& line) {
    write([&] { merged.take(text, line); });
  };
  const auto tell = [&](const RunEvent& event) { write([&] { merged.tell(event); }); };
  LogFollowers followers{{}, takeLine, [&] { write([&] { merged.beginRun(); }); }, tell};
  std::optional<LogRedaction> redaction;
  if (options.redaction.areAny()) {
    redaction.emplace(keyOf(options.redaction));
    followers.rewrite = [&](const RunEvent& event) { return redaction->redacted(event); };
    followers.events = tell;
    followers.lines = {};
  }
  LogReplay replay(std::move(followers), options.reporting.vanished, kMostHeldOfRun, fleet);
  replay.readAll(options.logs);
  if (file != nullptr) {
    file->finish();
  }
  writeFleet(isToStandardOutput(options) ? standardError() : standardOutput(), fleet,
             options.reporting.onlyProblems);
  return fleet.exitCode();
}

}  // namespace TarvexDiags::FrontEnd
