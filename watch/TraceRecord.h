#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// @brief A line of the kernel's trace in text form.
struct TraceRecord {
  std::string_view event;   ///< "mce_record"
  std::string_view fields;  ///< as its event prints them
};

/// @brief Reads a line. The name of the task that stands first may hold anything, and is not looked
/// at. Nothing when the line is malformed.
std::optional<TraceRecord> parseTraceLine(std::string_view line);

/// @brief How many events the kernel says here that it has lost ("CPU:0 [LOST 12 EVENTS]"); 0 for
/// other lines.
std::uint64_t lostEventsIn(std::string_view line);

/// @brief What a record says about the hardware; nothing for those that say nothing.
/// @param diskOf the name of the disk with these numbers; empty when there is none
/// @param earliest a machine check of before this moment is one of before the watch
/// @param now the time that the finding gets
std::optional<Finding> findingFrom(const TraceRecord& record,
                                   const std::function<std::string(const std::string&)>& diskOf,
                                   Moment earliest, Moment now);

}  // namespace TarvexDiags::Watching
