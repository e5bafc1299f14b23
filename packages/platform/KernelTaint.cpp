#include "packages/platform/KernelTaint.h"

#include <vector>

#include "inventory/Inventory.h"

namespace TarvexDiags::Platform {

void judgeTaint(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  const Json kernel = Inventory::kernelFacts(files);
  if (!kernel.contains("taints")) {
    throw NotSupported(Reasons::kTaintsNotTold);
  }
  std::vector<std::string> others;
  for (const Json& taint : kernel["taints"]) {
    if (taint == "machine-check") {
      report(journal, PlatformEvent::MachineCheckTaint, {device});
    } else if (taint == "bad-page") {
      report(journal, PlatformEvent::BadPageTaint, {device});
    } else {
      others.push_back(taint.get<std::string>());
    }
  }
  if (!others.empty()) {
    report(journal, PlatformEvent::OtherTaints, {device, joined(others)});
  } else if (kernel["taints"].empty()) {
    report(journal, PlatformEvent::KernelUntainted, {device});
  }
}

}  // namespace TarvexDiags::Platform
