#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "packagekit/UniqueDescriptor.h"
#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief What the kernel logs about the hardware from now on. Records of programs are nobody's.
class KernelLogSource : public Source {
 public:
  explicit KernelLogSource(SystemFiles files) : m_files(std::move(files)) {}

  SourceKind kind() const override { return SourceKind::KernelLog; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;
  int descriptor() const override { return m_isDevice ? m_log.get() : -1; }

 private:
  void takeRecords(Moment now, Collector& collector);
  void takeRecord(std::string_view text, Moment now, Collector& collector);
  void readAll(Moment now, Collector& collector);
  bool comesMore() const;
  void tellHeld(Collector& collector);

  SystemFiles m_files;
  PackageKit::UniqueDescriptor m_log;
  bool m_isDevice = false;  ///< one read gives one record, and poll tells when there is one
  Moment m_begin;
  std::string m_unread;  ///< the beginning of a record, where reads do not keep records apart
  std::optional<std::uint64_t> m_lastSequence;
  /// A machine check; when it happened stands in the third record of its own.
  std::optional<Finding> m_held;
};

}  // namespace TarvexDiags::Watching
