#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"

namespace TarvexDiags::DiagCtrl {

/// The trace of one method: the entry line at construction, the exit line at `close` or on the way
/// out, whichever way that is. Lines in between carry the file and line of the call.
class TraceScope {
 public:
  /// @param apcMethod "Class::method", a literal. A null tracer traces nothing.
  TraceScope(DiagTracer* apDiagTracer, const char* apcMethod)
      : mpDiagTracer(apDiagTracer), mpcMethod(apcMethod) {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->beginTrace(DiagCtrlConstants::DIAG_INFORMATION, mpcMethod);
    }
  }
  ~TraceScope() { close(); }
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

  /// Writes the exit line now, for a method that still acts after it (raising an event, say).
  void close() {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->endTrace(DiagCtrlConstants::DIAG_INFORMATION, mpcMethod);
      mpDiagTracer = nullptr;
    }
  }

  const char* method() const noexcept { return mpcMethod; }

  /// A failure.
  void error(const std::string& arText, const char* apcFile = __builtin_FILE(),
             int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_ERROR, arText, apcFile, aiLine);
  }
  /// A condition that is caught and answered.
  void warning(const std::string& arText, const char* apcFile = __builtin_FILE(),
               int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_WARNING, arText, apcFile, aiLine);
  }
  /// Progress.
  void info(const std::string& arText, const char* apcFile = __builtin_FILE(),
            int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_INFORMATION, arText, apcFile, aiLine);
  }

  /// Progress whose text is made only when it is written. @param aMakeText gives the text.
  template <class MakeText>
  void infoOf(MakeText aMakeText, const char* apcFile = __builtin_FILE(),
              int aiLine = __builtin_LINE()) const {
    if (mpDiagTracer != nullptr && mpDiagTracer->admits(DiagCtrlConstants::DIAG_INFORMATION)) {
      info(aMakeText(), apcFile, aiLine);
    }
  }

  // The same with a value behind the text.
  void errorValue(const std::string& arText, unsigned long aulValue,
                  const char* apcFile = __builtin_FILE(), int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_ERROR, arText, aulValue, apcFile, aiLine);
  }
  void warningValue(const std::string& arText, unsigned long aulValue,
                    const char* apcFile = __builtin_FILE(), int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_WARNING, arText, aulValue, apcFile, aiLine);
  }
  void infoValue(const std::string& arText, unsigned long aulValue,
                 const char* apcFile = __builtin_FILE(), int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_INFORMATION, arText, aulValue, apcFile, aiLine);
  }

 private:
  void line(int aiLevel, const std::string& arText, const char* apcFile, int aiLine) const {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->traceValue(aiLevel, apcFile, aiLine, arText.c_str());
    }
  }
  void line(int aiLevel, const std::string& arText, unsigned long aulValue, const char* apcFile,
            int aiLine) const {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->traceValue(aiLevel, apcFile, aiLine, arText.c_str(), aulValue);
    }
  }

  DiagTracer* mpDiagTracer;
  const char* mpcMethod;
};

}  // namespace TarvexDiags::DiagCtrl
