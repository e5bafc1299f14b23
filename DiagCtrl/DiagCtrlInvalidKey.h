#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A configuration key is absent, empty or holds no accepted value.
class TARVEXDIAGS_EXPORT DiagCtrlInvalidKey : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlInvalidKey(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                     const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcKeyName(apcText) {}
  DiagCtrlInvalidKey(const DiagCtrlInvalidKey&) = default;
  DiagCtrlInvalidKey& operator=(const DiagCtrlInvalidKey&) = default;
  ~DiagCtrlInvalidKey() override;

  std::string dump() override;
  const char* getKey() const noexcept { return mpcKeyName; }

 private:
  const char* mpcKeyName;
};

}  // namespace TarvexDiags::DiagCtrl
