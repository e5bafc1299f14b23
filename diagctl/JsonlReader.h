#pragma once

#include <functional>
#include <istream>
#include <string>

#include "diagctl/RunEvents.h"

namespace TarvexDiags::DiagCtl {

/// Reads a saved log back into the stream of a run, for a report in another format. Of a log that
/// holds several runs each is told in turn.
class JsonlReader {
 public:
  using Sink = std::function<void(const RunEvent&)>;

  /// @param name of the log, for error messages.
  JsonlReader(std::istream& in, std::string name);

  /// Reads the next run. @return false if there is none.
  /// @throws std::runtime_error naming file, line and reason for a line that is no artifact. A last
  ///   line that was cut off ends the run without its end.
  bool readRun(const Sink& sink);

 private:
  std::istream& m_in;
  std::string m_name;
  std::string m_pending;  ///< a line that belongs to the next run
  unsigned long m_line = 0;
};

}  // namespace TarvexDiags::DiagCtl
