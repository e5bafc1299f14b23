#pragma once

#include <optional>
#include <string>
#include <vector>

#include "watch/ErrorCounters.h"
#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Errors that the memory controllers have corrected or could not correct, by module.
class MemoryControllerSource : public Source {
 public:
  explicit MemoryControllerSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::MemoryControllers; }
  std::optional<std::string> open() override;
  std::optional<std::string> openSinceStart() override;
  void look(Moment now, Collector& collector) override;

 private:
  void forgetThoseGone();

  SystemFiles m_files;
  Growths m_growths;
  std::vector<int> m_controllers;  ///< by number, at the last look
};

}  // namespace TarvexDiags::Watching
