#pragma once

#include "Diag/DiagnosticEvent.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagValidator.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// The only way to read a configuration key, and the one way to raise a controller event.
///
/// Each accessor comes in two strengths: the tolerant one yields a default, the strict one throws
/// DiagCtrlInvalidKey. A missing file, section or key are not told apart. Nothing is cached: each
/// call reads the file anew.
///
/// Thread-safety: any thread may call any operation.
class TARVEXDIAGS_EXPORT DiagUtil {
 public:
  /// The instance, made on first use. Deleted by the controller's destructor.
  static DiagUtil* getInstance();

  DiagUtil(const DiagUtil&) = delete;
  DiagUtil& operator=(const DiagUtil&) = delete;
  virtual ~DiagUtil();

  /// Copies the value, or the default where there is none, into `apckeyValue`. A value of
  /// `aikeySize` characters or more counts as absent.
  /// @return the reader's own result, negative if nothing was read, also where the default stands.
  int GetParamsValueString(const char* apcsectionName, const char* apckeyName,
                           const char* apcdefaultValue, char* apckeyValue, int aikeySize,
                           const char* apcinitFileName);
  /// Decimal; a text that does not begin with a number gives 0.
  int GetParamsValueInt(const char* apcSectionName, const char* apcKeyName, int itempdefault,
                        const char* apcFileName);

  /// @param auiSize size of the value's buffer, at most miSBuffSize.
  /// @return a new array that the caller owns; never null, empty when the key gave nothing.
  char* getString(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
                  const char* apcFileName);
  /// @return a new array that the caller owns; never empty.
  char* getAndValidateString(const char* apcSectionName, const char* apcKeyName,
                             unsigned int auiSize, const char* apcFileName);

  /// @return 0 when the key gave nothing or no number.
  unsigned int getInt(const char* apcSectionName, const char* apcKeyName, const char* apFileName);
  /// @return never 0: a written 0 fails like an absent key.
  unsigned int getAndValidateInt(const char* apcSectionName, const char* apcKeyName,
                                 const char* apFileName);

  /// @return false when absent or not a boolean keyword.
  bool getBool(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
               const char* apcFileName);
  bool getAndValidateBool(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
                          const char* apcFileName);

  /// @return 0 when not a keyword of that kind.
  unsigned int getEnum(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
                       const char* apcFileName, DiagValidator::enumType aEnumType);
  unsigned int getAndValidateEnum(const char* apcSectionName, const char* apcKeyName,
                                  unsigned int auiSize, const char* apcFileName,
                                  DiagValidator::enumType aEnumType);

  /// Raises a controller event: copied to every registration of controller events, whose objects
  /// are woken. Works in every phase, on any thread and under any lock, and never fails for the
  /// caller. @param auiTestRequestId 0 where no request is concerned.
  void pushDiagCtrlEvent(DiagCtrlEvent::eventCode aeEventCode,
                         Diag::DiagnosticEvent::EventType aeEventType,
                         unsigned int auiTestRequestId) noexcept;

 private:
  DiagUtil();

  static System::Mutex mSInstanceMutex;
  static DiagUtil* mSpDiagUtil TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  DiagValidator* mpValidator;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
