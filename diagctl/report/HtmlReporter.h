#pragma once

#include <cstddef>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Fleet.h"
#include "diagctl/report/HtmlPages.h"
#include "diagctl/report/ReportFolder.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/RunStory.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// A page for people, in one file: what is wrong, what to do, what was covered, when it happened.
/// It has no script, asks nothing of any place, and draws in SVG. Written whole at the end. Several
/// runs make a page with what their machines came to together, the worst first, and the part of
/// each run folded below, or in a page for each machine.
class HtmlReporter : public Reporter {
 public:
  /// @param out kept alive by the caller. @param conditions by which several runs are told
  /// together.
  /// @param mostHeld bytes of a run; what is beyond is counted.
  /// @param folder for the pages of machines, kept alive by the caller; null: there is one page.
  HtmlReporter(Printer& out, const RunConditions& conditions, std::size_t mostHeld,
               const ReportFolder* folder = nullptr);

  void handle(const RunEvent& event) override;
  void finish() override;

 private:
  void closeRun();

  Printer& m_out;
  std::size_t m_mostHeld;
  RunRecord m_record;
  RunStory m_story;
  Fleet m_fleet;
  Html::Pages m_pages;
  bool m_hasRun = false;
};

}  // namespace TarvexDiags::FrontEnd
