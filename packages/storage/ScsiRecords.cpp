#include "packages/storage/ScsiRecords.h"

#include <limits>

namespace TarvexDiags::Storage {
namespace {

constexpr std::size_t kHeader = 4;  ///< of a page, and of each parameter

/// @brief What follows the header; nothing when this is not the page.
std::optional<Record> bodyOf(Record page, LogPage code) {
  constexpr std::uint64_t codeBits = 0x3F;
  if (page.size() < kHeader || (page[0] & codeBits) != static_cast<std::uint64_t>(code)) {
    return std::nullopt;
  }
  return partOf(page, kHeader, bigEndian(page, 2, 2));
}

/// @brief The data of the parameter with the number; nothing when the page does not have it whole.
std::optional<Record> parameterOf(Record page, LogPage code, std::uint64_t number) {
  const auto body = bodyOf(page, code);
  for (std::size_t at = 0; body && at + kHeader <= body->size();) {
    const std::uint64_t length = bigEndian(*body, at + 3, 1);
    const Record data = partOf(*body, at + kHeader, length);
    if (bigEndian(*body, at, 2) == number && data.size() == length) {
      return data;
    }
    at += kHeader + length;
  }
  return std::nullopt;
}

/// @brief Degrees as such pages tell them: all bits are set where they are not known.
int degrees(std::uint64_t byte) {
  constexpr std::uint64_t unknown = 0xFF;
  return byte == unknown ? 0 : static_cast<int>(byte);
}

/// @brief A counter of any width; one that does not fit is the largest value.
std::uint64_t counterOf(Record data) {
  constexpr std::size_t widest = 8;
  const std::size_t excess = data.size() > widest ? data.size() - widest : 0;
  for (const std::uint8_t byte : partOf(data, 0, excess)) {
    if (byte != 0) {
      return std::numeric_limits<std::uint64_t>::max();
    }
  }
  return bigEndian(data, excess, data.size() - excess);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> supportedPagesFrom(Record page) {
  const auto body = bodyOf(page, LogPage::Supported);
  return body ? std::optional(std::vector<std::uint8_t>(body->begin(), body->end())) : std::nullopt;
}

std::optional<std::uint64_t> uncorrectedErrorsFrom(Record page, LogPage code) {
  constexpr std::uint64_t totalUncorrected = 6;
  if (!bodyOf(page, code)) {
    return std::nullopt;
  }
  const auto counter = parameterOf(page, code, totalUncorrected);
  return counter ? counterOf(*counter) : 0;
}

std::optional<InformationalException> informationalExceptionFrom(Record page) {
  const auto data = parameterOf(page, LogPage::InformationalExceptions, 0);
  if (!data || data->size() < 2) {
    return std::nullopt;
  }
  return InformationalException{
      .code = (*data)[0], .qualifier = (*data)[1], .celsius = degrees(bigEndian(*data, 2, 1))};
}

std::optional<int> temperatureFrom(Record page) {
  const auto data = parameterOf(page, LogPage::Temperature, 0);
  return data && data->size() >= 2 ? std::optional(degrees((*data)[1])) : std::nullopt;
}

std::optional<unsigned int> percentUsedFrom(Record page) {
  const auto data = parameterOf(page, LogPage::SolidState, 1);
  return data && data->size() >= 4 ? std::optional<unsigned int>((*data)[3]) : std::nullopt;
}

std::optional<std::uint64_t> powerOnHoursFrom(Record page) {
  const auto minutes = parameterOf(page, LogPage::BackgroundScan, 0);
  return minutes && minutes->size() >= 4 ? std::optional(bigEndian(*minutes, 0, 4) / 60)
                                         : std::nullopt;
}

std::optional<ScsiSelfTestLog> selfTestsFrom(Record page) {
  constexpr std::size_t entryBytes = 16;
  if (!bodyOf(page, LogPage::SelfTests)) {
    return std::nullopt;
  }
  const auto entry = parameterOf(page, LogPage::SelfTests, 1);
  if (!entry || entry->size() < entryBytes) {
    return std::nullopt;
  }
  ScsiSelfTest test;
  test.result = (*entry)[0] & 0x0F;
  test.hours = static_cast<std::uint16_t>(bigEndian(*entry, 2, 2));
  if (const std::uint64_t lba = bigEndian(*entry, 4, 8);
      lba != std::numeric_limits<std::uint64_t>::max()) {
    test.firstBadLba = lba;
  }
  const bool neverRan = (*entry)[0] == 0 && test.hours == 0;
  return neverRan ? ScsiSelfTestLog() : ScsiSelfTestLog{test};
}

}  // namespace TarvexDiags::Storage
