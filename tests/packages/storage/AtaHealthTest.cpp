// Disks of ATA that differ, from the bytes that they send to what is told about them.

#include <algorithm>
#include <random>

#include "packages/storage/AtaReader.h"
#include "packages/storage/Health.h"
#include "tests/packages/storage/AtaModel.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using Common::RecordingJournal;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kNoCounters = "/no/such/folder";

unsigned int codeOf(StorageEvent event) {
  return static_cast<unsigned int>(event);
}

/// @brief Hands the commands on to a disk that the test keeps.
class Wire : public CommandChannel {
 public:
  explicit Wire(CommandChannel& disk) : m_disk(disk) {}
  ScsiAnswer execute(const ScsiCommand& command) override { return m_disk.execute(command); }

 private:
  CommandChannel& m_disk;
};

std::unique_ptr<HealthReader> readerOf(AtaModel& disk) {
  return makeAtaReader(std::make_unique<Wire>(disk), "sda", kNoCounters);
}

std::unique_ptr<RecordingJournal> healthOf(AtaModel& disk) {
  auto journal = std::make_unique<RecordingJournal>();
  judgeHealth(readerOf(disk)->health(), {.percentUsed = 100, .celsius = 70}, "sda", *journal);
  return journal;
}

std::unique_ptr<RecordingJournal> errorsOf(AtaModel& disk) {
  auto journal = std::make_unique<RecordingJournal>();
  judgeErrorLog(readerOf(disk)->errorLog(), 0, "sda", *journal);
  return journal;
}

std::optional<Common::Reason> refusalOf(AtaModel& disk) {
  try {
    readerOf(disk)->health();
  } catch (const NotSupported& reason) {
    return reason.reason();
  }
  ADD_FAILURE() << "the disk was read";
  return {};
}

TEST(AtaHealth, of_a_sound_disk_is_told_without_complaint) {
  AtaModel disk;
  const auto health = healthOf(disk);
  EXPECT_THAT(health->complaints(), IsEmpty());
  EXPECT_THAT(health->parametersOf(StorageEvent::Health),
              ElementsAre("sda", "4711", "35", "0", "0"));
  EXPECT_THAT(errorsOf(disk)->complaints(), IsEmpty());
}

TEST(AtaHealth, sends_nothing_that_the_disk_does_not_have) {
  AtaModel disk;
  healthOf(disk);
  errorsOf(disk);
  EXPECT_THAT(disk.asked, Not(Contains(AtaModel::generalLog(0))));
  EXPECT_THAT(disk.asked, Not(Contains(AtaModel::kErrors)));
  EXPECT_THAT(disk.asked, Not(Contains(AtaModel::kSelfTests)));
}

TEST(AtaHealth, is_told_as_far_as_a_disk_has_attributes) {
  AtaModel disk;
  disk.withoutAttributes().attribute(1, 200, 0, 51).attribute(12, 100, 99, 0, false);
  const auto health = healthOf(disk);
  EXPECT_THAT(health->complaints(), IsEmpty());
  EXPECT_THAT(health->parametersOf(StorageEvent::Health), ElementsAre("sda", "0", "0", "0", "0"));
}

TEST(AtaHealth, takes_only_the_part_of_a_raw_value_that_vendors_agree_on) {
  AtaModel disk;
  disk.withoutAttributes().attribute(9, 100, 0x1234'5600'1000).attribute(194, 64, 0x0014'0019'0029);
  disk.attribute(5, 100, 0x0007'0000'0000);
  const auto health = healthOf(disk);
  EXPECT_THAT(health->complaints(), IsEmpty());
  EXPECT_THAT(health->parametersOf(StorageEvent::Health),
              ElementsAre("sda", "4096", "41", "0", "0"));
}

TEST(AtaHealth, names_each_attribute_beyond_its_threshold) {
  AtaModel disk;
  disk.attribute(10, 97, 0, 97).attribute(1, 98, 0, 97).attribute(4, 20, 0, 30, false);
  disk.attribute(3, 90, 0, 60, true, 50).attribute(190, 60, 40, 45, false, 40);
  const auto health = healthOf(disk);
  EXPECT_THAT(health->parametersOf(StorageEvent::AttributeFailing),
              ElementsAre("sda", "10", "97", "97"));
  EXPECT_THAT(health->parametersOf(StorageEvent::AgedAttribute),
              ElementsAre("sda", "4", "20", "30"));
  EXPECT_THAT(health->parametersOf(StorageEvent::PastAttribute), ElementsAre("sda", "3"));
  EXPECT_EQ(health->complaints().size(), 3U);
}

TEST(AtaHealth, takes_values_and_thresholds_that_mean_nothing_for_no_fault) {
  AtaModel disk;
  disk.attribute(10, 0, 0, 97).attribute(11, 255, 0, 97).attribute(13, 100, 0, 254);
  disk.attribute(14, 1, 0, 0);
  EXPECT_THAT(healthOf(disk)->complaints(), IsEmpty());
}

TEST(AtaHealth, believes_the_disk_that_expects_to_fail_in_either_format_of_sense_data) {
  for (const bool inFixedFormat : {false, true}) {
    AtaModel disk;
    disk.tellsInFixedFormat = inFixedFormat;
    EXPECT_THAT(healthOf(disk)->complaints(), IsEmpty());
    disk.exceeded = true;
    const auto health = healthOf(disk);
    EXPECT_THAT(health->complaints(), ElementsAre(codeOf(StorageEvent::HealthFailing)));
    EXPECT_THAT(health->parametersOf(StorageEvent::HealthFailing),
                ElementsAre("sda", "S.M.A.R.T."));
  }
}

TEST(AtaHealth, is_told_by_a_translation_that_does_not_hand_registers_on) {
  AtaModel disk;
  disk.tellsRegisters = false;
  EXPECT_THAT(healthOf(disk)->complaints(), IsEmpty());
}

TEST(AtaHealth, counts_sectors_that_were_replaced_and_those_that_wait) {
  AtaModel disk;
  disk.attribute(5, 100, 7).attribute(197, 100, 3);
  EXPECT_THAT(healthOf(disk)->parametersOf(StorageEvent::BadSectors), ElementsAre("sda", "10"));
}

TEST(AtaHealth, takes_more_bad_sectors_than_there_are_sectors_for_no_count) {
  AtaModel disk;
  disk.attribute(5, 100, 0xFFFF'FFFF);
  EXPECT_THAT(healthOf(disk)->complaints(), IsEmpty());
}

TEST(AtaHealth, of_a_hot_disk_is_a_warning_and_an_impossible_temperature_is_none) {
  AtaModel hot;
  hot.withoutAttributes().attribute(190, 25, 75);
  EXPECT_THAT(healthOf(hot)->parametersOf(StorageEvent::Temperature), ElementsAre("sda", "75"));
  AtaModel odd;
  odd.withoutAttributes().attribute(194, 100, 0xFE).attribute(190, 60, 40);
  EXPECT_THAT(healthOf(odd)->parametersOf(StorageEvent::Health),
              ElementsAre("sda", "0", "40", "0", "0"));
}

// --- Logs

/// @brief Gives the disk the statistics of a solid state one.
void makeSolidState(AtaModel& disk, unsigned int percentUsed, std::uint64_t uncorrectable) {
  const auto page = [](unsigned int number) {
    return AtaBlock().number(0, 1, 2).number(2, number, 1);
  };
  const auto valid = [](AtaBlock block, std::size_t at, std::uint64_t value, unsigned int flags) {
    return block.number(at, value, 4).number(at + 7, flags, 1).bytes();
  };
  disk.identity.word(217, 1);
  disk.hasLog(4, 8).withoutAttributes();
  disk.answers(AtaModel::generalLog(4),
               page(0).number(8, 5, 1).number(9, 0x0705'0401'00, 5).bytes());
  disk.answers(AtaModel::generalLog(4, 1), valid(page(1), 16, 12345, 0xC0));
  disk.answers(AtaModel::generalLog(4, 4), valid(page(4), 8, uncorrectable, 0xC0));
  disk.answers(AtaModel::generalLog(4, 5), valid(page(5), 8, 44, 0x80));  // not valid just now
  disk.answers(AtaModel::generalLog(4, 7), valid(page(7), 8, percentUsed, 0xC0));
}

TEST(AtaHealth, of_a_solid_state_disk_comes_from_its_statistics) {
  AtaModel sound;
  makeSolidState(sound, 3, 0);
  const auto health = healthOf(sound);
  EXPECT_THAT(health->complaints(), IsEmpty());
  EXPECT_THAT(health->parametersOf(StorageEvent::Health),
              ElementsAre("sda", "12345", "0", "3", "0"));
  AtaModel worn;
  makeSolidState(worn, 104, 2);
  EXPECT_THAT(healthOf(worn)->complaints(),
              ElementsAre(codeOf(StorageEvent::MediaErrors), codeOf(StorageEvent::Worn)));
}

TEST(AtaHealth, does_not_take_one_page_of_statistics_for_another) {
  AtaModel disk;
  makeSolidState(disk, 3, 0);
  disk.answers(AtaModel::generalLog(4, 7), AtaBlock().number(2, 5, 1).number(8, 104, 1).bytes());
  EXPECT_THAT(healthOf(disk)->parametersOf(StorageEvent::UnusableAnswer),
              ElementsAre("sda", "READ LOG EXT 04h"));
}

TEST(AtaErrorLogs, tell_how_the_last_self_test_ended) {
  struct Case {
    unsigned int status;
    std::vector<unsigned int> complaints;
  };
  const std::vector<Case> cases{
      {0, {}},
      {1, {codeOf(StorageEvent::SelfTestInterrupted)}},  // stopped by a program
      {2, {codeOf(StorageEvent::SelfTestInterrupted)}},  // cut short by a reset
      {3, {codeOf(StorageEvent::SelfTestFailed)}},
      {7, {codeOf(StorageEvent::SelfTestFailed)}},
      {8, {codeOf(StorageEvent::SelfTestFailed)}},
      {12, {codeOf(StorageEvent::SelfTestInterrupted)}},  // no meaning
      {15, {}},
  };
  for (const Case& item : cases) {
    AtaModel disk;
    disk.selfTestStatus(item.status);
    EXPECT_EQ(errorsOf(disk)->complaints(), item.complaints) << item.status;
  }
}

TEST(AtaErrorLogs, tell_where_a_self_test_could_not_read) {
  AtaModel disk;
  disk.selfTestStatus(7).identity.bit(84, 1);
  AtaBlock log;
  log.number(0, 1, 2).number(508, 21, 1).number(2 + 20 * 24, 2, 1).number(2 + 20 * 24 + 1, 0x74, 1);
  log.number(2 + 20 * 24 + 2, 4700, 2).number(2 + 20 * 24 + 5, 123456, 4);
  disk.answers(AtaModel::kSelfTests, log.sealed());
  EXPECT_THAT(errorsOf(disk)->parametersOf(StorageEvent::SelfTestFailed),
              ElementsAre("sda", "7h", "4700", "123456"));
}

TEST(AtaErrorLogs, blame_the_disk_for_media_errors_and_nobody_for_refused_commands) {
  AtaModel disk;
  disk.identity.bit(84, 0);
  AtaBlock log;
  log.number(0, 1, 1).number(1, 1, 1).number(452, 2, 2);
  const auto entry = [&](std::size_t slot, unsigned int error, unsigned int lba) {
    const std::size_t at = 2 + 90 * slot;
    log.number(at + 48 + 7, 0x25, 1).number(at + 60 + 1, error, 1).number(at + 60 + 3, lba, 3);
    log.number(at + 60 + 6, 0xE1, 1).number(at + 60 + 7, 0x51, 1).number(at + 60 + 28, 99, 2);
  };
  entry(0, 0x40, 0x345678);  // uncorrectable
  entry(4, 0x04, 0);         // aborted
  disk.answers(AtaModel::kErrors, log.sealed());
  const auto errors = errorsOf(disk);
  EXPECT_THAT(errors->parametersOf(StorageEvent::ErrorLogEntries),
              ElementsAre("sda", "1", "25h: status 51h, error 40h, LBA 20207224, 99 h"));
}

/// @brief Gives the disk 18 TB, and a latest error on the second page of its log.
void makeLarge(AtaModel& disk) {
  constexpr std::uint64_t sectors = 4'394'582'016;  // of 4096 bytes
  disk.identity.number(2 * 60, 0x0FFFFFFF, 4).number(2 * 100, sectors, 6).bit(83, 10);
  disk.identity.bit(106, 14).bit(106, 12).number(2 * 117, 2048, 4);
  disk.hasLog(3, 2).hasLog(7, 1);
  AtaBlock first;
  first.number(0, 1, 1).number(2, 6, 2).number(500, 6, 2);
  AtaBlock second = first;
  const std::size_t at = 4 + 124;  // the second slot: entry 6
  second.number(at + 72 + 12, 0x60, 1).number(at + 90 + 1, 0x40, 1).number(at + 90 + 11, 0x41, 1);
  for (const auto& [place, byte] : std::vector<std::pair<std::size_t, unsigned int>>{
           {4, 0x01}, {6, 0x02}, {8, 0x03}, {5, 0x04}, {7, 0x01}, {9, 0x00}}) {
    second.number(at + 90 + place, byte, 1);
  }
  disk.answers(AtaModel::generalLog(3), first.sealed());
  disk.answers(AtaModel::generalLog(3, 1), second.sealed());
  AtaBlock tests;
  tests.number(0, 1, 1).number(2, 1, 2).number(4, 1, 1).number(5, 0x79, 1).number(6, 300, 2);
  tests.number(9, 0x1'0000'0001, 6);
  disk.selfTestStatus(7).answers(AtaModel::generalLog(7), tests.sealed());
}

TEST(AtaErrorLogs, of_a_large_disk_have_addresses_of_48_bits) {
  AtaModel disk;
  makeLarge(disk);
  const AtaIdentity identity = readAtaIdentity(disk);
  EXPECT_EQ(identity.sectors * identity.sectorBytes, 18'000'207'937'536U);
  const auto errors = errorsOf(disk);
  EXPECT_THAT(errors->parametersOf(StorageEvent::ErrorLogEntries),
              ElementsAre("sda", "1", HasSubstr("LBA 4362273281")));
  EXPECT_THAT(errors->parametersOf(StorageEvent::SelfTestFailed),
              ElementsAre("sda", "7h", "300", "4294967297"));
}

TEST(AtaErrorLogs, are_not_read_beyond_the_pages_that_they_have) {
  AtaModel disk;
  makeLarge(disk);
  disk.answers(AtaModel::generalLog(3), AtaBlock().number(0, 1, 1).number(2, 9, 2).sealed());
  const auto errors = errorsOf(disk);
  EXPECT_THAT(errors->parametersOf(StorageEvent::UnusableAnswer),
              ElementsAre("sda", "READ LOG EXT 03h"));
  EXPECT_THAT(disk.asked, Not(Contains(AtaModel::generalLog(3, 2))));
}

TEST(AtaErrorLogs, take_a_request_for_what_lies_behind_the_last_sector_for_no_fault) {
  AtaErrorEntry entry{.command = 0x25, .error = 0x10, .status = 0x51, .lba = 1000, .hours = 0};
  EXPECT_FALSE(tellsOfFault(entry, 1000));
  EXPECT_TRUE(tellsOfFault(entry, 1001));
  entry.status = 0x50;
  EXPECT_FALSE(tellsOfFault(entry, 1001));
  entry.status = 0x71;
  EXPECT_TRUE(tellsOfFault(entry, 1000));
}

// --- Answers that are none

TEST(AtaHealth, warns_of_garbage_and_blames_nobody_for_what_it_says) {
  std::mt19937 random(17);
  const auto garbage = [&] {
    AtaModel::Bytes bytes(kAtaBlock);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    bytes.front() = static_cast<std::uint8_t>(bytes.front() + (addsUpToZero(bytes) ? 1 : 0));
    return bytes;
  };
  for (int round = 0; round < 100; ++round) {
    AtaModel disk;
    disk.identity.bit(84, 0).bit(84, 1);
    disk.answers(AtaModel::kData, garbage()).answers(AtaModel::kThresholds, garbage());
    disk.answers(AtaModel::kErrors, garbage()).answers(AtaModel::kSelfTests, garbage());
    const unsigned int unusable = codeOf(StorageEvent::UnusableAnswer);
    EXPECT_THAT(healthOf(disk)->complaints(), ElementsAre(unusable, unusable));
    EXPECT_THAT(errorsOf(disk)->complaints(), ElementsAre(unusable, unusable, unusable));
  }
}

TEST(AtaHealth, warns_of_answers_that_are_short_blank_or_have_a_wrong_checksum) {
  AtaModel sound;
  AtaModel::Bytes spoilt = sound.data.sealed();
  spoilt[100] ^= 0x10;
  AtaModel::Bytes cut = sound.data.sealed();
  cut.resize(200);
  const std::vector<AtaModel::Bytes> answers{cut, {}, AtaModel::Bytes(kAtaBlock), spoilt};
  for (const AtaModel::Bytes& bytes : answers) {
    AtaModel disk;
    disk.answers(AtaModel::kData, bytes);
    const auto health = healthOf(disk);
    EXPECT_THAT(health->complaints(), ElementsAre(codeOf(StorageEvent::UnusableAnswer)));
    EXPECT_THAT(health->parametersOf(StorageEvent::UnusableAnswer),
                ElementsAre("sda", "SMART READ DATA"));
  }
}

TEST(AtaHealth, asks_again_where_a_change_was_told_instead_of_an_answer) {
  AtaModel disk;
  disk.changesToTell = 1;
  EXPECT_EQ(healthOf(disk)->parametersOf(StorageEvent::Health).at(1), "4711");
}

TEST(AtaHealth, is_not_to_be_had_of_a_bridge_that_answers_nothing) {
  AtaModel empty;
  empty.answers(AtaModel::kIdentify, {});
  EXPECT_EQ(refusalOf(empty), Reasons::kNoAtaDisk);
  AtaModel blank;
  blank.answers(AtaModel::kIdentify, AtaModel::Bytes(kAtaBlock));
  EXPECT_EQ(refusalOf(blank), Reasons::kNoAtaDisk);
  AtaModel without;
  without.knowsPassThrough = false;
  EXPECT_EQ(refusalOf(without), Reasons::kAtaRefused);
}

TEST(AtaHealth, is_not_switched_on_where_it_is_off) {
  AtaModel off;
  off.identity.word(85, 0);
  EXPECT_EQ(refusalOf(off), Reasons::kSmartOff);
  AtaModel without;
  without.identity.word(82, 0);
  EXPECT_EQ(refusalOf(without), Reasons::kNoSmart);
  EXPECT_THAT(without.asked, Each(AtaModel::kIdentify));
}

TEST(AtaHealth, does_not_wake_a_disk) {
  for (const bool inFixedFormat : {false, true}) {
    AtaModel disk;
    disk.tellsInFixedFormat = inFixedFormat;
    disk.identity.bit(82, 3);
    EXPECT_THAT(healthOf(disk)->complaints(), IsEmpty());
    disk.asked.clear();
    disk.powerMode = 0;
    EXPECT_EQ(refusalOf(disk), Reasons::kInStandby);
    EXPECT_THAT(disk.asked, ElementsAre(AtaModel::kIdentify, AtaModel::kPowerMode));
  }
}

TEST(AtaHealth, does_not_take_blank_registers_for_standby) {
  AtaModel disk;
  disk.identity.bit(82, 3);
  disk.givesBlankRegisters = true;
  EXPECT_EQ(healthOf(disk)->parametersOf(StorageEvent::Health).at(1), "4711");
  EXPECT_THAT(disk.asked, Contains(AtaModel::kPowerMode));
}

TEST(AtaHealth, of_a_disk_that_falls_silent_is_asked_for_no_further) {
  for (const std::size_t answered : {0U, 1U, 2U, 3U}) {
    AtaModel disk;
    disk.silentFrom = answered;
    EXPECT_THROW(readerOf(disk)->health(), SilentCommand);
    EXPECT_EQ(disk.asked.size(), answered + 1);
  }
}

TEST(AtaIdentities, have_their_texts_in_order_and_cleaned) {
  AtaModel disk;
  disk.identity.text(27, 46, "Sly\x1B[2J \x7F\xC3\xA4 disk");
  const AtaIdentity identity = readAtaIdentity(disk);
  EXPECT_EQ(identity.model, "Sly?[2J ??? disk");
  EXPECT_EQ(identity.serial, "WD-0815");
  EXPECT_EQ(identity.firmware, "80.00A80");
}

TEST(AtaIdentities, replace_what_the_kernel_cut_short) {
  AtaModel model;
  Disk disk;
  disk.model = "Model of a dis";
  disk.firmware = "0A80";
  describe(disk, readAtaIdentity(model));
  EXPECT_EQ(disk.model, "Model of a disk");
  EXPECT_EQ(disk.serial, "WD-0815");
  model.identity = AtaBlock().word(0, 0x40);
  describe(disk, readAtaIdentity(model));
  EXPECT_EQ(disk.model, "Model of a disk");
}

TEST(AtaIdentities, with_a_checksum_are_held_to_it) {
  AtaModel disk;
  disk.identity.number(510, 0xA5, 1);
  EXPECT_THROW(readAtaIdentity(disk), NotSupported);
  disk.answers(AtaModel::kIdentify, disk.identity.sealed());
  EXPECT_EQ(readAtaIdentity(disk).serial, "WD-0815");
}

}  // namespace
}  // namespace TarvexDiags::Storage
