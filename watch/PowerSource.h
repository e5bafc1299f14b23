#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The power that processors draw, from the counters of energy of the kernel's powercap
/// interface (RAPL). Only root may read them.
class PowerSource : public Source {
 public:
  explicit PowerSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::Power; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;

 private:
  struct Zone {
    std::string name;
    std::filesystem::path energy;
    std::optional<double> limit;  ///< in watts
    Growth microjoules;
    std::optional<Moment> last;
  };

  SystemFiles m_files;
  std::vector<Zone> m_zones;
};

}  // namespace TarvexDiags::Watching
