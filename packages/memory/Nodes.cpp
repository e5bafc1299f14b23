#include "packages/memory/Nodes.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <sstream>

#include "watch/CpuFiles.h"
#include "watch/NodeFiles.h"

namespace TarvexDiags::Memory {

namespace {

using Watching::SystemFiles;

/// What the limit files of a control group and of those above it leave.
std::uint64_t leftByGroups(const SystemFiles& files, const std::filesystem::path& mount,
                           std::filesystem::path group, const char* limitName,
                           const char* usageName) {
  std::uint64_t left = std::numeric_limits<std::uint64_t>::max();
  while (true) {
    const auto limit = files.number(mount / group / limitName);
    const auto usage = files.number(mount / group / usageName);
    if (limit && usage) {
      left = std::min(left, *limit > *usage ? *limit - *usage : 0);
    }
    if (group.empty()) {
      return left;
    }
    group = group.parent_path();
  }
}

/// Lines "<id>:<controllers>:/path": version 2 has no controllers, version 1 names "memory".
std::uint64_t leftByControlGroups(const SystemFiles& files) {
  std::uint64_t left = std::numeric_limits<std::uint64_t>::max();
  std::istringstream lines(files.text("proc/self/cgroup").value_or(""));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) {
      continue;
    }
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const std::filesystem::path group =
        std::filesystem::path(line.substr(second + 1)).relative_path();
    if (controllers.empty()) {
      left = std::min(left,
                      leftByGroups(files, "sys/fs/cgroup", group, "memory.max", "memory.current"));
    } else if (controllers == "memory") {
      left = std::min(left, leftByGroups(files, "sys/fs/cgroup/memory", group,
                                         "memory.limit_in_bytes", "memory.usage_in_bytes"));
    }
  }
  return left;
}

}  // namespace

std::string Node::tagComponent() const {
  return number < 0 ? "memory" : "node" + std::to_string(number);
}

std::vector<Node> findNodes(const SystemFiles& files) {
  std::vector<Node> nodes;
  for (const int number : files.numberedEntries(Watching::kNodesFolder, "node")) {
    const std::string memory = files.text(Watching::folderOfNode(number) / "meminfo").value_or("");
    Node node;
    node.number = number;
    node.cpus =
        Watching::parseCpuList(files.text(Watching::folderOfNode(number) / "cpulist").value_or(""));
    node.bytes = Watching::bytesOfRow(memory, "MemTotal").value_or(0);
    if (node.bytes > 0) {
      nodes.push_back(std::move(node));
    }
  }
  if (nodes.empty()) {
    Node machine;
    machine.cpus = Watching::onlineCpus(files);
    machine.bytes =
        Watching::bytesOfRow(files.text("proc/meminfo").value_or(""), "MemTotal").value_or(0);
    nodes.push_back(std::move(machine));
  }
  return nodes;
}

std::optional<std::uint64_t> availableBytes(const SystemFiles& files, const Node& node) {
  const std::string memory = files.text("proc/meminfo").value_or("");
  const auto available = Watching::bytesOfRow(memory, "MemAvailable");
  const auto total = Watching::bytesOfRow(memory, "MemTotal");
  if (!available || !total || *total == 0) {
    return std::nullopt;
  }
  std::uint64_t bytes = std::min(*available, leftByControlGroups(files));
  if (node.number < 0 || findNodes(files).size() < 2) {
    return bytes;
  }
  // Other nodes may be tested at the same time: this one takes its own share only.
  const double share = std::min(1.0, static_cast<double>(node.bytes) / static_cast<double>(*total));
  bytes = static_cast<std::uint64_t>(static_cast<double>(bytes) * share);
  const std::string own = files.text(Watching::folderOfNode(node.number) / "meminfo").value_or("");
  const auto free = Watching::bytesOfRow(own, "MemFree");
  return free ? std::min(bytes, *free + Watching::bytesOfRow(own, "Inactive(file)").value_or(0))
              : bytes;
}

std::uint64_t testedBytes(std::uint64_t available, const SizeLimits& limits) {
  const std::uint64_t percent = std::min(limits.marginPercent, 100U);
  const std::uint64_t margin = std::max(limits.marginBytes, available / 100 * percent);
  const std::uint64_t rest = available > margin ? available - margin : 0;
  return limits.maximumBytes == 0 ? rest : std::min(rest, limits.maximumBytes);
}

}  // namespace TarvexDiags::Memory
