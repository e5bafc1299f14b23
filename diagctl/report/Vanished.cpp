#include "diagctl/report/Vanished.h"

#include "diagctl/report/RunVerdict.h"
#include "packagekit/contract/KitCodes.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

bool isFailure(const StepTrouble& trouble, VanishedAs vanished) {
  return trouble.symptom == Contract::symptomOfTrouble(PackageKit::DEVICE_VANISHED) &&
         Contract::judge({.ending = Contract::Ending::Vanished}, vanished) ==
             Contract::Judgement::Failed;
}

// What `judged` made a failure of.
RunEventBody takenBack(const StepDiagnosis& diagnosis, VanishedAs vanished) {
  const bool hasVanished =
      diagnosis.verdict == Verdict::Fail &&
      diagnosis.symptom == Contract::symptomOfTrouble(PackageKit::DEVICE_VANISHED);
  if (!hasVanished || vanished == VanishedAs::Failure) {
    return diagnosis;
  }
  return StepTrouble{diagnosis.stepId, diagnosis.symptom, diagnosis.message, diagnosis.action};
}

}  // namespace

RunEventBody judged(const StepTrouble& trouble, const StepStarted& step, int pass,
                    VanishedAs vanished) {
  if (!isFailure(trouble, vanished)) {
    return trouble;
  }
  return StepDiagnosis{
      trouble.stepId,  Verdict::Fail, trouble.symptom, trouble.message, trouble.action,
      step.hardwareId, pass};
}

RunEventBody VanishedJudge::judge(const RunEventBody& body, const RunRecord& record) const {
  if (!m_vanished) {
    return body;
  }
  if (const auto* trouble = std::get_if<StepTrouble>(&body)) {
    const StepRecord* const step = record.find(trouble->stepId);
    return step == nullptr ? body : judged(*trouble, step->start, step->passes() + 1, *m_vanished);
  }
  if (const auto* diagnosis = std::get_if<StepDiagnosis>(&body)) {
    return takenBack(*diagnosis, *m_vanished);
  }
  return endOf(body, record);
}

// The ends follow from what was told before them; where that was not judged anew, they stay as they
// were written.
RunEventBody VanishedJudge::endOf(const RunEventBody& body, const RunRecord& record) const {
  const bool isFailure = *m_vanished == VanishedAs::Failure;
  if (const auto* ended = std::get_if<StepEnded>(&body)) {
    const StepRecord* const step = record.find(ended->stepId);
    if (step == nullptr) {
      return body;
    }
    if (isFailure && step->hasFailed() && step->troubles == 0) {
      return StepEnded{ended->stepId, RunStatus::Complete, ended->isAborted};
    }
    if (!isFailure && step->troubles > 0) {
      return StepEnded{ended->stepId, RunStatus::Error, ended->isAborted};
    }
    return body;
  }
  if (std::holds_alternative<RunEnded>(body)) {
    const RunVerdict verdict = verdictOf(summaryOf(record), record.troubleCount());
    const bool isJudgedAnew = verdict == (isFailure ? RunVerdict::Failed : RunVerdict::Troubled);
    return isJudgedAnew ? RunEventBody(FrontEnd::endOf(verdict)) : body;
  }
  return body;
}

}  // namespace TarvexDiags::FrontEnd
