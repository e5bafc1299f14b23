#include "DiagCtrl/DiagControlConfig.h"

#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageDetails.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using C = DiagCtrlConstants;

constexpr int kSize = C::miSBuffSize;

/// Runs a strict read; what is wrong with the file leaves as this class's own failure.
template <class Read>
auto reading(const TraceScope& arTrace, const char* apcText, Read aRead,
             const char* apcFile = __builtin_FILE(), unsigned long aulLine = __builtin_LINE()) {
  try {
    return aRead();
  } catch (const DiagCtrlInvalidKey&) {
    arTrace.warning(std::string(apcText) + " caught DiagCtrlInvalidKey Exception");
    throw DiagCtrlInvalidKey(DiagCtrlBaseException::InvalidValueInConfigFile, aulLine, apcFile,
                             apcText);
  }
}

std::unique_ptr<char[]> readNameToLeaveOut(const TraceScope& arTrace, const char* apcSection,
                                           const char* apcFile) {
  return std::unique_ptr<char[]>(reading(arTrace, "DiagControlConfig::readPackageDetails", [&] {
    return DiagUtil::getInstance()->getAndValidateString(apcSection, C::mSconPackageName, kSize,
                                                         apcFile);
  }));
}

}  // namespace

DiagControlConfig::DiagControlConfig(const char* apCtrlConfigFilePath)
    : mpCtrlConfigFilePath(apCtrlConfigFilePath),
      mpValidator(DiagValidator::getInstance()),
      mDiagTracer(DiagTracer::getInstance()),
      mpDiagUtil(DiagUtil::getInstance()),
      mmtxDisPackListLock(C::mSconlDefaultLockTimeOut) {}

DiagControlConfig::DiagControlConfig()
    : mpCtrlConfigFilePath(nullptr),
      mpValidator(DiagValidator::getInstance()),
      mDiagTracer(DiagTracer::getInstance()),
      mpDiagUtil(nullptr),
      mmtxDisPackListLock(C::mSconlDefaultLockTimeOut) {}

DiagControlConfig::~DiagControlConfig() {
  for (const auto& [name, details] : mPackageDetailMap) {
    delete details;
  }
}

char* DiagControlConfig::readPackageDirPath() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readPackageDirPath");
  mpDiagUtil = DiagUtil::getInstance();
  return reading(trace, "DiagControlConfig::readPackageDirPath", [&] {
    return mpDiagUtil->getAndValidateString(C::mSconGlobalSettings, C::mSconpcPackDirPath, kSize,
                                            mpCtrlConfigFilePath);
  });
}

char* DiagControlConfig::readLogDirPath() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readLogDirPath");
  mpDiagUtil = DiagUtil::getInstance();
  return reading(trace, "DiagControlConfig::readLogDirPath", [&] {
    return mpDiagUtil->getAndValidateString(C::mSconGlobalSettings, C::mSconpcLogDirPath, kSize,
                                            mpCtrlConfigFilePath);
  });
}

char* DiagControlConfig::readMessageFilePath() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readMessageFilePath");
  mpDiagUtil = DiagUtil::getInstance();
  return mpDiagUtil->getString(C::mSconGlobalSettings, C::mSconpcMsgFilePath, kSize,
                               mpCtrlConfigFilePath);
}

GlobalSettings* DiagControlConfig::readGlobalSettings() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readGlobalSettings");
  DiagUtil& util = *DiagUtil::getInstance();
  const char* section = C::mSconGlobalSettings;
  const char* file = mpCtrlConfigFilePath;
  return reading(trace, "DiagControlConfig::readGlobalSettings", [&] {
    const auto debugLevel = static_cast<C::debugLevel>(
        util.getEnum(section, C::mSconDebugLog, kSize, file, DiagValidator::debugLevel));
    const auto runMode = static_cast<GlobalSettings::runMode>(
        util.getAndValidateEnum(section, C::mSconRunMode, kSize, file, DiagValidator::runMode));
    const bool diagLog = util.getBool(section, C::mSconDiagLog, kSize, file);
    const bool haltOnError = util.getAndValidateBool(section, C::mSconHaltOnError, kSize, file);
    const auto diagMode = static_cast<GlobalSettings::diagMode>(util.getAndValidateEnum(
        section, C::mSconDiagnosticMode, kSize, file, DiagValidator::diagMode));
    auto* settings = new GlobalSettings(debugLevel, runMode, diagLog, haltOnError, diagMode);
    mDiagTracer->setTraceLevel(static_cast<int>(debugLevel));
    return settings;
  });
}

void DiagControlConfig::readPackageDetails() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readPackageDetails");
  DiagUtil& util = *DiagUtil::getInstance();
  kClientsAtRest.standsFor(mmtxDisPackListLock);
  const unsigned int count =
      util.getInt(C::mSconDisablePackage, C::mSconNumOfPackages, mpCtrlConfigFilePath);
  // Compared as unsigned: a negative count goes on to the first entry without a name, and fails.
  for (unsigned int number = 1; number <= count && number != 0; ++number) {
    const std::string section = C::mSconpcPackage + std::to_string(static_cast<int>(number));
    std::unique_ptr<char[]> name = readNameToLeaveOut(trace, section.c_str(), mpCtrlConfigFilePath);
    const std::unique_ptr<char[]> machineId(
        util.getString(section.c_str(), C::mSconMachineId, kSize, mpCtrlConfigFilePath));
    auto details = std::make_unique<PackageDetails>();
    details->setOs(util.getString(section.c_str(), C::mSconOs, kSize, mpCtrlConfigFilePath));
    details->setMachineId(static_cast<unsigned short>(std::strtol(machineId.get(), nullptr, 0)));
    mPackageDetailMap.emplace(name.get(), details.get());
    static_cast<void>(details.release());
    // The name lives on: clients hold it through the list of disabled packages.
    static_cast<void>(name.release());
  }
}

int DiagControlConfig::readMachineId() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::readMachineId");
  mpDiagUtil = DiagUtil::getInstance();
  return 1;
}

std::map<const char*, PackageDetails*> DiagControlConfig::getPackageDetailsMap() {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::getPackageDetailsMap");
  kClientsAtRest.standsFor(mmtxDisPackListLock);
  return mPackageDetailMap;
}

std::list<const char*> DiagControlConfig::getDisablePackageList(long alTimeOutValue) {
  const TraceScope trace(mDiagTracer, "DiagControlConfig::getDisablePackageList");
  const LockScope lock(mmtxDisPackListLock, lockTimeOut(alTimeOutValue),
                       DiagCtrlBaseException::MutexException,
                       "DiagControlConfig::getDisablePackageList()");
  std::list<const char*> names;
  for (const auto& entry : mPackageDetailMap) {
    names.push_back(entry.first);
  }
  return names;
}

}  // namespace TarvexDiags::DiagCtrl
