#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/KernelLogSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class KernelLogSourceTest : public ::testing::Test {
 protected:
  /// What the kernel writes, as a record of it.
  void log(int sequence, const std::string& text, int priority = 4) {
    const std::string record =
        std::to_string(priority) + "," + std::to_string(sequence) + ",1,-;" + text + "\n";
    ASSERT_EQ(write(m_writer.get(), record.data(), record.size()),
              static_cast<ssize_t>(record.size()));
  }
  void makePipe() {
    m_machine.has("dev/null", "");
    const std::string path = m_machine.path() + "/dev/kmsg";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    ASSERT_EQ(m_source.open(), std::nullopt);
    m_writer = PackageKit::UniqueDescriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(m_writer);
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  KernelLogSource m_source{m_machine.files()};
  PackageKit::UniqueDescriptor m_writer;
};

TEST_F(KernelLogSourceTest, says_why_it_cannot_be_read) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("No such file")));
}

TEST_F(KernelLogSourceTest, tells_what_comes_and_nothing_twice) {
  makePipe();
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  log(1, "critical medium error, dev sdb, sector 4660 op 0x0:(READ)");
  log(2, "usb 1-1: new device");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("disk-medium block:sdb sdb 1"));
  EXPECT_EQ(m_collector.findings.front().detail,
            "critical medium error, dev sdb, sector 4660 op 0x0:(READ)");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(KernelLogSourceTest, fails_nothing_for_what_a_user_writes_into_it) {
  makePipe();
  log(1, "mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: bd80000000100134", 12);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(KernelLogSourceTest, counts_records_that_were_lost) {
  makePipe();
  log(10, "a");
  log(14, "b");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("records-lost machine - 3"));
}

TEST_F(KernelLogSourceTest, takes_no_garbage_for_a_record_and_goes_on_behind_it) {
  makePipe();
  const std::string garbage = "no record\n\x01\xff,,;\n";
  ASSERT_EQ(write(m_writer.get(), garbage.data(), garbage.size()),
            static_cast<ssize_t>(garbage.size()));
  log(2, "ata3: SATA link down");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("link-lost ata:ata3 - 1"));
}

TEST_F(KernelLogSourceTest, begins_at_the_end_of_what_was_logged) {
  const std::string check = ",1,-;mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: b0\n";
  m_machine.has("dev/kmsg", "4,1" + check);
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  m_writer = PackageKit::UniqueDescriptor(
      open((m_machine.path() + "/dev/kmsg").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  log(2, "ata3: SATA link down");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("link-lost ata:ata3 - 1"));
}

TEST_F(KernelLogSourceTest, is_read_by_two_runs_at_once) {
  m_machine.has("dev/kmsg", "");
  KernelLogSource other(m_machine.files());
  ASSERT_EQ(m_source.open(), std::nullopt);
  ASSERT_EQ(other.open(), std::nullopt);
  m_writer = PackageKit::UniqueDescriptor(
      open((m_machine.path() + "/dev/kmsg").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  log(1, "ata3: SATA link down");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("link-lost ata:ata3 - 1"));
  EXPECT_THAT(m_collector.lookAt(other), ElementsAre("link-lost ata:ata3 - 1"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
