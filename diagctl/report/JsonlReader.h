#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <functional>
#include <istream>
#include <string>

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Reads a saved log back into the stream of a run, for a report in another format. Of a log that
/// holds several runs each is told in turn.
class JsonlReader {
 public:
  using Sink = std::function<void(const RunEvent&)>;
  /// Takes a line of a run as it stands, and what it holds.
  using LineSink = std::function<void(const std::string& text, const nlohmann::json& line)>;

  /// @param name of the log, for error messages.
  JsonlReader(std::istream& in, std::string name);

  /// Reads the next run. @return false if there is none.
  /// @param lines takes each sound line of it as well, behind the event that it holds; may be
  /// empty.
  /// @throws std::runtime_error naming file, line and reason for a line that is no artifact. A line
  ///   that broke off, at the end of the log or where another run was appended, ends its run. The
  ///   same naming file and reason where the file cannot be read, or holds JSON that is no log.
  bool readRun(const Sink& sink, const LineSink& lines = {});

 private:
  bool nextLine();
  bool readLine();
  bool fillBlock();
  bool endsHere();
  void requireLog(bool isOne) const;

  std::istream& m_in;
  std::string m_name;
  std::string m_text;   ///< the present line
  std::string m_block;  ///< what was read and belongs to no line yet, from the position on
  std::size_t m_position = 0;
  unsigned long m_line = 0;
  bool m_isPending = false;  ///< the present line belongs to the next run
};

}  // namespace TarvexDiags::FrontEnd
