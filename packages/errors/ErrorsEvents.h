#pragma once

#include "packages/common/RunJournal.h"
#include "packages/errors/ErrorsReasons.h"

namespace TarvexDiags::Errors {

using Common::NotSupported;
using Common::RunJournal;

/// @brief The codes of the package's events, as errors.cfg lists them: below 100 information, from
/// 100 on warnings, from 200 on errors. The comment names the parameters, in order.
enum class ErrorsEvent : unsigned int {
  NothingCounted = 1,      ///< device, days since the start, begun ones whole
  DiskCommandsFailed = 2,  ///< device, disk, how many
  LinksLost = 3,           ///< device, interface, how often, its counters
  NoCrashRecord = 4,       ///< device

  MemoryCorrected = 101,  ///< device, module, controller, how many
  PcieCorrected = 102,    ///< device, function, slot, the link's other end, how many, which
  DiskTimeouts = 103,     ///< device, disk, how many
  InterfaceErrors = 104,  ///< device, interface, how many, its counters
  CrashRecord = 105,      ///< device, record

  MemoryWearsOut = 201,     ///< device, module, controller, how many
  MemoryUncorrected = 202,  ///< device, module, controller, how many
  PcieTooMany = 203,        ///< device, function, slot, the link's other end, how many, which
  PcieUncorrected = 204,    ///< device, function, slot, the link's other end, how many, which
};

}  // namespace TarvexDiags::Errors
