#pragma once

#include <string>
#include <utility>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/Swallow.h"

namespace TarvexDiags::DiagCtrl {

/// While it lasts, the methods that this thread runs are traced only where the trace is written.
/// The end of a trace yields the processor, written or not, and a request passes some fifty methods
/// on its way: with every core busy each of them would cost it a time slice. A thread opens one
/// behind its first trace, which makes it known to the tracer.
class QuietScope {
 public:
  QuietScope() noexcept : mbWasQuiet(std::exchange(mbSQuiet, true)) {}
  ~QuietScope() { mbSQuiet = mbWasQuiet; }
  QuietScope(const QuietScope&) = delete;
  QuietScope& operator=(const QuietScope&) = delete;

  static bool isOpen() noexcept { return mbSQuiet; }

 private:
  static inline thread_local bool mbSQuiet = false;
  const bool mbWasQuiet;
};

/// The trace of one method: the entry line at construction, the exit line at `close` or on the way
/// out, whichever way that is. Lines in between carry the file and line of the call.
class TraceScope {
 public:
  /// @param apcMethod "Class::method", a literal. A null tracer traces nothing.
  TraceScope(DiagTracer* apDiagTracer, const char* apcMethod) noexcept
      : mpDiagTracer(apDiagTracer), mpcMethod(apcMethod), mbBegun(isTraced(apDiagTracer)) {
    if (mbBegun) {
      mpDiagTracer->beginTrace(DiagCtrlConstants::DIAG_INFORMATION, mpcMethod);
    }
  }
  ~TraceScope() { close(); }
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

  /// Writes the exit line now, for a method that still acts after it (raising an event, say).
  void close() noexcept {
    if (mbBegun) {
      mpDiagTracer->endTrace(DiagCtrlConstants::DIAG_INFORMATION, mpcMethod);
      mbBegun = false;
    }
    mpDiagTracer = nullptr;
  }

  const char* method() const noexcept { return mpcMethod; }

  /// What a line says. A text that stands in the program needs no memory; one that is put together
  /// may find none.
  struct Text {
    Text(const char* apcText) : text(apcText) {}               // NOLINT(*-explicit-constructor)
    Text(const std::string& arText) : text(arText.c_str()) {}  // NOLINT(*-explicit-constructor)
    const char* text;
  };

  /// A failure.
  void error(Text aText, const char* apcFile = __builtin_FILE(),
             int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_ERROR, aText, apcFile, aiLine);
  }
  /// A condition that is caught and answered.
  void warning(Text aText, const char* apcFile = __builtin_FILE(),
               int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_WARNING, aText, apcFile, aiLine);
  }
  /// Progress.
  void info(Text aText, const char* apcFile = __builtin_FILE(),
            int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_INFORMATION, aText, apcFile, aiLine);
  }

  // The same with a value behind the text.
  void errorValue(Text aText, unsigned long aulValue, const char* apcFile = __builtin_FILE(),
                  int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_ERROR, aText, aulValue, apcFile, aiLine);
  }
  void warningValue(Text aText, unsigned long aulValue, const char* apcFile = __builtin_FILE(),
                    int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_WARNING, aText, aulValue, apcFile, aiLine);
  }
  void infoValue(Text aText, unsigned long aulValue, const char* apcFile = __builtin_FILE(),
                 int aiLine = __builtin_LINE()) const {
    line(DiagCtrlConstants::DIAG_INFORMATION, aText, aulValue, apcFile, aiLine);
  }

  // A text that is made, by `aMakeText`, only when it is written, and lost if it cannot be made:
  // what is traced goes on.
  template <class MakeText>
  void infoOf(MakeText aMakeText, const char* apcFile = __builtin_FILE(),
              int aiLine = __builtin_LINE()) const {
    ifWritten(DiagCtrlConstants::DIAG_INFORMATION, [&] { info(aMakeText(), apcFile, aiLine); });
  }
  template <class MakeText>
  void errorValueOf(MakeText aMakeText, unsigned long aulValue,
                    const char* apcFile = __builtin_FILE(), int aiLine = __builtin_LINE()) const {
    ifWritten(DiagCtrlConstants::DIAG_ERROR,
              [&] { errorValue(aMakeText(), aulValue, apcFile, aiLine); });
  }

 private:
  static bool isTraced(const DiagTracer* apDiagTracer) noexcept {
    return apDiagTracer != nullptr &&
           (!QuietScope::isOpen() || apDiagTracer->admits(DiagCtrlConstants::DIAG_INFORMATION));
  }
  template <class Write>
  void ifWritten(int aiLevel, Write aWrite) const {
    if (mpDiagTracer != nullptr && mpDiagTracer->admits(aiLevel)) {
      swallowAll(false, [&] { return aWrite(), true; });
    }
  }
  void line(int aiLevel, Text aText, const char* apcFile, int aiLine) const {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->traceValue(aiLevel, apcFile, aiLine, aText.text);
    }
  }
  void line(int aiLevel, Text aText, unsigned long aulValue, const char* apcFile,
            int aiLine) const {
    if (mpDiagTracer != nullptr) {
      mpDiagTracer->traceValue(aiLevel, apcFile, aiLine, aText.text, aulValue);
    }
  }

  DiagTracer* mpDiagTracer;
  const char* mpcMethod;
  bool mbBegun;
};

}  // namespace TarvexDiags::DiagCtrl
