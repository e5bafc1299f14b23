#include "DiagCtrl/PackageDetails.h"

#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

PackageDetails::PackageDetails()
    : musMachineId(0), mpcOperatingSystem(nullptr), mDiagTracer(DiagTracer::getInstance()) {}

PackageDetails::~PackageDetails() {
  delete[] mpcOperatingSystem;
}

unsigned short PackageDetails::getMachineId() noexcept {
  const TraceScope trace(mDiagTracer, "PackageDetails::getMachineId");
  return musMachineId;
}

void PackageDetails::setMachineId(unsigned short ausMachineId) noexcept {
  const TraceScope trace(mDiagTracer, "PackageDetails::setMachineId");
  musMachineId = ausMachineId;
}

const char* PackageDetails::getOs() noexcept {
  const TraceScope trace(mDiagTracer, "PackageDetails::getOs");
  return mpcOperatingSystem;
}

void PackageDetails::setOs(char* apcOs) noexcept {
  const TraceScope trace(mDiagTracer, "PackageDetails::setOs");
  if (apcOs != mpcOperatingSystem) {
    delete[] mpcOperatingSystem;
    mpcOperatingSystem = apcOs;
  }
}

}  // namespace TarvexDiags::DiagCtrl
