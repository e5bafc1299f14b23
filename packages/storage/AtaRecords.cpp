#include "packages/storage/AtaRecords.h"

#include <algorithm>

namespace TarvexDiags::Storage {
namespace {

// --- Fields

std::uint16_t wordAt(Record record, std::size_t word) {
  return static_cast<std::uint16_t>(littleEndian(record, 2 * word, 2));
}

bool hasBit(std::uint16_t word, unsigned int bit) {
  return (word >> bit & 1U) != 0;
}

/// @brief Words of capabilities say by their two highest bits that they mean something.
bool isMeant(std::uint16_t word) {
  return word >> 14 == 1;
}

/// @brief Texts hold the first of two characters in the higher byte of a word.
std::string textOfWords(Record record, std::size_t first, std::size_t last) {
  std::vector<std::uint8_t> text;
  for (std::size_t word = first; word <= last; ++word) {
    text.push_back(byteAt(record, 2 * word + 1));
    text.push_back(byteAt(record, 2 * word));
  }
  return printable(text);
}

/// @brief Whether nothing was ever written here.
bool isBlank(Record record) {
  return std::all_of(record.begin(), record.end(), [](auto byte) { return byte == 0; });
}

/// @brief A block that is whole, and whose checksum is right.
bool isSound(Record record) {
  return record.size() == kAtaBlock && !isBlank(record) && addsUpToZero(record);
}

// --- Identity

/// @brief Devices of old have no checksum here; those that have one say so.
bool hasWrongChecksum(Record record) {
  constexpr std::uint8_t signature = 0xA5;
  return byteAt(record, kAtaBlock - 2) == signature && !addsUpToZero(record);
}

std::uint64_t sectorsOf(Record record) {
  const bool hasLongAddresses = isMeant(wordAt(record, 83)) && hasBit(wordAt(record, 83), 10);
  const std::uint64_t sectors = hasLongAddresses ? littleEndian(record, 2 * 100, 6) : 0;
  return sectors != 0 ? sectors : littleEndian(record, 2 * 60, 4);
}

std::uint32_t sectorBytesOf(Record record) {
  constexpr std::uint64_t largest = std::uint64_t{1} << 20;
  const std::uint16_t sizes = wordAt(record, 106);
  if (!isMeant(sizes) || !hasBit(sizes, 12)) {
    return kAtaBlock;
  }
  const std::uint64_t bytes = 2 * littleEndian(record, 2 * 117, 4);
  return bytes < kAtaBlock || bytes > largest ? kAtaBlock : static_cast<std::uint32_t>(bytes);
}

// --- Logs

constexpr std::size_t kAttributes = 30;
constexpr std::size_t kAttributeBytes = 12;
constexpr std::uint8_t kUnreadable = 7;  ///< status of a self-test that could not read

/// @brief The upper four bits of an address share a byte with others.
std::uint64_t shortLba(Record record, std::size_t at) {
  return littleEndian(record, at, 3) | littleEndian(record, at + 3, 1) % 16 << 24;
}

/// @brief The lower three bytes of an address stand between the upper ones.
std::uint64_t interleavedLba(Record record, std::size_t at) {
  std::uint64_t lba = 0;
  unsigned int shift = 0;
  for (const std::size_t place : {0U, 2U, 4U, 1U, 3U, 5U}) {
    lba |= littleEndian(record, at + place, 1) << shift;
    shift += 8;
  }
  return lba;
}

/// @brief Where an entry keeps what it tells: the command behind four earlier ones, then the error.
struct EntryLayout {
  std::size_t command;
  std::size_t error;
  std::size_t lba;
  std::size_t status;
  std::size_t hours;
  std::uint64_t (*lbaAt)(Record entry, std::size_t at);

  AtaErrorEntry read(Record entry) const {
    AtaErrorEntry told;
    told.command = byteAt(entry, command);
    told.error = byteAt(entry, error);
    told.status = byteAt(entry, status);
    told.lba = lbaAt(entry, lba);
    told.hours = static_cast<std::uint16_t>(littleEndian(entry, hours, 2));
    return told;
  }
};

constexpr EntryLayout kSummaryEntry{.command = 4 * 12 + 7,
                                    .error = 60 + 1,
                                    .lba = 60 + 3,
                                    .status = 60 + 7,
                                    .hours = 60 + 28,
                                    .lbaAt = shortLba};
constexpr EntryLayout kExtendedEntry{.command = 4 * 18 + 12,
                                     .error = 90 + 1,
                                     .lba = 90 + 4,
                                     .status = 90 + 11,
                                     .hours = 90 + 32,
                                     .lbaAt = interleavedLba};

/// @brief Where a log keeps its entries: a ring of slots.
struct Ring {
  std::size_t first;  ///< offset of the first slot
  std::size_t slots;
  std::size_t slotBytes;

  Record slot(Record record, std::size_t number) const {
    return partOf(record, first + number % slots * slotBytes, slotBytes);
  }
};

constexpr Ring kSummaryErrors{.first = 2, .slots = 5, .slotBytes = 90};
constexpr Ring kExtendedErrors{.first = 4, .slots = kErrorsOnPage, .slotBytes = 124};
constexpr Ring kSelfTests{.first = 2, .slots = 21, .slotBytes = 24};
constexpr Ring kExtendedSelfTests{.first = 4, .slots = kSelfTestsOnPage, .slotBytes = 26};

/// @brief From the latest entry, whose number counts from 1, backwards.
std::vector<AtaErrorEntry> entriesOf(Record record, const Ring& ring, std::size_t latest,
                                     const EntryLayout& layout) {
  std::vector<AtaErrorEntry> entries;
  for (std::size_t back = 1; latest != 0 && back <= ring.slots; ++back) {
    const Record entry = ring.slot(record, latest + ring.slots - back);
    if (!isBlank(entry)) {
      entries.push_back(layout.read(entry));
    }
  }
  return entries;
}

std::optional<AtaSelfTest> selfTestOf(Record entry, std::size_t lbaBytes) {
  if (isBlank(entry)) {
    return std::nullopt;
  }
  AtaSelfTest test;
  test.status = byteAt(entry, 1) >> 4;
  test.hours = static_cast<std::uint16_t>(littleEndian(entry, 2, 2));
  const std::uint64_t lba = littleEndian(entry, 5, lbaBytes);
  const bool isTold = lba != (std::uint64_t{1} << 8 * lbaBytes) - 1;  // all bits: it is not
  if (test.status == kUnreadable && isTold) {
    test.firstBadLba = lba;
  }
  return test;
}

// --- Statistics

constexpr std::uint8_t kGeneralPage = 1;
constexpr std::uint8_t kRotatingPage = 3;
constexpr std::uint8_t kErrorPage = 4;
constexpr std::uint8_t kTemperaturePage = 5;
constexpr std::uint8_t kSolidStatePage = 7;

/// @brief The value of `bytes` at the place; nothing unless its flags say supported and valid.
std::optional<std::uint64_t> statistic(Record record, std::size_t at, std::size_t bytes) {
  constexpr std::uint8_t supportedAndValid = 0xC0;
  const bool isValid = (byteAt(record, at + 7) & supportedAndValid) == supportedAndValid;
  return isValid ? std::optional(littleEndian(record, at, bytes)) : std::nullopt;
}

}  // namespace

std::optional<AtaIdentity> ataIdentityFrom(Record record) {
  const bool isPacketDevice = hasBit(wordAt(record, 0), 15);
  if (record.size() != kAtaBlock || isBlank(record) || isPacketDevice || hasWrongChecksum(record)) {
    return std::nullopt;
  }
  AtaIdentity identity;
  identity.serial = textOfWords(record, 10, 19);
  identity.firmware = textOfWords(record, 23, 26);
  identity.model = textOfWords(record, 27, 46);
  identity.sectors = sectorsOf(record);
  identity.sectorBytes = sectorBytesOf(record);
  identity.isSolidState = wordAt(record, 217) == 1;
  identity.tellsPowerMode = isMeant(wordAt(record, 83)) && hasBit(wordAt(record, 82), 3);
  identity.hasSmart = isMeant(wordAt(record, 83)) && hasBit(wordAt(record, 82), 0);
  identity.smartIsOn = isMeant(wordAt(record, 87)) && hasBit(wordAt(record, 85), 0);
  if (isMeant(wordAt(record, 84))) {
    identity.hasErrorLog = hasBit(wordAt(record, 84), 0);
    identity.hasSelfTest = hasBit(wordAt(record, 84), 1);
    identity.hasGeneralLogs = hasBit(wordAt(record, 84), 5);
  }
  return identity;
}

const AtaAttribute* AtaSmartData::find(std::uint8_t id) const {
  const auto found = std::find_if(attributes.begin(), attributes.end(),
                                  [&](const AtaAttribute& item) { return item.id == id; });
  return found == attributes.end() ? nullptr : &*found;
}

std::optional<AtaSmartData> ataSmartDataFrom(Record record) {
  if (!isSound(record)) {
    return std::nullopt;
  }
  AtaSmartData data;
  for (std::size_t slot = 0; slot < kAttributes; ++slot) {
    const Record entry = partOf(record, 2 + slot * kAttributeBytes, kAttributeBytes);
    if (entry[0] == 0 || data.find(entry[0]) != nullptr) {
      continue;
    }
    data.attributes.push_back({.id = entry[0],
                               .foretellsFailure = (entry[1] & 1U) != 0,
                               .value = entry[3],
                               .worst = entry[4],
                               .raw = littleEndian(entry, 5, 6)});
  }
  data.selfTestStatus = byteAt(record, 363) >> 4;
  data.hasSelfTest = (byteAt(record, 367) & 0x10) != 0;
  data.hasErrorLog = (byteAt(record, 370) & 0x01) != 0;
  return data;
}

std::optional<AtaThresholds> ataThresholdsFrom(Record record) {
  if (!isSound(record)) {
    return std::nullopt;
  }
  AtaThresholds thresholds;
  for (std::size_t slot = 0; slot < kAttributes; ++slot) {
    const Record entry = partOf(record, 2 + slot * kAttributeBytes, kAttributeBytes);
    if (entry[0] != 0) {
      thresholds.insert({entry[0], entry[1]});
    }
  }
  return thresholds;
}

std::optional<AtaErrorLog> ataSummaryErrorLogFrom(Record record) {
  const std::uint8_t latest = byteAt(record, 1);
  if (!isSound(record) || latest > kSummaryErrors.slots) {
    return std::nullopt;
  }
  return AtaErrorLog{.count = static_cast<std::uint16_t>(littleEndian(record, 452, 2)),
                     .entries = entriesOf(record, kSummaryErrors, latest, kSummaryEntry)};
}

std::optional<std::uint16_t> latestOfExtendedLog(Record firstPage) {
  return isSound(firstPage) ? std::optional(wordAt(firstPage, 1)) : std::nullopt;
}

std::optional<AtaErrorLog> ataExtendedErrorLogFrom(Record page, std::uint16_t latest) {
  if (!isSound(page)) {
    return std::nullopt;
  }
  return AtaErrorLog{.count = static_cast<std::uint16_t>(littleEndian(page, 500, 2)),
                     .entries = entriesOf(page, kExtendedErrors, latest, kExtendedEntry)};
}

bool tellsOfFault(const AtaErrorEntry& entry, std::uint64_t sectors) {
  constexpr std::uint8_t deviceFault = 0x20;
  constexpr std::uint8_t failed = 0x01;
  constexpr std::uint8_t transferOrMedium = 0x80 | 0x40;  // ICRC, UNC
  constexpr std::uint8_t notFound = 0x10;
  if ((entry.status & deviceFault) != 0) {
    return true;
  }
  if ((entry.status & failed) == 0) {
    return false;
  }
  const bool isOutside = sectors != 0 && entry.lba >= sectors;
  return (entry.error & transferOrMedium) != 0 || ((entry.error & notFound) != 0 && !isOutside);
}

std::optional<AtaSelfTestLog> ataSelfTestLogFrom(Record record) {
  const std::uint8_t latest = byteAt(record, 508);
  if (!isSound(record) || latest > kSelfTests.slots) {
    return std::nullopt;
  }
  return latest == 0 ? AtaSelfTestLog()
                     : AtaSelfTestLog{selfTestOf(kSelfTests.slot(record, latest - 1U), 4)};
}

std::optional<AtaSelfTestLog> ataExtendedSelfTestLogFrom(Record page, std::uint16_t latest) {
  if (!isSound(page)) {
    return std::nullopt;
  }
  return latest == 0 ? AtaSelfTestLog()
                     : AtaSelfTestLog{selfTestOf(kExtendedSelfTests.slot(page, latest - 1U), 6)};
}

std::optional<AtaLogPages> ataLogDirectoryFrom(Record record) {
  constexpr std::uint16_t version = 1;
  if (record.size() != kAtaBlock || wordAt(record, 0) != version) {
    return std::nullopt;
  }
  AtaLogPages pages;
  for (std::size_t log = 1; log < kAtaBlock / 2; ++log) {
    if (const std::uint16_t count = wordAt(record, log); count != 0) {
      pages.insert({static_cast<std::uint8_t>(log), count});
    }
  }
  return pages;
}

std::optional<std::set<std::uint8_t>> ataStatisticsPagesFrom(Record record) {
  constexpr std::size_t firstEntry = 9;
  if (record.size() != kAtaBlock || isBlank(record) || byteAt(record, 2) != 0) {
    return std::nullopt;
  }
  const Record pages = partOf(record, firstEntry, byteAt(record, firstEntry - 1));
  return std::set<std::uint8_t>(pages.begin(), pages.end());
}

bool isAtaStatisticsPage(std::uint8_t page) {
  return page == kGeneralPage || page == kRotatingPage || page == kErrorPage ||
         page == kTemperaturePage || page == kSolidStatePage;
}

bool addAtaStatistics(Record record, std::uint8_t page, AtaStatistics& statistics) {
  if (record.size() != kAtaBlock || byteAt(record, 2) != page) {
    return false;
  }
  switch (page) {
    case kGeneralPage:
      statistics.powerOnHours = statistic(record, 16, 4);
      break;
    case kRotatingPage:
      statistics.reallocatedSectors = statistic(record, 32, 4);
      statistics.candidateSectors = statistic(record, 56, 4);
      break;
    case kErrorPage:
      statistics.uncorrectableErrors = statistic(record, 8, 4);
      break;
    case kTemperaturePage:
      if (const auto degrees = statistic(record, 8, 1)) {
        statistics.celsius = static_cast<std::int8_t>(*degrees);
      }
      break;
    case kSolidStatePage:
      if (const auto used = statistic(record, 8, 1)) {
        statistics.percentUsed = static_cast<unsigned int>(*used);
      }
      break;
    default:
      break;
  }
  return true;
}

}  // namespace TarvexDiags::Storage
