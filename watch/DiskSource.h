#pragma once

#include <map>
#include <optional>
#include <string>

#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Commands that disks failed or never answered, and disks that are gone.
class DiskSource : public Source {
 public:
  explicit DiskSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::Disks; }
  std::optional<std::string> open() override;
  std::optional<std::string> openSinceStart() override;
  void look(Moment now, Collector& collector) override;

 private:
  struct Disk {
    Growth failed;
    Growth timedOut;
  };

  void tellVanished(Moment now, Collector& collector);

  SystemFiles m_files;
  std::map<std::string, Disk> m_disks;
};

}  // namespace TarvexDiags::Watching
