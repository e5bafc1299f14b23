#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Writes the runs of several logs into one, which is a valid log: each run begins with the
/// schema's version and counts its lines from there. A sound line stays as it stands, whoever wrote
/// it and whatever it holds, and so does a gap in the numbers, which tells that lines were lost.
class MergedLog {
 public:
  /// @param out kept alive by the caller.
  explicit MergedLog(Printer& out) : m_out(out), m_reporter(out) {}

  /// What comes belongs to another run.
  void beginRun() { m_hasBegun = false; }
  /// A line of the present run.
  void take(const std::string& text, const nlohmann::json& line);
  /// An event of a run that stands in none of the logs.
  void tell(const RunEvent& event) { m_reporter.handle(event); }

 private:
  void write(const nlohmann::json& line);
  void writeSchema(const nlohmann::json& line);

  Printer& m_out;
  JsonlReporter m_reporter;
  bool m_hasBegun = false;
  std::uint64_t m_next = 0;  ///< the number that a line has at least
};

}  // namespace TarvexDiags::FrontEnd
