#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/DiskSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class DiskSourceTest : public ::testing::Test {
 protected:
  void disk(const std::string& name, const std::string& failed, const std::string& timedOut) {
    m_machine.has("sys/block/" + name + "/device/ioerr_cnt", failed)
        .has("sys/block/" + name + "/device/iotmo_cnt", timedOut);
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  DiskSource m_source{m_machine.files()};
};

TEST_F(DiskSourceTest, says_that_there_is_no_disk) {
  m_machine.has("sys/block/loop0/size", "0");
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no disk")));
}

TEST_F(DiskSourceTest, reads_the_hexadecimal_counters) {
  disk("sda", "0xff", "0x0");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  disk("sda", "0x101", "0x1");
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("disk-command-failed block:sda sda 2", "disk-timeout block:sda sda 1"));
}

TEST_F(DiskSourceTest, tells_a_disk_that_is_gone_once_and_counts_one_that_is_new_from_nothing) {
  disk("sda", "0x1", "0x0");
  m_machine.has("sys/block/nvme0n1/device/model", "X");
  ASSERT_EQ(m_source.open(), std::nullopt);
  std::filesystem::remove_all(m_machine.path() + "/sys/block/nvme0n1");
  disk("sdb", "0x2", "0x0");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("device-vanished block:nvme0n1 nvme0n1 1",
                                                        "disk-command-failed block:sdb sdb 2"));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(DiskSourceTest, takes_no_malformed_counter) {
  disk("sda", "12", "0xzz");
  ASSERT_EQ(m_source.open(), std::nullopt);
  disk("sda", "99", "");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Watching
