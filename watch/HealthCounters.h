#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "watch/InterruptRows.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief What the kernel counts of a core's health, at one moment.
///
/// Thread-safety: a plain value.
class HealthCounters {
 public:
  struct Count {
    Trouble trouble;
    std::uint64_t value;
  };

  /// @brief Reads what there is; virtual machines often have none.
  static HealthCounters read(const SystemFiles& files, int core);

  bool present() const { return !m_counts.empty(); }

  /// @brief By how much each has grown since an earlier reading, by name; only those that have.
  std::map<std::string, Count> since(const HealthCounters& earlier) const;

 private:
  std::map<std::string, Count> m_counts;
};

}  // namespace TarvexDiags::Watching
