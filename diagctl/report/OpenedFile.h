#pragma once

#include <unistd.h>

#include <utility>

namespace TarvexDiags::FrontEnd {

/// Owns a descriptor and closes it.
class OpenedFile {
 public:
  OpenedFile() = default;
  explicit OpenedFile(int descriptor) : m_descriptor(descriptor) {}
  OpenedFile(OpenedFile&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  OpenedFile& operator=(OpenedFile&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;
  ~OpenedFile() {
    if (m_descriptor >= 0) {
      close(m_descriptor);
    }
  }

  /// Below 0 for none.
  int get() const { return m_descriptor; }
  explicit operator bool() const { return m_descriptor >= 0; }
  /// Leaves it to the caller to close.
  int release() { return std::exchange(m_descriptor, -1); }

 private:
  int m_descriptor = -1;
};

}  // namespace TarvexDiags::FrontEnd
