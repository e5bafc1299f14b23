#pragma once

#include <cstddef>
#include <string>

namespace TarvexDiags::PackageKit {

/// The last of what a worker wrote to its standard output and error.
class OutputTail {
 public:
  void add(const char* bytes, std::size_t size);

  /// The last lines, at most ten, joined with " | ".
  std::string lines() const;

 private:
  std::string m_bytes;
};

/// The text with everything that is no valid UTF-8 replaced by "?", so that no client's output is
/// spoilt by what a device or a broken worker says.
std::string toValidUtf8(const std::string& text);

}  // namespace TarvexDiags::PackageKit
