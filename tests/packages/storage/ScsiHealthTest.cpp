// SCSI disks that differ, from the log pages that they send to what is told about them; and what
// the kernel's account of an ended command means.

#include <filesystem>
#include <fstream>
#include <map>

#include "packages/storage/AtaReader.h"
#include "packages/storage/BridgedReader.h"
#include "packages/storage/ScsiReader.h"
#include "packages/storage/ScsiRecords.h"
#include "tests/packages/storage/AtaModel.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using Common::RecordingJournal;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kNoCounters = "/no/such/folder";

unsigned int codeOf(StorageEvent event) {
  return static_cast<unsigned int>(event);
}

/// @brief A page of parameters, each with its number and data.
Bytes pageOf(LogPage code, const std::map<unsigned int, Bytes>& parameters) {
  Bytes page{static_cast<std::uint8_t>(code), 0, 0, 0};
  for (const auto& [number, data] : parameters) {
    page.insert(page.end(),
                {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number & 0xFF),
                 0x03, static_cast<std::uint8_t>(data.size())});
    page.insert(page.end(), data.begin(), data.end());
  }
  page[2] = static_cast<std::uint8_t>((page.size() - 4) >> 8);
  page[3] = static_cast<std::uint8_t>((page.size() - 4) & 0xFF);
  return page;
}

/// @brief A disk with the pages that a test gives it; it refuses others.
class ScsiModel {
 public:
  ScsiModel& has(LogPage code, Bytes page) {
    m_pages[static_cast<std::uint8_t>(code)] = std::move(page);
    return *this;
  }
  ScsiModel& warnsOf(std::uint8_t code, std::uint8_t qualifier) {
    return has(LogPage::InformationalExceptions,
               pageOf(LogPage::InformationalExceptions, {{0, {code, qualifier, 33}}}));
  }

  ScsiAnswer answer(const ScsiCommand& command) const {
    EXPECT_EQ(command.block[0], 0x4D);
    const auto code = static_cast<std::uint8_t>(command.block[2] & 0x3F);
    if (code == 0 && !m_pages.empty()) {
      Bytes list{0, 0, 0, static_cast<std::uint8_t>(m_pages.size())};
      for (const auto& [number, page] : m_pages) {
        list.push_back(number);
      }
      return {.status = 0, .data = list, .sense = {}};
    }
    const auto found = m_pages.find(code);
    return found == m_pages.end() ? ScsiAnswer{.status = 2, .data = {}, .sense = {0x70, 0, 5}}
                                  : ScsiAnswer{.status = 0, .data = found->second, .sense = {}};
  }

  std::unique_ptr<HealthReader> reader(const std::filesystem::path& sysfs = kNoCounters) const {
    return makeScsiReader([this] { return std::make_unique<Wire>(*this); }, "sdb", sysfs);
  }

 private:
  class Wire : public CommandChannel {
   public:
    explicit Wire(const ScsiModel& disk) : m_disk(disk) {}
    ScsiAnswer execute(const ScsiCommand& command) override { return m_disk.answer(command); }

   private:
    const ScsiModel& m_disk;
  };

  std::map<std::uint8_t, Bytes> m_pages;
};

std::unique_ptr<RecordingJournal> healthOf(const ScsiModel& disk) {
  auto journal = std::make_unique<RecordingJournal>();
  judgeHealth(disk.reader()->health(), {.percentUsed = 100, .celsius = 70}, "sdb", *journal);
  return journal;
}

TEST(ScsiHealth, of_a_sound_disk_is_told_without_complaint) {
  ScsiModel disk;
  disk.warnsOf(0, 0).has(LogPage::Temperature, pageOf(LogPage::Temperature, {{0, {0, 41}}}));
  disk.has(LogPage::ReadErrors, pageOf(LogPage::ReadErrors, {{3, {0, 0, 9}}, {6, {0, 0}}}));
  disk.has(LogPage::SolidState, pageOf(LogPage::SolidState, {{1, {0, 0, 0, 12}}}));
  disk.has(LogPage::BackgroundScan,
           pageOf(LogPage::BackgroundScan, {{0, {0, 0, 0x02, 0x58, 0, 0, 0, 0, 0, 0, 0, 0}}}));
  const auto health = healthOf(disk);
  EXPECT_THAT(health->complaints(), IsEmpty());
  EXPECT_THAT(health->parametersOf(StorageEvent::Health),
              ElementsAre("sdb", "10", "41", "12", "0"));
}

TEST(ScsiHealth, believes_the_disk_that_expects_to_fail) {
  const auto health = healthOf(ScsiModel().warnsOf(0x5D, 0x10));
  EXPECT_THAT(health->complaints(), ElementsAre(codeOf(StorageEvent::HealthFailing)));
  EXPECT_THAT(health->parametersOf(StorageEvent::HealthFailing), ElementsAre("sdb", "5Dh 10h"));
}

TEST(ScsiHealth, does_not_take_a_prediction_that_is_a_test_for_one) {
  EXPECT_THAT(healthOf(ScsiModel().warnsOf(0x5D, 0xFF))->complaints(),
              ElementsAre(codeOf(StorageEvent::PredictionIsTest)));
}

TEST(ScsiHealth, hands_on_what_the_disk_warns_of) {
  EXPECT_THAT(healthOf(ScsiModel().warnsOf(0x0B, 0x01))->parametersOf(StorageEvent::DeviceWarning),
              ElementsAre("sdb", "0Bh 01h"));
}

TEST(ScsiHealth, adds_up_errors_that_could_not_be_corrected_and_does_not_overflow) {
  ScsiModel disk;
  disk.has(LogPage::ReadErrors, pageOf(LogPage::ReadErrors, {{6, {0, 3}}}));
  disk.has(LogPage::WriteErrors, pageOf(LogPage::WriteErrors, {{6, {4}}}));
  disk.has(LogPage::VerifyErrors, pageOf(LogPage::VerifyErrors, {{3, {5}}}));
  EXPECT_THAT(healthOf(disk)->parametersOf(StorageEvent::MediaErrors), ElementsAre("sdb", "7"));
  disk.has(LogPage::VerifyErrors, pageOf(LogPage::VerifyErrors, {{6, Bytes(12, 0xFF)}}));
  EXPECT_THAT(healthOf(disk)->parametersOf(StorageEvent::MediaErrors),
              ElementsAre("sdb", "18446744073709551615"));
}

TEST(ScsiHealth, of_a_disk_without_log_pages_is_not_to_be_had) {
  EXPECT_THROW(ScsiModel().reader()->health(), NotSupported);
  ScsiModel other;
  other.has(LogPage::Temperature, pageOf(LogPage::Temperature, {{0, {0, 41}}}));
  EXPECT_THROW(other.reader()->health(), NotSupported);
}

TEST(ScsiHealth, warns_of_pages_that_are_cut_short_or_others) {
  for (const Bytes& page : {Bytes{}, Bytes{0x2F, 0, 0, 8}, Bytes{0x0D, 0, 0, 2, 0, 0},
                            Bytes{0x2F, 0, 0, 8, 0, 0, 3, 200, 0x5D, 0x10}}) {
    ScsiModel disk;
    disk.has(LogPage::InformationalExceptions, page);
    EXPECT_THAT(healthOf(disk)->complaints(), ElementsAre(codeOf(StorageEvent::UnusableAnswer)));
  }
}

Bytes selfTests(std::uint8_t result) {
  return pageOf(LogPage::SelfTests, {{1,
                                      {static_cast<std::uint8_t>(0x20 | result), 1, 0x10, 0x00, 0,
                                       0, 0, 1, 0, 0, 0, 2, 3, 0x11, 0, 0}}});
}

TEST(ScsiErrorLogs, tell_how_the_last_self_test_ended) {
  struct Case {
    std::uint8_t result;
    std::vector<unsigned int> complaints;
  };
  const std::vector<Case> cases{{0, {}},
                                {1, {codeOf(StorageEvent::SelfTestInterrupted)}},
                                {2, {codeOf(StorageEvent::SelfTestInterrupted)}},
                                {4, {codeOf(StorageEvent::SelfTestFailed)}},
                                {7, {codeOf(StorageEvent::SelfTestFailed)}},
                                {15, {}}};
  for (const Case& item : cases) {
    RecordingJournal journal;
    ScsiModel disk;
    disk.has(LogPage::SelfTests, selfTests(item.result));
    judgeErrorLog(disk.reader()->errorLog(), 0, "sdb", journal);
    EXPECT_EQ(journal.complaints(), item.complaints) << int{item.result};
    if (item.result == 7) {
      EXPECT_THAT(journal.parametersOf(StorageEvent::SelfTestFailed),
                  ElementsAre("sdb", "7h", "4096", "4294967298"));
    }
  }
}

/// @brief A folder in which the kernel counts three commands of the disk "sdb" with sense data.
class Counters {
 public:
  Counters() {
    std::string name = std::filesystem::absolute("sysfs-XXXXXX").string();
    m_root = mkdtemp(name.data());
    const std::filesystem::path folder = m_root / "block/sdb/device";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "ioerr_cnt") << "0x3\n";
  }
  Counters(const Counters&) = delete;
  Counters& operator=(const Counters&) = delete;
  ~Counters() { std::filesystem::remove_all(m_root); }

  const std::filesystem::path& root() const { return m_root; }

 private:
  std::filesystem::path m_root;
};

TEST(ScsiErrorLogs, tell_what_the_kernel_counts_to_a_user_who_may_not_open_the_disk) {
  const Counters counters;
  const auto forbidden = []() -> std::unique_ptr<CommandChannel> {
    throw NotSupported(Reasons::kCannotBeAsked);
  };
  EXPECT_EQ(makeScsiReader(forbidden, "sdb", counters.root())->errorLog().senseData, 3U);
  EXPECT_THROW(makeScsiReader(forbidden, "sdb", kNoCounters)->errorLog(), NotSupported);
  EXPECT_THROW(ScsiModel().reader()->errorLog(), NotSupported);
}

// --- Bridges

/// @brief A disk that is described as ATA: what it answers to commands of either kind.
struct BridgedModel : CommandChannel {
  ScsiAnswer execute(const ScsiCommand& command) override {
    const bool isScsi = command.block[0] == 0x4D;
    asksForPages = asksForPages || isScsi;
    return isScsi ? scsi.answer(command) : ata.execute(command);
  }

  std::unique_ptr<HealthReader> reader(const std::filesystem::path& sysfs = kNoCounters) {
    auto channel = std::make_unique<Wire>(*this);
    auto own = makeScsiReader([this] { return std::make_unique<Wire>(*this); }, "sdb", sysfs);
    return makeBridgedReader(makeAtaReader(std::move(channel), "sdb", sysfs), std::move(own), "sdb",
                             sysfs);
  }

  AtaModel ata;
  ScsiModel scsi;
  bool asksForPages = false;

 private:
  struct Wire : CommandChannel {
    explicit Wire(BridgedModel& bridged) : disk(bridged) {}
    ScsiAnswer execute(const ScsiCommand& command) override { return disk.execute(command); }
    BridgedModel& disk;
  };
};

/// @brief One that knows no command of ATA.
struct OnlyDescribedAsAta : BridgedModel {
  OnlyDescribedAsAta() { ata.knowsPassThrough = false; }
};

std::optional<Common::Reason> whyNoHealthOf(BridgedModel& disk) {
  try {
    disk.reader()->health();
  } catch (const NotSupported& reason) {
    return reason.reason();
  }
  ADD_FAILURE() << "the disk was read";
  return {};
}

TEST(BridgedHealth, is_read_by_scsi_only_where_the_disk_is_no_ata_disk) {
  BridgedModel ata;
  ata.scsi.warnsOf(0, 0);
  EXPECT_EQ(ata.reader()->health().powerOnHours, 4711U);
  EXPECT_FALSE(ata.asksForPages);
  OnlyDescribedAsAta scsi;
  scsi.scsi.warnsOf(0, 0);
  EXPECT_EQ(scsi.reader()->health().celsius, 33);
}

TEST(BridgedHealth, that_is_not_to_be_had_either_way_has_the_reason_of_ata) {
  OnlyDescribedAsAta disk;
  EXPECT_EQ(whyNoHealthOf(disk), Reasons::kAtaRefused);
  EXPECT_TRUE(disk.asksForPages);
}

TEST(BridgedHealth, of_a_disk_in_standby_is_asked_for_by_no_means) {
  const Counters counters;
  BridgedModel disk;
  disk.ata.identity.bit(82, 3);
  disk.ata.powerMode = 0;
  disk.scsi.warnsOf(0, 0).has(LogPage::SelfTests, selfTests(7));
  EXPECT_EQ(whyNoHealthOf(disk), Reasons::kInStandby);
  EXPECT_THROW(disk.reader()->errorLog(), NotSupported);
  EXPECT_EQ(disk.reader(counters.root())->errorLog().senseData, 3U);
  EXPECT_FALSE(disk.asksForPages);
}

TEST(BridgedErrorLogs, tell_of_a_failed_self_test_also_where_the_kernel_has_counters) {
  const Counters counters;
  OnlyDescribedAsAta disk;
  disk.scsi.has(LogPage::SelfTests, selfTests(7));
  for (const std::filesystem::path& sysfs : {counters.root(), std::filesystem::path(kNoCounters)}) {
    RecordingJournal journal;
    judgeErrorLog(disk.reader(sysfs)->errorLog(), 0, "sdb", journal);
    EXPECT_THAT(journal.complaints(), Contains(codeOf(StorageEvent::SelfTestFailed)));
  }
}

TEST(BridgedErrorLogs, of_an_ata_disk_have_the_counters_of_the_kernel_too) {
  const Counters counters;
  BridgedModel disk;
  disk.ata.selfTestStatus(7);
  const ErrorLog log = disk.reader(counters.root())->errorLog();
  EXPECT_EQ(log.senseData, 3U);
  EXPECT_EQ(log.selfTest, SelfTestEnd::Failed);
  EXPECT_FALSE(disk.asksForPages);
}

}  // namespace
}  // namespace TarvexDiags::Storage
