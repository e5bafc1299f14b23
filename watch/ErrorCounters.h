#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief How many errors a memory controller, or a module on it, has told the kernel of.
struct ErrorCount {
  std::uint64_t corrected = 0;
  std::uint64_t uncorrected = 0;
};

/// @brief The counters of one module, or those of a controller that belong to no module.
struct MemoryCounter {
  int controller = 0;
  std::string module;  ///< its label where it has one, else "dimm0"; empty: of no module
  ErrorCount count;
};

/// @brief The counters of the kernel's driver for memory controllers (EDAC), at one moment.
///
/// Thread-safety: a plain value.
class ErrorCounters {
 public:
  /// @brief The numbers of the controllers that have a driver.
  static std::vector<int> controllers(const SystemFiles& files);

  /// @brief Reads them; there are none where no driver is loaded or the memory corrects nothing.
  static ErrorCounters read(const SystemFiles& files);

  /// @brief Whether there are any.
  bool present() const { return !m_counters.empty(); }

  /// @brief What has come since an earlier reading, by the name of the controller or module.
  std::map<std::string, ErrorCount> since(const ErrorCounters& earlier) const;

  /// @brief All of them, by the same names.
  const std::map<std::string, MemoryCounter>& all() const { return m_counters; }

 private:
  std::map<std::string, MemoryCounter> m_counters;
};

}  // namespace TarvexDiags::Watching
