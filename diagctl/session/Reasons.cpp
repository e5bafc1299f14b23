#include "diagctl/session/Reasons.h"

#include <fmt/format.h>
#include <unistd.h>

#include <fstream>
#include <map>

namespace TarvexDiags::FrontEnd {

namespace {

using Reasons = std::map<std::pair<int, std::string>, std::string>;  // by test and tag

// A line: "TIME [PROCESS] test 20 is not supported on selftest/unit1: unit 1 is excused". The last
// one counts.
Reasons readLog(const std::string& file) {
  const std::string head = fmt::format("[{}] test ", getpid());
  const std::string middle = " is not supported on ";
  Reasons reasons;
  std::ifstream log(file);
  for (std::string line; std::getline(log, line);) {
    const std::size_t begin = line.find(head);
    const std::size_t on = line.find(middle, begin);
    if (begin == std::string::npos || on == std::string::npos) {
      continue;
    }
    const std::size_t tag = on + middle.size();
    const std::size_t colon = line.find(": ", tag);
    if (colon != std::string::npos) {
      const int test = std::atoi(line.c_str() + begin + head.size());
      reasons[{test, line.substr(tag, colon - tag)}] = line.substr(colon + 2);
    }
  }
  return reasons;
}

}  // namespace

void readReasons(Catalogue& catalogue, const std::string& logDirectory) {
  for (PackageItem& package : catalogue.packages) {
    const Reasons reasons = readLog(logDirectory + "/" + package.baseName + ".log");
    for (const DeviceItem& device : package.devices) {
      for (const TestItem& test : package.tests) {
        const auto reason = reasons.find({test.id, device.tag});
        if (reason != reasons.end()) {
          package.reasons[{device.id, test.id}] = reason->second;
        }
      }
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
