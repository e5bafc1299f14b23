#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <string>

namespace TarvexDiags::SecurityTest {

/// From now on what this process mounts is its own. @return whether it may.
inline bool ownMounts() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// What stands in the place of a file or a directory until the end.
class MountScope {
 public:
  explicit MountScope(std::string place) : m_place(std::move(place)) {}
  MountScope(const MountScope&) = delete;
  MountScope& operator=(const MountScope&) = delete;
  ~MountScope() { umount2(m_place.c_str(), MNT_DETACH); }

 private:
  const std::string m_place;
};

}  // namespace TarvexDiags::SecurityTest

/// Says so and leaves a test for which something must be mounted.
#define SKIP_UNLESS_MOUNTS_ARE_OWN()                                           \
  if (!TarvexDiags::SecurityTest::ownMounts()) {                               \
    GTEST_SKIP() << "needs CAP_SYS_ADMIN: mounts that this process has alone"; \
  }                                                                            \
  static_assert(true)
