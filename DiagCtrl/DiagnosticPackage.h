#pragma once

#include <atomic>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "DeviceEnum/VirtualDevice.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;
class TraceScope;

typedef void* p_Handle;  ///< the enumeration's handle of a package's shared object
typedef std::vector<DiagDevice*> DeviceVector;

/// One package of the catalogue: what its configuration file says, its tests, its devices, and the
/// state of each pair of device and test.
///
/// Texts handed out belong to the object. Tests and devices belong to it too; they live until the
/// package is enumerated again or the controller is shut down.
///
/// Thread-safety: `initialize`, `createDeviceVector`, `clearPackageData` and the updates run during
/// enumeration only; the getters at any time.
class TARVEXDIAGS_EXPORT DiagnosticPackage {
 public:
  /// @param pcPackageBaseName name of the configuration file without ".cfg"; null ends the process.
  DiagnosticPackage(const char* pcPackageBaseName, unsigned short machineId);
  DiagnosticPackage(const DiagnosticPackage&) = delete;
  DiagnosticPackage& operator=(const DiagnosticPackage&) = delete;
  /// Does not close the package's handle.
  virtual ~DiagnosticPackage();

  /// Reads the package's configuration file.
  /// @throws DiagCtrlInitialisationFailed for any fault of the file.
  void initialize(const char* apcPackFileName);

  const char* getResourceString();
  const char* getPackageBaseName();
  const char* getPackageName();
  const char* getPackageMnemonic();
  const char* getPackageVersion();
  const char* getPackageDesc();
  const char* getPackageDepDll();
  unsigned int getDeviceType();
  /// Whether the package's tests take the whole machine.
  bool checkSystemLock();
  /// The same without a trace.
  bool takesMachine() const noexcept { return mbSystemLock; }

  p_Handle getPackageHandle();
  void setPackageHandle(p_Handle aHandle);

  /// Ids of the tests on offer. @throws DiagCtrlMutexException
  std::map<int, int> getTestIdMap();
  /// @throws DiagCtrlKeyNotExistException if there is no such test, DiagCtrlMutexException
  PackageTestInfo* getTestInfoFromPackage(int iTestId);
  /// Ids of the tests that were withdrawn for this machine or operating system.
  std::list<int> getDisableTestList();
  void updateTestIdMap(int aiTestId, int aizero);
  void updateTestIdTestObjectMap(int aiTestId, PackageTestInfo* apTestInfo);

  /// Destroys devices and tests and forgets what the file said of them; the texts stay.
  void clearPackageData();
  /// The same, but devices and tests are kept until they are deleted by the next call or with the
  /// package: for a package whose requests are still alive when it is enumerated again.
  void retirePackageData();
  /// Once no request is left that could reach them.
  void deleteRetiredData();

  /// Wraps each device of the vector, numbers it from 1, and asks the diagnostics object once for
  /// each pair of device and offered test. Keeps neither argument.
  /// @param apIDiagnostics used without a test for null if there is any device.
  /// @throws DiagCtrlObjectNotFound; what the package throws passes through.
  void createDeviceVector(DeviceEnum::VirtualDeviceVector* apVirtualDeviceVector,
                          Diag::IDiagnostics* apIDiagnostics);
  DeviceVector& getDeviceVector();
  void updateDevIdDevObjectMap(int aiDeviceId, DiagDevice* apDiagDevice);
  /// @throws DiagCtrlKeyNotExistException if there is no such device, DiagCtrlMutexException
  DiagDevice* getDevice(int aiDeviceId);
  int getNumOfDevices();
  /// Ids of all devices, ascending. @throws DiagCtrlMutexException
  std::list<int> getDeviceIdList();
  void updateDeviceIdList(std::list<int> aDeviceIdList);

 private:
  void readFile(const char* apcFile);
  void readPackageSection(const char* apcFile);
  void readTest(const char* apcFile, int aiTestId);
  void readDisabledTest(const char* apcFile, int aiEntry, const std::string& arOs);
  void readDisabledDevices(const char* apcFile, int aiEntry, const std::string& arOs);
  bool entryApplies(const char* apcFile, const char* apcSection, const std::string& arOs) const;
  void withdrawTest(int aiTestId);
  bool isDisabledFor(int aiTestId, const char* apcDisableName) const;
  void settlePair(const TraceScope& arTrace, int aiTestId, int aiDeviceId, DiagDevice& arDevice,
                  const char* apcDisableName);
  void dropDevices();

  unsigned short musMachineId;
  std::map<int, PackageTestInfo*> mTestIdTestObjectMap;
  std::map<int, DiagDevice*> mDevIdDevObjectMap;
  char* mpcResourceString;
  unsigned int muiDeviceType;
  std::string msPackageBaseName;
  char* mpcPackagename;
  char* mpcPackageMnemonic;
  char* mpcPackageVersion;
  char* mpcPackageDesc;
  std::atomic<bool> mbSystemLock;
  char* mpcDLLDependencies;
  int miNumTest;
  DiagCtrlLock mmtxTestIdTestObjMapLock;
  p_Handle mDLLHandle;
  std::list<int> mlDeviceIdList;
  std::map<int, int> mTestIdMap;
  DiagCtrlLock mmtxDevIdDevObjectMapLock;
  DeviceVector mDeviceVector;
  std::list<int> mlDisableTestList;
  std::map<int, std::list<char*>> mmTestIdDeviceMap;
  DiagTracer* mpDiagTracer;
  DiagCtrlLock mmtxDeviceIdListLock;
  DiagCtrlLock mmtxTestIdMapLock;

  DeviceVector mRetiredDevices;
  std::vector<PackageTestInfo*> mRetiredTests;
};

}  // namespace TarvexDiags::DiagCtrl
