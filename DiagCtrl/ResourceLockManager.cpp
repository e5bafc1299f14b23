#include "DiagCtrl/ResourceLockManager.h"

#include <string>
#include <utility>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlKeyExistsException.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/foundation/TracedLock.h"
#include "DiagCtrl/internal/ground/Invariant.h"
#include "DiagCtrl/internal/ground/Singleton.h"

namespace TarvexDiags::DiagCtrl {

namespace {

/// Takes a tag apart from its end: the device first, then the resources above it.
class TagWalk {
 public:
  explicit TagWalk(std::string aTag) : mRemainder(std::move(aTag)) {}

  bool isAtEnd() const { return mIsAtEnd; }

  std::string next() {
    const std::size_t separator = mRemainder.rfind(DiagCtrlConstants::mSconpcResourceTagSeparator);
    std::string component;
    if (separator == std::string::npos) {
      component = mRemainder;
      mIsAtEnd = true;
    } else {
      component = mRemainder.substr(separator + 1);
      mRemainder.resize(separator);
    }
    return component;
  }

 private:
  std::string mRemainder;
  bool mIsAtEnd = false;
};

std::string leafOf(const std::string& arTag) {
  return TagWalk(arTag).next();
}

}  // namespace

System::Mutex ResourceLockManager::mSInstanceMutex;
ResourceLockManager* ResourceLockManager::mpSResLockMgr = nullptr;

ResourceLockManager* ResourceLockManager::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mpSResLockMgr, [] { return new ResourceLockManager; });
}

ResourceLockManager::ResourceLockManager()
    : mbSystemLocked(false),
      mpDiagTracer(DiagTracer::getInstance()),
      mMutexLock(DiagCtrlConstants::mSconlDefaultLockTimeOut) {}

ResourceLockManager::~ResourceLockManager() {
  clearResourceLockMap();
  mpDiagTracer = nullptr;
  const System::LockHold hold(mSInstanceMutex);
  mpSResLockMgr = nullptr;
}

void ResourceLockManager::createResourceLock(std::string astrResourceString, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::createResourceLock");
  const TracedLock lock(trace, mMutexLock, lockTimeOut(alTimeOutValue),
                        "ResourceLockManager::createResourceLock()");
  const std::string resString = leafOf(astrResourceString);
  if (mResStrLockMap.contains(resString) || mResStrShareMap.contains(resString)) {
    raise<DiagCtrlKeyExistsException>(DiagCtrlBaseException::KeyExistsException,
                                      "ResourceLockManager::createResourceLock()");
  }
  mResStrLockMap.emplace(resString, false);
  mResStrShareMap.emplace(resString, 0);
}

void ResourceLockManager::removeResourceLock(std::string astrResourceString, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::removeResourceLock");
  const TracedLock lock(trace, mMutexLock, lockTimeOut(alTimeOutValue),
                        "ResourceLockManager::removeResourceLock()");
  const std::string resString = leafOf(astrResourceString);
  if (!mResStrLockMap.contains(resString) || !mResStrShareMap.contains(resString)) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException,
                                        "ResourceLockManager::removeResourceLock()");
  }
  mResStrLockMap.erase(resString);
  mResStrShareMap.erase(resString);
}

bool ResourceLockManager::getResourceLock(std::string astrResourceString) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::getResourceLock");
  bool isTaken = false;
  {
    const TracedLock lock(trace, mMutexLock, 0, "ResourceLockManager::getResourceLock()");
    isTaken = take(astrResourceString);
  }
  trace.info(isTaken ? "SUCCESS" : "FAILED");
  return isTaken;
}

bool ResourceLockManager::take(const std::string& arTag) {
  TagWalk walk(arTag);
  const Entry leaf = find(walk.next());
  if (!leaf.exists()) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException,
                                        "ResourceLockManager::getResourceLock()");
  }
  if (*leaf.locked || *leaf.shares != 0) {
    return false;
  }
  *leaf.locked = true;
  std::vector<int*> visited;
  while (!walk.isAtEnd()) {
    const Entry ancestor = find(walk.next());
    if (!ancestor.exists()) {
      continue;
    }
    if (*ancestor.locked) {
      rollBack(*leaf.locked, visited);
      return false;
    }
    assertInvariant(*ancestor.shares >= 0, "itrResShareMap->second >= 0");
    ++*ancestor.shares;
    visited.push_back(ancestor.shares);
  }
  return true;
}

void ResourceLockManager::rollBack(bool& arLeafLocked, const std::vector<int*>& arVisited) {
  assertInvariant(arLeafLocked, "itrResLocked->second == true");
  arLeafLocked = false;
  for (int* shares : arVisited) {
    assertInvariant(*shares > 0, "(*itr)->second > 0");
    --*shares;
  }
}

// The counts above go down whether or not the device was held.
void ResourceLockManager::releaseResourceLock(std::string astrResourceString) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::releaseResourceLock");
  const TracedLock lock(trace, mMutexLock, 0, "ResourceLockManager::releaseResourceLock()");
  TagWalk walk(astrResourceString);
  const Entry leaf = find(walk.next());
  if (!leaf.exists()) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException,
                                        "ResourceLockManager::releaseResourceLock()");
  }
  if (*leaf.locked) {
    assertInvariant(*leaf.shares == 0, "itrResShareMap->second == 0");
    *leaf.locked = false;
  }
  while (!walk.isAtEnd()) {
    const Entry ancestor = find(walk.next());
    if (ancestor.exists() && *ancestor.shares > 0) {
      assertInvariant(!*ancestor.locked, "itrResLockMap->second == false");
      --*ancestor.shares;
    }
  }
}

ResourceLockManager::Entry ResourceLockManager::find(const std::string& arComponent) {
  const auto locked = mResStrLockMap.find(arComponent);
  const auto shares = mResStrShareMap.find(arComponent);
  if (locked == mResStrLockMap.end() || shares == mResStrShareMap.end()) {
    return {};
  }
  return {&locked->second, &shares->second};
}

void ResourceLockManager::resetResourceLockMap(long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::resetResourceLockMap");
  const TracedLock lock(trace, mMutexLock, lockTimeOut(alTimeOutValue),
                        "ResourceLockManager::resetResourceLockMap()");
  for (auto& entry : mResStrLockMap) {
    entry.second = false;
  }
  for (auto& entry : mResStrShareMap) {
    entry.second = 0;
  }
}

void ResourceLockManager::clearResourceLockMap() {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::clearResourceLockMap");
  const TracedLock lock(trace, mMutexLock, 0, "ResourceLockManager::clearResourceLockMap()");
  mResStrLockMap.clear();
  mResStrShareMap.clear();
}

bool ResourceLockManager::getSystemLockFlag() {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::getSystemLockFlag");
  const TracedLock lock(trace, mMutexLock, 0, "ResourceLockManager::getSystemLockFlag()");
  return mbSystemLocked;
}

void ResourceLockManager::setSystemLockFlag(bool abSystemLock) {
  const TraceScope trace(mpDiagTracer, "ResourceLockManager::setSystemLockFlag");
  const TracedLock lock(trace, mMutexLock, 0, "ResourceLockManager::setSystemLockFlag()");
  mbSystemLocked = abSystemLock;
}

}  // namespace TarvexDiags::DiagCtrl
