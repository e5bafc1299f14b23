#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

#include "inventory/Inventory.h"
#include "watch/CpuFiles.h"

namespace TarvexDiags::Inventory {

namespace {

const std::filesystem::path kFolder = "sys/devices/system/cpu";

using Rows = std::map<std::string, std::string>;

/// The rows of /proc/cpuinfo by the number of the processor; an empty row ends one.
std::map<int, Rows> rowsOf(const SystemFiles& files) {
  std::map<int, Rows> processors;
  Rows rows;
  const auto finish = [&] {
    if (const auto found = rows.find("processor"); found != rows.end()) {
      processors[std::atoi(found->second.c_str())] = std::move(rows);
    }
    rows = {};
  };
  std::istringstream text(files.text("proc/cpuinfo").value_or(""));
  for (std::string line; std::getline(text, line);) {
    const std::size_t colon = line.find(':');
    if (line.empty()) {
      finish();
    } else if (colon != std::string::npos) {
      rows[cleaned(line.substr(0, colon))] = cleaned(line.substr(colon + 1));
    }
  }
  finish();
  return processors;
}

std::string valueOf(const Rows& rows, const std::string& key) {
  const auto found = rows.find(key);
  return found == rows.end() ? "" : found->second;
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

/// The flags that all have, and of the others who has them.
void addFlags(Json& tree, const std::map<int, Rows>& processors) {
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
void addShares(Json& tree, const std::map<int, Rows>& processors, const char* key,
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
  for (const std::string& name : files.entries(kFolder / "vulnerabilities")) {
    addText(tree, name.c_str(), files, kFolder / "vulnerabilities" / name);
  }
  return tree;
}

}  // namespace

Json processorFacts(const SystemFiles& files) {
  Json tree = Json::object();
  const std::map<int, Rows> processors = rowsOf(files);
  const std::vector<int> numbers = files.numberedEntries(kFolder, "cpu");
  addCounts(tree, files, numbers);
  addText(tree, "present", files, kFolder / "present");
  addText(tree, "online", files, kFolder / "online");
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
  addText(tree, "smt", files, kFolder / "smt/control");
  addTree(tree, "vulnerabilities", vulnerabilities(files));
  return tree;
}

}  // namespace TarvexDiags::Inventory
