#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "packages/storage/RecordBytes.h"

namespace TarvexDiags::Storage {

/// @brief ATA devices answer in blocks of this size, whatever their own sectors are.
constexpr std::size_t kAtaBlock = 512;

/// @brief What the device says that it is.
struct AtaIdentity {
  std::string model;
  std::string serial;
  std::string firmware;
  std::uint64_t sectors = 0;        ///< by 48-bit addresses where the device has them
  std::uint32_t sectorBytes = 512;  ///< of a logical sector
  bool isSolidState = false;
  bool tellsPowerMode = false;
  bool hasSmart = false;
  bool smartIsOn = false;
  bool hasErrorLog = false;
  bool hasSelfTest = false;
  bool hasGeneralLogs = false;  ///< logs by 48-bit commands
};

/// @brief Each of these is nothing for a record that is short, whose checksum is wrong, or that is
/// no such record at all.
std::optional<AtaIdentity> ataIdentityFrom(Record record);

struct AtaAttribute {
  std::uint8_t id = 0;
  bool foretellsFailure = false;  ///< otherwise it tells of age or use
  std::uint8_t value = 0;         ///< 1 to 253; others mean nothing
  std::uint8_t worst = 0;         ///< of all times
  std::uint64_t raw = 0;          ///< 48 bits, whose meaning is the vendor's
};

struct AtaSmartData {
  std::vector<AtaAttribute> attributes;  ///< at most 30; each number once
  std::uint8_t selfTestStatus = 0;       ///< of the latest self-test: 0 to 15
  bool hasErrorLog = false;
  bool hasSelfTest = false;

  /// @brief The attribute of the number; null when the device has none.
  const AtaAttribute* find(std::uint8_t id) const;
};
std::optional<AtaSmartData> ataSmartDataFrom(Record record);

/// @brief Thresholds by the numbers of their attributes.
using AtaThresholds = std::map<std::uint8_t, std::uint8_t>;
std::optional<AtaThresholds> ataThresholdsFrom(Record record);

/// @brief A command that failed.
struct AtaErrorEntry {
  std::uint8_t command = 0;
  std::uint8_t error = 0;   ///< the register of that name
  std::uint8_t status = 0;  ///< likewise
  std::uint64_t lba = 0;
  std::uint16_t hours = 0;  ///< that the device had been on
};

struct AtaErrorLog {
  std::uint16_t count = 0;             ///< of all times
  std::vector<AtaErrorEntry> entries;  ///< of this record, the latest first
};
/// @brief The summary log: five entries, addresses of 28 bits.
std::optional<AtaErrorLog> ataSummaryErrorLogFrom(Record record);
/// @brief A page of the extended log: four entries, addresses of 48 bits.
/// @param latest the number of the latest entry, counted over all pages, which is on this one
std::optional<AtaErrorLog> ataExtendedErrorLogFrom(Record page, std::uint16_t latest);
constexpr std::uint16_t kErrorsOnPage = 4;

/// @brief The number of the latest entry of an extended log, by its first page; 0: none.
std::optional<std::uint16_t> latestOfExtendedLog(Record firstPage);

/// @brief Whether the entry tells of a fault: of the medium, of the device or of the way to it. A
/// request that the device does not know, or for blocks that it has not, is none.
bool tellsOfFault(const AtaErrorEntry& entry, std::uint64_t sectors);

/// @brief One self-test in the log.
struct AtaSelfTest {
  std::uint8_t status = 0;  ///< 0 to 15, as in AtaSmartData
  std::uint16_t hours = 0;  ///< that the device had been on when it ended
  std::optional<std::uint64_t> firstBadLba;
};
struct AtaSelfTestLog {
  std::optional<AtaSelfTest> latest;  ///< nothing when there was none
};
std::optional<AtaSelfTestLog> ataSelfTestLogFrom(Record record);
/// @brief A page of the extended log, with addresses of 48 bits; `latest` as for the error log.
std::optional<AtaSelfTestLog> ataExtendedSelfTestLogFrom(Record page, std::uint16_t latest);
constexpr std::uint16_t kSelfTestsOnPage = 19;

/// @brief Pages that each log has, by the log's address; logs without pages are left out.
using AtaLogPages = std::map<std::uint8_t, std::uint16_t>;
std::optional<AtaLogPages> ataLogDirectoryFrom(Record record);

/// @brief The device statistics that are supported and valid.
struct AtaStatistics {
  std::optional<std::uint64_t> powerOnHours;
  std::optional<std::uint64_t> reallocatedSectors;
  std::optional<std::uint64_t> candidateSectors;  ///< that wait to be reallocated
  std::optional<std::uint64_t> uncorrectableErrors;
  std::optional<int> celsius;
  std::optional<unsigned int> percentUsed;
};
/// @brief Numbers of the pages that the device has.
std::optional<std::set<std::uint8_t>> ataStatisticsPagesFrom(Record record);
/// @brief Whether addAtaStatistics() looks for anything on the page.
bool isAtaStatisticsPage(std::uint8_t page);
/// @brief Adds what a page says; false, and nothing added, for a record that is not that page.
bool addAtaStatistics(Record record, std::uint8_t page, AtaStatistics& statistics);

}  // namespace TarvexDiags::Storage
