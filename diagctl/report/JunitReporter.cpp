#include "diagctl/report/JunitReporter.h"

#include <fmt/format.h>

#include <map>
#include <string>
#include <vector>

#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

namespace {

// XML 1.0 has no form for most control characters; they are left out.
std::string escape(const std::string& text) {
  std::string escaped;
  for (const char character : toUtf8(text)) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\n':
        escaped += "&#10;";
        break;
      default:
        if (static_cast<unsigned char>(character) >= ' ' || character == '\t') {
          escaped += character;
        }
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
  const std::string head = escape(step.findings.empty() ? step.symptom : step.findings.front());
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
  if (m_runs.empty() || std::holds_alternative<RunStarted>(event.body)) {
    m_runs.emplace_back();
  }
  m_runs.back().handle(event);
}

void JunitReporter::finish() {
  m_out.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"diagctl\">\n");
  for (const RunRecord& run : m_runs) {
    writeRun(m_out, run);
  }
  m_out.write("</testsuites>\n");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
