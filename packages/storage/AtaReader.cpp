#include "packages/storage/AtaReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "packages/storage/AtaCommands.h"
#include "packages/storage/HealthRecords.h"

namespace TarvexDiags::Storage {
namespace {

constexpr AtaCommand kReadData = smartCommand("SMART READ DATA", 0xD0);
constexpr AtaCommand kReadThresholds = smartCommand("SMART READ THRESHOLDS", 0xD1);
constexpr AtaCommand kReadErrors = smartCommand("SMART READ LOG 01h", 0xD5, 0x01);
constexpr AtaCommand kReadSelfTests = smartCommand("SMART READ LOG 06h", 0xD5, 0x06);

/// @brief Addresses of the logs that are read by 48-bit commands, and those commands by name.
enum GeneralLog : std::uint8_t {
  Directory = 0x00,
  ExtendedErrors = 0x03,
  Statistics = 0x04,
  ExtendedSelfTests = 0x07,
};
constexpr const char* kReadDirectory = "READ LOG EXT 00h";
constexpr const char* kReadExtendedErrors = "READ LOG EXT 03h";
constexpr const char* kReadStatistics = "READ LOG EXT 04h";
constexpr const char* kReadExtendedSelfTests = "READ LOG EXT 07h";

// --- What the records say

/// @brief Reads records, and notes those that the disk has sent and that cannot be used.
class RecordReader {
 public:
  RecordReader(CommandChannel& channel, std::vector<std::string>& unusable)
      : m_commands(channel), m_unusable(unusable) {}

  AtaCommands& commands() { return m_commands; }

  /// @brief What `parse` finds in the answer; nothing for one that the disk refuses or that cannot
  /// be used.
  template <class Parse>
  auto read(const AtaCommand& command, Parse parse) -> decltype(parse(Record())) {
    const auto record = m_commands.read(command);
    if (!record) {
      return std::nullopt;
    }
    auto found = parse(Record(*record));
    if (!found) {
      m_unusable.emplace_back(command.name);
    }
    return found;
  }

  /// @brief The page that holds the latest entry of an extended log, if it is one of its pages.
  template <class Parse>
  auto readLatest(const char* name, const AtaLogPages::value_type& log, std::uint16_t entriesOnPage,
                  Parse parse) -> decltype(parse(Record(), std::uint16_t{})) {
    const auto latest = read(generalLog(name, log.first), latestOfExtendedLog);
    if (!latest) {
      return std::nullopt;
    }
    const auto page = static_cast<std::uint16_t>(*latest == 0 ? 0 : (*latest - 1) / entriesOnPage);
    if (page >= log.second) {
      m_unusable.emplace_back(name);
      return std::nullopt;
    }
    return read(generalLog(name, log.first, page),
                [&](Record record) { return parse(record, *latest); });
  }

 private:
  AtaCommands m_commands;
  std::vector<std::string>& m_unusable;
};

AtaLogPages generalLogs(RecordReader& reader, const AtaIdentity& identity) {
  if (!identity.hasGeneralLogs) {
    return {};
  }
  return reader.read(generalLog(kReadDirectory, Directory), ataLogDirectoryFrom)
      .value_or(AtaLogPages());
}

AtaStatistics statisticsOf(RecordReader& reader, const AtaLogPages& logs) {
  AtaStatistics statistics;
  if (!logs.contains(Statistics)) {
    return statistics;
  }
  const auto pages = reader.read(generalLog(kReadStatistics, Statistics), ataStatisticsPagesFrom);
  for (const std::uint8_t page : pages.value_or(std::set<std::uint8_t>())) {
    if (isAtaStatisticsPage(page)) {
      reader.read(generalLog(kReadStatistics, Statistics, page), [&](Record record) {
        return addAtaStatistics(record, page, statistics) ? std::optional(true) : std::nullopt;
      });
    }
  }
  return statistics;
}

// Numbers that vendors agree on.
constexpr std::uint8_t kReallocatedSectors = 5;
constexpr std::uint8_t kPowerOnHours = 9;
constexpr std::uint8_t kAirflowTemperature = 190;
constexpr std::uint8_t kTemperature = 194;
constexpr std::uint8_t kPendingSectors = 197;

/// @brief The lower bytes of an attribute's raw value. Vendors keep other figures in the upper
/// ones.
std::optional<std::uint64_t> rawOf(const AtaSmartData& data, std::uint8_t id, unsigned int bytes) {
  const AtaAttribute* attribute = data.find(id);
  return attribute == nullptr ? std::nullopt
                              : std::optional(attribute->raw % (std::uint64_t{1} << 8 * bytes));
}

/// @brief Sectors, of which no disk has more than its size: another number is no count.
std::uint64_t sectorsWithin(std::optional<std::uint64_t> count, const AtaIdentity& identity) {
  const bool isCount = count && (identity.sectors == 0 || *count <= identity.sectors);
  return isCount ? *count : 0;
}

/// @brief Degrees that a disk in use can have; nothing for others.
std::optional<int> plausible(std::optional<std::uint64_t> degrees) {
  constexpr std::uint64_t hottest = 125;
  return degrees && *degrees > 0 && *degrees <= hottest ? std::optional(static_cast<int>(*degrees))
                                                        : std::nullopt;
}

void judgeThresholds(const AtaSmartData& data, const AtaThresholds& thresholds,
                     HealthReport& health) {
  for (const AtaAttribute& attribute : data.attributes) {
    const auto found = thresholds.find(attribute.id);
    const auto isBeyond = [&](std::uint8_t value) {
      return value >= 1 && value <= 253 && value <= found->second;
    };
    // A threshold of 0 is never reached; 254 and 255 are none.
    if (found == thresholds.end() || found->second == 0 || found->second > 253) {
      continue;
    }
    const BeyondThreshold beyond{attribute.id, attribute.value, found->second};
    if (isBeyond(attribute.value)) {
      (attribute.foretellsFailure ? health.failingAttributes : health.agedAttributes)
          .push_back(beyond);
    } else if (attribute.foretellsFailure && isBeyond(attribute.worst)) {
      health.pastAttributes.push_back(attribute.id);
    }
  }
}

void takeFigures(const AtaSmartData& data, const AtaStatistics& statistics,
                 const AtaIdentity& identity, HealthReport& health) {
  const auto either = [](auto first, auto second) { return first ? first : second; };
  health.badSectors =
      sectorsWithin(either(statistics.reallocatedSectors, rawOf(data, kReallocatedSectors, 4)),
                    identity) +
      sectorsWithin(either(statistics.candidateSectors, rawOf(data, kPendingSectors, 4)), identity);
  health.powerOnHours = either(statistics.powerOnHours, rawOf(data, kPowerOnHours, 3)).value_or(0);
  const auto byAttributes = either(plausible(rawOf(data, kTemperature, 1)),
                                   plausible(rawOf(data, kAirflowTemperature, 1)));
  health.celsius = either(statistics.celsius, byAttributes).value_or(0);
  health.mediaErrors = statistics.uncorrectableErrors.value_or(0);
  health.percentUsed = statistics.percentUsed.value_or(0);
}

std::string textOf(const AtaErrorEntry& entry) {
  return fmt::format("{:02X}h: status {:02X}h, error {:02X}h, LBA {}, {} h", entry.command,
                     entry.status, entry.error, entry.lba, entry.hours);
}

void addEntries(const AtaErrorLog& read, const AtaIdentity& identity, ErrorLog& log) {
  for (const AtaErrorEntry& entry : read.entries) {
    if (tellsOfFault(entry, identity.sectors)) {
      log.entries.push_back({1, textOf(entry)});
    } else {
      ++log.harmless;
    }
  }
}

void takeSelfTest(const std::optional<AtaSmartData>& data,
                  const std::optional<AtaSelfTest>& details, ErrorLog& log) {
  const std::uint8_t status = data ? data->selfTestStatus : details ? details->status : 0;
  constexpr std::uint8_t lastFailure = 8;
  log.selfTest = selfTestEnd(status, lastFailure);
  log.selfTestStatus = status;
  if (details && details->status == status) {
    log.selfTestHours = details->hours;
    log.firstBadLba = details->firstBadLba;
  }
}

// --- The reader

class AtaReader final : public HealthReader {
 public:
  AtaReader(std::unique_ptr<CommandChannel> channel, std::string disk, std::filesystem::path sysfs)
      : m_channel(std::move(channel)), m_disk(std::move(disk)), m_sysfs(std::move(sysfs)) {}

  HealthReport health() override {
    const AtaIdentity identity = identityWithSmart();
    HealthReport health;
    RecordReader reader(*m_channel, health.unusableAnswers);
    const auto exceeded = reader.commands().thresholdExceeded();
    if (exceeded.value_or(false)) {
      health.failing = true;
      health.failingText = "S.M.A.R.T.";
    }
    const auto data = reader.read(kReadData, ataSmartDataFrom);
    const auto thresholds = reader.read(kReadThresholds, ataThresholdsFrom);
    const AtaStatistics statistics = statisticsOf(reader, generalLogs(reader, identity));
    if (!exceeded && !data && health.unusableAnswers.empty()) {
      throw NotSupported(Reasons::kSmartRefused);
    }
    judgeThresholds(data.value_or(AtaSmartData()), thresholds.value_or(AtaThresholds()), health);
    takeFigures(data.value_or(AtaSmartData()), statistics, identity, health);
    return health;
  }

  ErrorLog errorLog() override {
    const AtaIdentity identity = identityWithSmart();
    ErrorLog log = countersOf(m_disk, m_sysfs).value_or(ErrorLog());
    addOwnLogs(identity, log);
    return log;
  }

 private:
  AtaIdentity identityWithSmart() {
    AtaIdentity identity = readAtaIdentity(*m_channel);
    if (!identity.hasSmart) {
      throw NotSupported(Reasons::kNoSmart);
    }
    if (!identity.smartIsOn) {
      throw NotSupported(Reasons::kSmartOff);
    }
    // To start its motor takes longer than an answer may, and is nothing that a question should do.
    if (identity.tellsPowerMode && AtaCommands(*m_channel).isInStandby()) {
      throw NotSupported(Reasons::kInStandby);
    }
    return identity;
  }

  void addOwnLogs(const AtaIdentity& identity, ErrorLog& log) {
    log.origin = log.origin.empty() ? "S.M.A.R.T." : "SMART_AND_KERNEL_COUNTERS";
    RecordReader reader(*m_channel, log.unusableAnswers);
    const auto data = reader.read(kReadData, ataSmartDataFrom);
    const AtaLogPages logs = generalLogs(reader, identity);
    if (const auto errors = readErrors(reader, identity, data, logs)) {
      addEntries(*errors, identity, log);
    }
    const auto selfTests = readSelfTests(reader, identity, data, logs);
    takeSelfTest(data, selfTests ? selfTests->latest : std::optional<AtaSelfTest>(), log);
  }

  static std::optional<AtaErrorLog> readErrors(RecordReader& reader, const AtaIdentity& identity,
                                               const std::optional<AtaSmartData>& data,
                                               const AtaLogPages& logs) {
    if (const auto log = logs.find(ExtendedErrors); log != logs.end()) {
      return reader.readLatest(kReadExtendedErrors, *log, kErrorsOnPage, ataExtendedErrorLogFrom);
    }
    return identity.hasErrorLog || (data && data->hasErrorLog)
               ? reader.read(kReadErrors, ataSummaryErrorLogFrom)
               : std::nullopt;
  }

  static std::optional<AtaSelfTestLog> readSelfTests(RecordReader& reader,
                                                     const AtaIdentity& identity,
                                                     const std::optional<AtaSmartData>& data,
                                                     const AtaLogPages& logs) {
    if (const auto log = logs.find(ExtendedSelfTests); log != logs.end()) {
      return reader.readLatest(kReadExtendedSelfTests, *log, kSelfTestsOnPage,
                               ataExtendedSelfTestLogFrom);
    }
    return identity.hasSelfTest || (data && data->hasSelfTest)
               ? reader.read(kReadSelfTests, ataSelfTestLogFrom)
               : std::nullopt;
  }

  std::unique_ptr<CommandChannel> m_channel;
  std::string m_disk;
  std::filesystem::path m_sysfs;
};

}  // namespace

AtaIdentity readAtaIdentity(CommandChannel& channel) {
  const auto record = AtaCommands(channel).read(kIdentify);
  if (!record) {
    throw NotAta(Reasons::kAtaRefused);
  }
  const auto identity = ataIdentityFrom(*record);
  if (!identity) {
    throw NotAta(Reasons::kNoAtaDisk);
  }
  return *identity;
}

void describe(Disk& disk, const AtaIdentity& identity) {
  const auto take = [](std::string& known, const std::string& own) {
    known = own.empty() ? known : own;
  };
  take(disk.model, identity.model);
  take(disk.serial, identity.serial);
  take(disk.firmware, identity.firmware);
}

std::unique_ptr<HealthReader> makeAtaReader(std::unique_ptr<CommandChannel> channel,
                                            const std::string& disk,
                                            const std::filesystem::path& sysfs) {
  return std::make_unique<AtaReader>(std::move(channel), disk, sysfs);
}

}  // namespace TarvexDiags::Storage
