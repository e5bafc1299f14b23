#pragma once

#include <optional>
#include <string>

#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief How much of the last ten seconds the machine's work stood for want of processor, memory
/// or disk: the gate for measurements.
class PressureSource : public Source {
 public:
  explicit PressureSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::Pressure; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;

 private:
  SystemFiles m_files;
};

}  // namespace TarvexDiags::Watching
