#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "watch/Growth.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"
#include "watch/TraceInstance.h"

namespace TarvexDiags::Watching {

/// @brief What processors, memory, PCI Express and disks report to the kernel, from its trace of
/// such events; where there is no trace, how many machine checks each CPU has counted.
class MachineCheckSource : public Source {
 public:
  explicit MachineCheckSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::MachineChecks; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;
  int descriptor() const override { return m_isEnded ? -1 : m_trace.descriptor(); }

 private:
  bool openCounters();
  void lookAtTrace(Moment now, Collector& collector);
  void takeLine(std::string_view line, Moment now, Collector& collector);
  void lookAtCounters(Moment now, Collector* collector);
  std::string diskOf(const std::string& numbers) const;

  SystemFiles m_files;
  TraceInstance m_trace;
  bool m_isEnded = false;  ///< the trace says no more
  Moment m_begin;
  std::string m_unread;
  Growths m_growths;
};

}  // namespace TarvexDiags::Watching
