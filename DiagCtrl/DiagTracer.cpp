#include "DiagCtrl/DiagTracer.h"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <fstream>
#include <new>
#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFileOpenException.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/ground/AppendedFile.h"
#include "DiagCtrl/internal/ground/CancellationHeld.h"
#include "DiagCtrl/internal/ground/Singleton.h"

namespace TarvexDiags::DiagCtrl {

namespace {

std::atomic<unsigned long> sTracersMade{0};
// The tracer, by number, that knows this thread: most calls write nothing and end without the lock.
thread_local unsigned long tKnownTo = 0;

bool isLevel(int aiLevel) {
  return aiLevel >= static_cast<int>(DiagCtrlConstants::DIAG_NO) &&
         aiLevel <= static_cast<int>(DiagCtrlConstants::DIAG_INFORMATION);
}

// A bad level that is set turns tracing off; a bad level of a line makes it the least important.
int levelToSet(int aiLevel) {
  return isLevel(aiLevel) ? aiLevel : static_cast<int>(DiagCtrlConstants::DIAG_NO);
}
int levelOfLine(int aiLevel) {
  return isLevel(aiLevel) ? aiLevel : static_cast<int>(DiagCtrlConstants::DIAG_INFORMATION);
}

const char* textOrNull(const char* apcText) {
  return apcText != nullptr ? apcText : "<null>";
}

}  // namespace

System::Mutex DiagTracer::mSInstanceMutex;
DiagTracer* DiagTracer::mpSTracerObject = nullptr;

DiagTracer* DiagTracer::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mpSTracerObject, [] { return new DiagTracer; });
}

DiagTracer::DiagTracer()
    : mbLogFileOpened(false),
      miTraceLevel(0),
      mulNumber(++sTracersMade),
      mMutexLock(DiagCtrlConstants::mSconlDefaultLockTimeOut) {}

DiagTracer::~DiagTracer() {
  mIndentMap.clear();
  if (mTraceStream.is_open()) {
    mTraceStream.close();
  }
  const System::LockHold hold(mSInstanceMutex);
  mpSTracerObject = nullptr;
}

void DiagTracer::openTraceFile(const char* apcLogDirPath, int aiTraceLevel) {
  const LockScope lock(mMutexLock, 0);
  const std::string path = std::string(apcLogDirPath != nullptr ? apcLogDirPath : ".") +
                           DiagCtrlConstants::mSconpcDoubleSlash +
                           DiagCtrlConstants::mpcSDefTraceFile;
  miTraceLevel = levelToSet(aiTraceLevel);
  if (!mbLogFileOpened && miTraceLevel > 0) {
    openForAppending(mTraceStream, path);
  }
  if (mTraceStream.fail()) {
    mbLogFileOpened = false;
    raise<DiagCtrlFileOpenException>(DiagCtrlBaseException::FileOpenException,
                                     "DiagTracer::openTraceFile()");
  }
  mbLogFileOpened = true;
  // A stream without a file must stay in its good state, so that it counts as opened ever after.
  if (mTraceStream.is_open()) {
    mTraceStream << "\n\n" << std::flush;
  }
}

void DiagTracer::setTraceLevel(int aiTraceLevel) noexcept {
  swallowAll(false, [&] {
    const LockScope lock(mMutexLock, 0);
    miTraceLevel = levelToSet(aiTraceLevel);
    return true;
  });
}

void DiagTracer::beginTrace(int aiTraceLevel, const char* apcMethodName) noexcept {
  if (tKnownTo == mulNumber && !admits(aiTraceLevel)) {
    return;
  }
  swallowAll(false, [&] { return openScope(aiTraceLevel, apcMethodName), true; });
}

void DiagTracer::openScope(int aiTraceLevel, const char* apcMethodName) {
  const LockScope lock(mMutexLock, 0);
  const bool written = admits(aiTraceLevel);
  const auto [entry, isNew] = mIndentMap.try_emplace(getCurrentThreadId());
  tKnownTo = mulNumber;
  if (!written) {
    return;
  }
  if (!isNew) {
    entry->second += DiagCtrlConstants::mpcSSpaceChar;
  }
  writeFile(entry->second.c_str(),
            (std::string(DiagCtrlConstants::mpcSEnterString) + textOrNull(apcMethodName)).c_str());
}

void DiagTracer::endTrace(int aiTraceLevel, const char* apcMethodName) noexcept {
  sched_yield();
  if (admits(aiTraceLevel)) {
    swallowAll(false, [&] { return closeScope(aiTraceLevel, apcMethodName), true; });
  }
}

void DiagTracer::closeScope(int aiTraceLevel, const char* apcMethodName) {
  const LockScope lock(mMutexLock, 0);
  const auto entry = mIndentMap.find(getCurrentThreadId());
  if (entry == mIndentMap.end() || !admits(aiTraceLevel)) {
    return;
  }
  std::string& indentation = entry->second;
  try {
    writeFile(indentation.c_str(),
              (std::string(DiagCtrlConstants::mpcSExitString) + textOrNull(apcMethodName)).c_str());
  } catch (const std::bad_alloc&) {
    // The line is lost, the step back is not.
  }
  constexpr std::size_t kStep = DiagCtrlConstants::miSSpaceSize;
  indentation.resize(indentation.size() < kStep ? 0 : indentation.size() - kStep);
}

void DiagTracer::traceValue(int aiTraceLevel, const char* apcClassName, int aiLineNumber,
                            const char* apcPrintString) noexcept {
  if (admits(aiTraceLevel)) {
    swallowAll(false, [&] {
      writeLine(aiTraceLevel, apcClassName, aiLineNumber, textOrNull(apcPrintString));
      return true;
    });
  }
}

void DiagTracer::traceValue(int aiTraceLevel, const char* apcClassName, int aiLineNumber,
                            const char* apcVariableName, unsigned long aulVariableValue) noexcept {
  if (admits(aiTraceLevel)) {
    swallowAll(false, [&] {
      const std::string value = std::to_string(static_cast<long>(aulVariableValue));
      writeLine(aiTraceLevel, apcClassName, aiLineNumber,
                textOrNull(apcVariableName) + (": " + value));
      return true;
    });
  }
}

unsigned long DiagTracer::getCurrentThreadId() {
  return pthread_self();
}

bool DiagTracer::admits(int aiTraceLevel) const noexcept {
  return levelOfLine(aiTraceLevel) <= miTraceLevel;
}

void DiagTracer::writeLine(int aiTraceLevel, const char* apcFile, int aiLineNumber,
                           const std::string& arText) {
  const LockScope lock(mMutexLock, 0);
  const auto entry = mIndentMap.find(getCurrentThreadId());
  if (entry == mIndentMap.end() || !admits(aiTraceLevel)) {
    return;
  }
  const std::string line = std::string("FILE: ") + textOrNull(apcFile) +
                           "\tLINE: " + std::to_string(aiLineNumber) + "\tSTRING: " + arText;
  writeFile(entry->second.c_str(), line.c_str());
}

void DiagTracer::writeFile(const char* apcTabString, const char* apcStringToWrite) {
  if (mbLogFileOpened && mTraceStream.is_open()) {
    const CancellationHeld held;  // also traced at the end of scopes, out of which nothing may come
    mTraceStream << "<" << getCurrentThreadId() << "> " << apcTabString << apcStringToWrite
                 << std::endl;
  }
}

}  // namespace TarvexDiags::DiagCtrl
