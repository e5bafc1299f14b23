#pragma once

#include <atomic>
#include <fstream>
#include <map>
#include <string>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

typedef std::map<unsigned long, std::string> ThrIdToIndentMap;  ///< thread id to its indentation

/// The one trace log of the process: entry and exit lines, indented for each thread, and text
/// lines, in a single file that is appended to and flushed line by line.
///
/// Line forms, behind "<", the thread id in decimal, "> " and the thread's indentation:
/// "@enter " method; "@exit " method; "FILE: " file "\tLINE: " line "\tSTRING: " text, and with a
/// value ": " and the value as a signed number.
///
/// Thread-safety: any thread may call any operation, under any other lock; each call is atomic.
/// Writing errors go unnoticed.
class TARVEXDIAGS_EXPORT DiagTracer {
 public:
  /// The instance, made on first use. Deleted by the controller's destructor.
  static DiagTracer* getInstance();

  DiagTracer(const DiagTracer&) = delete;
  DiagTracer& operator=(const DiagTracer&) = delete;
  virtual ~DiagTracer();

  /// Opens "DiagnosticController.trace" for appending, once in the life of the tracer, sets the
  /// level and writes two empty lines.
  /// @param apcLogDirPath directory; null means the current one.
  /// @param aiTraceLevel 0 to 3, anything else is 0. At level 0 no file is opened, and none can be
  ///   opened later.
  /// @throws DiagCtrlFileOpenException if the file cannot be opened.
  void openTraceFile(const char* apcLogDirPath, int aiTraceLevel);

  /// @param aiTraceLevel 0 to 3, anything else switches tracing off.
  void setTraceLevel(int aiTraceLevel) noexcept;

  /// Entry line and one step of indentation; registers the calling thread at any level.
  /// For this and the line calls below a level outside of 0 to 3 counts as 3.
  void beginTrace(int aiTraceLevel, const char* apcMethodName) noexcept;

  /// Exit line and one step back.
  void endTrace(int aiTraceLevel, const char* apcMethodName) noexcept;

  /// A text line; nothing for a thread that has never begun a trace.
  /// @param apcClassName the source file. @param apcPrintString the text; null prints as "<null>".
  void traceValue(int aiTraceLevel, const char* apcClassName, int aiLineNumber,
                  const char* apcPrintString) noexcept;

  /// Whether a line of this level would be written now: for callers whose text is dear to make.
  bool admits(int aiTraceLevel) const noexcept;

  /// A text line with a value, which reads as signed.
  void traceValue(int aiTraceLevel, const char* apcClassName, int aiLineNumber,
                  const char* apcVariableName, unsigned long aulVariableValue) noexcept;

 private:
  DiagTracer();

  static unsigned long getCurrentThreadId();
  void openScope(int aiTraceLevel, const char* apcMethodName);
  void closeScope(int aiTraceLevel, const char* apcMethodName);
  void writeLine(int aiTraceLevel, const char* apcFile, int aiLineNumber,
                 const std::string& arText);
  void writeFile(const char* apcTabString, const char* apcStringToWrite)
      TARVEXDIAGS_REQUIRES(mMutexLock);

  bool mbLogFileOpened TARVEXDIAGS_GUARDED_BY(mMutexLock);
  std::atomic<int> miTraceLevel;  // written under the lock
  const unsigned long mulNumber;  // among all tracers of the process
  std::ofstream mTraceStream TARVEXDIAGS_GUARDED_BY(mMutexLock);
  ThrIdToIndentMap mIndentMap TARVEXDIAGS_GUARDED_BY(mMutexLock);
  static System::Mutex mSInstanceMutex;
  static DiagTracer* mpSTracerObject TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  DiagCtrlLock mMutexLock;
};

}  // namespace TarvexDiags::DiagCtrl
