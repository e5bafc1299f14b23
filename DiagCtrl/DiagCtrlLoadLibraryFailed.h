#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A shared object could not be opened.
class TARVEXDIAGS_EXPORT DiagCtrlLoadLibraryFailed : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlLoadLibraryFailed(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                            const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlLoadLibraryFailed(const DiagCtrlLoadLibraryFailed&) = default;
  DiagCtrlLoadLibraryFailed& operator=(const DiagCtrlLoadLibraryFailed&) = default;
  ~DiagCtrlLoadLibraryFailed() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
