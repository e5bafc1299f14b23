#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A directory could not be read or the trace file could not be opened.
class TARVEXDIAGS_EXPORT DiagCtrlFileOpenException : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlFileOpenException(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                            const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlFileOpenException(const DiagCtrlFileOpenException&) = default;
  DiagCtrlFileOpenException& operator=(const DiagCtrlFileOpenException&) = default;
  ~DiagCtrlFileOpenException() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
