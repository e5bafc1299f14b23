// What the counters of recorded machines mean.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "packages/errors/CountedErrors.h"
#include "packages/errors/CrashRecords.h"
#include "tests/support/FakeMachine.h"
#include "tests/support/RecordingJournal.h"

namespace TarvexDiags::Errors {
namespace {

using Common::RecordingJournal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tests::FakeMachine;

using Look = void (*)(const std::string&, const Watching::SystemFiles&, RunJournal&);

struct Told : RecordingJournal {
  Told(Look look, const FakeMachine& machine) {
    try {
      look("counters", machine.files(), *this);
    } catch (const NotSupported& reason) {
      refusal = reason.reason().token;
    }
  }
  std::string refusal;
};

std::vector<unsigned int> only(ErrorsEvent event) {
  return {static_cast<unsigned int>(event)};
}

const std::string kModule = "sys/devices/system/edac/mc/mc0/dimm3/";

struct MemoryMachine : FakeMachine {
  MemoryMachine(int corrected, int uncorrected, const std::string& uptime = "3600.5 1\n") {
    has("proc/uptime", uptime);
    has(kModule + "dimm_label", "DIMM_A1\n");
    has(kModule + "dimm_ce_count", std::to_string(corrected) + "\n");
    has(kModule + "dimm_ue_count", std::to_string(uncorrected) + "\n");
  }
};

TEST(CountedErrors, of_memory_that_counts_nothing_pass) {
  const Told told(judgeMemory, MemoryMachine(0, 0));
  EXPECT_THAT(told.complaints(), IsEmpty());
  EXPECT_THAT(told.parametersOf(ErrorsEvent::NothingCounted), ElementsAre("counters", "1"));
}

TEST(CountedErrors, of_memory_that_were_corrected_are_a_warning_that_names_the_module) {
  const Told told(judgeMemory, MemoryMachine(3, 0));
  EXPECT_EQ(told.complaints(), only(ErrorsEvent::MemoryCorrected));
  EXPECT_THAT(told.parametersOf(ErrorsEvent::MemoryCorrected),
              ElementsAre("counters", "DIMM_A1", "0", "3"));
}

TEST(CountedErrors, of_memory_fail_beyond_what_each_day_may_bring) {
  EXPECT_EQ(Told(judgeMemory, MemoryMachine(49, 0)).complaints(),
            only(ErrorsEvent::MemoryCorrected));
  EXPECT_EQ(Told(judgeMemory, MemoryMachine(50, 0)).complaints(),
            only(ErrorsEvent::MemoryWearsOut));
  const std::string tenthDay = std::to_string(9 * 86400 + 10) + ".00 1\n";
  EXPECT_EQ(Told(judgeMemory, MemoryMachine(499, 0, tenthDay)).complaints(),
            only(ErrorsEvent::MemoryCorrected));
  EXPECT_EQ(Told(judgeMemory, MemoryMachine(500, 0, tenthDay)).complaints(),
            only(ErrorsEvent::MemoryWearsOut));
}

TEST(CountedErrors, of_memory_that_could_not_be_corrected_fail_at_the_first) {
  EXPECT_EQ(Told(judgeMemory, MemoryMachine(0, 1)).complaints(),
            only(ErrorsEvent::MemoryUncorrected));
}

TEST(CountedErrors, of_memory_are_not_possible_to_tell_where_nobody_counts) {
  EXPECT_EQ(Told(judgeMemory, FakeMachine()).refusal, Reasons::kNoMemoryCounters.token);
  FakeMachine malformed;
  malformed.has(kModule + "dimm_ce_count", "many\n");
  EXPECT_EQ(Told(judgeMemory, malformed).refusal, Reasons::kNoMemoryCounters.token);
}

const std::string kFunction = "sys/bus/pci/devices/0000:3b:00.0/";

TEST(CountedErrors, of_links_name_function_and_slot) {
  FakeMachine machine;
  machine.has("sys/bus/pci/slots/7/address", "0000:3b:00\n");
  machine.has(kFunction + "aer_dev_correctable", "RxErr 2\nBadTLP 1\nTOTAL_ERR_COR 3\n");
  const Told told(judgePcie, machine);
  EXPECT_EQ(told.complaints(), only(ErrorsEvent::PcieCorrected));
  EXPECT_THAT(
      told.parametersOf(ErrorsEvent::PcieCorrected),
      ElementsAre("counters", "0000:3b:00.0", "7", "ROOT_OF_THE_BUS", "3", "BadTLP 1, RxErr 2"));
}

TEST(CountedErrors, of_links_fail_when_there_are_many_or_one_was_not_corrected) {
  FakeMachine machine;
  machine.has(kFunction + "aer_dev_correctable", "RxErr 101\n");
  EXPECT_EQ(Told(judgePcie, machine).complaints(), only(ErrorsEvent::PcieTooMany));
  machine.has(kFunction + "aer_dev_correctable", "RxErr 0\n");
  for (const char* const file : {"aer_dev_fatal", "aer_dev_nonfatal"}) {
    FakeMachine other;
    other.has(kFunction + "aer_dev_correctable", "RxErr 0\n");
    other.has(kFunction + "aer_dev_fatal", "DLP 0\n")
        .has(kFunction + "aer_dev_nonfatal", "DLP 0\n");
    other.has(kFunction + file, "DLP 1\n");
    EXPECT_EQ(Told(judgePcie, other).complaints(), only(ErrorsEvent::PcieUncorrected)) << file;
  }
  EXPECT_THAT(Told(judgePcie, machine).complaints(), IsEmpty());
  EXPECT_EQ(Told(judgePcie, FakeMachine()).refusal, Reasons::kNoPcieCounters.token);
}

TEST(CountedErrors, of_disks_are_timeouts_and_commands_that_failed) {
  FakeMachine machine;
  machine.has("sys/block/sda/device/ioerr_cnt", "0x1f\n");
  machine.has("sys/block/sda/device/iotmo_cnt", "0x0\n");
  EXPECT_THAT(Told(judgeDisks, machine).complaints(), IsEmpty());
  EXPECT_THAT(Told(judgeDisks, machine).parametersOf(ErrorsEvent::DiskCommandsFailed),
              ElementsAre("counters", "sda", "31"));
  machine.has("sys/block/sda/device/iotmo_cnt", "0x2\n");
  EXPECT_EQ(Told(judgeDisks, machine).complaints(), only(ErrorsEvent::DiskTimeouts));
  FakeMachine uncounted;
  uncounted.has("sys/block/nvme0n1/device/model", "Disk\n");
  EXPECT_EQ(Told(judgeDisks, uncounted).refusal, Reasons::kNoDiskCounters.token);
}

TEST(CountedErrors, of_interfaces_are_a_warning_and_lost_links_are_told) {
  FakeMachine machine;
  machine.has("sys/class/net/eth0/device/vendor", "0x8086\n");
  machine.has("sys/class/net/eth0/statistics/rx_crc_errors", "0\n");
  machine.has("sys/class/net/eth0/carrier_down_count", "2\n");
  EXPECT_THAT(Told(judgeInterfaces, machine).complaints(), IsEmpty());
  EXPECT_THAT(Told(judgeInterfaces, machine).parametersOf(ErrorsEvent::LinksLost),
              ElementsAre("counters", "eth0", "2", "carrier_down_count 2"));
  machine.has("sys/class/net/eth0/statistics/rx_crc_errors", "9\n");
  EXPECT_EQ(Told(judgeInterfaces, machine).complaints(), only(ErrorsEvent::InterfaceErrors));
  EXPECT_EQ(Told(judgeInterfaces, FakeMachine()).refusal, Reasons::kNoInterface.token);
}

struct RecordingMachine : FakeMachine {
  RecordingMachine() {
    has("proc/mounts", "pstore /sys/fs/pstore pstore rw,nosuid 0 0\n");
    has("sys/fs/pstore/console-ramoops-0", "text");
    has("sys/module/pstore/parameters/backend", "efi_pstore\n");
  }
};

TEST(CrashRecords, are_a_warning_and_what_is_always_kept_is_none) {
  RecordingMachine machine;
  EXPECT_THAT(Told(tellCrashRecords, machine).complaints(), IsEmpty());
  EXPECT_EQ(Told(tellCrashRecords, machine).count(ErrorsEvent::NoCrashRecord), 1);
  machine.has("sys/fs/pstore/dmesg-efi-1\x1b[2J", "Panic#1");
  const Told told(tellCrashRecords, machine);
  EXPECT_EQ(told.complaints(), only(ErrorsEvent::CrashRecord));
  EXPECT_THAT(told.parametersOf(ErrorsEvent::CrashRecord),
              ElementsAre("counters", "dmesg-efi-1?[2J"));
}

TEST(CrashRecords, are_not_possible_to_tell_where_nothing_keeps_or_shows_them) {
  RecordingMachine machine;
  machine.has("sys/module/pstore/parameters/backend", "(null)\n");
  EXPECT_EQ(Told(tellCrashRecords, machine).refusal, Reasons::kNoPlaceForRecords.token);
  EXPECT_EQ(Told(tellCrashRecords, FakeMachine()).refusal, Reasons::kRecordsNotMounted.token);
}

TEST(CrashRecords, are_withheld_from_whom_may_not_read_them) {
  constexpr uid_t kNobody = 65534;
  RecordingMachine machine;
  ASSERT_EQ(chmod(machine.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((machine.path() + "/sys/fs/pstore").c_str(), 0), 0);
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(isRoot ? seteuid(kNobody) : 0, 0);
  const std::string refusal = Told(tellCrashRecords, machine).refusal;
  ASSERT_EQ(isRoot ? seteuid(0) : 0, 0);
  ASSERT_EQ(chmod((machine.path() + "/sys/fs/pstore").c_str(), 0755), 0);
  EXPECT_EQ(refusal, Reasons::kRecordsNeedPrivilege.token);
}

}  // namespace
}  // namespace TarvexDiags::Errors
