#pragma once

#include <list>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"

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

  const char* getTestName();
  const char* getTestDesc();
  /// Kept and handed out, nothing more.
  const char* getTestCapabilities();
  /// Access mode text: READ_ONLY, WRITE_ONLY or QUERY in it counts, anything else is both.
  const char* getTestOpenMode();
  bool getTestDisable();
  /// In the unit that package and client agree on; 0 when the file gives none.
  int getTestEstimatedTime();

  void setTestName(char* apcTestName);
  void setTestDesc(char* apcTestDesc);
  void setTestCapabilities(char* apcTestCapabilities);
  void setTestOpenMode(char* apcTestOpenMode);
  void setTestDisable(bool abTestDisable);
  void setTestEstimatedTime(int aiTestEstimatedTime);

  void updateEnableDeviceIdList(int aiDeviceId);
  void updateDisableDeviceIdList(int aiDeviceId);
  /// Ids of the devices on which the test is left out. @throws DiagCtrlMutexException
  std::list<int> getDisableDeviceList();
  /// Ids of the devices on which the test can run.
  std::list<int> getEnableDeviceList();

 private:
  char* mpcTestName;
  bool mbTestDisable;
  char* mpcTestDescrpition;
  char* mpcTestCapabilities;
  char* mpcTestOpenMode;
  int miTestEstimatedTime;
  std::list<int> mDisableDeviceList;
  std::list<int> mEnableDeviceList;
  DiagCtrlLock mmtxDisDeviceListLock;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
