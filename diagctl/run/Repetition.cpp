#include "diagctl/run/Repetition.h"

#include <variant>

#include "diagctl/report/Figures.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/KitCodes.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Outcome = PackageKit::Contract::Repetition;

template <class Body>
std::optional<RunEventBody> warningOf(const Body& body) {
  if (body.message.empty()) {
    return std::nullopt;
  }
  return StepMessage{body.stepId, Severity::Warning, body.message, ""};
}

struct ToldWithin {
  bool isSameDevice;

  // An error on another device is none of the one that crashed.
  std::optional<RunEventBody> operator()(const StepMessage& message) const {
    StepMessage told = message;
    if (!isSameDevice && told.severity == Severity::Error) {
      told.severity = Severity::Warning;
    }
    return told;
  }
  // What the repetition has measured are no figures of the test that crashed.
  std::optional<RunEventBody> operator()(const StepMeasurement& figure) const {
    return StepMessage{figure.stepId, Severity::Debug,
                       tr("{}: {}", told(figure.name), describe(figure)), ""};
  }
  std::optional<RunEventBody> operator()(const StepDiagnosis& diagnosis) const {
    if (diagnosis.verdict == Verdict::Fail) {
      return diagnosis;
    }
    return warningOf(diagnosis);
  }
  // Where it crashed again is told by itself.
  std::optional<RunEventBody> operator()(const StepTrouble& trouble) const {
    const auto crash = PackageKit::Contract::symptomOfTrouble(PackageKit::WORKER_CRASHED);
    if (trouble.symptom == crash) {
      return StepMessage{trouble.stepId, Severity::Information, trouble.message, ""};
    }
    return warningOf(trouble);
  }
  template <class Other>
  std::optional<RunEventBody> operator()(const Other& /*other*/) const {
    return std::nullopt;
  }
};

}  // namespace

std::optional<RunEventBody> toldWithin(const RunEventBody& body, bool isSameDevice) {
  return std::visit(ToldWithin{isSameDevice}, body);
}

Outcome outcomeOf(const StepJudge& repetition) {
  if (repetition.hasCrashed()) {
    return Outcome::Crashed;
  }
  switch (repetition.outcome()) {
    case StepRecord::Outcome::Passed:
    case StepRecord::Outcome::Warning:
      return Outcome::Ended;
    default:
      return Outcome::Unclear;
  }
}

StepMessage messageOf(const std::string& stepId, Outcome outcome, const std::string& device) {
  switch (outcome) {
    case Outcome::Crashed:
      return {stepId, Severity::Warning, tr("Repeated on {}: it crashed.", device), ""};
    case Outcome::Ended:
      return {stepId, Severity::Warning, tr("Repeated on {}: it did not crash.", device), ""};
    case Outcome::Unclear:
    case Outcome::NoPlace:
      break;
  }
  return {stepId, Severity::Warning,
          tr("Repeated on {}: it did not run to an end that tells anything.", device), ""};
}

}  // namespace TarvexDiags::FrontEnd
