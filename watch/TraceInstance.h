#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief A buffer of the kernel's trace of our own, which ends with this object: what others trace
/// is not touched. Nothing is mounted for it. Not thread-safe.
class TraceInstance {
 public:
  TraceInstance() = default;
  TraceInstance(const TraceInstance&) = delete;
  TraceInstance& operator=(const TraceInstance&) = delete;
  ~TraceInstance() { close(); }

  /// @brief Makes it and switches on the events that tell of hardware. Instances of processes that
  /// have died are removed.
  /// @return why there is none; nothing when there is
  [[nodiscard]] std::optional<std::string> open(const SystemFiles& files);
  void close();

  /// @brief Non-blocking, of lines; readable when there are some. Below 0 when it is not open.
  int descriptor() const { return m_pipe.get(); }

 private:
  std::filesystem::path m_folder;
  PackageKit::UniqueDescriptor m_pipe;
};

}  // namespace TarvexDiags::Watching
