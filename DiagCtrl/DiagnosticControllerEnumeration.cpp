// Discovery of packages and their enumeration.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagControlConfig.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFileOpenException.h"
#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"
#include "DiagCtrl/DiagCtrlInitialisationFailed.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlKeyExistsException.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageDetails.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/AtRestScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/PackageFiles.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using C = DiagCtrlConstants;

constexpr long kTimeOut = C::mSconlDefaultLockTimeOut;

// The prefix of an enumeration's trace lines, whichever call is running.
const std::string kPrefix = "DiagnosticController::enumerateAllPackages(): ";

/// What a package makes for its enumeration, destroyed in the order that the package may expect:
/// diagnostics object, enumerator, devices.
struct Probe {
  DeviceEnum::VirtualDeviceVector devices;
  std::unique_ptr<DeviceEnum::IDeviceEnumerator> enumerator;
  std::unique_ptr<Diag::IDiagnostics> diagnostics;
};

std::string textOf(const char* apcText) {
  return apcText != nullptr ? apcText : "";
}

/// The base name of a package's configuration file; none if the file is none.
std::optional<std::string> baseNameOf(const std::string& arFileName) {
  const std::string extension = C::mSconpcIni;
  const std::size_t position = arFileName.rfind(extension);
  const bool isAtEnd =
      position != std::string::npos && position + extension.size() == arFileName.size();
  return isAtEnd ? std::optional(arFileName.substr(0, position)) : std::nullopt;
}

std::string libraryOf(const std::string& arBaseName) {
  return std::string(C::mSconpcLib) + arBaseName + C::mSconpcDll;
}

// Without blocking: the name may be that of a FIFO or a device.
bool canBeRead(const std::string& arPath) {
  const int descriptor = open(arPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    return false;
  }
  close(descriptor);
  return true;
}

bool entryApplies(PackageDetails& arDetails, const std::string& arOs, unsigned short ausMachineId) {
  const std::string os = textOf(arDetails.getOs());
  const unsigned short machineId = arDetails.getMachineId();
  return (os.empty() || os == arOs) && (machineId == 0 || machineId == ausMachineId);
}

/// The sorted entries of a directory.
struct DirectoryEntries {
  explicit DirectoryEntries(const char* apcPath)
      : count(scandir(apcPath, &entries, nullptr, alphasort)) {}
  ~DirectoryEntries() {
    for (int i = 0; i < count; ++i) {
      std::free(entries[i]);
    }
    std::free(static_cast<void*>(entries));
  }
  DirectoryEntries(const DirectoryEntries&) = delete;
  DirectoryEntries& operator=(const DirectoryEntries&) = delete;

  dirent** entries = nullptr;
  const int count;  ///< negative: it cannot be read
};

void pushWarning(DiagUtil& arDiagUtil, DiagCtrlEvent::eventCode aeEvent) {
  arDiagUtil.pushDiagCtrlEvent(aeEvent, Diag::DiagnosticEvent::WARNING_EVENT, 0);
}

/// Traces what a package threw: nothing else tells why it is not there.
struct ToldAsNotFound {
  void operator()(const std::string& arReason) const {
    trace.error(std::string(trace.method()) + "(): PACKAGE_NOT_FOUND: " + name + "(" + arReason +
                ")");
  }

  const TraceScope& trace;
  std::string name;
};

}  // namespace

/// The phase of an enumeration. Another one follows it, whichever way the call ends.
class EnumerationPhase {
 public:
  typedef DiagControllerStatus::diagCtrlPhase Phase;

  EnumerationPhase(DiagControllerStatus& arStatus, Phase aeNext)
      : mrStatus(arStatus), meNext(aeNext) {
    mrStatus.setDiagCtrlPhase(DiagControllerStatus::ENUMERATE, -1);
  }
  ~EnumerationPhase() { end(); }
  EnumerationPhase(const EnumerationPhase&) = delete;
  EnumerationPhase& operator=(const EnumerationPhase&) = delete;

  void endIn(Phase aePhase) noexcept { meNext = aePhase; }
  void end() noexcept {
    if (!mbEnded) {
      mbEnded = true;
      mrStatus.restoreDiagCtrlPhase(meNext);
    }
  }

 private:
  DiagControllerStatus& mrStatus;
  Phase meNext;
  bool mbEnded = false;
};

DiagnosticController::errorCode DiagnosticController::enumerateAllPackages() {
  return enumerate("DiagnosticController::enumerateAllPackages", PackageNameVector(),
                   "Dropping following package: ");
}

DiagnosticController::errorCode DiagnosticController::enumerateByPackageClass(
    const PackageNameVector& arPackageNameVector) {
  return enumerate("DiagnosticController::enumerateByPackageClass", arPackageNameVector,
                   "Broadcom package was found with the tg3 driver failing enumeration of "
                   "Broadcom");
}

DiagnosticController::errorCode DiagnosticController::enumerate(const char* apcMethod,
                                                                const PackageNameVector& arWanted,
                                                                const char* apcVetoText) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerBehind(ClientCall::enumerate, trace, [&] {
    const LockScope apiLock(mmtxApiPhaseLock, -1);
    if (const auto refused = refusal(ClientCall::enumerate, trace)) {
      return *refused;  // somebody else was first
    }
    EnumerationPhase phase(*mpDiagCtrlStatus, DiagControllerStatus::INITIALIZE);
    try {
      return findAndEnumerate(phase, trace, arWanted, apcVetoText);
    } catch (...) {
      const AtRestScope rest;
      kClientsAtRest.standsFor(mmtxPackageVectorLock);
      if (mPackageObjectMap.empty()) {
        mvPackageNameVector.clear();  // found anew at the next try
      } else {
        phase.endIn(DiagControllerStatus::IDLE);
      }
      throw;
    }
  });
}

DiagnosticController::errorCode DiagnosticController::findAndEnumerate(
    EnumerationPhase& arPhase, const TraceScope& arTrace, const PackageNameVector& arWanted,
    const char* apcVetoText) {
  if (mpDiagCtrlConfig == nullptr) {
    return INVALID_VALUE_IN_CONFIG_FILE;
  }
  try {
    const AtRestScope rest;
    mpDiagCtrlConfig->readPackageDetails();
    readDirectory(mpcPackDirPath);
  } catch (const DiagCtrlInvalidKey&) {
    return INVALID_VALUE_IN_CONFIG_FILE;
  } catch (const DiagCtrlFileOpenException&) {
    arPhase.end();  // a client that fetches when the event wakes it is served
    pushError(DiagCtrlEvent::UNABLE_TO_READ_CURRENT_DIR);
    return PACKAGE_FILE_NOT_FOUND;
  }
  if (mvPackageNameVector.empty()) {
    return NO_PACKAGE_ENABLED;
  }
  leaveOutDisabledPackages(arTrace);
  std::sort(mvPackageNameVector.begin(), mvPackageNameVector.end(), val_comp);
  const errorCode result = enumerateFoundPackages(arTrace, arWanted, apcVetoText);
  arPhase.endIn(DiagControllerStatus::IDLE);
  return result;
}

// Backwards through the sorted entries. A description without its library is no package.
void DiagnosticController::readDirectory(char* apcDirPath) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::readDirectory");
  const DirectoryEntries directory(apcDirPath);
  if (directory.count < 0) {
    raise<DiagCtrlFileOpenException>(DiagCtrlBaseException::FileOpenException,
                                     "DiagnosticController::readDirectory");
  }
  for (int i = directory.count - 1; i >= 0; --i) {
    const auto baseName = baseNameOf(directory.entries[i]->d_name);
    if (baseName.has_value() &&
        canBeRead(std::string(apcDirPath) + C::mSconpcDoubleSlash + libraryOf(*baseName))) {
      mvPackageNameVector.push_back(*baseName);
    }
  }
}

// Keeps the name of the entry, which lives on, and not that of the vector's element, which does
// not.
void DiagnosticController::leaveOutDisabledPackages(const TraceScope& arTrace) {
  const AtRestScope rest;
  musMachineId = static_cast<unsigned short>(mpDiagCtrlConfig->readMachineId());
  const auto details = mpDiagCtrlConfig->getPackageDetailsMap();
  for (const char* disabled : mpDiagCtrlConfig->getDisablePackageList(-1)) {
    const auto found = std::find(mvPackageNameVector.begin(), mvPackageNameVector.end(), disabled);
    if (found == mvPackageNameVector.end()) {
      continue;
    }
    const auto entry = details.find(disabled);
    if (entry == details.end()) {
      arTrace.warning(std::string(disabled) + " (to disable) not enumerated:");
    } else if (entryApplies(*entry->second, mOs, musMachineId)) {
      const LockScope lock(mmtxDisPackageListLock, 0);
      mDisablePackageList.push_back(disabled);
      mvPackageNameVector.erase(found);
    }
  }
}

// The result is that of the last package processed; the events tell of the others.
DiagnosticController::errorCode DiagnosticController::enumerateFoundPackages(
    const TraceScope& arTrace, const PackageNameVector& arWanted, const char* apcVetoText) {
  setEnumerationProgress(0);
  errorCode result = SUCCESS;
  int index = 1;
  for (std::size_t i = 0; i < mvPackageNameVector.size() && !getShutDownFlag();) {
    result = enumerateOne(arTrace, mvPackageNameVector[i], index, arWanted, apcVetoText);
    if (result != SUCCESS) {
      mvPackageNameVector.erase(mvPackageNameVector.begin() + static_cast<std::ptrdiff_t>(i));
      continue;
    }
    ++i;
    ++index;
    setEnumerationProgress(100 * (index - 1) / static_cast<int>(mvPackageNameVector.size()));
  }
  return result;
}

// Whatever a package throws only means that this package is not there.
DiagnosticController::errorCode DiagnosticController::enumerateOne(
    const TraceScope& arTrace, const std::string& arName, int aiIndex,
    const PackageNameVector& arWanted, const char* apcVetoText) {
  auto package = std::make_unique<DiagnosticPackage>(arName.c_str(), musMachineId);
  const auto enumerate = [&] {
    if (preEnumerationCheck(arName.c_str())) {
      arTrace.info(apcVetoText + arName);
      return PACKAGE_NOT_FOUND;
    }
    return doEnumeratePackage(package.get(), arWanted);
  };
  const errorCode result =
      swallowAll(PACKAGE_NOT_FOUND, enumerate, ToldAsNotFound{arTrace, arName});
  if (result == SUCCESS) {
    addToCatalogue(aiIndex, std::move(package));
  }
  return result;
}

// Into both maps, or into neither.
void DiagnosticController::addToCatalogue(int aiIndex,
                                          std::unique_ptr<DiagnosticPackage> apDiagPackage) {
  const LockScope lock(mmtxPackageVectorLock, 0);
  const auto object = mPackageObjectMap.emplace(aiIndex, apDiagPackage.get()).first;
  try {
    mPackageMap.emplace(aiIndex, apDiagPackage->getPackageBaseName());
  } catch (...) {
    mPackageObjectMap.erase(object);
    throw;
  }
  static_cast<void>(apDiagPackage.release());
}

// The description itself stays allocated.
void DiagnosticController::dropFromCatalogue(int aiIndex) {
  const LockScope lock(mmtxPackageVectorLock, 0);
  mLostPackages.reserve(mLostPackages.size() + 1);
  mPackageMap.erase(aiIndex);
  if (const auto lost = mPackageObjectMap.extract(aiIndex)) {
    mLostPackages.push_back(lost.mapped());
  }
}

// The place for a veto of the environment; nothing is vetoed.
bool DiagnosticController::preEnumerationCheck(const char* packageName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::preEnumerationCheck");
  trace.info(std::string("package name is : ") + packageName);
  return false;
}

DiagnosticController::errorCode DiagnosticController::doEnumeratePackage(
    DiagnosticPackage* apDiagnosticPackage, const PackageNameVector& packageVector) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::doEnumeratePackage");
  const AtRestScope rest;
  DiagnosticPackage& package = *apDiagnosticPackage;
  const std::string name = package.getPackageBaseName();
  const std::string configFile = packageConfiguration(mpcPackDirPath, name.c_str());
  try {
    package.initialize(configFile.c_str());
  } catch (const DiagCtrlInitialisationFailed&) {
    trace.warning(kPrefix + "PACKAGE_INITIALIZE_FAILED: " + name);
    pushWarning(*mpDiagUtil, DiagCtrlEvent::PACKAGE_INITIALIZE_FAILED);
    return PACKAGE_INITIALIZE_FAILED;
  }
  if (!packageVector.empty()) {
    if (std::find(packageVector.begin(), packageVector.end(), package.getPackageMnemonic()) ==
        packageVector.end()) {
      trace.warning("DiagnosticController::enumeratePackageClass(): UNABLE_TO_LOAD_PACKAGE: " +
                    name + "(not in the package Vector)");
      return UNABLE_TO_LOAD_PACKAGE;
    }
    trace.info("Found package: " + name);
  }
  // A description was read, so there is a directory.
  const std::string directory = std::string(mpcPackDirPath) + C::mSconpcDoubleSlash;
  const auto unableToLoad = [&](const char* apcReason) {
    trace.warning(kPrefix + "UNABLE_TO_LOAD_PACKAGE: " + name + apcReason);
    pushWarning(*mpDiagUtil, DiagCtrlEvent::UNABLE_TO_LOAD_PACKAGE);
    return UNABLE_TO_LOAD_PACKAGE;
  };
  if (const char* dependency = package.getPackageDepDll();
      *dependency != '\0' && !checkPackageDllDep(directory.c_str(), dependency)) {
    return unableToLoad("(dependencies missing)");
  }
  try {
    package.setPackageHandle(
        mpDiagPackInterface->loadPackage((directory + libraryOf(name)).c_str()));
  } catch (const DiagCtrlLoadLibraryFailed&) {
    return unableToLoad("(load failed)");
  }
  return probeOrRelease(trace, package, configFile);
}

// What holds code of the library is gone before the library is: the probe was unwound, what the
// package threw was handled, and the package's devices are dropped here.
DiagnosticController::errorCode DiagnosticController::probeOrRelease(
    const TraceScope& arTrace, DiagnosticPackage& arPackage, const std::string& arConfigFile) {
  const std::string name = arPackage.getPackageBaseName();
  const AtRestScope rest;
  errorCode result = FUNCTION_NOT_FOUND_IN_DLL;
  try {
    return probePackage(arTrace, arPackage, arConfigFile);
  } catch (const DiagCtrlFunctionNotFoundInDll&) {
    arTrace.warning(kPrefix + "FUNCTION_NOT_FOUND_IN_DLL: " + name + "(getIDiagnostics() failed)");
    pushWarning(*mpDiagUtil, DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL);
  } catch (const DiagCtrlObjectNotFound&) {
    arTrace.warning(kPrefix + "UNABLE_TO_CREATE_DEVICE_VECTOR: " + name);
    pushWarning(*mpDiagUtil, DiagCtrlEvent::UNABLE_TO_CREATE_DEVICE_VECTOR);
    result = UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  arPackage.clearPackageData();
  mpDiagPackInterface->releaseLibrary(arPackage.getPackageHandle(), kTimeOut);
  return result;
}

DiagnosticController::errorCode DiagnosticController::probePackage(
    const TraceScope& arTrace, DiagnosticPackage& arPackage, const std::string& arConfigFile) {
  DiagnosticPackageInterface& loader = *mpDiagPackInterface;
  const AtRestScope rest;
  const p_Handle handle = arPackage.getPackageHandle();
  loader.setPackageConfigFile(handle, arConfigFile.c_str());
  loader.setPackageLogDir(handle, mpcLogDirPath);
  const GlobalSettings::diagMode diagMode = mpGlobalSettings->getDiagnosticMode();
  const bool diagLog = mpGlobalSettings->getDiagLogMode();
  Probe probe;
  probe.enumerator.reset(loader.getIDeviceEnumerator(handle, diagLog, diagMode));
  if (probe.enumerator == nullptr) {
    arTrace.warning(kPrefix + "returning from doEnumerate");
    return UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  const DeviceEnum::VirtualDeviceVector* devices =
      probe.enumerator->getDeviceVector(arPackage.getResourceString(), arPackage.getDeviceType());
  if (devices == nullptr) {
    probe.enumerator.reset();
    arTrace.warning("DiagnosticController::doEnumeratePackage(): NULL Vector: " +
                    std::string(arPackage.getPackageBaseName()));
    return UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  probe.devices = *devices;  // the returned vector stays with the package
  probe.diagnostics.reset(loader.getIDiagnostics(handle, arConfigFile.c_str(), diagLog, diagMode));
  arPackage.createDeviceVector(&probe.devices, probe.diagnostics.get());
  probe.diagnostics.reset();
  probe.enumerator.reset();
  createResourceLocks(arTrace, probe.devices);
  return SUCCESS;
}

void DiagnosticController::createResourceLocks(const TraceScope& arTrace,
                                               std::vector<DeviceEnum::VirtualDevice>& arDevices) {
  for (DeviceEnum::VirtualDevice& device : arDevices) {
    const std::string& tag = device.getDevice()->getResourceTag();
    try {
      mpResourceLockManager->createResourceLock(tag, -1);
    } catch (const DiagCtrlKeyExistsException&) {
      arTrace.warning("RESOURCE_TAG_EXISTS: " + tag);
    }
  }
}

// Opened and closed again, only to prove that it loads: beside the package, then by the loader's
// own search.
bool DiagnosticController::checkPackageDllDep(const char* apcPackageDir,
                                              const char* apcPackDllName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::checkPackageDllDep");
  for (const std::string& path :
       {std::string(apcPackageDir) + apcPackDllName, std::string(apcPackDllName)}) {
    try {
      const pDllHandle handle = mpDiagPackInterface->loadPackage(path.c_str());
      try {
        mpDiagPackInterface->releaseLibrary(handle, kTimeOut);
      } catch (const DiagCtrlReleaseLibraryFailed&) {
        // It was loadable all the same.
      }
      return true;
    } catch (const DiagCtrlLoadLibraryFailed&) {
      continue;
    }
  }
  return false;
}

DiagnosticController::errorCode DiagnosticController::enumerateDiagPackages(int packageIndex) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::enumerateDiagPackages");
  return answerBehind(ClientCall::enumerateAgain, trace, [&] {
    const LockScope apiLock(mmtxApiPhaseLock, -1);
    if (const auto refused = refusal(ClientCall::enumerateAgain, trace)) {
      return *refused;
    }
    const EnumerationPhase phase(*mpDiagCtrlStatus, DiagControllerStatus::IDLE);
    const auto name = mPackageMap.find(packageIndex);
    const errorCode result = swallowAll(
        PACKAGE_NOT_FOUND, [&] { return enumerateAgain(trace, packageIndex); },
        ToldAsNotFound{trace, name != mPackageMap.end() ? name->second : ""});
    if (result != SUCCESS) {
      dropFromCatalogue(packageIndex);
    }
    return result;
  });
}

DiagnosticController::errorCode DiagnosticController::enumerateAgain(const TraceScope& arTrace,
                                                                     int packageIndex) {
  const AtRestScope rest;
  kClientsAtRest.standsFor(mmtxPackageVectorLock);
  const auto entry = mPackageObjectMap.find(packageIndex);
  if (entry == mPackageObjectMap.end() || !mPackageMap.contains(packageIndex)) {
    return PACKAGE_NOT_FOUND;
  }
  DiagnosticPackage& package = *entry->second;
  removeResourceLocks(arTrace, package);
  if (mpTestRequestManager->isPackageInUse(package)) {
    // A request of the earlier enumeration may still reach its device, whose code lies there.
    mRetiredHandles.push_back(package.getPackageHandle());
    package.retirePackageData();
  } else {
    package.clearPackageData();
    mpDiagPackInterface->releaseLibrary(package.getPackageHandle(), kTimeOut);
  }
  package.setPackageHandle(nullptr);
  return doEnumeratePackage(&package, PackageNameVector());
}

void DiagnosticController::removeResourceLocks(const TraceScope& arTrace,
                                               DiagnosticPackage& arPackage) {
  const DeviceVector devices = arPackage.getDeviceVector();
  for (DiagDevice* device : devices) {
    const std::string& tag = device->getIDevice()->getResourceTag();
    try {
      mpResourceLockManager->removeResourceLock(tag, -1);
    } catch (const DiagCtrlKeyNotExistException&) {
      arTrace.warning("NO_RESOURCE_TAG: " + tag);
    }
  }
}

DiagnosticController::errorCode DiagnosticController::getEnumerationProgress(int& progress) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getEnumerationProgress");
  diagCtrlPhase phase = DiagControllerStatus::UNINITIALISED;
  try {
    phase = getDiagCtrlPhase(kTimeOut);
  } catch (const DiagCtrlMutexException&) {
    return fail(trace, DiagCtrlEvent::UNABLE_TO_GET_LOCK, INCORRECT_PHASE);
  }
  switch (phase) {
    case DiagControllerStatus::ACTIVE:
    case DiagControllerStatus::IDLE:
      progress = 100;
      return SUCCESS;
    case DiagControllerStatus::UNINITIALISED:
    case DiagControllerStatus::INITIALIZE:
      progress = 0;
      return SUCCESS;
    case DiagControllerStatus::ENUMERATE:
      break;
    default:
      return fail(trace, DiagCtrlEvent::INCORRECT_PHASE, INCORRECT_PHASE);
  }
  try {
    const LockScope lock(mmtxProgressLock, 0);
    progress = mProgressEnumeration;
  } catch (const DiagCtrlMutexException&) {
    progress = -1;
    return UNABLE_TO_GET_LOCK;
  }
  return SUCCESS;
}

void DiagnosticController::setEnumerationProgress(int progressValue) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::setEnumerationProgress");
  try {
    const LockScope lock(mmtxProgressLock, 0);
    mProgressEnumeration = progressValue;
  } catch (const DiagCtrlMutexException&) {
    // The progress is told late, no more.
  }
  trace.errorValue("Progress of Enumeration is : ", static_cast<unsigned long>(progressValue));
}

bool DiagnosticController::val_comp(const std::string& arLeft, const std::string& arRight) {
  return arLeft < arRight;
}

}  // namespace TarvexDiags::DiagCtrl
