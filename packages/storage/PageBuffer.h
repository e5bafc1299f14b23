#pragma once

#include <cstddef>
#include <span>

namespace TarvexDiags::Storage {

/// @brief Zeroed, page-aligned memory, present before the first transfer. Large ones lie in huge
/// pages where the system has them: a transfer of 1 MiB is then a single piece for the disk's
/// driver.
class PageBuffer {
 public:
  /// @param bytes size, more than 0. Throws std::bad_alloc.
  explicit PageBuffer(std::size_t bytes);
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;
  ~PageBuffer();

  std::span<std::byte> bytes() const { return {m_start, m_size}; }

 private:
  std::byte* m_mapping = nullptr;
  std::size_t m_mapped = 0;
  std::byte* m_start = nullptr;
  std::size_t m_size = 0;
};

}  // namespace TarvexDiags::Storage
