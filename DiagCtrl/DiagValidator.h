#pragma once

#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// Checks the keywords of configuration values and the arguments of the settings calls. Keywords
/// match without regard to case.
///
/// Thread-safety: any thread may call any operation; there is no state.
class TARVEXDIAGS_EXPORT DiagValidator {
 public:
  /// The kind of keyword to check.
  enum enumType : unsigned int { runMode = 0, diagMode = 1, debugLevel = 2 };

  /// The instance, made on first use. Deleted by the controller's destructor.
  static DiagValidator* getInstance();

  DiagValidator(const DiagValidator&) = delete;
  DiagValidator& operator=(const DiagValidator&) = delete;
  virtual ~DiagValidator();

  /// @return false for the empty text, true for any other.
  bool validString(const char* apcValue) noexcept;

  /// @return true for "TRUE", false for "FALSE". @throws DiagCtrlInvalidKey for any other text.
  bool validBool(const char* acValue);
  /// @return the argument itself: both values are valid.
  bool validBool(bool abValue) noexcept;

  /// @return the number of the keyword; the number written out is a keyword too.
  /// @throws DiagCtrlInvalidKey if the text is none of the kind's keywords.
  unsigned int getAndValidateEnum(const char* acValue, enumType aEnumType);
  /// @return the number itself. @throws DiagCtrlInvalidParameter if it is out of the kind's range.
  unsigned int getAndValidateEnum(unsigned int auiValue, enumType aEnumType);

 private:
  DiagValidator();

  static System::Mutex mSInstanceMutex;
  static DiagValidator* mSpInstance TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
