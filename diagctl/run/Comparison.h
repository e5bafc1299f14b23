#pragma once

#include <filesystem>
#include <vector>

#include "diagctl/session/Selection.h"

namespace TarvexDiags::FrontEnd {

/// Whether a crash of the test is repeated before anybody is blamed for it.
bool isComputing(const SelectedPair& pair);

/// Where a test can be repeated to compare it with the device on which it crashed: on the other
/// devices of the package that offer it. Two logical processors of one core are no two devices
/// here, since one fault breaks both.
/// @param offered pairs of any packages, in the order of the catalogue. @param system where the
///   kernel tells of processors.
/// @return those behind the device of the crash, then those before it.
std::vector<SelectedPair> pairsToCompare(const SelectedPair& crashed,
                                         const std::vector<SelectedPair>& offered,
                                         const std::filesystem::path& system = "/sys");

}  // namespace TarvexDiags::FrontEnd
