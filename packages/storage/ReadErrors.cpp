#include "packages/storage/ReadErrors.h"

#include <algorithm>
#include <utility>

#include "packages/storage/Ranges.h"

namespace TarvexDiags::Storage {

ReadErrors::ReadErrors(BlockSource& source, RunJournal& journal, std::string disk)
    : m_source(source), m_journal(journal), m_disk(std::move(disk)) {}

void ReadErrors::note(const Transfer& transfer, const Completion& completion) {
  requireFaultOfDisk(m_source, {m_journal, m_disk}, transfer, completion);
  m_failed.push_back({transfer.offset, transfer.length, completion.error, false});
}

std::uint64_t ReadErrors::tell() {
  std::sort(m_failed.begin(), m_failed.end(),
            [](const Place& left, const Place& right) { return left.offset < right.offset; });
  try {
    for (const Place& failed : m_failed) {
      isolate(failed);
    }
    requireDiskIsThere();
  } catch (const SilentDisk&) {
    tellPlaces();
    throw;
  }
  return tellPlaces();
}

std::uint64_t ReadErrors::tellPlaces() {
  for (std::size_t place = 0; place < std::min(m_places.size(), kMostPlaces); ++place) {
    tellPlace(m_places[place]);
  }
  return tellTotal();
}

// A disk that is pulled fails every read for a moment before the kernel takes it away.
void ReadErrors::requireDiskIsThere() {
  const auto unreadable = std::find_if(m_places.begin(), m_places.end(),
                                       [](const Place& place) { return !place.recovered; });
  if (unreadable == m_places.end()) {
    return;
  }
  const std::uint64_t block = m_source.blockSize();
  const std::uint64_t last = m_source.size() / block - 1;
  for (const std::uint64_t probe : {std::uint64_t{0}, last / 2, last}) {
    int error = 0;
    if (m_journal.stopRequested() || readsAgain({probe * block, block, 0, false}, error)) {
      return;
    }
  }
  requirePresence(m_source, {m_journal, m_disk}, messageOf(unreadable->error));
}

void ReadErrors::isolate(const Place& failed) {
  Place place = failed;
  if (m_journal.stopRequested()) {
    append(place);
    return;
  }
  if (readsAgain(failed, place.error)) {
    // Halves of a failed read that can be read are good; only a whole one that heals is told.
    const bool whole = std::any_of(m_failed.begin(), m_failed.end(), [&](const Place& other) {
      return other.offset == failed.offset && other.length == failed.length;
    });
    place.recovered = true;
    place.error = failed.error;
    if (whole) {
      append(place);
    }
    return;
  }
  const std::uint64_t block = m_source.blockSize();
  if (failed.length <= block) {
    append(place);
    return;
  }
  const std::uint64_t half = std::max(block, failed.length / 2 / block * block);
  isolate({failed.offset, half, place.error, false});
  isolate({failed.offset + half, failed.length - half, place.error, false});
}

bool ReadErrors::readsAgain(const Place& place, int& error) {
  const Transfer transfer{Direction::Read, 0, place.offset,
                          static_cast<std::uint32_t>(place.length)};
  const Completion completion = transferOne(m_source, {m_journal, m_disk}, transfer);
  if (succeeded(transfer, completion)) {
    return true;
  }
  requireFaultOfDisk(m_source, {m_journal, m_disk}, transfer, completion);
  error = completion.error;
  return false;
}

void ReadErrors::append(const Place& place) {
  if (!m_places.empty()) {
    Place& last = m_places.back();
    if (place.offset < last.offset + last.length) {
      return;  // two reads of a random run met the same block
    }
    if (last.offset + last.length == place.offset && last.recovered == place.recovered &&
        last.error == place.error) {
      last.length += place.length;
      return;
    }
  }
  m_places.push_back(place);
}

void ReadErrors::tellPlace(const Place& place) {
  const std::uint64_t block = m_source.blockSize();
  report(m_journal, place.recovered ? StorageEvent::RecoveredRead : StorageEvent::Unreadable,
         {m_disk, std::to_string(place.offset / block), std::to_string(place.length / block),
          std::to_string(block), causeOf(place.error)});
}

std::uint64_t ReadErrors::tellTotal() {
  const std::uint64_t block = m_source.blockSize();
  Ranges unreadable;
  for (const Place& place : m_places) {
    if (!place.recovered) {
      unreadable.add(place.offset / block, place.length / block);
    }
  }
  if (unreadable.total() > 0 && m_places.size() > kMostPlaces) {  // else each was told by itself
    report(m_journal, StorageEvent::UnreadableTotal,
           {m_disk, std::to_string(unreadable.total()), std::to_string(block),
            std::to_string(unreadable.count()), unreadable.text()});
  }
  return unreadable.total();
}

}  // namespace TarvexDiags::Storage
