#pragma once

#include <atomic>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "DeviceEnum/VirtualDevice.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

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
  void initialize(const char* apcPackFileName) TARVEXDIAGS_REQUIRES(kClientsAtRest);

  const char* getResourceString() noexcept;
  const char* getPackageBaseName() noexcept;
  const char* getPackageName() noexcept;
  const char* getPackageMnemonic() noexcept;
  const char* getPackageVersion() noexcept;
  const char* getPackageDesc() noexcept;
  const char* getPackageDepDll() noexcept;
  unsigned int getDeviceType() noexcept;
  /// Whether the package's tests take the whole machine.
  bool checkSystemLock() noexcept;
  /// The same without a trace.
  bool takesMachine() const noexcept { return mbSystemLock; }

  p_Handle getPackageHandle() noexcept;
  void setPackageHandle(p_Handle aHandle) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);

  /// Ids of the tests on offer. @throws DiagCtrlMutexException
  std::map<int, int> getTestIdMap();
  /// @throws DiagCtrlKeyNotExistException if there is no such test, DiagCtrlMutexException
  PackageTestInfo* getTestInfoFromPackage(int iTestId);
  /// Ids of the tests that were withdrawn for this machine or operating system.
  std::list<int> getDisableTestList();
  void updateTestIdMap(int aiTestId, int aizero) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void updateTestIdTestObjectMap(int aiTestId, PackageTestInfo* apTestInfo)
      TARVEXDIAGS_REQUIRES(kClientsAtRest);

  /// Destroys devices and tests and forgets what the file said of them; the texts stay.
  void clearPackageData() TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// The same, but devices and tests are kept until they are deleted by the next call or with the
  /// package: for a package whose requests are still alive when it is enumerated again.
  void retirePackageData() TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// Once no request is left that could reach them.
  void deleteRetiredData() TARVEXDIAGS_REQUIRES(kClientsAtRest);

  /// Wraps each device of the vector, numbers it from 1, and asks the diagnostics object once for
  /// each pair of device and offered test. Keeps neither argument.
  /// @param apIDiagnostics used without a test for null if there is any device.
  /// @throws DiagCtrlObjectNotFound; what the package throws passes through.
  void createDeviceVector(DeviceEnum::VirtualDeviceVector* apVirtualDeviceVector,
                          Diag::IDiagnostics* apIDiagnostics) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  DeviceVector& getDeviceVector() noexcept;
  void updateDevIdDevObjectMap(int aiDeviceId, DiagDevice* apDiagDevice)
      TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// @throws DiagCtrlKeyNotExistException if there is no such device, DiagCtrlMutexException
  DiagDevice* getDevice(int aiDeviceId);
  int getNumOfDevices();
  /// Ids of all devices, ascending. @throws DiagCtrlMutexException
  std::list<int> getDeviceIdList();
  void updateDeviceIdList(std::list<int> aDeviceIdList);

 private:
  void readFile(const char* apcFile) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void readPackageSection(const char* apcFile) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void readTest(const char* apcFile, int aiTestId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void readDisabledTest(const char* apcFile, int aiEntry, const std::string& arOs)
      TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void readDisabledDevices(const char* apcFile, int aiEntry, const std::string& arOs)
      TARVEXDIAGS_REQUIRES(kClientsAtRest);
  bool entryApplies(const char* apcFile, const char* apcSection, const std::string& arOs) const;
  void withdrawTest(int aiTestId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  bool isDisabledFor(int aiTestId, const char* apcDisableName) const
      TARVEXDIAGS_REQUIRES_SHARED(kClientsAtRest);
  void settlePair(const TraceScope& arTrace, int aiTestId, int aiDeviceId, DiagDevice& arDevice,
                  const char* apcDisableName) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void dropDevices() TARVEXDIAGS_REQUIRES(kClientsAtRest);

  unsigned short musMachineId;
  std::map<int, PackageTestInfo*> mTestIdTestObjectMap
      TARVEXDIAGS_GUARDED_BY(mmtxTestIdTestObjMapLock);
  std::map<int, DiagDevice*> mDevIdDevObjectMap TARVEXDIAGS_GUARDED_BY(mmtxDevIdDevObjectMapLock);
  char* mpcResourceString TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  unsigned int muiDeviceType TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::string msPackageBaseName;
  char* mpcPackagename TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcPackageMnemonic TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcPackageVersion TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcPackageDesc TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::atomic<bool> mbSystemLock;
  char* mpcDLLDependencies TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  int miNumTest TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  DiagCtrlLock mmtxTestIdTestObjMapLock;
  p_Handle mDLLHandle TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::list<int> mlDeviceIdList TARVEXDIAGS_GUARDED_BY(mmtxDeviceIdListLock);
  std::map<int, int> mTestIdMap TARVEXDIAGS_GUARDED_BY(mmtxTestIdMapLock);
  DiagCtrlLock mmtxDevIdDevObjectMapLock;
  DeviceVector mDeviceVector TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::list<int> mlDisableTestList TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::map<int, std::list<char*>> mmTestIdDeviceMap TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  DiagTracer* mpDiagTracer;
  DiagCtrlLock mmtxDeviceIdListLock;
  DiagCtrlLock mmtxTestIdMapLock;

  DeviceVector mRetiredDevices TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::vector<PackageTestInfo*> mRetiredTests TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
};

}  // namespace TarvexDiags::DiagCtrl
