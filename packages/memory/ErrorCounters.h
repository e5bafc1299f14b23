#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "packages/common/SystemFiles.h"

namespace TarvexDiags::Memory {

/// @brief How many errors a memory controller, or a module on it, has told the kernel of.
struct ErrorCount {
  std::uint64_t corrected = 0;
  std::uint64_t uncorrected = 0;
};

/// @brief The counters of the kernel's driver for memory controllers (EDAC), at one moment.
///
/// Thread-safety: a plain value.
class ErrorCounters {
 public:
  /// @brief Reads them; there are none where no driver is loaded or the memory corrects nothing.
  static ErrorCounters read(const Common::SystemFiles& files);

  /// @brief Whether there are any.
  bool present() const { return !m_counts.empty(); }

  /// @brief What has come since an earlier reading, by the name of the controller or module.
  std::map<std::string, ErrorCount> since(const ErrorCounters& earlier) const;

 private:
  std::map<std::string, ErrorCount> m_counts;
};

}  // namespace TarvexDiags::Memory
