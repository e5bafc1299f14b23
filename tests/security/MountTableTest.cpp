// File systems in which somebody else says what stands there.

#include <fcntl.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "diagctl/report/OpenedFile.h"
#include "diagctl/session/MountTable.h"
#include "diagctl/session/PathInspection.h"
#include "tests/security/Findings.h"
#include "tests/security/Mounts.h"
#include "tests/security/People.h"
#include "tests/security/ServedFiles.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using FrontEnd::deviceWithoutSetUidIn;
using FrontEnd::serverIn;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

TEST(MountTable, tells_who_serves_a_file_system) {
  const std::string mount = "41 29 0:52 / /home/a\\040-\\040b rw,nosuid shared:9 - ";
  EXPECT_EQ(serverIn(mount + "fuse.sshfs host:/ rw,user_id=1000,group_id=7,allow_other"), "1000");
  EXPECT_EQ(serverIn(mount + "fuse served rw,user_id=0,group_id=0"), "0");
  EXPECT_EQ(serverIn(mount + "fuseblk /dev/sdb1 rw,user_id=12"), "12");
  EXPECT_EQ(serverIn(mount + "fuse served rw,group_id=0"), "?");
}

TEST(MountTable, tells_of_nobody_where_owners_are_true) {
  const std::string mount = "41 29 0:52 / /home rw - ";
  EXPECT_EQ(serverIn(mount + "ext4 user_id=7 rw,user_id=7"), "");
  EXPECT_EQ(serverIn(mount + "fusectl fusectl rw"), "");
  EXPECT_EQ(serverIn("41 29 0:52 / /home rw"), "");
  EXPECT_EQ(serverIn(""), "");
}

TEST(MountTable, is_not_shifted_by_what_the_mounter_calls_the_source) {
  const std::string options = " rw,user_id=1000,group_id=7";
  for (const std::string source : {"a\frw,user_id=0", "a\vrw,user_id=0", "a\rrw,user_id=0", ""}) {
    EXPECT_EQ(serverIn("41 29 0:52 / /home rw - fuse " + source + options), "1000") << source;
  }
}

TEST(MountTable, tells_the_device_of_what_is_mounted_without_set_uid_programs) {
  EXPECT_EQ(deviceWithoutSetUidIn("41 29 8:17 / /media/a rw,nosuid,nodev - ext4 /dev/sdb1 rw"),
            "8:17");
  EXPECT_EQ(deviceWithoutSetUidIn("41 29 0:52 / /media/a rw,nosuid shared:9 - btrfs /dev/sdb1 rw"),
            "/dev/sdb1");
  EXPECT_EQ(deviceWithoutSetUidIn("41 29 0:52 / /run rw,nosuid - tmpfs tmpfs rw"), "");
  EXPECT_EQ(deviceWithoutSetUidIn("41 29 8:17 / /srv rw,nodev - ext4 /dev/sdb1 rw,nosuid"), "");
  EXPECT_EQ(deviceWithoutSetUidIn("41 29 8:17 / /srv"), "");
  EXPECT_EQ(deviceWithoutSetUidIn(""), "");
}

class ServedFileSystem : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    SKIP_UNLESS_MOUNTS_ARE_OWN();
    if (!FrontEnd::OpenedFile(open("/dev/fuse", O_RDWR | O_CLOEXEC))) {
      GTEST_SKIP() << "no program may serve a file system here: " << std::strerror(errno);
    }
    fs::permissions(place.path(), fs::perms(0755));
    fs::create_directory(directory);
  }

  const TestSupport::TemporaryDirectory place;
  const std::string directory = place.file("served");
  const std::string finding =
      directory + ": lies in a file system that a program of user 61234 serves";
};

TEST_F(ServedFileSystem, of_somebody_is_not_believed_that_its_files_are_roots) {
  const ServedFiles served(directory, kStranger);
  EXPECT_THAT(findingsOf(directory + "/file"), ElementsAre(finding));
  EXPECT_THAT(findingsOf(directory), ElementsAre(finding));
}

TEST_F(ServedFileSystem, of_roots_is_like_any_other) {
  const ServedFiles served(directory, 0);
  EXPECT_THAT(findingsOf(directory + "/file"), IsEmpty());
}

TEST_F(ServedFileSystem, is_known_where_it_came_behind_the_look_at_the_mounts) {
  FrontEnd::PathInspection inspection;
  const ServedFiles served(directory, kStranger);
  inspection.inspect(directory + "/file");
  EXPECT_THAT(inspection.findings(), ElementsAre(finding));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
