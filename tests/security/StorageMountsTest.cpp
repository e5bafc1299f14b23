// Mounts whose source names a disk that they do not lie on.

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "packages/storage/Disks.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

TEST(StorageMounts, of_memory_that_bear_the_name_of_a_disk_are_not_believed) {
  const std::vector<Disk> disks = findDisks();
  if (disks.empty()) {
    GTEST_SKIP() << "this machine has no disk whose name could be borne";
  }
  if (unshare(CLONE_NEWNS) != 0) {
    GTEST_SKIP() << "needs CAP_SYS_ADMIN: " << std::strerror(errno);
  }
  // A root that was changed to need not be a mount: then others see this one too until it goes.
  ASSERT_TRUE(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 || errno == EINVAL)
      << std::strerror(errno);
  const TestSupport::TemporaryDirectory memory;
  const Disk& disk = disks.front();
  ASSERT_EQ(mount(disk.path.c_str(), memory.path().c_str(), "tmpfs", 0, "size=64m"), 0);
  for (const Mount& mount : mountsOn(disk.name)) {
    EXPECT_NE(mount.directory, memory.path());
  }
  umount2(memory.path().c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace TarvexDiags::Storage
