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

// The ends follow from what was told before them; all others stay as they were written.
RunEventBody VanishedJudge::judge(const RunEventBody& body, const RunRecord& record) const {
  if (m_vanished == VanishedAs::Trouble) {
    return body;
  }
  if (const auto* trouble = std::get_if<StepTrouble>(&body)) {
    const StepRecord* const step = record.find(trouble->stepId);
    return step == nullptr ? body : judged(*trouble, step->start, step->passes() + 1, m_vanished);
  }
  if (const auto* ended = std::get_if<StepEnded>(&body)) {
    const StepRecord* const step = record.find(ended->stepId);
    const bool isWhole = step != nullptr && step->hasFailed() && step->troubles == 0;
    return isWhole ? StepEnded{ended->stepId, RunStatus::Complete, ended->isAborted} : *ended;
  }
  if (const auto* ended = std::get_if<RunEnded>(&body)) {
    const RunVerdict verdict = verdictOf(summaryOf(record), record.troubles().size());
    return verdict == RunVerdict::Failed ? endOf(verdict) : *ended;
  }
  return body;
}

}  // namespace TarvexDiags::FrontEnd
