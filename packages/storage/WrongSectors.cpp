#include "packages/storage/WrongSectors.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>
#include <vector>

#include "packages/storage/Ranges.h"

namespace TarvexDiags::Storage {
namespace {

constexpr std::size_t kSector = TestPattern::kSector;

std::vector<std::byte> written(const TestPattern& pattern, std::size_t length,
                               std::uint64_t offset) {
  std::vector<std::byte> data(length);
  pattern.fill(data);
  pattern.stamp(data, offset);
  return data;
}

/// @brief Whether all bytes are the same, as in space that was never written or was erased.
bool isUniform(std::span<const std::byte> data) {
  return std::all_of(data.begin(), data.end(),
                     [&](std::byte value) { return value == data.front(); });
}

bool isSame(std::span<const std::byte> left, std::span<const std::byte> right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end());
}

std::string hexText(std::byte value) {
  return fmt::format("{:#04x}", std::to_integer<unsigned int>(value));
}

}  // namespace

void WrongSectors::note(std::span<const std::byte> found, std::uint64_t offset) {
  const std::vector<std::byte> expected = written(m_pattern, found.size(), offset);
  RangeMap ranges;  // of this transfer alone: the second look is at whole transfers too
  for (std::size_t at = 0; at < found.size(); at += kSector) {
    const auto wanted = std::span(expected).subspan(at, kSector);
    const auto got = found.subspan(at, kSector);
    if (!isSame(wanted, got)) {
      append(ranges, offset + at, sectorOf(wanted, got, offset + at));
    }
  }
  m_ranges.merge(ranges);
}

void WrongSectors::lookAgain(std::span<const std::byte> found, std::uint64_t offset) {
  const std::vector<std::byte> expected = written(m_pattern, found.size(), offset);
  const auto end = m_ranges.lower_bound(offset + found.size());
  for (auto range = m_ranges.lower_bound(offset); range != end; ++range) {
    const std::size_t start = range->first - offset;
    const std::size_t length = range->second.sectors * kSector;
    range->second.heals =
        isSame(std::span(expected).subspan(start, length), found.subspan(start, length));
  }
}

std::uint64_t WrongSectors::tell() {
  constexpr unsigned int kMostTold = 32;
  RangeMap joined;  // transfers end in any order, so neighbours meet only now
  for (const auto& [offset, range] : m_ranges) {
    append(joined, offset, range);
  }
  // Counted apart: what healed must not keep what lasts from being told.
  std::map<bool, unsigned int> told;
  std::uint64_t sectors = 0;
  Ranges lasting;
  for (const auto& [offset, range] : joined) {
    if (told[range.heals]++ < kMostTold) {
      tellRange(offset, range);
    }
    sectors += range.sectors;
    if (!range.heals) {
      lasting.add(offset / kSector, range.sectors);
    }
  }
  if (lasting.count() > kMostTold) {  // else each was told by itself
    report(
        m_journal, StorageEvent::FaultySectors,
        {m_disk, std::to_string(lasting.total()), std::to_string(lasting.count()), lasting.text()});
  }
  return sectors;
}

WrongSectors::Range WrongSectors::sectorOf(std::span<const std::byte> expected,
                                           std::span<const std::byte> found,
                                           std::uint64_t offset) const {
  Range sector{.sectors = 1};
  const std::optional<std::uint64_t> place = m_pattern.placeOf(found);
  if (place && *place != offset) {
    sector.kind = Kind::Misdirected;
    sector.from = *place;
  } else if (isUniform(found)) {
    sector.kind = Kind::Lost;
  } else {
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), found.begin());
    sector.byte = static_cast<std::size_t>(wanted - expected.begin());
    sector.expected = *wanted;
    sector.found = *got;
    for (std::size_t at = 0; at < expected.size(); ++at) {
      sector.bits += static_cast<unsigned int>(
          std::popcount(std::to_integer<unsigned int>(expected[at] ^ found[at])));
    }
  }
  return sector;
}

void WrongSectors::append(RangeMap& ranges, std::uint64_t offset, const Range& range) {
  if (const auto next = ranges.upper_bound(offset); next != ranges.begin()) {
    auto& [start, last] = *std::prev(next);
    const std::uint64_t length = last.sectors * kSector;
    const bool goesOn = last.kind != Kind::Misdirected || last.from + length == range.from;
    if (start + length == offset && last.kind == range.kind && last.heals == range.heals &&
        goesOn) {
      last.sectors += range.sectors;
      last.bits += range.bits;
      return;
    }
  }
  ranges.emplace(offset, range);
}

void WrongSectors::tellRange(std::uint64_t offset, const Range& range) {
  std::vector<std::string> parameters{m_disk, std::to_string(offset), blockText(offset)};
  StorageEvent event = StorageEvent::RecoveredVerify;
  if (!range.heals) {
    switch (range.kind) {
      case Kind::Misdirected:
        event = StorageEvent::Misdirected;
        parameters.push_back(std::to_string(range.from));
        break;
      case Kind::Lost:
        event = StorageEvent::LostWrite;
        break;
      case Kind::Garbled:
        event = StorageEvent::Miscompare;
        parameters.insert(parameters.end(), {std::to_string(range.byte), hexText(range.expected),
                                             hexText(range.found), std::to_string(range.bits)});
        break;
    }
  }
  parameters.push_back(std::to_string(range.sectors));
  report(m_journal, event, std::move(parameters));
}

/// @brief The sector's place on the disk in units of 512 bytes, or "?".
std::string WrongSectors::blockText(std::uint64_t offset) const {
  const auto place = m_options.placeOnDisk ? m_options.placeOnDisk(offset) : std::nullopt;
  return place ? std::to_string(*place / kSector) : "?";
}

}  // namespace TarvexDiags::Storage
