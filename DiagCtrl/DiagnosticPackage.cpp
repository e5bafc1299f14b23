#include "DiagCtrl/DiagnosticPackage.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "DeviceEnum/IDevice.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInitialisationFailed.h"
#include "DiagCtrl/DiagCtrlInvalidKey.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/Invariant.h"
#include "System/SysUtil.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using C = DiagCtrlConstants;
using Text = std::unique_ptr<char[]>;

constexpr auto kMinorLock = DiagCtrlBaseException::MutexException;
constexpr int kSize = C::miSBuffSize;

int (*const stringcmp2)(const char*, const char*) = strcasecmp;

std::string numbered(const char* apcName, int aiNumber) {
  return apcName + std::to_string(aiNumber);
}

char* readText(const char* apcSection, const char* apcKey, const char* apcFile) {
  return DiagUtil::getInstance()->getString(apcSection, apcKey, kSize, apcFile);
}
char* readRequiredText(const char* apcSection, const char* apcKey, const char* apcFile) {
  return DiagUtil::getInstance()->getAndValidateString(apcSection, apcKey, kSize, apcFile);
}
int readNumber(const char* apcSection, const char* apcKey, const char* apcFile) {
  return static_cast<int>(DiagUtil::getInstance()->getInt(apcSection, apcKey, apcFile));
}
int readRequiredNumber(const char* apcSection, const char* apcKey, const char* apcFile) {
  return static_cast<int>(DiagUtil::getInstance()->getAndValidateInt(apcSection, apcKey, apcFile));
}
bool readRequiredBool(const char* apcSection, const char* apcKey, const char* apcFile) {
  return DiagUtil::getInstance()->getAndValidateBool(apcSection, apcKey, kSize, apcFile);
}

void freeTexts(std::list<char*>& arTexts) {
  for (char* text : arTexts) {
    delete[] text;
  }
  arTexts.clear();
}

/// Texts on their way to an owner; freed if they do not get there.
struct OwnedTexts {
  OwnedTexts() = default;
  ~OwnedTexts() { freeTexts(texts); }
  OwnedTexts(const OwnedTexts&) = delete;
  OwnedTexts& operator=(const OwnedTexts&) = delete;

  std::list<char*> texts;
};

}  // namespace

DiagnosticPackage::DiagnosticPackage(const char* pcPackageBaseName, unsigned short machineId)
    : musMachineId(machineId),
      mpcResourceString(nullptr),
      muiDeviceType(0),
      mpcPackagename(nullptr),
      mpcPackageMnemonic(nullptr),
      mpcPackageVersion(nullptr),
      mpcPackageDesc(nullptr),
      mbSystemLock(false),
      mpcDLLDependencies(nullptr),
      miNumTest(0),
      mmtxTestIdTestObjMapLock(C::mSconlDefaultLockTimeOut),
      mDLLHandle(nullptr),
      mmtxDevIdDevObjectMapLock(C::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()),
      mmtxDeviceIdListLock(C::mSconlDefaultLockTimeOut),
      mmtxTestIdMapLock(C::mSconlDefaultLockTimeOut) {
  assertInvariant(pcPackageBaseName != nullptr, "pcPackageBaseName != 0");
  msPackageBaseName = pcPackageBaseName;
}

DiagnosticPackage::~DiagnosticPackage() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::~DiagnosticPackage");
  clearPackageData();
  deleteRetiredData();
  for (char* text : {mpcResourceString, mpcPackagename, mpcPackageMnemonic, mpcPackageVersion,
                     mpcPackageDesc, mpcDLLDependencies}) {
    delete[] text;
  }
}

void DiagnosticPackage::initialize(const char* apcPackFileName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::initialize");
  try {
    readFile(apcPackFileName);
  } catch (const DiagCtrlInvalidKey&) {
    raise<DiagCtrlInitialisationFailed>(DiagCtrlBaseException::InitialisationFailed,
                                        "DiagnosticPackage::initialize()");
  }
}

// Withdrawn tests first: the entries of disabled devices are read for tests on offer only.
void DiagnosticPackage::readFile(const char* apcFile) {
  readPackageSection(apcFile);
  for (int test = 1; test <= miNumTest; ++test) {
    readTest(apcFile, test);
  }
  const std::string os = System::SysUtil::getOs();
  const int tests = readNumber(C::mSconpcDisTest, C::mSconpcNumTest, apcFile);
  for (int entry = 1; entry <= tests; ++entry) {
    readDisabledTest(apcFile, entry, os);
  }
  const int devices = readNumber(C::mSconpcDisDevice, C::mSconpcNumTest, apcFile);
  for (int entry = 1; entry <= devices; ++entry) {
    readDisabledDevices(apcFile, entry, os);
  }
}

// Texts of an earlier reading are overwritten and not freed: a client may still hold them.
void DiagnosticPackage::readPackageSection(const char* apcFile) {
  const char* section = C::mSconpcPackage;
  muiDeviceType = static_cast<unsigned int>(readNumber(section, C::mSconpcDeviceType, apcFile));
  mpcPackagename = readRequiredText(section, C::mSconPackageName, apcFile);
  mpcPackageMnemonic = readRequiredText(section, C::mSconPackageMnemonic, apcFile);
  mpcPackageVersion = readRequiredText(section, C::mSconpcPackageVersion, apcFile);
  mpcPackageDesc = readRequiredText(section, C::mSconpcPackageDesc, apcFile);
  mbSystemLock = readRequiredBool(section, C::mSconpcSystemLock, apcFile);
  mpcResourceString = readText(section, C::mSconpcResourceLockProperty, apcFile);
  mpcDLLDependencies = readText(section, C::mSconpcDLLDependencies, apcFile);
  miNumTest = readRequiredNumber(section, C::mSconpcNumTest, apcFile);
}

void DiagnosticPackage::readTest(const char* apcFile, int aiTestId) {
  const std::string name = numbered(C::mSconpcTestId, aiTestId);
  const char* section = name.c_str();
  Text testName(readRequiredText(section, C::mSconpcTestName, apcFile));
  Text description(readRequiredText(section, C::mSconpcTestDesc, apcFile));
  Text capabilities(readText(section, C::mSconpcTestCapabilities, apcFile));
  Text openMode(readText(section, C::mSconpcTestOpenMode, apcFile));
  const bool isDisabled = readRequiredBool(section, C::mSconpcTestDisable, apcFile);
  const int estimatedTime = readNumber(section, C::mSconpcTestEstimatedTime, apcFile);
  if (isDisabled) {
    return;  // and no other test takes its number
  }
  auto test = std::make_unique<PackageTestInfo>();
  updateTestIdMap(aiTestId, 0);
  test->setTestName(testName.release());
  test->setTestDesc(description.release());
  test->setTestCapabilities(capabilities.release());
  test->setTestOpenMode(openMode.release());
  test->setTestDisable(false);
  test->setTestEstimatedTime(estimatedTime);
  updateTestIdTestObjectMap(aiTestId, test.get());
  static_cast<void>(test.release());  // the map's now
}

void DiagnosticPackage::readDisabledTest(const char* apcFile, int aiEntry,
                                         const std::string& arOs) {
  const std::string section = numbered(C::mSconpcDisTestId, aiEntry);
  const int test = readRequiredNumber(section.c_str(), C::mSconpcTestId, apcFile);
  kClientsAtRest.standsFor(mmtxTestIdTestObjMapLock);
  if (mTestIdTestObjectMap.contains(test) && entryApplies(apcFile, section.c_str(), arOs)) {
    withdrawTest(test);
  }
}

void DiagnosticPackage::readDisabledDevices(const char* apcFile, int aiEntry,
                                            const std::string& arOs) {
  const std::string section = numbered(C::mSconpcDevTestId, aiEntry);
  const int test = readRequiredNumber(section.c_str(), C::mSconpcTestId, apcFile);
  kClientsAtRest.standsFor(mmtxTestIdTestObjMapLock);
  if (!mTestIdTestObjectMap.contains(test)) {
    return;
  }
  const int count = readRequiredNumber(section.c_str(), C::mSconpcNumDevice, apcFile);
  if (!entryApplies(apcFile, section.c_str(), arOs)) {
    return;
  }
  OwnedTexts names;
  for (int device = 1; device <= count; ++device) {
    const std::string key = numbered(C::mSconpcDeviceName, device);
    Text name(readRequiredText(section.c_str(), key.c_str(), apcFile));
    names.texts.push_back(name.get());
    static_cast<void>(name.release());
  }
  // The first entry that applies counts; a later one for the same test is dropped.
  if (const auto [entry, isFirst] = mmTestIdDeviceMap.try_emplace(test); isFirst) {
    entry->second.swap(names.texts);
  }
}

// Unlike the entries of the control file: the machine id is decimal and only an empty one means any
// machine, and the operating system matches in any case.
bool DiagnosticPackage::entryApplies(const char* apcFile, const char* apcSection,
                                     const std::string& arOs) const {
  const Text machineId(readText(apcSection, C::mSconMachineId, apcFile));
  const Text os(readText(apcSection, C::mSconOs, apcFile));
  const bool isMachine =
      stringcmp2(machineId.get(), C::mSconNull) == 0 ||
      static_cast<unsigned short>(std::strtol(machineId.get(), nullptr, 10)) == musMachineId;
  const bool isOs =
      stringcmp2(os.get(), C::mSconNull) == 0 || stringcmp2(os.get(), arOs.c_str()) == 0;
  return isMachine && isOs;
}

void DiagnosticPackage::withdrawTest(int aiTestId) {
  const LockScope lock(mmtxTestIdTestObjMapLock, 0);
  const auto entry = mTestIdTestObjectMap.find(aiTestId);
  mlDisableTestList.push_back(aiTestId);
  delete entry->second;
  mTestIdTestObjectMap.erase(entry);
  kClientsAtRest.standsFor(mmtxTestIdMapLock);
  mTestIdMap.erase(aiTestId);
}

const char* DiagnosticPackage::getResourceString() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getResourceString");
  kClientsAtRest.mayRead();
  return mpcResourceString;
}

const char* DiagnosticPackage::getPackageBaseName() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageBaseName");
  return msPackageBaseName.c_str();
}

const char* DiagnosticPackage::getPackageName() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageName");
  kClientsAtRest.mayRead();
  return mpcPackagename;
}

const char* DiagnosticPackage::getPackageMnemonic() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageMnemonic");
  kClientsAtRest.mayRead();
  return mpcPackageMnemonic;
}

const char* DiagnosticPackage::getPackageVersion() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageVersion");
  kClientsAtRest.mayRead();
  return mpcPackageVersion;
}

const char* DiagnosticPackage::getPackageDesc() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageDesc");
  kClientsAtRest.mayRead();
  return mpcPackageDesc;
}

const char* DiagnosticPackage::getPackageDepDll() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageDepDll");
  kClientsAtRest.mayRead();
  return mpcDLLDependencies;
}

unsigned int DiagnosticPackage::getDeviceType() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getDeviceType");
  kClientsAtRest.mayRead();
  return muiDeviceType;
}

bool DiagnosticPackage::checkSystemLock() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::checkSystemLock");
  return mbSystemLock;
}

p_Handle DiagnosticPackage::getPackageHandle() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getPackageHandle");
  kClientsAtRest.mayRead();
  return mDLLHandle;
}

void DiagnosticPackage::setPackageHandle(p_Handle aHandle) noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::setPackageHandle");
  mDLLHandle = aHandle;
}

std::map<int, int> DiagnosticPackage::getTestIdMap() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getTestIdMap");
  const LockScope lock(mmtxTestIdMapLock, 0, kMinorLock, "DiagnosticPackage::getTestIdMap()");
  return mTestIdMap;
}

PackageTestInfo* DiagnosticPackage::getTestInfoFromPackage(int iTestId) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getTestInfoFromPackage");
  const LockScope lock(mmtxTestIdTestObjMapLock, 0, kMinorLock, "DiagnosticPackage::getDevice()");
  const auto entry = mTestIdTestObjectMap.find(iTestId);
  if (entry == mTestIdTestObjectMap.end()) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException,
                                        "DiagnosticPackage::getDevice()");
  }
  return entry->second;
}

std::list<int> DiagnosticPackage::getDisableTestList() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getDisableTestList");
  kClientsAtRest.mayRead();
  return mlDisableTestList;
}

void DiagnosticPackage::updateTestIdMap(int aiTestId, int aizero) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::updateTestIdMap");
  kClientsAtRest.standsFor(mmtxTestIdMapLock);
  mTestIdMap.emplace(aiTestId, aizero);
}

// Locked, since a pass thread of an earlier generation may be looking up its test.
void DiagnosticPackage::updateTestIdTestObjectMap(int aiTestId, PackageTestInfo* apTestInfo) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::updateTestIdTestObjectMap");
  const LockScope lock(mmtxTestIdTestObjMapLock, 0);
  mTestIdTestObjectMap.emplace(aiTestId, apTestInfo);
}

void DiagnosticPackage::retirePackageData() {
  mRetiredDevices.insert(mRetiredDevices.end(), mDeviceVector.begin(), mDeviceVector.end());
  mDeviceVector.clear();
  {
    const LockScope lock(mmtxTestIdTestObjMapLock, 0);
    mRetiredTests.reserve(mRetiredTests.size() + mTestIdTestObjectMap.size());
    for (const auto& entry : mTestIdTestObjectMap) {
      mRetiredTests.push_back(entry.second);
    }
    mTestIdTestObjectMap.clear();
  }
  clearPackageData();
}

void DiagnosticPackage::deleteRetiredData() {
  for (DiagDevice* device : mRetiredDevices) {
    delete device;
  }
  mRetiredDevices.clear();
  for (PackageTestInfo* test : mRetiredTests) {
    delete test;
  }
  mRetiredTests.clear();
}

// The list of device ids stays, for createDeviceVector to replace.
void DiagnosticPackage::clearPackageData() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::clearPackageData");
  dropDevices();
  {
    const LockScope lock(mmtxTestIdTestObjMapLock, 0);
    for (const auto& entry : mTestIdTestObjectMap) {
      delete entry.second;
    }
    mTestIdTestObjectMap.clear();
  }
  for (auto& entry : mmTestIdDeviceMap) {
    freeTexts(entry.second);
  }
  mmTestIdDeviceMap.clear();
  mlDisableTestList.clear();
  kClientsAtRest.standsFor(mmtxTestIdMapLock);
  kClientsAtRest.standsFor(mmtxDevIdDevObjectMapLock);
  mTestIdMap.clear();
  mDevIdDevObjectMap.clear();
}

void DiagnosticPackage::dropDevices() {
  for (DiagDevice* device : mDeviceVector) {
    delete device;
  }
  mDeviceVector.clear();
}

void DiagnosticPackage::createDeviceVector(DeviceEnum::VirtualDeviceVector* apVirtualDeviceVector,
                                           Diag::IDiagnostics* apIDiagnostics) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::createDeviceVector");
  kClientsAtRest.standsFor(mmtxDevIdDevObjectMapLock);
  mDeviceVector.clear();
  mDevIdDevObjectMap.clear();
  for (DeviceEnum::VirtualDevice& device : *apVirtualDeviceVector) {
    if (apIDiagnostics == nullptr || device.getDevice() == nullptr) {
      // Nobody could be asked, or about nothing; a package without devices needs nobody.
      raise<DiagCtrlObjectNotFound>(DiagCtrlBaseException::ObjectNotFound,
                                    "DiagnosticPackage::createDeviceVector()");
    }
  }
  mDeviceVector.reserve(apVirtualDeviceVector->size());
  for (const DeviceEnum::VirtualDevice& device : *apVirtualDeviceVector) {
    mDeviceVector.push_back(new DiagDevice(device));
  }
  std::list<int> ids;
  for (DiagDevice* device : mDeviceVector) {
    ids.push_back(static_cast<int>(ids.size()) + 1);
    updateDevIdDevObjectMap(ids.back(), device);
  }
  updateDeviceIdList(ids);
  kClientsAtRest.standsFor(mmtxTestIdMapLock);
  for (const int id : ids) {
    DiagDevice& device = *mDeviceVector[static_cast<std::size_t>(id) - 1];
    DeviceEnum::VirtualDevice virtualDevice = device.getVirtualDeviceRef();
    const std::string disableName = virtualDevice.getDevice()->getDisableDeviceName();
    for (const auto& [test, zero] : mTestIdMap) {
      if (apIDiagnostics->IsDeviceSupported(virtualDevice, test)) {
        settlePair(trace, test, id, device, disableName.c_str());
      } else {
        trace.info("IsDeviceSupported check failed for " +
                   virtualDevice.getDevice()->getDeviceName());
      }
    }
  }
}

void DiagnosticPackage::settlePair(const TraceScope& arTrace, int aiTestId, int aiDeviceId,
                                   DiagDevice& arDevice, const char* apcDisableName) {
  constexpr const char* kText = "DiagnosticPackage::createDeviceVector()";
  try {
    PackageTestInfo& test = *getTestInfoFromPackage(aiTestId);
    if (isDisabledFor(aiTestId, apcDisableName)) {
      arDevice.updateDisableTestList(aiTestId);
      test.updateDisableDeviceIdList(aiDeviceId);
    } else {
      arDevice.updateTestIdMap(aiTestId);
      test.updateEnableDeviceIdList(aiDeviceId);
    }
  } catch (const DiagCtrlKeyNotExistException&) {
    arTrace.info("Incorrect Flow of Program. Should Never reach here.");
    raise<DiagCtrlObjectNotFound>(DiagCtrlBaseException::ObjectNotFound, kText);
  } catch (const DiagCtrlMutexException&) {
    kClientsAtRest.standsFor(mmtxDeviceIdListLock);
    kClientsAtRest.standsFor(mmtxDevIdDevObjectMapLock);
    mlDeviceIdList.clear();
    mDevIdDevObjectMap.clear();
    dropDevices();
    raise<DiagCtrlObjectNotFound>(DiagCtrlBaseException::ObjectNotFound, kText);
  }
}

bool DiagnosticPackage::isDisabledFor(int aiTestId, const char* apcDisableName) const {
  const auto entry = mmTestIdDeviceMap.find(aiTestId);
  return entry != mmTestIdDeviceMap.end() &&
         std::any_of(entry->second.begin(), entry->second.end(),
                     [&](const char* apcName) { return stringcmp2(apcName, apcDisableName) == 0; });
}

DeviceVector& DiagnosticPackage::getDeviceVector() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getDeviceVector");
  kClientsAtRest.mayRead();
  return mDeviceVector;
}

void DiagnosticPackage::updateDevIdDevObjectMap(int aiDeviceId, DiagDevice* apDiagDevice) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::updateDevIdDevObjectMap");
  kClientsAtRest.standsFor(mmtxDevIdDevObjectMapLock);
  mDevIdDevObjectMap.emplace(aiDeviceId, apDiagDevice);
}

DiagDevice* DiagnosticPackage::getDevice(int aiDeviceId) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getDevice");
  const LockScope lock(mmtxDevIdDevObjectMapLock, 0, kMinorLock, "DiagnosticPackage::getDevice()");
  const auto entry = mDevIdDevObjectMap.find(aiDeviceId);
  if (entry == mDevIdDevObjectMap.end()) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException,
                                        "DiagnosticPackage::getDevice()");
  }
  return entry->second;
}

int DiagnosticPackage::getNumOfDevices() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getNumOfDevices");
  const LockScope lock(mmtxDevIdDevObjectMapLock, 0, kMinorLock, "DiagnosticPackage::getDevice()");
  return static_cast<int>(mDevIdDevObjectMap.size());
}

std::list<int> DiagnosticPackage::getDeviceIdList() {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::getDeviceIdList");
  const LockScope lock(mmtxDeviceIdListLock, 0, kMinorLock, "DiagnosticPackage::getDeviceIdList()");
  return mlDeviceIdList;
}

void DiagnosticPackage::updateDeviceIdList(std::list<int> aDeviceIdList) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackage::updateDeviceIdList");
  const LockScope lock(mmtxDeviceIdListLock, 0, kMinorLock,
                       "DiagnosticPackage::updateDeviceIdList()");
  mlDeviceIdList = std::move(aDeviceIdList);
}

}  // namespace TarvexDiags::DiagCtrl
