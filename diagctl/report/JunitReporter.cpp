#include "diagctl/report/JunitReporter.h"

#include <fmt/format.h>

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"

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

std::string join(const std::vector<std::string>& findings,
                 const std::vector<std::string>& actions) {
  std::string text;
  for (const std::string& finding : findings) {
    text += finding + "\n";
  }
  for (const std::string& action : actions) {
    text += "-> " + action + "\n";
  }
  return text;
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

void writeCase(Printer& out, const StepRecord& step) {
  out.print(R"(    <testcase classname="{}" name="{} on {}" time="{:.3f}">)",
            escape(step.start.package), escape(step.start.test), escape(step.start.device),
            step.seconds());
  const std::string text = join(step.findings, step.actions);
  const std::string head = escape(step.headline());
  switch (step.outcome()) {
    case StepRecord::Outcome::Failed:
      out.print(R"(<failure type="{}" message="{}">{}</failure>)", escape(step.symptom), head,
                escape(text));
      break;
    case StepRecord::Outcome::Trouble:
      out.print(R"(<error type="{}" message="{}">{}</error>)", escape(step.symptom), head,
                escape(text));
      break;
    case StepRecord::Outcome::Skipped:
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

void writeRun(Printer& out, const RunRecord& run) {
  auto suites = suitesOf(run);
  for (auto& [package, suite] : suites) {
    out.print(
        "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" "
        "time=\"{:.3f}\" timestamp=\"{}\" hostname=\"{}\">\n",
        escape(package), suite.steps.size(), suite.sums[StepRecord::Outcome::Failed],
        suite.sums[StepRecord::Outcome::Trouble], suite.sums[StepRecord::Outcome::Skipped],
        suite.seconds, toTimestamp(run.begin()), escape(run.start().machineName));
    for (const StepRecord* step : suite.steps) {
      writeCase(out, *step);
    }
    out.write("  </testsuite>\n");
  }
}

}  // namespace

void JunitReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    closeRun();
  }
  m_run.handle(event);
}

void JunitReporter::closeRun() {
  if (!std::exchange(m_hasBegun, true)) {
    m_out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"diagctl\">\n");
  }
  writeRun(m_out, m_run);
  m_run = RunRecord();
}

void JunitReporter::finish() {
  closeRun();
  m_out.write("</testsuites>\n");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
