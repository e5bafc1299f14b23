#include "packages/storage/PageBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace TarvexDiags::Storage {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

std::size_t roundUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

}  // namespace

PageBuffer::PageBuffer(std::size_t bytes) : m_size(bytes) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t alignment = bytes >= kHugePage ? kHugePage : page;
  m_mapped = roundUp(bytes, alignment) + alignment;
  void* mapping =
      mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) {
    throw std::bad_alloc();
  }
  m_mapping = static_cast<std::byte*>(mapping);
  const auto address = reinterpret_cast<std::uintptr_t>(m_mapping);
  m_start = m_mapping + (roundUp(address, alignment) - address);
  if (alignment == kHugePage) {
    madvise(m_start, roundUp(bytes, kHugePage), MADV_HUGEPAGE);
  }
  std::memset(m_start, 0, m_size);
}

PageBuffer::~PageBuffer() {
  munmap(m_mapping, m_mapped);
}

}  // namespace TarvexDiags::Storage
