#pragma once

#include <unistd.h>

#include <utility>

namespace TarvexDiags::PackageKit {

/// @brief Owns a file descriptor and closes it. Thread-safety: a plain value.
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
  ~UniqueDescriptor() { close(); }

  /// @brief Below 0 when it owns none.
  int get() const { return m_descriptor; }
  explicit operator bool() const { return m_descriptor >= 0; }

  void close() {
    if (m_descriptor >= 0) {
      ::close(std::exchange(m_descriptor, -1));
    }
  }

 private:
  int m_descriptor = -1;
};

}  // namespace TarvexDiags::PackageKit
