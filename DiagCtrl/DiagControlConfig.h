#pragma once

#include <list>
#include <map>

#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;
class DiagUtil;
class DiagValidator;
class GlobalSettings;
class PackageDetails;

/// Reader of the control configuration file. Reads each key when asked and keeps none of them but
/// the disable entries.
///
/// Thread-safety: used by one client thread at a time, the one that initialises or enumerates.
class TARVEXDIAGS_EXPORT DiagControlConfig {
 public:
  /// @param apCtrlConfigFilePath the caller keeps the text alive.
  explicit DiagControlConfig(const char* apCtrlConfigFilePath);
  DiagControlConfig();
  DiagControlConfig(const DiagControlConfig&) = delete;
  DiagControlConfig& operator=(const DiagControlConfig&) = delete;
  /// Frees the details of the entries and leaves their names, which clients may still hold.
  virtual ~DiagControlConfig();

  /// @return a new array that the caller owns; never empty.
  /// @throws DiagCtrlInvalidKey when the key is absent or empty.
  char* readPackageDirPath();
  /// As `readPackageDirPath`.
  char* readLogDirPath();
  /// @return a new array that the caller owns; the empty text when the key is absent.
  char* readMessageFilePath();

  /// Also sets the trace level. @return a new object that the caller owns.
  /// @throws DiagCtrlInvalidKey when a required key is absent or no keyword.
  GlobalSettings* readGlobalSettings();

  /// Appends the disable entries of the file to the map.
  /// @throws DiagCtrlInvalidKey when an entry has no name; earlier entries stay in the map.
  void readPackageDetails() TARVEXDIAGS_REQUIRES(kClientsAtRest);

  /// The machine id of the running system: always 1.
  int readMachineId();

  /// The entries by name. The names are compared as pointers, so two entries for one package both
  /// count. The details stay the object's.
  std::map<const char*, PackageDetails*> getPackageDetailsMap()
      TARVEXDIAGS_REQUIRES(kClientsAtRest);

  /// The names of the entries, in the order of the map. @throws DiagCtrlMutexException
  std::list<const char*> getDisablePackageList(long alTimeOutValue);

 private:
  std::map<const char*, PackageDetails*> mPackageDetailMap
      TARVEXDIAGS_GUARDED_BY(mmtxDisPackListLock);
  const char* mpCtrlConfigFilePath;
  DiagValidator* mpValidator;
  DiagTracer* mDiagTracer;
  DiagUtil* mpDiagUtil;
  DiagCtrlLock mmtxDisPackListLock;
};

}  // namespace TarvexDiags::DiagCtrl
