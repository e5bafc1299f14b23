#include "diagctl/JunitReporter.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <map>
#include <string>
#include <vector>

#include "diagctl/JsonlReporter.h"

namespace TarvexDiags::DiagCtl {

namespace {

// XML 1.0 has no form for most control characters; they are left out.
std::string escape(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
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
  int failures = 0;
  int errors = 0;
  int skipped = 0;
  double seconds = 0;
};

std::map<std::string, Suite> suitesOf(const RunRecord& record) {
  std::map<std::string, Suite> suites;
  for (const StepRecord* step : record.steps()) {
    Suite& suite = suites[step->start.package];
    suite.steps.push_back(step);
    suite.seconds += step->seconds();
    suite.failures += step->outcome() == StepRecord::Outcome::failed ? 1 : 0;
    suite.errors += step->outcome() == StepRecord::Outcome::trouble ? 1 : 0;
    suite.skipped += step->outcome() == StepRecord::Outcome::skipped ? 1 : 0;
  }
  return suites;
}

void writeCase(std::ostream& out, const StepRecord& step) {
  fmt::print(out, R"(    <testcase classname="{}" name="{} on {}" time="{:.3f}">)",
             escape(step.start.package), escape(step.start.test), escape(step.start.device),
             step.seconds());
  const std::string text = join(step.findings, step.actions);
  const std::string head = escape(step.findings.empty() ? step.symptom : step.findings.front());
  switch (step.outcome()) {
    case StepRecord::Outcome::failed:
      fmt::print(out, R"(<failure type="{}" message="{}">{}</failure>)", escape(step.symptom), head,
                 escape(text));
      break;
    case StepRecord::Outcome::trouble:
      fmt::print(out, R"(<error type="{}" message="{}">{}</error>)", escape(step.symptom), head,
                 escape(text));
      break;
    case StepRecord::Outcome::skipped:
      fmt::print(out, R"(<skipped message="{}"/>)", head);
      break;
    case StepRecord::Outcome::warning:
      fmt::print(out, "<system-out>{}</system-out>", escape(text));
      break;
    case StepRecord::Outcome::passed:
      break;
  }
  out << "</testcase>\n";
}

}  // namespace

void JunitReporter::finish() {
  m_out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"diagctl\">\n";
  for (const auto& [package, suite] : suitesOf(m_record)) {
    fmt::print(m_out,
               "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" "
               "time=\"{:.3f}\" timestamp=\"{}\" hostname=\"{}\">\n",
               escape(package), suite.steps.size(), suite.failures, suite.errors, suite.skipped,
               suite.seconds, toTimestamp(m_record.begin()), escape(m_record.start().machineName));
    for (const StepRecord* step : suite.steps) {
      writeCase(m_out, *step);
    }
    m_out << "  </testsuite>\n";
  }
  m_out << "</testsuites>\n" << std::flush;
}

}  // namespace TarvexDiags::DiagCtl
