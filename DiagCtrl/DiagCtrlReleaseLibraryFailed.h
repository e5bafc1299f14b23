#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A shared object could not be closed.
class TARVEXDIAGS_EXPORT DiagCtrlReleaseLibraryFailed : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlReleaseLibraryFailed(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                               const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlReleaseLibraryFailed(const DiagCtrlReleaseLibraryFailed&) = default;
  DiagCtrlReleaseLibraryFailed& operator=(const DiagCtrlReleaseLibraryFailed&) = default;
  ~DiagCtrlReleaseLibraryFailed() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
