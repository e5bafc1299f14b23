#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The SMART and health log of an NVMe controller, as it comes (NVMe base specification,
/// log page 02h).
using NvmeHealthLog = std::array<std::uint8_t, 512>;

/// @brief Reads it by the driver's passthrough, which only root may.
/// @param controller such as "nvme0"
/// @return nothing when it cannot be had
std::optional<NvmeHealthLog> readNvmeHealthLog(const std::string& controller);

/// @brief Warnings of NVMe disks about themselves, errors of their medium, their temperature.
class NvmeHealthSource : public Source {
 public:
  using Reader = std::function<std::optional<NvmeHealthLog>(const std::string& controller)>;

  /// @param interval disks do some work for each answer
  explicit NvmeHealthSource(SystemFiles files,
                            std::chrono::milliseconds interval = std::chrono::seconds(60),
                            Reader reader = &readNvmeHealthLog)
      : m_files(std::move(files)), m_interval(interval), m_reader(std::move(reader)) {}

  SourceKind kind() const override { return SourceKind::NvmeHealth; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;
  std::chrono::milliseconds interval() const override { return m_interval; }

 private:
  struct Controller {
    unsigned int warnings = 0;  ///< the bits that were told, or were set before
    Growth mediaErrors;
  };

  SystemFiles m_files;
  std::chrono::milliseconds m_interval;
  Reader m_reader;
  std::map<std::string, Controller> m_controllers;
};

}  // namespace TarvexDiags::Watching
