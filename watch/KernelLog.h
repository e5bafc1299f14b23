#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// @brief One record of /dev/kmsg.
struct KernelRecord {
  unsigned int facility = 0;  ///< 0: the kernel itself, which no program can pretend to be
  std::uint64_t sequence = 0;
  std::string_view text;    ///< the message, without what follows it
  std::string_view device;  ///< of "DEVICE=", such as "+pci:0000:00:02.0" or "b8:16"; may be empty
};

/// @brief Reads a record as the kernel writes it: "PRIORITY,SEQUENCE,TIME,FLAGS;TEXT", then lines
/// that begin with a blank. The views are of the text given.
/// @return nothing when it is malformed
std::optional<KernelRecord> parseKernelRecord(std::string_view record);

/// @brief What a record of the kernel's says about the hardware; nothing for most. Words that the
/// kernel has from a program, such as the name of one that crashed, are none of its own.
/// @param now the time that the finding gets
std::optional<Finding> findingFrom(const KernelRecord& record, Moment now);

/// @brief When the machine check happened that the records before this one tell of; nothing for any
/// other record. After a restart the kernel tells of those that it found in the banks.
std::optional<Moment> timeOfMachineCheck(const KernelRecord& record);

/// @brief The first PCI address ("0000:00:1c.0") in a text; empty when there is none.
std::string_view pciAddressIn(std::string_view text);

}  // namespace TarvexDiags::Watching
