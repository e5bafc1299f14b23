#include "packages/processor/Cores.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>

#include "packages/common/CpuList.h"
#include "watch/CpuFiles.h"

namespace TarvexDiags::Processor {

namespace {

/// Lines "key<tabs>: value", one paragraph for each processor.
std::map<int, std::string> modelNames(const std::string& text) {
  std::map<int, std::string> names;
  int number = -1;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) {
      continue;
    }
    if (line.starts_with("processor")) {
      const std::vector<int> numbers = Common::parseCpuList(line.substr(colon + 2));
      number = numbers.empty() ? -1 : numbers.front();
    } else if (line.starts_with("model name")) {
      names[number] = line.substr(colon + 2);
    }
  }
  return names;
}

}  // namespace

std::vector<Core> findCores(const Watching::SystemFiles& files) {
  const auto names = modelNames(files.text("proc/cpuinfo").value_or(""));
  std::vector<Core> cores;
  for (const int number :
       Common::parseCpuList(files.text("sys/devices/system/cpu/online").value_or(""))) {
    const auto place = Watching::placeOfCpu(files, number).value_or(Watching::CpuPlace());
    const auto name = names.find(number);
    cores.push_back({number, place.socket, place.core, name == names.end() ? "" : name->second});
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
