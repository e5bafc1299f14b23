#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "diagctl/report/Reporter.h"
#include "diagctl/report/RunStory.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Spool.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// A page for people, in one file: what is wrong, what to do, what was covered, when it happened.
/// It has no script, asks nothing of any place, and draws in SVG. Written whole at the end; a log
/// of several runs makes a page with a list of them, and each below it.
class HtmlReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param mostHeld bytes of a run; what is beyond is
  /// counted.
  HtmlReporter(Printer& out, std::size_t mostHeld);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  /// A run that was written, for the list.
  struct Written {
    std::string id;  ///< empty: it stands in the list alone
    std::string machine;
    std::chrono::system_clock::time_point begin;
    RunVerdict verdict = RunVerdict::Passed;
  };

  void closeRun();
  std::string head() const;
  void writeList(Printer& out) const;

  Printer& m_out;
  std::size_t m_mostHeld;
  RunRecord m_record;
  RunStory m_story;
  Spool m_spool;
  std::size_t m_spooled = 0;  ///< bytes
  std::vector<Written> m_written;
  std::size_t m_furtherRuns = 0;
  bool m_hasRun = false;
};

}  // namespace TarvexDiags::FrontEnd
