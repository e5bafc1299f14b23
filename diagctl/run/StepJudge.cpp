#include "diagctl/run/StepJudge.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>
#include <vector>

#include "diagctl/report/TestDuration.h"
#include "diagctl/run/Comparison.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Reasons.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Crash.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

Severity severityOf(Diag::DiagnosticEvent::EventType type) {
  switch (type) {
    case Diag::DiagnosticEvent::WARNING_EVENT:
      return Severity::Warning;
    case Diag::DiagnosticEvent::ERROR_EVENT:
      return Severity::Error;
    case Diag::DiagnosticEvent::INFORMATION_EVENT:
      break;
  }
  return Severity::Information;
}

std::string plainText(const Diag::DiagnosticEvent& event) {
  return tr("event {}: {}", event.getEventCode(),
            fmt::format("{}", fmt::join(event.getParamVector(), ", ")));
}

// What nobody knows has a number at least.
std::string meaningOf(const CodeEntry& entry, const DiagCtrl::DiagCtrlEvent& event) {
  return entry.eventNumber ? told(entry.meaning)
                           : fmt::format("{} ({})", told(entry.meaning), event.getEventCode());
}

// Of the event of a test that was not possible, or of a line of the log, behind what the test is.
std::string detailIn(const std::vector<std::string>& parameters) {
  constexpr std::size_t kDetail = 3;
  return parameters.size() > kDetail ? parameters[kDetail] : std::string();
}

// A short identifier: "MEMORY_MISCOMPARE" becomes "memory-miscompare".
std::string toSymptom(std::string token) {
  for (char& character : token) {
    const auto byte = static_cast<unsigned char>(character);
    character = character == '_' ? '-' : static_cast<char>(std::tolower(byte));
  }
  return token;
}

}  // namespace

std::string hardwareIdOf(const SelectedPair& pair) {
  return fmt::format("{}-{}", pair.package->index, pair.device->id);
}

StepStarted startOf(const SelectedPair& pair, const std::string& stepId, int passes) {
  return {.stepId = stepId,
          .package = pair.package->name,
          .device = pair.device->name,
          .test = pair.test->name,
          .hardwareId = hardwareIdOf(pair),
          .passes = passes,
          .localPackage = pair.package->localName,
          .localTest = pair.test->localName};
}

StepJudge::StepJudge(const PlannedRequest& planned, const Texts& texts, Stream stream,
                     std::string id)
    : m_planned(planned), m_texts(texts), m_stream(std::move(stream)), m_id(std::move(id)) {}

void StepJudge::begin() {
  if (hasBegun()) {
    return;
  }
  m_stream.beforeBegin();
  m_stream.tell(startOf(m_planned.pair, m_id, m_planned.passes));
}

void StepJudge::take(const Diag::DiagnosticEvent& event) {
  begin();
  if (event.getEventCode() == PackageKit::TEST_STARTED) {
    m_seed = Contract::toSeed(event.getParamVector());
    m_stream.tell(StepMeasurement{m_id, FigureName::kSeed, std::to_string(m_seed), "",
                                  hardwareIdOf(m_planned.pair)});
  }
  if (event.getEventCode() == PackageKit::TEST_ENDED) {
    tellDuration(event.getParamVector());
  }
  const Contract::RunEffect effect = Contract::effectOf(event.getEventType(), event.getEventCode());
  if (effect == Contract::RunEffect::Measurement) {
    tellMeasurement(event);
    return;
  }
  if (effect == Contract::RunEffect::Throughput) {
    tellThroughput(event);
    return;
  }
  if (effect == Contract::RunEffect::LogLine) {
    m_stream.tell(StepMessage{m_id, Severity::Debug, detailIn(event.getParamVector()), ""});
    return;
  }
  if (effect == Contract::RunEffect::Nothing ||
      (effect == Contract::RunEffect::Aborted && isAborted())) {
    return;
  }
  const int package = m_planned.pair.package->index;
  const std::string text = m_texts.message(package, event).value_or(plainText(event));
  const std::string action = m_texts.action(package, event).value_or("");
  if (effect == Contract::RunEffect::Trouble) {
    takeTrouble(event,
                {std::string(Contract::symptomOfTrouble(event.getEventCode())), text, action});
    return;
  }
  if (effect == Contract::RunEffect::NotPossible && m_cut == Cut::None) {
    m_cut = Cut::NotPossible;
    m_skip = skipKindOf(detailIn(event.getParamVector()));
  }
  const Severity severity = severityOf(event.getEventType());
  if (severity == Severity::Information) {
    // Nothing is to be done about it, and that a test has started says nothing of its device.
    const bool isNews = event.getEventCode() != PackageKit::TEST_STARTED;
    m_stream.tell(StepMessage{m_id, isNews ? severity : Severity::Debug, text, ""});
    return;
  }
  m_lastFinding = {toSymptom(m_texts.token(package, event).value_or("")), text, action};
  if (severity == Severity::Error) {
    for (std::optional<Finding>* const first : {&m_fault, &m_firstFault}) {
      *first = first->has_value() ? *first : m_lastFinding;
    }
    m_faults.insert(text);
    m_contradicts = false;  // of a pass before
  }
  m_stream.tell(StepMessage{m_id, severity, text, action});
}

// Behind a fault, what to do about the tool would lead away from the hardware.
void StepJudge::takeTrouble(const Diag::DiagnosticEvent& event, Finding trouble) {
  const unsigned int code = event.getEventCode();
  m_hasVanished = m_hasVanished || code == PackageKit::DEVICE_VANISHED;
  m_contradicts = m_contradicts || code == PackageKit::TEST_CONTRADICTED_ITSELF;
  if (m_fault && !m_contradicts && code != PackageKit::MEMORY_POISONED) {
    trouble.action.clear();
  }
  if (isTriable(event)) {
    m_crashes.push_back({*Contract::toSignal(event.getParamVector()), m_seed, std::move(trouble)});
    return;
  }
  m_stream.tell(judged(StepTrouble{m_id, trouble.symptom, trouble.text, trouble.action},
                       record()->start, m_results + 1, m_stream.vanished));
}

bool StepJudge::isTriable(const Diag::DiagnosticEvent& event) const {
  return event.getEventCode() == PackageKit::WORKER_CRASHED && isComputing(m_planned.pair) &&
         Contract::isSignalOfCrash(Contract::toSignal(event.getParamVector()).value_or(""));
}

// The sum of all passes so far.
void StepJudge::tellDuration(const std::vector<std::string>& parameters) {
  constexpr std::size_t kMilliseconds = 4;  // behind what the test is, and its verdict
  const auto taken = parameters.size() > kMilliseconds
                         ? Contract::toNumber(parameters[kMilliseconds])
                         : std::nullopt;
  if (taken) {
    m_testSeconds += *taken / 1000;
    m_stream.tell(
        StepMeasurement{m_id, kTestDuration, m_testSeconds, "s", hardwareIdOf(m_planned.pair)});
  }
}

// A figure where the value is one, else its words.
void StepJudge::tellMeasurement(const Diag::DiagnosticEvent& event) const {
  if (const auto measured = Contract::toMeasurement(event.getParamVector())) {
    StepMeasurement figure{m_id, measured->name, measured->value, measured->unit,
                           hardwareIdOf(m_planned.pair)};
    if (const auto number = Contract::toNumber(measured->value)) {
      figure.value = *number;
    }
    m_stream.tell(std::move(figure));
  }
}

void StepJudge::tellThroughput(const Diag::DiagnosticEvent& event) const {
  const auto told = Contract::toThroughput(event.getParamVector());
  if (const auto value = told ? Contract::toNumber(told->value) : std::nullopt) {
    m_stream.tell(StepThroughput{m_id, *value, told->unit});
  }
}

// A result names the event behind it, or else the last one of the pass is taken for it. But a
// package may close a test with a sum, and what was found first is what somebody has to know.
StepJudge::Finding StepJudge::findingOf(const Diag::DiagnosticResult& result,
                                        const std::optional<Finding>& firstFault) {
  Finding last = std::exchange(m_lastFinding, Finding());
  if (firstFault && result.getTestResult() == Diag::DiagnosticResult::FAILED) {
    return *firstFault;
  }
  const int package = m_planned.pair.package->index;
  const auto token = m_texts.token(package, result);
  if (result.getEventCode() == 0 || !token) {
    return last;
  }
  return {toSymptom(*token), m_texts.message(package, result).value_or(plainText(result)),
          m_texts.action(package, result).value_or("")};
}

// Why there is no verdict was told already, or is told at the end: see judgeFault.
bool StepJudge::isTold() const {
  return record()->troubles > 0 || m_hasVanished || m_fault || hasCrashed() || m_cut != Cut::None;
}

// What was found stands, however the test ended then. The kit judges its own tests in the same way;
// this is for all others, and for a result that an abort has swallowed. Only the step as a whole
// can be judged: nothing tells which of several passes an event belongs to.
void StepJudge::judgeFault() {
  if (!m_fault || record()->hasFailed() || m_contradicts) {
    return;
  }
  const Contract::Happenings step{.ending = ending(), .hasRaisedError = true};
  if (Contract::judge(step) == Contract::Judgement::Contradicts) {
    m_stream.tell(StepTrouble{
        m_id, std::string(Contract::symptomOfTrouble(PackageKit::TEST_CONTRADICTED_ITSELF)),
        tr("The test raised an error and returned that all is well."),
        tr("Take the error seriously, and run the test again.")});
    return;
  }
  m_stream.tell(StepDiagnosis{
      m_id, Verdict::Fail, m_fault->symptom.empty() ? "failed" : m_fault->symptom, m_fault->text,
      m_fault->action, hardwareIdOf(m_planned.pair), std::max(m_results, 1)});
}

Contract::Ending StepJudge::ending() const {
  if (isAborted()) {
    return Contract::Ending::Aborted;
  }
  const bool hasPassed = m_results > 0 && m_passed == m_results;
  return hasPassed && record()->troubles == 0 ? Contract::Ending::Passed : Contract::Ending::Broken;
}

void StepJudge::take(const Diag::DiagnosticResult& result) {
  begin();
  StepDiagnosis diagnosis{m_id,       Verdict::Pass, "passed", "", "", hardwareIdOf(m_planned.pair),
                          ++m_results};
  const Diag::DiagnosticResult::TestResult verdict = result.getTestResult();
  const std::optional<Finding> firstFault = std::exchange(m_firstFault, std::nullopt);
  const std::size_t faults = std::exchange(m_faults, {}).size();
  if (verdict == Diag::DiagnosticResult::PASSED) {
    ++m_passed;
    m_stream.tell(diagnosis);
    return;
  }
  if (verdict == Diag::DiagnosticResult::UNUSUAL_STATUS && isTold()) {
    return;
  }
  const Finding finding = findingOf(result, firstFault);
  const bool isFailure = verdict == Diag::DiagnosticResult::FAILED;
  diagnosis.furtherFindings = isFailure && faults > 0 ? faults - 1 : 0;
  diagnosis.verdict = isFailure ? Verdict::Fail : Verdict::Unknown;
  diagnosis.symptom = isFailure ? "failed" : "unusual-status";
  if (!finding.symptom.empty()) {
    diagnosis.symptom = finding.symptom;
  }
  diagnosis.message = finding.text;
  diagnosis.action = finding.action;
  m_stream.tell(diagnosis);
}

void StepJudge::take(const DiagCtrl::DiagCtrlEvent& event) {
  const CodeEntry& entry = entryOfEvent(event.getEventCode());
  switch (entry.effect) {
    case CodeEntry::Effect::Nothing:
      break;
    case CodeEntry::Effect::Aborted:
      abort();
      break;
    case CodeEntry::Effect::Trouble:
      begin();
      m_stream.tell(StepTrouble{m_id, toSymptom(std::string(entry.name)), meaningOf(entry, event),
                                told(entry.nextAction)});
      break;
  }
}

void StepJudge::takeRefusal(DiagCtrl::DiagnosticController::errorCode code) {
  begin();
  const ControllerFailure failure(tr("queueing the test"), code);
  const CodeEntry* entry = findResult(code);
  m_stream.tell(
      StepTrouble{m_id, entry != nullptr ? toSymptom(std::string(entry->name)) : "queueing-failed",
                  failure.what(), entry != nullptr ? told(entry->nextAction) : ""});
  end();
}

// Each signal once, however many passes it has ended. An error is what a test says of its device,
// also to who reads the log of a run that came to no end; a crash says nothing of it yet.
void StepJudge::adjourn() {
  std::set<std::string> signals;
  for (const Crash& crash : m_crashes) {
    if (signals.insert(crash.signal).second) {
      m_stream.tell(StepMessage{m_id, Severity::Warning,
                                tr("The test crashed with signal {}.", crash.signal), ""});
    }
    m_stream.tell(StepMessage{m_id, Severity::Information, crash.trouble.text, ""});
  }
}

// @param action instead of the package's own advice; empty: that one stands.
void StepJudge::tellCrashes(const std::string& action) {
  for (const Crash& crash : m_crashes) {
    const auto& [symptom, text, advice] = crash.trouble;
    m_stream.tell(StepTrouble{m_id, symptom, text, action.empty() ? advice : action});
  }
}

void StepJudge::tellFinding(const CrashFinding& finding) {
  using PackageKit::Contract::CrashCause;
  if (finding.cause == CrashCause::Package || finding.cause == CrashCause::Unknown) {
    m_stream.tell(StepMessage{m_id, Severity::Warning, finding.text, ""});
    tellCrashes(finding.action);
    return;
  }
  const Verdict verdict = finding.cause == CrashCause::Device ? Verdict::Fail : Verdict::Unknown;
  m_stream.tell(StepDiagnosis{m_id, verdict, finding.symptom, finding.text, finding.action,
                              hardwareIdOf(m_planned.pair), std::max(m_results, 1)});
}

// A fault that a repetition has found says more than where the test crashes.
void StepJudge::end(const CrashFinding& finding) {
  if (!record()->hasFailed()) {
    tellFinding(finding);
  }
  m_stream.tell(StepEnded{m_id, status()});
}

void StepJudge::end() {
  const bool hasRun = hasBegun();
  begin();
  if (!hasRun && isAborted()) {
    m_stream.tell(StepMessage{m_id, Severity::Information, tr("Ended before its turn."), ""});
    m_stream.tell(StepEnded{m_id, RunStatus::Skip, false, SkipKind::NotRun});
    return;
  }
  tellCrashes("");
  const StepRecord& step = *record();
  if (m_results == 0 && !isAborted() && step.troubles == 0) {
    m_stream.tell(StepTrouble{m_id, "no-result", tr("The package handed over no result."),
                              tr("Look into the package's log.")});
  }
  judgeFault();
  if (isAborted() && !step.hasFailed() && step.troubles == 0) {
    m_stream.tell(StepMessage{m_id, Severity::Warning, tr("Aborted before its end."), ""});
  }
  m_stream.tell(StepEnded{m_id, status(), isAborted(), m_skip});
}

RunStatus StepJudge::status() const {
  if (record()->troubles > 0) {
    return RunStatus::Error;
  }
  return m_cut != Cut::None && !record()->hasFailed() ? RunStatus::Skip : RunStatus::Complete;
}

}  // namespace TarvexDiags::FrontEnd
