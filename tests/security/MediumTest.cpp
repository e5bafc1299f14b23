// File systems on media that somebody else can have written, where root owns what that somebody
// likes.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "diagctl/report/OpenedFile.h"
#include "diagctl/session/Medium.h"
#include "tests/security/Findings.h"
#include "tests/security/Mounts.h"
#include "tests/security/People.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using FrontEnd::isWrittenElsewhere;
using FrontEnd::OpenedFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

/// Devices as the kernel shows them, each in a directory of its own and by its number.
class Medium : public ::testing::Test {
 protected:
  void add(const std::string& number, const std::string& way) {
    tree.makeDirectory("dev/block");
    tree.makeDirectory("devices/" + way);
    fs::create_directory_symlink("../../devices/" + way, tree.file("dev/block/" + number));
  }

  void addDisk(const std::string& number, const std::string& way, const char* removable) {
    add(number, way);
    tree.write("devices/" + way + "/removable", removable);
  }

  void addPartition(const std::string& number, const std::string& way) {
    add(number, way);
    tree.write("devices/" + way + "/partition", "1\n");
  }

  void addLayer(const std::string& number, const std::string& way, const std::string& lower) {
    addDisk(number, way, "0\n");
    tree.makeDirectory("devices/" + way + "/slaves");
    fs::create_directory_symlink(tree.file("devices/" + lower),
                                 tree.file("devices/" + way + "/slaves/lower"));
  }

  bool isElsewhere(const std::string& device) { return isWrittenElsewhere(device, tree.path()); }

  const TestSupport::TemporaryDirectory tree;
};

TEST_F(Medium, that_stays_in_the_machine_is_roots) {
  addDisk("8:0", "pci0/ata1/block/sda", "0\n");
  addPartition("8:1", "pci0/ata1/block/sda/sda1");
  addLayer("253:0", "virtual/block/dm-0", "pci0/ata1/block/sda/sda1");
  EXPECT_FALSE(isElsewhere("8:0"));
  EXPECT_FALSE(isElsewhere("8:1"));
  EXPECT_FALSE(isElsewhere("253:0"));
}

TEST_F(Medium, that_can_be_taken_out_is_others) {
  addDisk("8:16", "pci0/ata2/block/sdb", "1\n");
  addPartition("8:17", "pci0/ata2/block/sdb/sdb1");
  addDisk("179:0", "pci0/mmc0/block/mmcblk0", "0\n");
  tree.makeDirectory("devices/pci0/mmc0/block/mmcblk0/device");
  tree.write("devices/pci0/mmc0/block/mmcblk0/device/type", "SD\n");
  EXPECT_TRUE(isElsewhere("8:16"));
  EXPECT_TRUE(isElsewhere("8:17"));
  EXPECT_TRUE(isElsewhere("179:0"));
}

TEST_F(Medium, at_a_plug_for_users_is_others) {
  addDisk("8:32", "pci0/usb2/2-1/block/sdc", "0\n");
  addPartition("8:33", "pci0/usb2/2-1/block/sdc/sdc1");
  addDisk("8:48", "pci0/usbless/block/sdd", "0\n");
  EXPECT_TRUE(isElsewhere("8:32"));
  EXPECT_TRUE(isElsewhere("8:33"));
  EXPECT_FALSE(isElsewhere("8:48"));
}

TEST_F(Medium, that_is_an_image_in_a_file_is_others) {
  addDisk("7:0", "virtual/block/loop0", "0\n");
  EXPECT_FALSE(isElsewhere("7:0"));  // nothing is in it
  tree.makeDirectory("devices/virtual/block/loop0/loop");
  tree.write("devices/virtual/block/loop0/loop/backing_file", "/home/somebody/image\n");
  addPartition("259:0", "virtual/block/loop0/loop0p1");
  EXPECT_TRUE(isElsewhere("7:0"));
  EXPECT_TRUE(isElsewhere("259:0"));
}

TEST_F(Medium, made_of_anothers_is_others_however_many_layers_above) {
  addDisk("8:16", "pci0/usb1/block/sdb", "0\n");
  addPartition("8:17", "pci0/usb1/block/sdb/sdb1");
  addLayer("253:0", "virtual/block/dm-0", "pci0/usb1/block/sdb/sdb1");
  addLayer("253:1", "virtual/block/dm-1", "virtual/block/dm-0");
  EXPECT_TRUE(isElsewhere("253:0"));
  EXPECT_TRUE(isElsewhere("253:1"));
}

TEST_F(Medium, that_is_not_there_is_nobodys) {
  tree.makeDirectory("dev/block");
  EXPECT_FALSE(isElsewhere("8:64"));
  EXPECT_FALSE(isElsewhere(""));
  EXPECT_FALSE(isElsewhere("/no/such/device"));
  EXPECT_FALSE(isElsewhere("/dev/null"));
}

/// An image with a file that is root's, by its own account, as a disk.
class Image {
 public:
  explicit Image(const TestSupport::TemporaryDirectory& place) {
    const std::string content = place.makeDirectory("content");
    fs::permissions(content, fs::perms(0755));
    fs::permissions(place.write("content/file", "x"), fs::perms(0644));
    const std::string image = place.write("image", "");
    fs::resize_file(image, 1U << 20U);
    const std::string make = "/sbin/mke2fs -q -F -t ext2 -d '" + content + "' '" + image + "'";
    // NOLINTNEXTLINE(cert-env33-c): the program that makes file systems
    if (std::system((make + " > /dev/null 2>&1").c_str()) != 0) {
      m_reason = "mke2fs";
      return;
    }
    attach(image);
  }

  /// Empty for none.
  std::string path() const { return m_path; }
  std::string reason() const { return m_reason; }

 private:
  void attach(const std::string& image) {
    const OpenedFile control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    const OpenedFile backing(open(image.c_str(), O_RDWR | O_CLOEXEC));
    constexpr int tries = 100;  // others may be given the same one
    for (int attempt = 0; attempt < tries && m_path.empty(); ++attempt) {
      const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
      const std::string path = "/dev/loop" + std::to_string(number);
      m_device = OpenedFile(number < 0 ? -1 : open(path.c_str(), O_RDWR | O_CLOEXEC));
      loop_config configuration{};
      configuration.fd = static_cast<__u32>(backing.get());
      configuration.info.lo_flags = LO_FLAGS_AUTOCLEAR;  // it goes with its last user
      if (m_device && ioctl(m_device.get(), LOOP_CONFIGURE, &configuration) == 0) {
        m_path = path;
      }
    }
    m_reason = std::strerror(errno);
  }

  OpenedFile m_device;
  std::string m_path;
  std::string m_reason;
};

class MountedImage : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    SKIP_UNLESS_MOUNTS_ARE_OWN();
    fs::permissions(place.path(), fs::perms(0755));
    image.emplace(place);
    if (image->path().empty()) {
      GTEST_SKIP() << "no image can be made a disk here: " << image->reason();
    }
    directory = place.makeDirectory("mounted");
  }

  void mountImage(unsigned long flags) {
    ASSERT_EQ(mount(image->path().c_str(), directory.c_str(), "ext2", MS_RDONLY | flags, nullptr),
              0)
        << std::strerror(errno);
  }

  const TestSupport::TemporaryDirectory place;
  std::optional<Image> image;
  std::string directory;
};

TEST_F(MountedImage, of_somebody_is_not_believed_that_its_files_are_roots) {
  const MountScope scope(directory);
  ASSERT_NO_FATAL_FAILURE(mountImage(MS_NOSUID | MS_NODEV));
  EXPECT_THAT(findingsOf(directory + "/file"),
              ElementsAre(directory + ": lies on a medium that can have been written elsewhere, " +
                          "mounted with nosuid"));
}

TEST_F(MountedImage, whose_set_uid_programs_root_lets_run_is_roots) {
  const MountScope scope(directory);
  ASSERT_NO_FATAL_FAILURE(mountImage(MS_NODEV));
  EXPECT_THAT(findingsOf(directory + "/file"), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
