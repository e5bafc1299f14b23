#include "diagctl/run/Machine.h"

#include <fmt/format.h>
#include <sys/utsname.h>

#include <fstream>
#include <string>

#include "System/SysUtil.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string firstLineOf(const char* path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

}  // namespace

RunStarted describeMachine() {
  RunStarted start;
  utsname system{};
  if (uname(&system) == 0) {
    start.machineName = system.nodename;
    start.platforms.push_back(
        fmt::format("{} {} {}", system.sysname, system.release, system.machine));
  }
  start.machineId = System::SysUtil::getMachineId();
  if (start.machineId.empty()) {
    start.machineId = start.machineName;
  }
  const std::string vendor = firstLineOf("/sys/class/dmi/id/sys_vendor");
  const std::string product = firstLineOf("/sys/class/dmi/id/product_name");
  if (!vendor.empty() || !product.empty()) {
    start.platforms.push_back(fmt::format("{} {}", vendor, product));
  }
  return start;
}

}  // namespace TarvexDiags::FrontEnd
