#include "diagctl/run/Machine.h"

#include <fmt/format.h>
#include <sys/utsname.h>

#include <string>

#include "System/SysUtil.h"
#include "watch/FirmwareFiles.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::FrontEnd {

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
  const Watching::SystemFiles files;
  const std::string vendor = files.line(Watching::firmwareFile("sys_vendor"));
  const std::string product = files.line(Watching::firmwareFile("product_name"));
  if (!vendor.empty() || !product.empty()) {
    start.platforms.push_back(fmt::format("{} {}", vendor, product));
  }
  return start;
}

}  // namespace TarvexDiags::FrontEnd
