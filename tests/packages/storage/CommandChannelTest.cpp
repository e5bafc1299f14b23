// What the kernel's account of an ended command means, and what sense data says.

#include <vector>

#include "packages/storage/CommandChannel.h"
#include "packages/storage/StorageEvents.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

TEST(ScsiCommands, that_ended_are_what_the_kernel_says) {
  Bytes data{1, 2, 3, 4};
  sg_io_hdr_t ended{};
  ended.dxferp = data.data();
  ended.dxfer_len = 4;
  ended.resid = 1;
  EXPECT_THAT(answerOf(ended, "sdb").data, ElementsAre(1, 2, 3));
  ended.resid = -7;
  EXPECT_EQ(answerOf(ended, "sdb").data.size(), 4U);
  ended.resid = 99;
  EXPECT_THAT(answerOf(ended, "sdb").data, IsEmpty());
}

TEST(ScsiCommands, that_nobody_answers_in_time_are_silence) {
  sg_io_hdr_t timedOut{};
  timedOut.host_status = 3;
  EXPECT_THROW(answerOf(timedOut, "sdb"), SilentCommand);
  sg_io_hdr_t aborted{};  // as the recovery of an ATA disk leaves it
  aborted.status = 2;
  aborted.duration = 5004;
  EXPECT_THROW(answerOf(aborted, "sdb"), SilentCommand);
  aborted.duration = 40;
  EXPECT_EQ(answerOf(aborted, "sdb").status, 2);
}

TEST(ScsiCommands, to_a_disk_that_has_left_find_nobody) {
  sg_io_hdr_t ended{};
  ended.host_status = 1;
  EXPECT_THROW(answerOf(ended, "sdb"), std::system_error);
  ended.host_status = 7;
  EXPECT_THROW(answerOf(ended, "sdb"), NotSupported);
}

TEST(ScsiCommands, to_a_file_are_refused) {
  Disk disk;
  disk.name = "file";
  disk.path = "/proc/self/exe";
  const auto channel = openChannel(disk);
  EXPECT_ANY_THROW(channel->execute(ScsiCommand({0, 0, 0, 0, 0, 0}, 0)));
}

TEST(SenseData, of_either_format_and_of_any_length_is_read_no_further_than_it_goes) {
  const Bytes descriptor{0x72, 1, 0, 0x1D, 0, 0, 0, 18, 2, 2, 0, 0, 9,
                         12,   0, 4, 0,    0, 0, 0, 0,  7, 0, 8, 0, 0x51};
  const auto registers = senseFrom(descriptor).registers;
  ASSERT_TRUE(registers.has_value());
  EXPECT_EQ(registers->error, 4);
  EXPECT_EQ(registers->lbaMiddle, 7);
  EXPECT_EQ(registers->lbaHigh, 8);
  EXPECT_EQ(registers->status, 0x51);
  for (std::size_t length = 0; length < descriptor.size(); ++length) {
    EXPECT_FALSE(senseFrom(Record(descriptor).first(length)).registers) << length;
  }
  EXPECT_EQ(senseFrom(Bytes{0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x24, 0}).code, 0x24);
  EXPECT_EQ(senseFrom(Bytes{0x55, 0xFF, 0xFF}).key, 0);
}

}  // namespace
}  // namespace TarvexDiags::Storage
