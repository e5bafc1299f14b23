#pragma once

#include <string>
#include <vector>

#include "inventory/Comparison.h"

namespace TarvexDiags::Inventory {

/// @brief An inventory of a small machine: a bridge with a disk behind it, two memory modules.
inline Json smallMachine() {
  const Json end = {{"width", 4}, {"maximumWidth", 4}, {"speed", 16.0}, {"maximumSpeed", 16.0}};
  const Json module = {{"populated", true}, {"bytes", 1024}, {"serialNumber", "M1"}};
  return {{"document", "diagctl.inventory"},
          {"version", 1},
          {"system", {{"product", "X1"}, {"hostName", "node017"}, {"serialNumber", "S1"}}},
          {"processors",
           {{"cores", 8},
            {"microcode", {{"0x2b", "0-7"}}},
            {"flags", {"avx2", "fpu"}},
            {"vulnerabilities", {{"meltdown", "Not affected"}}}}},
          {"memory",
           {{"bytes", 2000},
            {"modules", {{"A1", module}, {"A2", module}}},
            {"nodes", {{"0", {{"bytes", 2000}}}}}}},
          {"pci",
           {{"0000:16/02.0", {{"vendor", "0x1"}, {"device", "0x2"}, {"link", {{"device", end}}}}},
            {"0000:16/02.0/00.0",
             {{"vendor", "0x1"}, {"device", "0x3"}, {"link", {{"device", end}, {"port", end}}}}}}},
          {"disks",
           {{"0000:16/02.0/00.0/n1",
             {{"name", "nvme0n1"}, {"bytes", 512}, {"firmware", "F1"}, {"serialNumber", "D1"}}}}},
          {"interfaces", Json::object()},
          {"infiniband", Json::object()},
          {"gpus", Json::object()},
          {"tpm", Json::object()},
          {"kernel", {{"release", "6.1"}, {"taints", Json::array()}}}};
}

/// @brief The same with one fact changed. @param pointer RFC 6901; a null takes the fact away.
inline Json changed(Json machine, const std::string& pointer, const Json& value) {
  const Json::json_pointer place(pointer);
  if (value.is_null()) {
    machine[place.parent_pointer()].erase(place.back());
  } else {
    machine[place] = value;
  }
  return machine;
}

/// @brief "failure /disks/0000:..~1n1: firmware", a line for each finding.
inline std::vector<std::string> linesOf(const std::vector<Finding>& findings) {
  static const std::vector<std::string> kGravities = {"information", "warning", "failure"};
  static const std::vector<std::string> kKinds = {"missing", "degraded", "differs", "added",
                                                  "not comparable"};
  std::vector<std::string> lines;
  for (const Finding& finding : findings) {
    std::string line = kGravities[static_cast<std::size_t>(finding.gravity)] + " " +
                       kKinds[static_cast<std::size_t>(finding.kind)] + " " + toText(finding.part);
    for (const Difference& difference : finding.differences) {
      line +=
          " " + toText({difference.path.begin() + static_cast<std::ptrdiff_t>(finding.part.size()),
                        difference.path.end()});
    }
    for (const FactPath& part : finding.with) {
      line += " +" + toText(part);
    }
    lines.push_back(line);
  }
  return lines;
}

}  // namespace TarvexDiags::Inventory
