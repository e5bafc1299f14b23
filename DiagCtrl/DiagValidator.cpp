#include "DiagCtrl/DiagValidator.h"

#include <strings.h>

#include <cstring>
#include <iterator>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/Singleton.h"

namespace TarvexDiags::DiagCtrl {

namespace {

int (*const stringcmp3)(const char*, const char*) = strcasecmp;

struct Keyword {
  DiagValidator::enumType kind;
  const char* text;
  unsigned int value;
};

constexpr Keyword kKeywords[] = {
    {DiagValidator::runMode, "SERIAL", 0},    {DiagValidator::runMode, "0", 0},
    {DiagValidator::runMode, "PARALLEL", 1},  {DiagValidator::runMode, "1", 1},
    {DiagValidator::diagMode, "CUSTOMER", 0}, {DiagValidator::diagMode, "0", 0},
    {DiagValidator::diagMode, "FACTORY", 1},  {DiagValidator::diagMode, "1", 1},
    {DiagValidator::diagMode, "BRINGUP", 2},  {DiagValidator::diagMode, "2", 2},
    {DiagValidator::debugLevel, "", 0},       {DiagValidator::debugLevel, "DIAG_NO", 0},
    {DiagValidator::debugLevel, "0", 0},      {DiagValidator::debugLevel, "DIAG_ERROR", 1},
    {DiagValidator::debugLevel, "1", 1},      {DiagValidator::debugLevel, "DIAG_WARNING", 2},
    {DiagValidator::debugLevel, "2", 2},      {DiagValidator::debugLevel, "DIAG_INFORMATION", 3},
    {DiagValidator::debugLevel, "3", 3},
};

}  // namespace

System::Mutex DiagValidator::mSInstanceMutex;
DiagValidator* DiagValidator::mSpInstance = nullptr;

DiagValidator* DiagValidator::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mSpInstance, [] { return new DiagValidator; });
}

DiagValidator::DiagValidator() : mpDiagTracer(DiagTracer::getInstance()) {}

DiagValidator::~DiagValidator() {
  const System::LockHold hold(mSInstanceMutex);
  mSpInstance = nullptr;
}

bool DiagValidator::validString(const char* apcValue) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagValidator::validString");
  return std::strcmp(apcValue, DiagCtrlConstants::mSconNull) != 0;
}

bool DiagValidator::validBool(const char* acValue) {
  const TraceScope trace(mpDiagTracer, "DiagValidator::validBool");
  if (stringcmp3(acValue, "TRUE") == 0) {
    return true;
  }
  if (stringcmp3(acValue, "FALSE") == 0) {
    return false;
  }
  raise<DiagCtrlInvalidKey>(DiagCtrlBaseException::InvalidKey, "DiagValidator::validBool()");
}

bool DiagValidator::validBool(bool abValue) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagValidator::validBool");
  return abValue;
}

unsigned int DiagValidator::getAndValidateEnum(const char* acValue, enumType aEnumType) {
  const TraceScope trace(mpDiagTracer, "DiagValidator::getAndValidateEnum");
  for (const Keyword& keyword : kKeywords) {
    if (keyword.kind == aEnumType && stringcmp3(acValue, keyword.text) == 0) {
      return keyword.value;
    }
  }
  raise<DiagCtrlInvalidKey>(DiagCtrlBaseException::InvalidKey,
                            "DiagValidator::getAndValidateEnum()");
}

unsigned int DiagValidator::getAndValidateEnum(unsigned int auiValue, enumType aEnumType) {
  const TraceScope trace(mpDiagTracer, "DiagValidator::getAndValidateEnum");
  static constexpr unsigned int kLargest[] = {GlobalSettings::PARALLEL, GlobalSettings::BRINGUP,
                                              DiagCtrlConstants::DIAG_INFORMATION};
  if (aEnumType < std::size(kLargest) && auiValue <= kLargest[aEnumType]) {
    return auiValue;
  }
  raise<DiagCtrlInvalidParameter>(DiagCtrlBaseException::InvalidParameter,
                                  "DiagValidator::getAndValidateEnum()");
}

}  // namespace TarvexDiags::DiagCtrl
