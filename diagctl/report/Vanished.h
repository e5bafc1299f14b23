#pragma once

#include <optional>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "packagekit/contract/Judgement.h"

namespace TarvexDiags::FrontEnd {

using VanishedAs = PackageKit::Contract::VanishedAs;

/// Trouble as it is told: of a device that vanished it may be a failure.
/// @param step that it belongs to, and the number of the pass.
RunEventBody judged(const StepTrouble& trouble, const StepStarted& step, int pass,
                    VanishedAs vanished);

/// Judges the stream of a log anew, for a reader who takes vanished devices for something else than
/// the one who wrote it did.
class VanishedJudge {
 public:
  /// @param vanished nothing: as the run told it.
  explicit VanishedJudge(std::optional<VanishedAs> vanished) : m_vanished(vanished) {}

  /// @param record of what was judged so far of this run.
  RunEventBody judge(const RunEventBody& body, const RunRecord& record) const;

 private:
  RunEventBody endOf(const RunEventBody& body, const RunRecord& record) const;

  const std::optional<VanishedAs> m_vanished;
};

}  // namespace TarvexDiags::FrontEnd
