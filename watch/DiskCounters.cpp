#include "watch/DiskCounters.h"

namespace TarvexDiags::Watching {

std::optional<DiskCounters> DiskCounters::read(const SystemFiles& files,
                                               const std::filesystem::path& device) {
  const auto failed = files.hexadecimal(device / "ioerr_cnt");
  const auto timedOut = files.hexadecimal(device / "iotmo_cnt");
  if (!failed && !timedOut) {
    return std::nullopt;
  }
  return DiskCounters{failed.value_or(0), timedOut.value_or(0)};
}

}  // namespace TarvexDiags::Watching
