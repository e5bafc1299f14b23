#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Fleet.h"
#include "diagctl/report/HtmlFleet.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/RunStory.h"
#include "diagctl/report/Spool.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd {

/// A page for people, in one file: what is wrong, what to do, what was covered, when it happened.
/// It has no script, asks nothing of any place, and draws in SVG. Written whole at the end. Several
/// runs make a page with what they came to together, the worst first, and the part of each folded
/// below.
class HtmlReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param conditions by which several runs are told
  /// together.
  /// @param mostHeld bytes of a run; what is beyond is counted.
  HtmlReporter(Printer& out, const RunConditions& conditions, std::size_t mostHeld);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void closeRun();
  void keepPart(Html::RunOfMany& run);
  void spool(const std::string& part);
  std::string head() const;
  std::string overview() const;

  Printer& m_out;
  std::size_t m_mostHeld;
  RunRecord m_record;
  RunStory m_story;
  Fleet m_fleet;
  Svg::Markup m_only;         ///< the part of the first run, as long as it is the only one
  Spool m_spool;              ///< those of several runs
  std::size_t m_spooled = 0;  ///< bytes
  std::vector<Html::RunOfMany> m_written;
  std::size_t m_furtherRuns = 0;
  bool m_hasRun = false;
};

}  // namespace TarvexDiags::FrontEnd
