#pragma once

#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// What one disable entry of the control file says besides the package's name.
class TARVEXDIAGS_EXPORT PackageDetails {
 public:
  PackageDetails();
  PackageDetails(const PackageDetails&) = delete;
  PackageDetails& operator=(const PackageDetails&) = delete;
  ~PackageDetails();

  unsigned short getMachineId() noexcept;
  /// @param ausMachineId 0 means any machine.
  void setMachineId(unsigned short ausMachineId) noexcept;

  /// The object's own text; null until it is set.
  const char* getOs() noexcept;
  /// @param apcOs an array made with new that the object takes over; empty means any system.
  void setOs(char* apcOs) noexcept;

 private:
  unsigned short musMachineId;
  char* mpcOperatingSystem;
  DiagTracer* mDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
