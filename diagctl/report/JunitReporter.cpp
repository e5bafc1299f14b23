#include "diagctl/report/JunitReporter.h"

#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

bool hasForm(char32_t code) {
  return code >= ' ' ? code != 0xfffe && code != 0xffff
                     : code == '\t' || code == '\n' || code == '\r';
}

// XML 1.0 has no form for some characters, which are left out. What would steer a terminal is
// written as its number.
std::string escape(const std::string& text) {
  static const std::map<char32_t, const char*> kMarkup = {
      {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}};
  const std::string valid = toUtf8(text);
  std::string escaped;
  for (std::string_view rest = valid; !rest.empty();) {
    const Character character = firstCharacterOf(rest);
    rest.remove_prefix(character.bytes.size());
    if (!hasForm(character.code)) {
      continue;
    }
    if (const auto markup = kMarkup.find(character.code); markup != kMarkup.end()) {
      escaped += markup->second;
    } else if (!isHarmless(character.code)) {
      escaped += fmt::format("&#{};", static_cast<unsigned int>(character.code));
    } else {
      escaped += character.bytes;
    }
  }
  return escaped;
}

std::string linesOf(const char* indent, const BoundedTexts& texts) {
  std::string lines;
  for (const std::string& text : texts) {
    lines += indent + text + "\n";
  }
  return texts.omitted() > 0 ? lines + indent + moreOf(texts) + "\n" : lines;
}

struct Suite {
  std::vector<const StepRecord*> steps;
  OutcomeSums sums;
  double seconds = 0;
};

std::map<std::string, Suite> suitesOf(const RunRecord& record) {
  std::map<std::string, Suite> suites;
  for (const StepRecord* step : record.steps()) {
    Suite& suite = suites[step->start.package];
    suite.steps.push_back(step);
    suite.seconds += step->seconds();
    ++suite.sums[step->outcome()];
  }
  return suites;
}

void writeProperty(Printer& out, const std::string& name, const std::string& value) {
  out.print(R"(<property name="{}" value="{}"/>)", escape(name), escape(value));
}

void writeProperties(Printer& out, const StepRecord& step) {
  out.write("<properties>");
  writeProperty(out, "verdict", wordOf(step.outcome()));
  writeProperty(out, "passes", fmt::format("{}/{}", step.passes(), step.start.passes));
  for (const StepMeasurement& figure : step.figures) {
    writeProperty(out, figure.name, describe(figure));
  }
  out.write("</properties>");
}

void writeCase(Printer& out, const StepRecord& step) {
  out.print(R"(    <testcase classname="{}" name="{} on {}" time="{:.3f}">)",
            escape(step.start.package), escape(step.start.test), escape(step.start.device),
            step.seconds());
  writeProperties(out, step);
  const std::string text = linesOf("", step.findings) + linesOf("-> ", step.actions);
  const std::string head = escape(headOf(step));
  switch (step.outcome()) {
    case StepRecord::Outcome::Failed:
      out.print(R"(<failure type="{}" message="{}">{}</failure>)", escape(step.symptom), head,
                escape(text));
      break;
    case StepRecord::Outcome::Trouble:
      out.print(R"(<error type="{}" message="{}">{}</error>)", escape(step.symptom), head,
                escape(text));
      break;
    case StepRecord::Outcome::Aborted:
      out.print(R"(<error type="aborted" message="{}">{}</error>)", head, escape(text));
      break;
    case StepRecord::Outcome::NotRun:
      out.print(R"(<error type="not-run" message="{}"/>)", head);
      break;
    case StepRecord::Outcome::Skipped:
    case StepRecord::Outcome::SkippedForPrivilege:
    case StepRecord::Outcome::SkippedForMode:
      out.print(R"(<skipped message="{}"/>)", head);
      break;
    case StepRecord::Outcome::Warning:
      out.print("<system-out>{}</system-out>", escape(text));
      break;
    case StepRecord::Outcome::Passed:
      break;
  }
  out.write("</testcase>\n");
}

bool isError(StepRecord::Outcome outcome) {
  return outcome == StepRecord::Outcome::Trouble || outcome == StepRecord::Outcome::Aborted ||
         outcome == StepRecord::Outcome::NotRun;
}

bool isAny(StepRecord::Outcome /*outcome*/) {
  return true;
}

std::size_t sumOf(const OutcomeSums& sums, bool (*isMeant)(StepRecord::Outcome)) {
  std::size_t sum = 0;
  for (const auto& [outcome, count] : sums) {
    sum += isMeant(outcome) ? count : 0;
  }
  return sum;
}

void beginSuite(Printer& out, const RunRecord& run, const std::string& name, OutcomeSums sums,
                double seconds) {
  out.print(
      "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" "
      "time=\"{:.3f}\" timestamp=\"{}\" hostname=\"{}\">\n",
      escape(name), sumOf(sums, isAny), sums[StepRecord::Outcome::Failed], sumOf(sums, isError),
      sumOf(sums, isSkipped), seconds, toTimestamp(run.begin()), escape(run.machineName()));
}

// Steps of which there were too many to hold: their sum, by the weightiest outcome among them.
void writeDropped(Printer& out, const RunRecord& run) {
  const DroppedSteps& dropped = run.dropped();
  if (dropped.sums.empty()) {
    return;
  }
  const std::string name = tr("further tests");
  const std::string sums = escape(FrontEnd::toText(dropped.sums));
  beginSuite(out, run, name, dropped.sums, dropped.seconds);
  out.print(R"(    <testcase classname="{}" name="{}" time="{:.3f}">)", name, sums,
            dropped.seconds);
  if (dropped.sums.contains(StepRecord::Outcome::Failed)) {
    out.print(R"(<failure type="further-tests" message="{}"/>)", sums);
  } else if (sumOf(dropped.sums, isError) > 0) {
    out.print(R"(<error type="further-tests" message="{}"/>)", sums);
  }
  out.write("</testcase>\n  </testsuite>\n");
}

// What spoils the run and belongs to no test: what was told of it, or its own verdict where none of
// the tests that are written tells it.
BoundedTexts troublesOf(const RunRecord& run, const OutcomeSums& written) {
  BoundedTexts troubles = run.troubles();
  if (!run.hasEnded()) {
    troubles.add(tr("The run was cut short."), RunRecord::kUnbounded);
  }
  const RunVerdict verdict = verdictOf(run);
  const bool isTold = verdict == RunVerdict::Failed
                          ? written.contains(StepRecord::Outcome::Failed)
                          : !troubles.empty() || sumOf(written, isError) > 0;
  const bool isBad = verdict == RunVerdict::Failed || verdict == RunVerdict::Troubled ||
                     verdict == RunVerdict::Aborted;
  if (isBad && !isTold) {
    troubles.add(toText(verdict), RunRecord::kUnbounded);
  }
  return troubles;
}

/// @return what it comes to; nothing where there is nothing to write.
OutcomeSums writeTroubles(Printer& out, const RunRecord& run, const OutcomeSums& written) {
  const BoundedTexts troubles = troublesOf(run, written);
  if (troubles.empty()) {
    return {};
  }
  const bool isFailure =
      verdictOf(run) == RunVerdict::Failed && !written.contains(StepRecord::Outcome::Failed);
  OutcomeSums sums = {{isFailure ? StepRecord::Outcome::Failed : StepRecord::Outcome::Trouble, 1}};
  const char* const element = isFailure ? "failure" : "error";
  beginSuite(out, run, "diagctl", sums, 0);
  out.print(R"(    <testcase classname="diagctl" name="{}" time="0">)", tr("the run as a whole"));
  out.print(R"(<{} type="{}" message="{}">{}</{}>)", element,
            isFailure ? "run-failure" : "run-trouble",
            escape(isFailure ? toText(RunVerdict::Failed) : troubles.front()),
            escape(linesOf("", troubles)), element);
  out.write("</testcase>\n  </testsuite>\n");
  return sums;
}

void addTo(OutcomeSums& sums, const OutcomeSums& more) {
  for (const auto& [outcome, count] : more) {
    sums[outcome] += count;
  }
}

/// @return what all that is written comes to.
OutcomeSums writeRun(Printer& out, const RunRecord& run) {
  OutcomeSums written = run.dropped().sums;
  for (const auto& [package, suite] : suitesOf(run)) {
    beginSuite(out, run, package, suite.sums, suite.seconds);
    for (const StepRecord* step : suite.steps) {
      writeCase(out, *step);
    }
    out.write("  </testsuite>\n");
    addTo(written, suite.sums);
  }
  writeDropped(out, run);
  addTo(written, writeTroubles(out, run, written));
  return written;
}

}  // namespace

JunitReporter::JunitReporter(Printer& out, std::size_t mostHeld)
    : m_out(out), m_run(RunRecord::Ended::Held, mostHeld) {}

void JunitReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    closeRun();
  }
  m_hasRun = true;
  m_run.handle(event);
}

void JunitReporter::closeRun() {
  if (std::exchange(m_hasRun, false)) {
    addTo(m_sums, writeRun(m_spool.out(), m_run));
    m_seconds += m_run.seconds();
  }
  m_run.clear();
}

void JunitReporter::finish() {
  closeRun();
  m_out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  m_out.print(
      "<testsuites name=\"diagctl\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" "
      "time=\"{:.3f}\">\n",
      sumOf(m_sums, isAny), m_sums[StepRecord::Outcome::Failed], sumOf(m_sums, isError),
      sumOf(m_sums, isSkipped), m_seconds);
  m_spool.writeTo(m_out);
  m_out.write("</testsuites>\n");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
