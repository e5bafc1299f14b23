#include "diagctl/report/FindingReporter.h"

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

void FindingReporter::handle(const RunEvent& event) {
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    m_out.say("{} {} on {}: watching\n", start->name, start->version, start->machineName);
  } else if (const auto* message = std::get_if<RunMessage>(&event.body);
             message != nullptr && message->severity != Severity::Debug) {
    m_out.print("{}\n", message->text);
  } else if (const auto* finding = std::get_if<StepDiagnosis>(&event.body);
             finding != nullptr && finding->verdict != Verdict::Pass) {
    const bool isFailure = finding->verdict == Verdict::Fail;
    ++(isFailure ? m_failures : m_warnings);
    tell(event, isFailure ? marked("FAILED") : marked("WARNING"), finding->message,
         finding->action);
  } else if (const auto* more = std::get_if<StepMessage>(&event.body);
             more != nullptr && more->severity != Severity::Debug) {
    tell(event, "", more->text, "");
  } else if (const auto* trouble = std::get_if<StepTrouble>(&event.body)) {
    ++m_troubles;
    tell(event, marked("ERROR"), trouble->message, trouble->action);
  }
  m_out.flush();
}

void FindingReporter::tell(const RunEvent& event, const char* word, const std::string& message,
                           const std::string& action) {
  const std::string time = timeText(event.time);
  const std::string head = padded(*word != '\0' ? told(word) : "", widthOfHeads());
  m_out.print("{}  {}  {}\n", time, head, message);
  if (!action.empty()) {
    m_out.print("{}-> {}\n", std::string(time.size() + widthOfHeads() + 2, ' '), action);
  }
}

void FindingReporter::finish() {
  m_out.say("failures: {}, warnings: {}, troubles of the tool: {}\n", m_failures, m_warnings,
            m_troubles);
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
