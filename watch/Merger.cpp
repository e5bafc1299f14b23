#include "watch/Merger.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace TarvexDiags::Watching {

namespace {

const std::string kAnyDevice = "machine";

bool isSameDevice(const std::string& one, const std::string& other) {
  return one == other || one == kAnyDevice || other == kAnyDevice;
}

/// Whether different sources tell the same with it. What a source lost, only this one lost.
bool isShared(Kind kind) {
  return kind != Kind::RecordsLost;
}

/// Whether it may be nothing but the kernel's word that there are machine checks, ahead of those
/// which name their processor.
bool mayAnnounce(Kind kind, const std::string& device) {
  return kind == Kind::MachineCheckCorrected && device == kAnyDevice;
}

bool isMachineCheck(Kind kind) {
  return kind == Kind::MachineCheckCorrected || kind == Kind::MachineCheckUncorrected;
}

/// What a memory controller's driver tells of a machine check of the memory.
Kind memoryKindOf(Kind machineCheck) {
  return machineCheck == Kind::MachineCheckCorrected ? Kind::MemoryCorrected
                                                     : Kind::MemoryUncorrected;
}

bool isSamePart(const Finding& one, const Finding& other) {
  return one.part == other.part && one.isBefore == other.isBefore;
}

bool namesParts(const std::vector<Finding>& findings) {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.part.empty(); });
}

std::uint64_t totalOf(const std::vector<Finding>& findings) {
  std::uint64_t total = 0;
  for (const Finding& finding : findings) {
    total += finding.count;
  }
  return total;
}

}  // namespace

void Merger::take(Finding finding) {
  spendCredit(finding);
  if (finding.count == 0 || isAnnouncedAlready(finding)) {
    return;
  }
  Group& group = groupOf(finding);
  if (group.device == kAnyDevice) {
    group.device = finding.device;
  }
  std::vector<Finding>& told = group.bySource[finding.source];
  if (finding.device != kAnyDevice) {
    std::erase_if(told, [](const Finding& one) { return mayAnnounce(one.kind, one.device); });
  }
  const auto same = std::find_if(told.begin(), told.end(), [&](const Finding& one) {
    return isSamePart(one, finding) && one.place == finding.place && one.device == finding.device &&
           one.isOfMemory == finding.isOfMemory;
  });
  if (same != told.end()) {
    same->count += finding.count;
  } else {
    told.push_back(std::move(finding));
  }
}

void Merger::spendCredit(Finding& finding) {
  std::erase_if(m_credits, [&](const Credit& credit) { return credit.until < finding.time; });
  for (Credit& credit : m_credits) {
    if (credit.kind == finding.kind && credit.source == finding.source &&
        isSameDevice(credit.device, finding.device)) {
      const std::uint64_t spent = std::min(credit.count, finding.count);
      credit.count -= spent;
      finding.count -= spent;
    }
  }
}

Merger::Group& Merger::groupOf(const Finding& finding) {
  const auto isOurs = [&](const Group& group) {
    if (group.kind != finding.kind) {
      return false;
    }
    // What names no device may be of any, but not of what the same source names.
    const bool isOwn =
        group.bySource.contains(finding.source) && !mayAnnounce(group.kind, group.device);
    return isOwn || !isShared(finding.kind) ? isOwn && group.device == finding.device
                                            : isSameDevice(group.device, finding.device);
  };
  // A group that names the device is nearer than one that names none.
  const auto named = std::find_if(m_groups.begin(), m_groups.end(), [&](const Group& group) {
    return isOurs(group) && group.device == finding.device;
  });
  const auto found =
      named != m_groups.end() ? named : std::find_if(m_groups.begin(), m_groups.end(), isOurs);
  return found != m_groups.end()
             ? *found
             : m_groups.emplace_back(Group{finding.kind, finding.device, finding.time, {}});
}

bool Merger::isAnyDue(Moment now) const {
  return std::any_of(m_groups.begin(), m_groups.end(),
                     [&](const Group& group) { return group.begin + m_window <= now; });
}

std::vector<Finding> Merger::due(Moment now) {
  std::vector<Finding> findings;
  for (auto group = m_groups.begin(); group != m_groups.end();) {
    if (group->begin + m_window > now) {
      ++group;
      continue;
    }
    settle(*group, now + m_window, findings);
    group = m_groups.erase(group);
  }
  return findings;
}

std::vector<Finding> Merger::rest() {
  std::vector<Finding> findings;
  for (const Group& group : m_groups) {
    settle(group, Moment(), findings);
  }
  m_groups.clear();
  m_credits.clear();
  return findings;
}

bool Merger::isAnnouncedAlready(const Finding& finding) const {
  return mayAnnounce(finding.kind, finding.device) &&
         (finding.time <= m_announcedUntil || isToldByMemory(finding.kind, finding.time) ||
          std::any_of(m_groups.begin(), m_groups.end(), [](const Group& group) {
            return isMachineCheck(group.kind) && group.device != kAnyDevice;
          }));
}

// The kernel says that machine checks were logged before it says which: that alone would be taken
// for one that was corrected.
bool Merger::isAnnouncement(const Group& group) const {
  return mayAnnounce(group.kind, group.device) &&
         (isToldByMemory(group.kind, group.begin) ||
          std::any_of(m_groups.begin(), m_groups.end(), [](const Group& other) {
            return other.kind == Kind::MachineCheckUncorrected;
          }));
}

// A bank tells of an error of the memory without the module, and its controller's driver with it.
bool Merger::isToldByMemory(Kind machineCheck, Moment begin) const {
  const Kind memory = memoryKindOf(machineCheck);
  const auto until = m_memoryUntil.find(memory);
  return (until != m_memoryUntil.end() && begin <= until->second) ||
         std::any_of(m_groups.begin(), m_groups.end(),
                     [memory](const Group& group) { return group.kind == memory; });
}

// Counters do not know where in the part the errors were; another source may. One of them is
// enough, as the log and the trace write an address in forms of their own.
void Merger::tellWithPlaces(Finding finding, const Group& group, std::vector<Finding>& findings) {
  std::vector<Finding> placed;
  for (auto told = group.bySource.begin();
       finding.place.empty() && placed.empty() && told != group.bySource.end(); ++told) {
    std::copy_if(
        told->second.begin(), told->second.end(), std::back_inserter(placed),
        [&](const Finding& one) { return !one.place.empty() && isSamePart(one, finding); });
  }
  for (const Finding& one : placed) {
    const bool isLast = &one == &placed.back() || one.count >= finding.count;
    Finding& told = findings.emplace_back(finding);
    told.place = one.place;
    told.count = isLast ? finding.count : one.count;
    finding.count -= told.count;
    if (isLast) {
      return;
    }
  }
  findings.push_back(std::move(finding));
}

// Of those that count as much, what names the part knows more; else sources stand in the order of
// how much they know, so the first of equals is the best.
void Merger::settle(const Group& group, Moment until, std::vector<Finding>& findings) {
  if (isAnnouncement(group)) {
    return;
  }
  if (isMachineCheck(group.kind) && group.device != kAnyDevice) {
    m_announcedUntil = until;
  }
  if (group.kind == Kind::MemoryCorrected || group.kind == Kind::MemoryUncorrected) {
    m_memoryUntil[group.kind] = until;
  }
  const auto knowledgeOf = [](const auto& told) {
    return std::pair(totalOf(told.second), namesParts(told.second));
  };
  const auto best = std::max_element(
      group.bySource.begin(), group.bySource.end(),
      [&](const auto& one, const auto& other) { return knowledgeOf(one) < knowledgeOf(other); });
  const std::uint64_t total = totalOf(best->second);
  for (Finding finding : best->second) {
    finding.device = finding.device == kAnyDevice ? group.device : finding.device;
    if (!finding.isOfMemory || !isToldByMemory(group.kind, group.begin)) {
      tellWithPlaces(std::move(finding), group, findings);
    }
  }
  for (const SourceKind source : isShared(group.kind) ? allSources() : std::vector<SourceKind>()) {
    const auto told = group.bySource.find(source);
    const std::uint64_t count = told == group.bySource.end() ? 0 : totalOf(told->second);
    if (count < total) {
      m_credits.push_back({group.kind, group.device, source, total - count, until});
    }
  }
}

}  // namespace TarvexDiags::Watching
