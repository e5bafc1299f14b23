#pragma once

#include <functional>
#include <string>
#include <vector>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief A PCI Express link: a port above and a device below, at one moment or the best of
/// several.
struct PcieLink {
  std::string function;  ///< address of the device's first function
  std::string model;     ///< the ids that say what it is
  std::string name;      ///< for people: ids and driver
  std::string slot;
  std::string port;              ///< address of the port above
  unsigned int fewestLanes = 0;  ///< 0: not told
  unsigned int mostLanes = 0;
  unsigned int possibleLanes = 0;  ///< the smaller maximum of both ends; 0: one of them is not told
  double speed = 0;                ///< in gigatransfers a second; 0: not told
  double possibleSpeed = 0;
};

/// @brief The links of the machine, each once. What hangs on no port that is seen, as in virtual
/// machines, has none: what its other end could do is not known.
std::vector<PcieLink> readLinks(const SystemFiles& files);

/// @brief Judges width and speed.
/// @param look reads the links; called again as long as one of them could still do better.
/// @param looks how often at most. @param wait lies between two looks; false ends them.
/// @throws NotSupported when there are no links, or none of them tells its width.
void judgeLinks(const std::string& device, const std::function<std::vector<PcieLink>()>& look,
                unsigned int looks, const std::function<bool()>& wait, RunJournal& journal);

}  // namespace TarvexDiags::Platform
