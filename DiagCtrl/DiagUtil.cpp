#include "DiagCtrl/DiagUtil.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/Singleton.h"
#include "System/SysUtil.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr int kBufferSize = DiagCtrlConstants::miSBuffSize;
using Buffer = std::unique_ptr<char[]>;

// A client may pass null for a name; it reads like a name that does not exist.
const char* textOrEmpty(const char* apcText) {
  return apcText != nullptr ? apcText : DiagCtrlConstants::mSconNull;
}

std::string describeKey(const char* apcFile, const char* apcSection, const char* apcKey) {
  return std::string(textOrEmpty(apcFile)) + " [" + textOrEmpty(apcSection) + "] " +
         textOrEmpty(apcKey);
}

/// What a strict accessor makes of a value that its validator refuses: its own failure, which names
/// it and not the validator.
template <class Validate>
auto validated(const char* apcText, Validate aValidate, const char* apcFile = __builtin_FILE(),
               unsigned long aulLine = __builtin_LINE()) {
  try {
    return aValidate();
  } catch (const DiagCtrlInvalidKey&) {
    throw DiagCtrlInvalidKey(DiagCtrlBaseException::InvalidKey, aulLine, apcFile, apcText);
  }
}

}  // namespace

System::Mutex DiagUtil::mSInstanceMutex;
DiagUtil* DiagUtil::mSpDiagUtil = nullptr;

DiagUtil* DiagUtil::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mSpDiagUtil, [] { return new DiagUtil; });
}

DiagUtil::DiagUtil()
    : mpValidator(DiagValidator::getInstance()), mpDiagTracer(DiagTracer::getInstance()) {}

DiagUtil::~DiagUtil() {
  mpValidator = nullptr;
  mpDiagTracer = nullptr;
  const System::LockHold hold(mSInstanceMutex);
  mSpDiagUtil = nullptr;
}

int DiagUtil::GetParamsValueString(const char* apcsectionName, const char* apckeyName,
                                   const char* apcdefaultValue, char* apckeyValue, int aikeySize,
                                   const char* apcinitFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::GetParamsValueString");
  std::string keyValue;
  const int retval =
      System::SysUtil::ReadCfgFile(textOrEmpty(apcsectionName), textOrEmpty(apckeyName), keyValue,
                                   textOrEmpty(apcinitFileName), -1);
  const auto size = static_cast<std::size_t>(std::max(aikeySize, 0));
  std::memset(apckeyValue, 0, size);
  // A value that does not fit is dropped and not cut.
  const bool isRead = retval >= 0 && !keyValue.empty() && keyValue.size() < size;
  std::strncpy(apckeyValue, isRead ? keyValue.c_str() : textOrEmpty(apcdefaultValue), size);
  return retval;
}

int DiagUtil::GetParamsValueInt(const char* apcSectionName, const char* apcKeyName,
                                int itempdefault, const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::GetParamsValueInt");
  const std::string defaultText = std::to_string(itempdefault);
  const Buffer value(new char[kBufferSize]);
  GetParamsValueString(apcSectionName, apcKeyName, defaultText.c_str(), value.get(), kBufferSize,
                       apcFileName);
  return static_cast<int>(std::strtol(value.get(), nullptr, 10));
}

char* DiagUtil::getString(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
                          const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getString");
  Buffer value(new char[kBufferSize]);
  value[0] = '\0';
  const auto size = static_cast<int>(std::min<unsigned int>(auiSize, kBufferSize));
  GetParamsValueString(apcSectionName, apcKeyName, DiagCtrlConstants::mSconNull, value.get(), size,
                       apcFileName);
  trace.infoOf([&] {
    return "DiagUtil::getString " + describeKey(apcFileName, apcSectionName, apcKeyName) + " \"" +
           value.get() + "\"";
  });
  return value.release();
}

char* DiagUtil::getAndValidateString(const char* apcSectionName, const char* apcKeyName,
                                     unsigned int auiSize, const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getAndValidateString");
  Buffer value(getString(apcSectionName, apcKeyName, auiSize, apcFileName));
  if (!mpValidator->validString(value.get())) {
    trace.warning("DiagUtil::getAndValidateString: no value for " +
                  describeKey(apcFileName, apcSectionName, apcKeyName));
    raise<DiagCtrlInvalidKey>(DiagCtrlBaseException::InvalidKey,
                              "DiagUtil::getAndValidateString()");
  }
  return value.release();
}

unsigned int DiagUtil::getInt(const char* apcSectionName, const char* apcKeyName,
                              const char* apFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getInt");
  return static_cast<unsigned int>(GetParamsValueInt(apcSectionName, apcKeyName, 0, apFileName));
}

unsigned int DiagUtil::getAndValidateInt(const char* apcSectionName, const char* apcKeyName,
                                         const char* apFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getAndValidateInt");
  const unsigned int value = getInt(apcSectionName, apcKeyName, apFileName);
  if (value == 0) {
    raise<DiagCtrlInvalidKey>(DiagCtrlBaseException::InvalidKey, "DiagUtil::getAndValidateInt()");
  }
  return value;
}

bool DiagUtil::getBool(const char* apcSectionName, const char* apcKeyName, unsigned int auiSize,
                       const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getBool");
  const Buffer value(getString(apcSectionName, apcKeyName, auiSize, apcFileName));
  try {
    return mpValidator->validBool(value.get());
  } catch (const DiagCtrlInvalidKey&) {
    return false;
  }
}

bool DiagUtil::getAndValidateBool(const char* apcSectionName, const char* apcKeyName,
                                  unsigned int auiSize, const char* apcFileName) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getAndValidateBool");
  const Buffer value(getString(apcSectionName, apcKeyName, auiSize, apcFileName));
  return validated("DiagUtil::getAndValidateBool()",
                   [&] { return mpValidator->validBool(value.get()); });
}

unsigned int DiagUtil::getEnum(const char* apcSectionName, const char* apcKeyName,
                               unsigned int auiSize, const char* apcFileName,
                               DiagValidator::enumType aEnumType) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getEnum");
  const Buffer value(getString(apcSectionName, apcKeyName, auiSize, apcFileName));
  try {
    return mpValidator->getAndValidateEnum(value.get(), aEnumType);
  } catch (const DiagCtrlInvalidKey&) {
    return 0;
  }
}

unsigned int DiagUtil::getAndValidateEnum(const char* apcSectionName, const char* apcKeyName,
                                          unsigned int auiSize, const char* apcFileName,
                                          DiagValidator::enumType aEnumType) {
  const TraceScope trace(mpDiagTracer, "DiagUtil::getAndValidateEnum");
  const Buffer value(getString(apcSectionName, apcKeyName, auiSize, apcFileName));
  return validated("DiagUtil::getAndValidateEnum()",
                   [&] { return mpValidator->getAndValidateEnum(value.get(), aEnumType); });
}

void DiagUtil::pushDiagCtrlEvent(DiagCtrlEvent::eventCode aeEventCode,
                                 Diag::DiagnosticEvent::EventType aeEventType,
                                 unsigned int auiTestRequestId) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagUtil::pushDiagCtrlEvent");
  // Raising an event never fails for the caller, for want of memory neither.
  swallowAll(false, [&] {
    auto event = std::make_unique<DiagCtrlEvent>(aeEventCode, aeEventType);
    event->setTestRequestId(auiTestRequestId);
    event->setParamVector(std::vector<std::string>(1));
    EventManager::withInstance([&](EventManager& arManager) {
      arManager.pushCtrlEventInAllCtrlEventQueue(event.release());
    });
    return true;
  });
}

}  // namespace TarvexDiags::DiagCtrl
