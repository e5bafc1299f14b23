#include "watch/Topology.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "watch/CpuFiles.h"
#include "watch/KernelLog.h"

namespace TarvexDiags::Watching {

namespace {

/// The resource that a folder of the device tree stands for; empty for most.
std::string resourceOf(const std::string& folder, const std::string& parent) {
  const auto isNumbered = [&](std::string_view prefix) {
    return folder.size() > prefix.size() && folder.starts_with(prefix) &&
           folder.find_first_not_of("0123456789", prefix.size()) == std::string::npos;
  };
  if (folder.size() == pciAddressIn(folder).size() && !folder.empty()) {
    return "pci:" + folder;
  }
  if (parent == "block") {
    return "block:" + folder;
  }
  if (parent == "net") {
    return "net:" + folder;
  }
  if (isNumbered("nvme")) {
    return "nvme:" + folder;
  }
  return isNumbered("ata") ? "ata:" + folder : "";
}

}  // namespace

std::set<std::string> Topology::lineage(const std::string& resource) const {
  std::set<std::string> lineage = {resource};
  const std::size_t colon = resource.find(':');
  const std::string kind = resource.substr(0, colon);
  const std::string name = colon == std::string::npos ? "" : resource.substr(colon + 1);
  if (kind == "block") {
    addPath(std::filesystem::path("sys/class/block") / name, lineage);
    addPath(std::filesystem::path("sys/block") / name, lineage);
  } else if (kind == "net") {
    addPath(std::filesystem::path("sys/class/net") / name, lineage);
  } else if (kind == "nvme") {
    addPath(std::filesystem::path("sys/class/nvme") / name, lineage);
  } else if (kind == "pci") {
    addPath(std::filesystem::path("sys/bus/pci/devices") / name, lineage);
  } else if (kind == "cpu") {
    const CpuPlace place = placeOfCpu(m_files, std::atoi(name.c_str())).value_or(CpuPlace());
    lineage.insert("processor:" + std::to_string(std::max(place.socket, 0)));
  } else if (kind == "memory") {
    // The kernel does not tell which controller serves which node.
    lineage.insert("memory");
    for (const int number : m_files.numberedEntries("sys/devices/system/edac/mc", "mc")) {
      lineage.insert("mc:" + std::to_string(number));
    }
  }
  return lineage;
}

void Topology::addPath(const std::filesystem::path& device, std::set<std::string>& lineage) const {
  std::string parent;
  for (const std::filesystem::path& folder : m_files.resolved(device)) {
    if (const std::string resource = resourceOf(folder.string(), parent); !resource.empty()) {
      lineage.insert(resource);
    }
    parent = folder.string();
  }
}

}  // namespace TarvexDiags::Watching
