#pragma once

#include <string>

#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// Base of every failure that travels inside the library. At the client boundary it becomes an
/// errorCode; only `initialize`, `resetDiagController`, `abortAllTest` and `runEstimation` let some
/// through. Not derived from std::exception: a handler that wants both families names both.
///
/// Thread-safety: none of its own; an exception object belongs to the thread that caught it.
class TARVEXDIAGS_EXPORT DiagCtrlBaseException {
 public:
  enum MinorCodeEnum : unsigned int {
    InvalidTestRequestType = 0,
    LockNotAcquired = 1,
    MutexException = 2,
    KeyNotExistException = 3,
    KeyExistsException = 4,
    FileOpenException = 5,
    InitialisationFailed = 6,
    ObjectNotFound = 7,
    InvalidParameter = 8,
    UnsupportedOperation = 9,
    EncoreRequest = 10,
    InvalidValueInConfigFile = 11,
    LoadLibraryFailed = 12,
    FunctionNotFoundInDll = 13,
    LockTimeOut = 14,
    ReleaseLibraryFailed = 15,
    DLLNotFound = 16,
    InvalidKey = 17,
  };

  /// @param aeMinorCode which failure this is; chosen at the raise site, not by the class.
  /// @param aulLine     source line of the raising statement.
  /// @param apcFile     source file of the raising statement; stored and not copied, so a literal.
  DiagCtrlBaseException(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile);
  DiagCtrlBaseException(const DiagCtrlBaseException&) = default;
  DiagCtrlBaseException& operator=(const DiagCtrlBaseException&) = default;
  virtual ~DiagCtrlBaseException();

  /// Text of the failure for the trace. Appends to what earlier calls on this object built, so a
  /// second call repeats the text behind the first one's.
  virtual std::string dump();

  MinorCodeEnum getMinor() const noexcept { return meMinorCode; }
  unsigned long getLine() const noexcept { return mulSourceLineNumber; }
  const char* getFile() const noexcept { return mpcSourceFileName; }

 protected:
  /// The dump of a subclass: the base's text, then the label shared by all of them and aText.
  std::string dumpWithKey(const char* apcText);

  std::string mStringObject;

 private:
  MinorCodeEnum meMinorCode;
  unsigned long mulSourceLineNumber;
  const char* mpcSourceFileName;
};

}  // namespace TarvexDiags::DiagCtrl
