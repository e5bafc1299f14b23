#pragma once

#include <string>

#include "diagctl/report/RunStory.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

/// One run, for the sections of its page.
struct PageRun {
  const RunStory& story;
  const RunRecord& record;
  RunVerdict verdict;
  std::string id;  ///< before the ids of the run's elements, which are unique in the page
};

/// The sections in their order. Each keeps to a size of its own, and tells how much more there was;
/// one that has nothing to tell is left out.
void writeVerdict(Svg::Markup& out, const PageRun& run);
void writeWhatToDo(Svg::Markup& out, const PageRun& run);
void writeMachine(Svg::Markup& out, const PageRun& run);
void writeCoverage(Svg::Markup& out, const PageRun& run);
void writeTests(Svg::Markup& out, const PageRun& run);
void writeTimeline(Svg::Markup& out, const PageRun& run);
void writeSensors(Svg::Markup& out, const PageRun& run);
void writeFigures(Svg::Markup& out, const PageRun& run);
void writeMessages(Svg::Markup& out, const PageRun& run);
void writeAgain(Svg::Markup& out, const PageRun& run);

}  // namespace TarvexDiags::FrontEnd::Html
