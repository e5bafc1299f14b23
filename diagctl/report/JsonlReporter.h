#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <string>

#include "diagctl/report/Reporter.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The name of the extension that tells what a run has covered.
inline constexpr const char* kCoverageExtension = "coverage";

/// What the beginning of a run tells of names in the language of its texts, among its metadata.
inline constexpr const char* kNamesLanguage = "language";
inline constexpr const char* kLocalNames = "localNames";

/// JSON lines after the Open Compute Project's "Test and Validation output" specification, version
/// 2.0: one artifact a line, flushed when it happens, so that a run that is killed leaves a usable
/// file. The end of the run is then missing, which is itself evidence. Each run begins with the
/// schema's version and counts its lines from 0.
class JsonlReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  explicit JsonlReporter(Printer& out);

  void handle(const RunEvent& event) override;
  void finish() override {}

 private:
  void write(const std::string& timestamp, const char* kind, nlohmann::ordered_json content);

  Printer& m_out;
  unsigned long m_sequenceNumber = 0;
  bool m_hasSchema = false;
};

/// A line of JSON in which nothing steers a terminal: what would can stand in strings alone, where
/// JSON has a form for it.
std::string toHarmlessJson(const std::string& line);

/// A point in time as ISO 8601 in UTC, with milliseconds: "2026-11-21T03:04:05.678Z".
std::string toTimestamp(std::chrono::system_clock::time_point time);

}  // namespace TarvexDiags::FrontEnd
