#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

#include "inventory/Inventory.h"
#include "watch/CpuFiles.h"

namespace TarvexDiags::Inventory {

namespace {

using Watching::CpuRows;

std::string valueOf(const CpuRows& rows, const std::string& key) {
  const auto found = rows.find(key);
  return found == rows.end() ? "" : cleaned(found->second);
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

/// The flags that all have, and of the others who has them.
void addFlags(Json& tree, const std::map<int, CpuRows>& processors) {
  std::map<std::string, std::vector<int>> owners;
  for (const auto& [number, rows] : processors) {
    const std::string x86 = valueOf(rows, "flags");
    for (const std::string& flag : wordsOf(x86.empty() ? valueOf(rows, "Features") : x86)) {
      owners[flag].push_back(number);
    }
  }
  Json common = Json::array();
  Json partial = Json::object();
  for (const auto& [flag, numbers] : owners) {
    if (numbers.size() == processors.size()) {
      common.push_back(flag);
    } else {
      partial[flag] = listOf(numbers);
    }
  }
  addTree(tree, "flags", std::move(common));
  addTree(tree, "flagsOfSome", std::move(partial));
}

/// What differs from processor to processor where something is wrong: each value with those that
/// have it.
void addShares(Json& tree, const std::map<int, CpuRows>& processors, const char* key,
               const char* row) {
  Shares shares;
  for (const auto& [number, rows] : processors) {
    shares.add(valueOf(rows, row), number);
  }
  addTree(tree, key, shares.asJson());
}

void addFileShares(Json& tree, const SystemFiles& files, const std::vector<int>& numbers,
                   const char* key, const char* file) {
  Shares shares;
  for (const int number : numbers) {
    shares.add(files.text(Watching::folderOfCpu(number) / file).value_or(""), number);
  }
  addTree(tree, key, shares.asJson());
}

void addCounts(Json& tree, const SystemFiles& files, const std::vector<int>& numbers) {
  std::set<int> sockets;
  std::set<std::tuple<int, int, int>> cores;
  std::size_t threads = 0;
  for (const int number : numbers) {
    const auto place = Watching::placeOfCpu(files, number);
    if (!place) {
      continue;  // offline
    }
    ++threads;
    sockets.insert(place->socket);
    cores.emplace(place->socket, place->die, place->core);
  }
  if (threads > 0) {
    tree["sockets"] = sockets.size();
    tree["cores"] = cores.size();
    tree["threads"] = threads;
  }
}

Json vulnerabilities(const SystemFiles& files) {
  Json tree = Json::object();
  for (const std::string& name : files.entries(Watching::kCpusFolder / "vulnerabilities")) {
    addText(tree, name.c_str(), files, Watching::kCpusFolder / "vulnerabilities" / name);
  }
  return tree;
}

}  // namespace

Json processorFacts(const SystemFiles& files) {
  Json tree = Json::object();
  const std::map<int, CpuRows> processors = Watching::readCpuRows(files);
  const std::vector<int> numbers = files.numberedEntries(Watching::kCpusFolder, "cpu");
  addCounts(tree, files, numbers);
  addText(tree, "present", files, Watching::kCpusFolder / "present");
  addText(tree, "online", files, Watching::kCpusFolder / "online");
  addShares(tree, processors, "model", "model name");
  addShares(tree, processors, "stepping", "stepping");
  addShares(tree, processors, "microcode", "microcode");
  addShares(tree, processors, "implementer", "CPU implementer");
  addShares(tree, processors, "part", "CPU part");
  addShares(tree, processors, "revision", "CPU revision");
  addFlags(tree, processors);
  addFileShares(tree, files, numbers, "governor", "cpufreq/scaling_governor");
  addFileShares(tree, files, numbers, "leastKilohertz", "cpufreq/cpuinfo_min_freq");
  addFileShares(tree, files, numbers, "mostKilohertz", "cpufreq/cpuinfo_max_freq");
  addFileShares(tree, files, numbers, "leastKilohertzSet", "cpufreq/scaling_min_freq");
  addFileShares(tree, files, numbers, "mostKilohertzSet", "cpufreq/scaling_max_freq");
  addText(tree, "smt", files, Watching::kCpusFolder / "smt/control");
  addTree(tree, "vulnerabilities", vulnerabilities(files));
  return tree;
}

}  // namespace TarvexDiags::Inventory
