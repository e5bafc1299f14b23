#pragma once

#include "packages/common/RunJournal.h"
#include "packages/platform/PlatformReasons.h"

namespace TarvexDiags::Platform {

using Common::NotSupported;
using Common::RunJournal;

/// @brief The codes of the package's events, as platform.cfg lists them: below 100 information,
/// from 100 on warnings, from 200 on errors. The comment names the parameters, in order. "Link"
/// stands for four of them: the function's address, what it is, its slot, the port above it.
enum class PlatformEvent : unsigned int {
  LinksJudged = 1,         ///< device, links of full width, links in all
  LinkSlow = 2,            ///< device, link, speed, speed that both ends offer
  LinkUnknown = 3,         ///< device, link
  ProcessorsAlike = 4,     ///< device, threads, microcode
  FrequenciesDiffer = 5,   ///< device, each limit with the processors that have it
  ModulesJudged = 6,       ///< device, modules, places for modules
  ModulesBelowRated = 7,   ///< device, modules, configured speed, rated speed
  ModulesMixed = 8,        ///< device, what they are, each with its modules
  FirmwareAlike = 9,       ///< device, model, disks, firmware
  OtherTaints = 10,        ///< device, their names
  KernelUntainted = 11,    ///< device
  ClockSourceInUse = 12,   ///< device, the one in use, those that could be
  ClockAdvanced = 13,      ///< device, clock, by how many seconds, in how many
  ClockWasSet = 14,        ///< device, clock, by how many seconds it advanced, in how many
  ClockNotWatched = 15,    ///< device
  KindsOfProcessors = 16,  ///< device, each kind with its processors
  NoRealTimeClock = 17,    ///< device

  LinkSlowerThanSibling = 101,  ///< device, link, speed, sibling's address, its speed
  LinkUnsteady = 102,           ///< device, link, fewest lanes, lanes that both ends have
  MicrocodeDiffers = 103,       ///< device, processors, sockets, microcode, that of the others
  MixedProcessors = 104,        ///< device, each model with its processors
  FrequencyHeldBack = 105,      ///< device, processors, sockets, kHz allowed, kHz that they could
  ModuleDiffers = 106,          ///< device, module, what it is, what the others are
  NodeWithoutMemory = 107,      ///< device, node, its processors
  FirmwareDiffers = 108,        ///< device, model, disk, its slot, firmware, that of the others
  BadPageTaint = 109,           ///< device
  ClockSourceGivenUp = 110,     ///< device, the one in use
  ClockUnreadable = 111,        ///< device, clock

  LinkNarrow = 201,         ///< device, link, lanes in use, lanes that both ends have
  FlagsMissing = 202,       ///< device, processors, sockets, what they lack
  MachineCheckTaint = 203,  ///< device
  ClockWrong = 204,         ///< device, clock, by how many seconds it advanced, in how many
};

}  // namespace TarvexDiags::Platform
