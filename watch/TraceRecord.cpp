#include "watch/TraceRecord.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <utility>
#include <vector>

#include "watch/MachineCheck.h"
#include "watch/TextPattern.h"

namespace TarvexDiags::Watching {

namespace {

template <class Number>
std::optional<Number> numberFrom(std::string_view text, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                  : std::nullopt;
}

Finding findingOf(Kind kind, std::string device) {
  Finding finding;
  finding.source = SourceKind::MachineChecks;
  finding.kind = kind;
  finding.device = std::move(device);
  return finding;
}

// "CPU: 0, MCGc/s: 10f/0, MC4: 8c00004000010091, IPID: 0, ADDR/MISC/SYND: 12345000/0/0, ..."
std::optional<Finding> fromMachineCheck(std::string_view fields, Moment earliest) {
  const auto found = match(fields, "CPU: %d, MCGc/s: %x/%x, MC%d: %x,");
  const auto status = found ? numberFrom<std::uint64_t>((*found)[4], 16) : std::nullopt;
  if (!status) {
    return std::nullopt;
  }
  const auto time = match(fields, " TIME: %d,");
  const auto seconds = time ? numberFrom<std::int64_t>((*time)[0]) : std::nullopt;
  Finding finding = findingOf(kindOfMachineCheck(*status), "cpu:" + std::string((*found)[0]));
  finding.isBefore = seconds && *seconds < std::chrono::system_clock::to_time_t(earliest);
  finding.isOfMemory = isOfMemory(*status);
  finding.part = "bank " + std::string((*found)[3]);
  // Bit 58: there is an address.
  const auto address = match(fields, "ADDR/MISC/SYND: %x/");
  if (address && (*status >> 58 & 1) != 0) {
    finding.place = (*address)[0];
  }
  return finding;
}

// "3 Corrected errors: memory read error on DIMM_A1 (mc:0 location:0:1:-1 address:0x12345000 ...".
std::optional<Finding> fromMemory(std::string_view fields) {
  const std::string line = std::string(" ").append(fields);
  const auto found = match(line, " %d %w error%*: ");
  const auto controller = match(fields, "(mc:%d ");
  const auto count = found ? numberFrom<std::uint64_t>((*found)[0]) : std::nullopt;
  if (!count || !controller) {
    return std::nullopt;
  }
  const std::string severity((*found)[1]);
  if (severity == "Info") {
    return std::nullopt;
  }
  Finding finding =
      findingOf(severity == "Corrected" ? Kind::MemoryCorrected : Kind::MemoryUncorrected,
                "mc:" + std::string((*controller)[0]));
  finding.count = std::max<std::uint64_t>(*count, 1);
  // The label stands before the bracket, and may hold blanks.
  if (const auto label = match(fields, " on %* (mc:")) {
    finding.part = (*label)[0];
  }
  if (const auto address = match(fields, "address:0x%x ")) {
    finding.place = (*address)[0];
  }
  return finding;
}

// "0000:01:00.0 PCIe Bus Error: severity=Corrected, Receiver Error, TLP Header=Not available".
std::optional<Finding> fromPcie(std::string_view fields) {
  const auto found = match(fields, " PCIe Bus Error: severity=%*, ");
  const std::size_t end = fields.find(' ');
  if (!found || end == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view severity = (*found)[0];
  const Kind kind = severity == "Corrected" ? Kind::PcieCorrectable
                    : severity == "Fatal"   ? Kind::PcieFatal
                                            : Kind::PcieNonfatal;
  return findingOf(kind, "pci:" + std::string(fields.substr(0, end)));
}

// "pfn 0x10000: recovery action for dirty LRU page: Recovered".
std::optional<Finding> fromMemoryFailure(std::string_view fields) {
  const auto found = match(fields, "pfn 0x%x: recovery action");
  if (!found) {
    return std::nullopt;
  }
  Finding finding = findingOf(Kind::MemoryFailure, "memory");
  finding.place = (*found)[0];
  return finding;
}

Kind kindOfDiskError(int error) {
  switch (error) {
    case ENODATA:
      return Kind::DiskMedium;
    case ETIMEDOUT:
      return Kind::DiskTimeout;
    default:
      return Kind::DiskInputOutput;
  }
}

// "8,16 RS () 4656 + 8 [-61]": only of what reads or writes, as disks may refuse the rest.
std::optional<Finding> fromDisk(std::string_view fields,
                                const std::function<std::string(const std::string&)>& diskOf) {
  const std::string line = std::string(" ").append(fields);
  const auto found = match(line, " %d,%d %w (%*) %d + %d [-%d]");
  const auto error = found ? numberFrom<int>((*found)[6]) : std::nullopt;
  if (!error) {
    return std::nullopt;
  }
  const char request =
      (*found)[2].front() == 'F' && (*found)[2].size() > 1 ? (*found)[2][1] : (*found)[2].front();
  if (request != 'R' && request != 'W') {
    return std::nullopt;
  }
  const std::string disk = diskOf(std::string((*found)[0]) + ":" + std::string((*found)[1]));
  Finding finding = findingOf(kindOfDiskError(*error), disk.empty() ? "machine" : "block:" + disk);
  finding.part = disk;
  finding.place = (*found)[4];
  return finding;
}

}  // namespace

// "          <idle>-0       [000] d.h1.   123.456789: mce_record: CPU: 0, ...": the task's name has
// sixteen columns, whatever is in it (kernel/trace/trace_output.c).
std::optional<TraceRecord> parseTraceLine(std::string_view line) {
  constexpr std::size_t kName = 16;
  if (line.size() <= kName || line[kName] != '-') {
    return std::nullopt;
  }
  const std::string_view rest = line.substr(kName);
  const auto fields = match(rest, "[%d] %w%*: %w: %*");
  const std::size_t cpu = rest.find('[');
  if (!fields || rest.find_first_not_of("-0123456789 ()") != cpu) {
    return std::nullopt;
  }
  return TraceRecord{(*fields)[3], (*fields)[4]};
}

std::uint64_t lostEventsIn(std::string_view line) {
  const auto fields = line.starts_with("CPU:") ? match(line, " [LOST %d EVENTS]") : std::nullopt;
  return fields ? numberFrom<std::uint64_t>((*fields)[0]).value_or(0) : 0;
}

std::optional<Finding> findingFrom(const TraceRecord& record,
                                   const std::function<std::string(const std::string&)>& diskOf,
                                   Moment earliest, Moment now) {
  std::optional<Finding> finding;
  if (record.event == "mce_record") {
    finding = fromMachineCheck(record.fields, earliest);
  } else if (record.event == "mc_event") {
    finding = fromMemory(record.fields);
  } else if (record.event == "aer_event") {
    finding = fromPcie(record.fields);
  } else if (record.event == "memory_failure_event") {
    finding = fromMemoryFailure(record.fields);
  } else if (record.event == "block_rq_error") {
    finding = fromDisk(record.fields, diskOf);
  }
  if (finding) {
    finding->time = now;
    finding->detail = record.fields;
  }
  return finding;
}

}  // namespace TarvexDiags::Watching
