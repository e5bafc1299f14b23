#include "diagctl/run/MachineWatch.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/KitCodes.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kUnknown = "?";

// Parameters behind what the event is about.
constexpr std::size_t kTestName = 1;
constexpr std::size_t kVirtualAddress = 3;
constexpr std::size_t kPhysicalAddress = 4;

std::string parameterOf(const Diag::DiagnosticEvent& event, std::size_t number) {
  const std::vector<std::string>& parameters = event.getParamVector();
  return number < parameters.size() ? parameters[number] : kUnknown;
}

std::string describe(const Diag::DiagnosticEvent& event) {
  const std::string physical = parameterOf(event, kPhysicalAddress);
  const std::string address = parameterOf(event, kVirtualAddress);
  const std::string test = parameterOf(event, kTestName);
  if (physical == kUnknown) {
    return tr(
        "The memory has an uncorrectable error, which test {} met at the "
        "virtual address {}.",
        test, address);
  }
  return tr(
      "The memory has an uncorrectable error at the physical address {}, "
      "which test {} met.",
      physical, test);
}

}  // namespace

// The first one is the verdict on the memory, and later ones add their
// addresses.
void MachineWatch::take(const Diag::DiagnosticEvent& event) {
  if (event.getEventCode() != PackageKit::MEMORY_POISONED) {
    return;
  }
  const std::string action =
      tr("Replace the memory module; the system's log may tell which one it is.");
  begin();
  if (std::exchange(m_isPoisoned, true)) {
    m_tell(StepMessage{kStep, Severity::Error, describe(event), action});
    return;
  }
  m_tell(StepDiagnosis{kStep, Verdict::Fail, "memory-poisoned", describe(event), action, "", 1});
}

void MachineWatch::begin() {
  if (!std::exchange(m_hasBegun, true)) {
    m_tell(StepStarted{kStep, kOwnPackage, marked("this machine"), marked("Machine watch"), "", 1});
  }
}

void MachineWatch::end(RunStatus status) {
  if (m_hasBegun) {
    m_tell(StepEnded{kStep, status});
  }
}

}  // namespace TarvexDiags::FrontEnd
