#include "packages/processor/Cores.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "watch/CpuFiles.h"

namespace TarvexDiags::Processor {

std::vector<Core> findCores(const Watching::SystemFiles& files) {
  const std::map<int, Watching::CpuRows> rows = Watching::readCpuRows(files);
  const auto modelOf = [&](int number) -> std::string {
    const auto processor = rows.find(number);
    if (processor == rows.end()) {
      return "";
    }
    const auto name = processor->second.find("model name");
    return name == processor->second.end() ? "" : name->second;
  };
  std::vector<Core> cores;
  for (const int number : Watching::onlineCpus(files)) {
    const auto place = Watching::placeOfCpu(files, number).value_or(Watching::CpuPlace());
    cores.push_back({number, place.socket, place.core, modelOf(number)});
  }
  return cores;
}

int partnerOf(int core, const std::vector<Core>& cores, const std::vector<int>& allowed) {
  const auto self = std::find_if(cores.begin(), cores.end(),
                                 [&](const Core& other) { return other.number == core; });
  const auto shares = [&](const Core& other) {
    return self != cores.end() && other.package == self->package &&
           other.physicalCore == self->physicalCore;
  };
  // The next one after the core, so that the partners of many cores are spread.
  std::vector<Core> turned = cores;
  std::stable_partition(turned.begin(), turned.end(),
                        [&](const Core& other) { return other.number > core; });
  std::stable_partition(turned.begin(), turned.end(),
                        [&](const Core& other) { return !shares(other); });
  const auto found = std::find_if(turned.begin(), turned.end(), [&](const Core& other) {
    return other.number != core &&
           std::find(allowed.begin(), allowed.end(), other.number) != allowed.end();
  });
  return found == turned.end() ? -1 : found->number;
}

std::vector<int> votersBeside(int core, const std::vector<int>& allowed) {
  constexpr std::size_t most = 4;
  std::vector<int> others;
  std::copy_if(allowed.begin(), allowed.end(), std::back_inserter(others),
               [&](int other) { return other != core; });
  std::vector<int> voters;
  const std::size_t count = std::min(most, others.size());
  for (std::size_t index = 0; index < count; ++index) {
    voters.push_back(others[index * others.size() / count]);
  }
  return voters;
}

}  // namespace TarvexDiags::Processor
