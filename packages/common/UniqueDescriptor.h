#pragma once

#include <unistd.h>

#include <utility>

namespace TarvexDiags::Common {

/// @brief Owns a file descriptor and closes it.
class UniqueDescriptor {
 public:
  UniqueDescriptor() = default;
  explicit UniqueDescriptor(int descriptor) : m_descriptor(descriptor) {}
  UniqueDescriptor(UniqueDescriptor&& other) noexcept
      : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  UniqueDescriptor(const UniqueDescriptor&) = delete;
  UniqueDescriptor& operator=(const UniqueDescriptor&) = delete;
  ~UniqueDescriptor() {
    if (m_descriptor >= 0) {
      ::close(m_descriptor);
    }
  }

  int get() const { return m_descriptor; }
  explicit operator bool() const { return m_descriptor >= 0; }

 private:
  int m_descriptor = -1;
};

}  // namespace TarvexDiags::Common
