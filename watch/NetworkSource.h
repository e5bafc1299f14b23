#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Faults that network interfaces and InfiniBand ports count, carriers that were lost, and
/// interfaces that are gone.
class NetworkSource : public Source {
 public:
  explicit NetworkSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::Network; }
  std::optional<std::string> open() override;
  std::optional<std::string> openSinceStart() override;
  void look(Moment now, Collector& collector) override;

 private:
  struct Port {
    std::string device;
    std::filesystem::path folder;  ///< vanishes with it
    std::vector<std::pair<std::filesystem::path, Kind>> counters;
  };

  /// Errors of one direction of an interface that no counter but the sum tells.
  struct Unnamed {
    std::uint64_t all = 0;
    std::uint64_t named = 0;
    std::uint64_t told = 0;
  };

  std::vector<Port> ports() const;
  Finding growthOf(const Port& port, Kind kind, Moment now);
  void tellVanished(const std::vector<Port>& present, Moment now, Collector& collector);

  SystemFiles m_files;
  Growths m_growths;
  std::map<std::string, Unnamed> m_unnamed;              ///< by device and direction
  std::map<std::string, std::filesystem::path> m_known;  ///< devices and their folders
};

}  // namespace TarvexDiags::Watching
