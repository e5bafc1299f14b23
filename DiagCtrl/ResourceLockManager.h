#pragma once

#include <map>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

typedef std::map<std::string, bool> ResStrLockMap;  ///< component to "held exclusively"
typedef std::map<std::string, int> ResStrShareMap;  ///< component to its holders below

/// Decides whether a test may touch a device now. A device's tag is a path whose components are
/// separated by "/": the test holds the last component exclusively and counts as one more user of
/// every registered component above it. Entries are kept by component, not by whole tag, so tags
/// with the same last component share one entry.
///
/// Also holds the flag by which a package takes the whole machine; no resource operation reads it.
///
/// Thread-safety: any thread may call any operation; each is atomic. Every operation may throw
/// DiagCtrlMutexException. A broken invariant ends the process in every build type.
class TARVEXDIAGS_EXPORT ResourceLockManager {
 public:
  /// The instance, made on first use.
  static ResourceLockManager* getInstance();

  ResourceLockManager(const ResourceLockManager&) = delete;
  ResourceLockManager& operator=(const ResourceLockManager&) = delete;
  virtual ~ResourceLockManager();

  /// Registers the last component of the tag. @throws DiagCtrlKeyExistsException
  void createResourceLock(std::string astrResourceString, long alTimeOutValue);
  /// Unregisters it, held or not. @throws DiagCtrlKeyNotExistException
  void removeResourceLock(std::string astrResourceString, long alTimeOutValue);

  /// Tries to take the device; never blocks on a held one. A refused take changes nothing.
  /// @return true if taken. @throws DiagCtrlKeyNotExistException if the last component is unknown.
  bool getResourceLock(std::string astrResourceString);
  /// Gives the device back. The counts above go down whether or not it was held.
  /// @throws DiagCtrlKeyNotExistException if the last component is unknown.
  void releaseResourceLock(std::string astrResourceString);

  /// Keeps all entries and clears every flag and count.
  void resetResourceLockMap(long alTimeOutValue);
  /// Erases all entries.
  void clearResourceLockMap();

  bool getSystemLockFlag();
  void setSystemLockFlag(bool abSystemLock);

 private:
  /// What both maps say of a component.
  struct Entry {
    bool* locked = nullptr;
    int* shares = nullptr;
    bool exists() const noexcept { return locked != nullptr; }
  };

  ResourceLockManager();

  Entry find(const std::string& arComponent) TARVEXDIAGS_REQUIRES(mMutexLock);
  bool take(const std::string& arTag) TARVEXDIAGS_REQUIRES(mMutexLock);
  static void rollBack(bool& arLeafLocked, const std::vector<int*>& arVisited);

  static System::Mutex mSInstanceMutex;
  static ResourceLockManager* mpSResLockMgr TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  bool mbSystemLocked TARVEXDIAGS_GUARDED_BY(mMutexLock);
  ResStrLockMap mResStrLockMap TARVEXDIAGS_GUARDED_BY(mMutexLock);
  ResStrShareMap mResStrShareMap TARVEXDIAGS_GUARDED_BY(mMutexLock);
  DiagTracer* mpDiagTracer;
  DiagCtrlLock mMutexLock;
};

}  // namespace TarvexDiags::DiagCtrl
