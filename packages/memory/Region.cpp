#include "packages/memory/Region.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "packages/memory/MemoryReasons.h"

namespace TarvexDiags::Memory {

namespace {

constexpr std::size_t kHugePageBytes = Region::kBlocksInSlice * kBlockBytes;

// Since Linux 5.14; the C library's headers of today may not know it.
constexpr int kAdviceToPopulate = 23;
constexpr int kPolicyBind = 2;

// Little enough to be locked in some milliseconds, and much enough to make few calls.
constexpr std::size_t kLockedAtOnce = std::size_t{64} << 20;

std::string messageOfErrno() {
  return std::generic_category().message(errno);
}

void touchPages(std::byte* data, std::size_t bytes) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  for (std::size_t offset = 0; offset < bytes; offset += page) {
    *static_cast<volatile std::byte*>(data + offset) = std::byte{0};
  }
}

}  // namespace

std::unique_ptr<Region> Region::map(std::size_t bytes, int node, Team& team,
                                    const std::function<bool()>& giveUp, std::string& reason) {
  bytes = std::max(bytes / kBlockBytes, std::size_t{1}) * kBlockBytes;
  // Room to begin at the border of a huge page.
  const std::size_t mappedBytes = bytes + kHugePageBytes;
  void* mapping =
      mmap(nullptr, mappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) {
    reason = messageOfErrno();
    return nullptr;
  }
  std::unique_ptr<Region> region(new Region(static_cast<std::byte*>(mapping), mappedBytes, bytes));
  if (madvise(region->m_data, bytes, MADV_HUGEPAGE) != 0) {
    region->m_remarks.push_back({Reasons::kNoHugePages, messageOfErrno()});
  }
  if (node >= 0) {
    region->bindTo(node);
  }
  region->populate(team, giveUp);
  region->lock(giveUp);
  return region;
}

Region::Region(std::byte* mapping, std::size_t mappedBytes, std::size_t bytes)
    : m_mapping(mapping),
      m_mappedBytes(mappedBytes),
      m_data(firstHugePage(mapping)),
      m_blocks(bytes / kBlockBytes),
      m_poisonedPages(m_data, bytes) {}

std::byte* Region::firstHugePage(std::byte* mapping) {
  const auto address = reinterpret_cast<std::uintptr_t>(mapping);
  return mapping + (kHugePageBytes - address % kHugePageBytes) % kHugePageBytes;
}

Region::~Region() {
  munmap(m_mapping, m_mappedBytes);
}

std::size_t Region::blocksOfSlice(std::size_t slice) const {
  return std::min(kBlocksInSlice, m_blocks - slice * kBlocksInSlice);
}

void Region::bindTo(int node) {
  constexpr std::size_t bitsInWord = 8 * sizeof(unsigned long);
  const auto number = static_cast<std::size_t>(node);
  std::vector<unsigned long> mask(number / bitsInWord + 1);
  mask.back() = 1UL << number % bitsInWord;
  // The kernel reads one bit less than it is told.
  if (syscall(SYS_mbind, m_data, bytes(), kPolicyBind, mask.data(), mask.size() * bitsInWord + 1,
              0U) != 0) {
    m_remarks.push_back({Reasons::kNotBound, std::to_string(node) + ": " + messageOfErrno()});
  }
}

void Region::populate(Team& team, const std::function<bool()>& giveUp) {
  std::atomic<std::size_t> nextSlice{0};
  team.onAll([&] {
    for (std::size_t slice = nextSlice++; slice < slices() && !giveUp(); slice = nextSlice++) {
      std::byte* const data = m_data + slice * kHugePageBytes;
      const std::size_t size = blocksOfSlice(slice) * kBlockBytes;
      if (madvise(data, size, kAdviceToPopulate) != 0) {
        touchPages(data, size);
      }
    }
  });
}

bool Region::lockNext(std::size_t size) {
  const bool good = mlock(m_data + m_lockedBytes, size) == 0;
  m_lockedBytes += good ? size : 0;
  return good;
}

// Piece by piece, so that a request to give up is heard. Where a limit is met, ever smaller pieces
// find out how much it allows: others of this process may have locked some already.
void Region::lock(const std::function<bool()>& giveUp) {
  std::string reason;
  std::size_t size = kLockedAtOnce;
  while (m_lockedBytes < bytes() && size >= kBlockBytes && !giveUp()) {
    size = std::min(size, bytes() - m_lockedBytes);
    if (lockNext(size)) {
      continue;
    }
    reason = reason.empty() ? messageOfErrno() : reason;
    // A poisoned page refuses too; touched, it is replaced.
    const std::size_t poisoned = m_poisonedPages.pages().size();
    touchPages(m_data + m_lockedBytes, size);
    if (m_poisonedPages.pages().size() == poisoned) {
      size = size / 2 / kBlockBytes * kBlockBytes;
    }
  }
  if (m_lockedBytes < bytes() && !reason.empty()) {
    m_remarks.push_back({Reasons::kNotAllLocked, std::to_string(m_lockedBytes / 1024) + " / " +
                                                     std::to_string(bytes() / 1024) +
                                                     " KiB: " + reason});
  }
}

}  // namespace TarvexDiags::Memory
