#include "diagctl/report/TapReporter.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <utility>

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// "#" begins a directive and a line break the next line.
std::string plain(const std::string& text) {
  std::string printable = toPrintable(text, " ");
  std::replace(printable.begin(), printable.end(), '#', ' ');
  return printable;
}

// A scalar in the form that YAML shares with JSON.
std::string quoted(const std::string& text) {
  using Json = nlohmann::json;
  return Json(toPrintable(text, " ")).dump(-1, ' ', false, Json::error_handler_t::replace);
}

constexpr const char* kIndent = "  ";

// What was left out is none of the harness's failures. It is ok where nothing could be tested here;
// where another user or mode would have tested it, that is still to be done.
const char* directiveOf(StepRecord::Outcome leftOut) {
  return leftOut == StepRecord::Outcome::Skipped ? " # SKIP " : " # TODO ";
}

}  // namespace

void TapReporter::handle(const RunEvent& event) {
  if (!std::exchange(m_hasBegun, true)) {
    m_out.write("TAP version 13\n");
    m_out.flush();
  } else if (std::holds_alternative<RunStarted>(event.body)) {
    closeRun();
  }
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
}

void TapReporter::writeStep(const StepRecord& step) {
  const bool isWell = !isTrouble(step.outcome(), m_conditions);
  const bool isLeftOut = isWell && isSkipped(step.outcome());
  const bool isToDo = isLeftOut && step.outcome() != StepRecord::Outcome::Skipped;
  m_out.print("{} {} - {}: {} on {}{}\n", isWell && !isToDo ? "ok" : "not ok", ++m_number,
              plain(step.start.package), plain(step.start.test), plain(step.start.device),
              isLeftOut ? directiveOf(step.outcome()) + plain(step.headline()) : "");
  if (!isWell) {
    m_hasFailed = true;
    writeAccount(step);
  } else if (!isLeftOut) {
    writeRemarks("# ", step.findings);
    writeRemarks("# -> ", step.actions);
  }
  m_out.flush();
}

void TapReporter::writeAccount(const StepRecord& step) {
  m_out.print("{}---\n", kIndent);
  m_out.print("{}verdict: {}\n", kIndent, wordOf(step.outcome()));
  m_out.print("{}message: {}\n", kIndent, quoted(headOf(step)));
  if (!step.symptom.empty()) {
    m_out.print("{}symptom: {}\n", kIndent, quoted(step.symptom));
  }
  writeList("findings", step.findings);
  writeList("actions", step.actions);
  m_out.print("{}duration_ms: {:.0f}\n", kIndent, step.seconds() * 1000);
  m_out.print("{}...\n", kIndent);
}

void TapReporter::writeList(const char* key, const BoundedTexts& texts) {
  if (texts.empty()) {
    return;
  }
  m_out.print("{}{}:\n", kIndent, key);
  for (const std::string& text : texts) {
    m_out.print("{}  - {}\n", kIndent, quoted(text));
  }
  if (texts.omitted() > 0) {
    m_out.print("{}  - {}\n", kIndent, quoted(moreOf(texts)));
  }
}

void TapReporter::writeRemarks(const char* mark, const BoundedTexts& texts) {
  for (const std::string& text : texts) {
    m_out.print("{}{}\n", mark, plain(text));
  }
  if (texts.omitted() > 0) {
    m_out.print("{}{}\n", mark, moreOf(texts));
  }
}

// What spoils the run and belongs to no test is a point of its own.
void TapReporter::writeTroubles() {
  BoundedTexts troubles = m_record.troubles();
  if (!m_record.hasEnded()) {
    troubles.add(tr("The run was cut short."), RunRecord::kUnbounded);
  }
  const int code = exitCodeOf(m_record, m_conditions);
  const bool isWell = code == ExitCode::kPassed || code == ExitCode::kNothingRan;
  if (troubles.empty() && !isWell && !m_hasFailed) {
    const bool isFailure = code == ExitCode::kHardwareFailure;
    troubles.add(isFailure ? toText(RunVerdict::Failed) : tr("The run has no verdict."),
                 RunRecord::kUnbounded);
  }
  if (troubles.empty()) {
    return;
  }
  m_out.print("not ok {} - {}\n", ++m_number, tr("diagctl: the run as a whole"));
  m_out.print("{}---\n", kIndent);
  m_out.print("{}verdict: {}\n", kIndent, wordOf(StepRecord::Outcome::Trouble));
  m_out.print("{}message: {}\n", kIndent, quoted(troubles.front()));
  writeList("findings", troubles);
  m_out.print("{}...\n", kIndent);
}

// What did not end is told as it stands.
void TapReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      writeStep(*step);
    }
  }
  if (m_hasBegun) {
    writeTroubles();
  }
  m_record.clear();
  m_hasFailed = false;
}

void TapReporter::finish() {
  closeRun();
  m_out.print("1..{}{}\n", m_number, m_number == 0 ? " # SKIP " + tr("nothing ran") : "");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
