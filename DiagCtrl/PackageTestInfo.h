#pragma once

#include <list>

#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// One test of a package, as its configuration file describes it, and the devices it can run on.
///
/// Thread-safety: the setters and updates run during enumeration only; the getters at any time.
/// Texts belong to the object, null until set; the setters take arrays made with new over.
class TARVEXDIAGS_EXPORT PackageTestInfo {
 public:
  PackageTestInfo();
  PackageTestInfo(const PackageTestInfo&) = delete;
  PackageTestInfo& operator=(const PackageTestInfo&) = delete;
  virtual ~PackageTestInfo();

  const char* getTestName() noexcept;
  const char* getTestDesc() noexcept;
  /// Kept and handed out, nothing more.
  const char* getTestCapabilities() noexcept;
  /// Access mode text: READ_ONLY, WRITE_ONLY or QUERY in it counts, anything else is both.
  const char* getTestOpenMode() noexcept;
  bool getTestDisable() noexcept;
  /// In the unit that package and client agree on; 0 when the file gives none.
  int getTestEstimatedTime() noexcept;

  void setTestName(char* apcTestName) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void setTestDesc(char* apcTestDesc) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void setTestCapabilities(char* apcTestCapabilities) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void setTestOpenMode(char* apcTestOpenMode) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void setTestDisable(bool abTestDisable) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void setTestEstimatedTime(int aiTestEstimatedTime) noexcept TARVEXDIAGS_REQUIRES(kClientsAtRest);

  void updateEnableDeviceIdList(int aiDeviceId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  void updateDisableDeviceIdList(int aiDeviceId) TARVEXDIAGS_REQUIRES(kClientsAtRest);
  /// Ids of the devices on which the test is left out. @throws DiagCtrlMutexException
  std::list<int> getDisableDeviceList();
  /// Ids of the devices on which the test can run.
  std::list<int> getEnableDeviceList();

 private:
  char* mpcTestName TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  bool mbTestDisable TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcTestDescrpition TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcTestCapabilities TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  char* mpcTestOpenMode TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  int miTestEstimatedTime TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  std::list<int> mDisableDeviceList TARVEXDIAGS_GUARDED_BY(mmtxDisDeviceListLock);
  std::list<int> mEnableDeviceList TARVEXDIAGS_GUARDED_BY(kClientsAtRest);
  DiagCtrlLock mmtxDisDeviceListLock;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
