// SCSI disks that differ, from the log pages that they send to what is told about them; and what
// the kernel's account of an ended command means.

#include <filesystem>
#include <fstream>
#include <map>

#include "packages/storage/BridgedReader.h"
#include "packages/storage/ScsiReader.h"
#include "packages/storage/ScsiRecords.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using Common::RecordingJournal;
using ::testing::ElementsAre;
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

TEST(ScsiErrorLogs, tell_what_the_kernel_counts_to_a_user_who_may_not_open_the_disk) {
  std::string name = std::filesystem::absolute("sysfs-XXXXXX").string();
  const std::filesystem::path root = mkdtemp(name.data());
  const std::filesystem::path folder = root / "block/sdb/device";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "ioerr_cnt") << "0x3\n";
  const auto forbidden = []() -> std::unique_ptr<CommandChannel> { throw NotSupported("sdb"); };
  EXPECT_EQ(makeScsiReader(forbidden, "sdb", root)->errorLog().senseData, 3U);
  std::filesystem::remove_all(root);
  EXPECT_THROW(makeScsiReader(forbidden, "sdb", root)->errorLog(), NotSupported);
  EXPECT_THROW(ScsiModel().reader()->errorLog(), NotSupported);
}

// --- Bridges

/// @brief Tells the hours that it was made with, or that it cannot.
class KnownReader : public HealthReader {
 public:
  explicit KnownReader(std::uint64_t hours, std::string refusal = {})
      : m_hours(hours), m_refusal(std::move(refusal)) {}
  HealthReport health() override {
    refuseIfAsked();
    HealthReport health;
    health.powerOnHours = m_hours;
    return health;
  }
  ErrorLog errorLog() override {
    refuseIfAsked();
    ErrorLog log;
    log.senseData = m_hours;
    return log;
  }

 private:
  void refuseIfAsked() const {
    if (!m_refusal.empty()) {
      throw NotSupported(m_refusal);
    }
  }

  std::uint64_t m_hours;
  std::string m_refusal;
};

std::unique_ptr<HealthReader> bridge(const std::string& ata, const std::string& scsi) {
  return makeBridgedReader(std::make_unique<KnownReader>(1, ata),
                           std::make_unique<KnownReader>(2, scsi));
}

TEST(BridgedHealth, is_read_by_scsi_only_where_ata_is_refused) {
  EXPECT_EQ(bridge("", "")->health().powerOnHours, 1U);
  EXPECT_EQ(bridge("", "")->errorLog().senseData, 1U);
  EXPECT_EQ(bridge("refused", "")->health().powerOnHours, 2U);
  EXPECT_EQ(bridge("refused", "")->errorLog().senseData, 2U);
}

TEST(BridgedHealth, that_is_not_to_be_had_either_way_has_the_reason_of_ata) {
  try {
    bridge("refused", "no pages")->health();
    FAIL();
  } catch (const NotSupported& reason) {
    EXPECT_STREQ(reason.what(), "refused");
  }
}

}  // namespace
}  // namespace TarvexDiags::Storage
