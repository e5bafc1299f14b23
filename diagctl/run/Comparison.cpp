#include "diagctl/run/Comparison.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "packagekit/contract/Capabilities.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

// The logical processors of a core as the kernel writes them; empty for what is no processor.
std::string coreOf(const DeviceItem& device, const fs::path& system) {
  const std::string component = device.tag.substr(device.tag.rfind('/') + 1);
  std::ifstream file(system / "devices/system/cpu" / component / "topology/thread_siblings_list");
  std::string processors;
  std::getline(file, processors);
  return processors;
}

}  // namespace

bool isComputing(const SelectedPair& pair) {
  namespace Contract = PackageKit::Contract;
  return Contract::hasCapability(pair.test->capabilities, Contract::kComputing);
}

std::vector<SelectedPair> pairsToCompare(const SelectedPair& crashed,
                                         const std::vector<SelectedPair>& offered,
                                         const fs::path& system) {
  const std::string core = coreOf(*crashed.device, system);
  std::vector<SelectedPair> pairs;
  std::copy_if(offered.begin(), offered.end(), std::back_inserter(pairs),
               [&](const SelectedPair& pair) {
                 return pair.package == crashed.package && pair.test == crashed.test &&
                        pair.state == PairState::Enabled && pair.device != crashed.device &&
                        (core.empty() || coreOf(*pair.device, system) != core);
               });
  std::stable_partition(pairs.begin(), pairs.end(), [&](const SelectedPair& pair) {
    return pair.device->id > crashed.device->id;
  });
  return pairs;
}

}  // namespace TarvexDiags::FrontEnd
