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
#include "DiagCtrl/internal/controller/Call.h"
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
struct PackageObjects {
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

}  // namespace

/// One enumeration, of the whole catalogue or of one package of it.
class DiagnosticController::Enumeration {
 public:
  /// @param apcMethod "Class::method", a literal.
  Enumeration(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mCall(arController, apcMethod) {}

  /// Which packages are wanted, and what is traced of one that the environment vetoes.
  struct Selection {
    const PackageNameVector& mnemonics;  ///< empty: all
    const char* vetoText;
  };
  errorCode run(const Selection& arSelection);
  errorCode runAgain(int aiPackageIndex);

 private:
  errorCode findAndEnumerate(EnumerationPhase& arPhase, const Selection& arSelection)
      TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  void leaveOutDisabledPackages() TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  errorCode enumerateFoundPackages(const Selection& arSelection)
      TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  errorCode enumerateOne(const std::string& arName, int aiIndex, const Selection& arSelection)
      TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  errorCode enumerateAgain(int aiPackageIndex) TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);
  void removeResourceLocks(DiagnosticPackage& arPackage);
  void addToCatalogue(int aiIndex, std::unique_ptr<DiagnosticPackage> apDiagPackage);
  void dropFromCatalogue(int aiIndex) TARVEXDIAGS_REQUIRES(mrController.mmtxApiPhaseLock);

  DiagnosticController& mrController;
  Call mCall;
};

/// Asks a loaded package for its devices.
class DiagnosticController::PackageProbe {
 public:
  PackageProbe(DiagnosticController& arController, const TraceScope& arTrace,
               DiagnosticPackage& arPackage, const std::string& arConfigFile)
      : mrController(arController),
        mrTrace(arTrace),
        mrPackage(arPackage),
        mrConfigFile(arConfigFile) {}

  errorCode run();

 private:
  errorCode probe();
  void createResourceLocks(DeviceEnum::VirtualDeviceVector& arDevices);

  DiagnosticController& mrController;
  const TraceScope& mrTrace;
  DiagnosticPackage& mrPackage;
  const std::string& mrConfigFile;
};

DiagnosticController::errorCode DiagnosticController::enumerateAllPackages() {
  const PackageNameVector all;
  return Enumeration(*this, "DiagnosticController::enumerateAllPackages")
      .run({.mnemonics = all, .vetoText = "Dropping following package: "});
}

DiagnosticController::errorCode DiagnosticController::enumerateByPackageClass(
    const PackageNameVector& arPackageNameVector) {
  return Enumeration(*this, "DiagnosticController::enumerateByPackageClass")
      .run({.mnemonics = arPackageNameVector,
            .vetoText = "Broadcom package was found with the tg3 driver failing enumeration of "
                        "Broadcom"});
}

DiagnosticController::errorCode DiagnosticController::Enumeration::run(
    const Selection& arSelection) {
  return mCall.answerBehind(ClientCall::enumerate, [&] {
    const LockScope apiLock(mrController.mmtxApiPhaseLock, -1);
    if (const auto refused = mCall.refusal(ClientCall::enumerate)) {
      return *refused;  // somebody else was first
    }
    EnumerationPhase phase(*mrController.mpDiagCtrlStatus, DiagControllerStatus::INITIALIZE);
    try {
      return findAndEnumerate(phase, arSelection);
    } catch (...) {
      const AtRestScope rest;
      kClientsAtRest.standsFor(mrController.mmtxPackageVectorLock);
      if (mrController.mPackageObjectMap.empty()) {
        mrController.mvPackageNameVector.clear();  // found anew at the next try
      } else {
        phase.endIn(DiagControllerStatus::IDLE);
      }
      throw;
    }
  });
}

DiagnosticController::errorCode DiagnosticController::Enumeration::findAndEnumerate(
    EnumerationPhase& arPhase, const Selection& arSelection) {
  const AtRestScope rest;
  if (mrController.mpDiagCtrlConfig == nullptr) {
    return INVALID_VALUE_IN_CONFIG_FILE;
  }
  try {
    mrController.mpDiagCtrlConfig->readPackageDetails();
    mrController.readDirectory(mrController.mpcPackDirPath);
  } catch (const DiagCtrlInvalidKey&) {
    return INVALID_VALUE_IN_CONFIG_FILE;
  } catch (const DiagCtrlFileOpenException&) {
    arPhase.end();  // a client that fetches when the event wakes it is served
    Call::pushError(mrController, DiagCtrlEvent::UNABLE_TO_READ_CURRENT_DIR);
    return PACKAGE_FILE_NOT_FOUND;
  }
  if (mrController.mvPackageNameVector.empty()) {
    return NO_PACKAGE_ENABLED;
  }
  leaveOutDisabledPackages();
  std::sort(mrController.mvPackageNameVector.begin(), mrController.mvPackageNameVector.end(),
            val_comp);
  const errorCode result = enumerateFoundPackages(arSelection);
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
        canBeRead(std::string(apcDirPath) + C::mSconpcDoubleSlash + packageLibrary(*baseName))) {
      mvPackageNameVector.push_back(*baseName);
    }
  }
}

// Keeps the name of the entry, which lives on, and not that of the vector's element, which does
// not.
void DiagnosticController::Enumeration::leaveOutDisabledPackages() {
  const AtRestScope rest;
  mrController.musMachineId =
      static_cast<unsigned short>(mrController.mpDiagCtrlConfig->readMachineId());
  const auto details = mrController.mpDiagCtrlConfig->getPackageDetailsMap();
  for (const char* disabled : mrController.mpDiagCtrlConfig->getDisablePackageList(-1)) {
    const auto found = std::find(mrController.mvPackageNameVector.begin(),
                                 mrController.mvPackageNameVector.end(), disabled);
    if (found == mrController.mvPackageNameVector.end()) {
      continue;
    }
    const auto entry = details.find(disabled);
    if (entry == details.end()) {
      mCall.trace().warning(std::string(disabled) + " (to disable) not enumerated:");
    } else if (entryApplies(*entry->second, mrController.mOs, mrController.musMachineId)) {
      const LockScope lock(mrController.mmtxDisPackageListLock, 0);
      mrController.mDisablePackageList.push_back(disabled);
      mrController.mvPackageNameVector.erase(found);
    }
  }
}

// The result is that of the last package processed; the events tell of the others.
DiagnosticController::errorCode DiagnosticController::Enumeration::enumerateFoundPackages(
    const Selection& arSelection) {
  mrController.setEnumerationProgress(0);
  errorCode result = SUCCESS;
  int index = 1;
  for (std::size_t i = 0;
       i < mrController.mvPackageNameVector.size() && !mrController.getShutDownFlag();) {
    result = enumerateOne(mrController.mvPackageNameVector[i], index, arSelection);
    if (result != SUCCESS) {
      mrController.mvPackageNameVector.erase(mrController.mvPackageNameVector.begin() +
                                             static_cast<std::ptrdiff_t>(i));
      continue;
    }
    ++i;
    ++index;
    mrController.setEnumerationProgress(100 * (index - 1) /
                                        static_cast<int>(mrController.mvPackageNameVector.size()));
  }
  return result;
}

// Whatever a package throws only means that this package is not there.
DiagnosticController::errorCode DiagnosticController::Enumeration::enumerateOne(
    const std::string& arName, int aiIndex, const Selection& arSelection) {
  auto package = std::make_unique<DiagnosticPackage>(arName.c_str(), mrController.musMachineId);
  const auto enumerate = [&] {
    if (mrController.preEnumerationCheck(arName.c_str())) {
      mCall.trace().info(arSelection.vetoText + arName);
      return PACKAGE_NOT_FOUND;
    }
    return mrController.doEnumeratePackage(package.get(), arSelection.mnemonics);
  };
  const errorCode result =
      swallowAll(PACKAGE_NOT_FOUND, enumerate, ToldAsNotFound{mCall.trace(), arName});
  if (result == SUCCESS) {
    addToCatalogue(aiIndex, std::move(package));
  }
  return result;
}

// Into both maps, or into neither.
void DiagnosticController::Enumeration::addToCatalogue(
    int aiIndex, std::unique_ptr<DiagnosticPackage> apDiagPackage) {
  const AtRestScope rest;
  const LockScope lock(mrController.mmtxPackageVectorLock, 0);
  const auto object = mrController.mPackageObjectMap.emplace(aiIndex, apDiagPackage.get()).first;
  try {
    mrController.mPackageMap.emplace(aiIndex, apDiagPackage->getPackageBaseName());
  } catch (...) {
    mrController.mPackageObjectMap.erase(object);
    throw;
  }
  static_cast<void>(apDiagPackage.release());
}

// The description itself stays allocated.
void DiagnosticController::Enumeration::dropFromCatalogue(int aiIndex) {
  const AtRestScope rest;
  const LockScope lock(mrController.mmtxPackageVectorLock, 0);
  mrController.mPackageMap.erase(aiIndex);
  if (const auto lost = mrController.mPackageObjectMap.extract(aiIndex)) {
    mrController.mLostPackages.push_back(lost.mapped());
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
        mpDiagPackInterface->loadPackage((directory + packageLibrary(name)).c_str()));
  } catch (const DiagCtrlLoadLibraryFailed&) {
    return unableToLoad("(load failed)");
  }
  return PackageProbe(*this, trace, package, configFile).run();
}

// What holds code of the library is gone before the library is: the probe was unwound, what the
// package threw was handled, and the package's devices are dropped here.
DiagnosticController::errorCode DiagnosticController::PackageProbe::run() {
  const std::string name = mrPackage.getPackageBaseName();
  const AtRestScope rest;
  errorCode result = FUNCTION_NOT_FOUND_IN_DLL;
  try {
    return probe();
  } catch (const DiagCtrlFunctionNotFoundInDll&) {
    mrTrace.warning(kPrefix + "FUNCTION_NOT_FOUND_IN_DLL: " + name + "(getIDiagnostics() failed)");
    pushWarning(*mrController.mpDiagUtil, DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL);
  } catch (const DiagCtrlObjectNotFound&) {
    mrTrace.warning(kPrefix + "UNABLE_TO_CREATE_DEVICE_VECTOR: " + name);
    pushWarning(*mrController.mpDiagUtil, DiagCtrlEvent::UNABLE_TO_CREATE_DEVICE_VECTOR);
    result = UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  mrPackage.clearPackageData();
  mrController.mpDiagPackInterface->releaseLibrary(mrPackage.getPackageHandle(), kTimeOut);
  return result;
}

DiagnosticController::errorCode DiagnosticController::PackageProbe::probe() {
  const AtRestScope rest;
  DiagnosticPackageInterface& loader = *mrController.mpDiagPackInterface;
  const p_Handle handle = mrPackage.getPackageHandle();
  loader.setPackageConfigFile(handle, mrConfigFile.c_str());
  loader.setPackageLogDir(handle, mrController.mpcLogDirPath);
  const GlobalSettings::diagMode diagMode = mrController.mpGlobalSettings->getDiagnosticMode();
  const bool diagLog = mrController.mpGlobalSettings->getDiagLogMode();
  PackageObjects made;
  made.enumerator.reset(loader.getIDeviceEnumerator(handle, diagLog, diagMode));
  if (made.enumerator == nullptr) {
    mrTrace.warning(kPrefix + "returning from doEnumerate");
    return UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  const DeviceEnum::VirtualDeviceVector* devices =
      made.enumerator->getDeviceVector(mrPackage.getResourceString(), mrPackage.getDeviceType());
  if (devices == nullptr) {
    made.enumerator.reset();
    mrTrace.warning("DiagnosticController::doEnumeratePackage(): NULL Vector: " +
                    std::string(mrPackage.getPackageBaseName()));
    return UNABLE_TO_CREATE_DEVICE_VECTOR;
  }
  made.devices = *devices;  // the returned vector stays with the package
  made.diagnostics.reset(loader.getIDiagnostics(handle, mrConfigFile.c_str(), diagLog, diagMode));
  mrPackage.createDeviceVector(&made.devices, made.diagnostics.get());
  made.diagnostics.reset();
  made.enumerator.reset();
  createResourceLocks(made.devices);
  return SUCCESS;
}

void DiagnosticController::PackageProbe::createResourceLocks(
    DeviceEnum::VirtualDeviceVector& arDevices) {
  kClientsAtRest.mayRead();
  for (DeviceEnum::VirtualDevice& device : arDevices) {
    const std::string& tag = device.getDevice()->getResourceTag();
    try {
      mrController.mpResourceLockManager->createResourceLock(tag, -1);
    } catch (const DiagCtrlKeyExistsException&) {
      mrTrace.warning("RESOURCE_TAG_EXISTS: " + tag);
    }
  }
}

// Opened and closed again, only to prove that it loads: beside the package, then by the loader's
// own search.
bool DiagnosticController::checkPackageDllDep(const char* apcPackageDir,
                                              const char* apcPackDllName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::checkPackageDllDep");
  kClientsAtRest.mayRead();
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
  return Enumeration(*this, "DiagnosticController::enumerateDiagPackages").runAgain(packageIndex);
}

DiagnosticController::errorCode DiagnosticController::Enumeration::runAgain(int aiPackageIndex) {
  return mCall.answerBehind(ClientCall::enumerateAgain, [&] {
    const LockScope apiLock(mrController.mmtxApiPhaseLock, -1);
    if (const auto refused = mCall.refusal(ClientCall::enumerateAgain)) {
      return *refused;
    }
    const EnumerationPhase phase(*mrController.mpDiagCtrlStatus, DiagControllerStatus::IDLE);
    const AtRestScope rest;
    // Its place among the lost, before anything is changed.
    mrController.mLostPackages.reserve(mrController.mLostPackages.size() + 1);
    const auto name = mrController.mPackageMap.find(aiPackageIndex);
    const errorCode result = swallowAll(
        PACKAGE_NOT_FOUND,
        [&] {
          Call::holdsApiPhaseLock(mrController);
          return enumerateAgain(aiPackageIndex);
        },
        ToldAsNotFound{mCall.trace(), name != mrController.mPackageMap.end() ? name->second : ""});
    if (result != SUCCESS) {
      dropFromCatalogue(aiPackageIndex);
    }
    return result;
  });
}

DiagnosticController::errorCode DiagnosticController::Enumeration::enumerateAgain(
    int aiPackageIndex) {
  const AtRestScope rest;
  kClientsAtRest.standsFor(mrController.mmtxPackageVectorLock);
  const auto entry = mrController.mPackageObjectMap.find(aiPackageIndex);
  if (entry == mrController.mPackageObjectMap.end() ||
      !mrController.mPackageMap.contains(aiPackageIndex)) {
    return PACKAGE_NOT_FOUND;
  }
  DiagnosticPackage& package = *entry->second;
  removeResourceLocks(package);
  if (mrController.mpTestRequestManager->isPackageInUse(package)) {
    // A request of the earlier enumeration may still reach its device, whose code lies there.
    mrController.mRetiredHandles.push_back(package.getPackageHandle());
    package.retirePackageData();
  } else {
    package.clearPackageData();
    mrController.mpDiagPackInterface->releaseLibrary(package.getPackageHandle(), kTimeOut);
  }
  package.setPackageHandle(nullptr);
  return mrController.doEnumeratePackage(&package, PackageNameVector());
}

void DiagnosticController::Enumeration::removeResourceLocks(DiagnosticPackage& arPackage) {
  kClientsAtRest.mayRead();
  const DeviceVector devices = arPackage.getDeviceVector();
  for (DiagDevice* device : devices) {
    const std::string& tag = device->getIDevice()->getResourceTag();
    try {
      mrController.mpResourceLockManager->removeResourceLock(tag, -1);
    } catch (const DiagCtrlKeyNotExistException&) {
      mCall.trace().warning("NO_RESOURCE_TAG: " + tag);
    }
  }
}

DiagnosticController::errorCode DiagnosticController::getEnumerationProgress(
    int& progress) noexcept {
  Call call(*this, "DiagnosticController::getEnumerationProgress");
  diagCtrlPhase phase = DiagControllerStatus::UNINITIALISED;
  try {
    phase = getDiagCtrlPhase(kTimeOut);
  } catch (const DiagCtrlMutexException&) {
    return call.fail({DiagCtrlEvent::UNABLE_TO_GET_LOCK, INCORRECT_PHASE});
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
      return call.fail(kIncorrectPhase);
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
