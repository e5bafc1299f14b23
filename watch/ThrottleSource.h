#pragma once

#include <optional>
#include <string>
#include <vector>

#include "watch/CpuFiles.h"
#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Cores and processors that slow down because they are hot.
class ThrottleSource : public Source {
 public:
  explicit ThrottleSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::Throttling; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;

 private:
  struct Counter {
    std::string device;
    std::string part;
    int cpu;
    HeatCounter kind;
    Growth growth;
  };

  void addCounters(int cpu);

  SystemFiles m_files;
  std::vector<Counter> m_counters;
};

}  // namespace TarvexDiags::Watching
