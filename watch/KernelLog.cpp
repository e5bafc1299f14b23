#include "watch/KernelLog.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <vector>

#include "watch/MachineCheck.h"
#include "watch/TextPattern.h"

namespace TarvexDiags::Watching {

namespace {

constexpr int kNone = -1;
constexpr const char* kMachine = "machine";

/// A form of messages. The numbers are those of the pattern's fields.
struct Message {
  std::string_view pattern;
  Kind kind;
  const char* tag;  ///< of the device in `device`; null: of PCI, "machine" where none is named
  int device = kNone;
  int part = kNone;
  int count = kNone;
  int place = kNone;
};

// In the order in which they are tried: what is narrower stands first. What the kernel tells twice,
// such as "Buffer I/O error" behind each failed command, stands here once. Messages begin so,
// behind what withoutOrigin takes away, and each pattern asks for more than the 15 bytes of the
// name of a thread, with which other messages begin: users choose those names.
constexpr Message kMessages[] = {
    {"EDAC MC%d: %d CE %* on %* (%*page:0x%x", Kind::MemoryCorrected, "mc:", 0, 3, 1, 5},
    {"EDAC MC%d: %d UE %* on %* (%*page:0x%x", Kind::MemoryUncorrected, "mc:", 0, 3, 1, 5},
    {"EDAC MC%d: %d CE %* on %* (", Kind::MemoryCorrected, "mc:", 0, 3, 1},
    {"EDAC MC%d: %d UE %* on %* (", Kind::MemoryUncorrected, "mc:", 0, 3, 1},
    {"EDAC MC%d: %d CE %*error", Kind::MemoryCorrected, "mc:", 0, kNone, 1},
    {"EDAC MC%d: %d UE %*error", Kind::MemoryUncorrected, "mc:", 0, kNone, 1},
    {"[Hardware Error]: Machine check events logged", Kind::MachineCheckCorrected, nullptr},
    {"[Hardware Error]: event severity: corrected", Kind::MachineCheckCorrected, nullptr},
    {"[Hardware Error]: event severity: recoverable", Kind::MachineCheckUncorrected, nullptr},
    {"[Hardware Error]: event severity: fatal", Kind::MachineCheckUncorrected, nullptr},
    {"PCIe Bus Error: severity=Corrected", Kind::PcieCorrectable, nullptr},
    {"PCIe Bus Error: severity=Uncorrected (Fatal)", Kind::PcieFatal, nullptr},
    {"PCIe Bus Error: severity=Uncorrected", Kind::PcieNonfatal, nullptr},
    {"Memory failure: 0x%x: recovery action", Kind::MemoryFailure, "memory", kNone, kNone, kNone,
     0},
    {"critical medium error, dev %w, sector %d", Kind::DiskMedium, "block:", 0, 0, kNone, 1},
    {"protection error, dev %w, sector %d", Kind::DiskInputOutput, "block:", 0, 0, kNone, 1},
    {"timeout error, dev %w, sector %d", Kind::DiskTimeout, "block:", 0, 0, kNone, 1},
    {"critical target error, dev %w, sector %d", Kind::DiskInputOutput, "block:", 0, 0, kNone, 1},
    {"critical nexus error, dev %w, sector %d", Kind::DiskInputOutput, "block:", 0, 0, kNone, 1},
    {"I/O error, dev %w, sector %d", Kind::DiskInputOutput, "block:", 0, 0, kNone, 1},
    {"nvme nvme%d: I/O %*timeout", Kind::DiskTimeout, "nvme:nvme", 0},
    {"nvme nvme%d: controller is down", Kind::DiskTimeout, "nvme:nvme", 0},
    {"nvme nvme%d: Removing after probe failure", Kind::DeviceVanished, "nvme:nvme", 0},
    {"ata%d: SATA link down", Kind::LinkLost, "ata:ata", 0},
    {"ata%d.%d: exception Emask", Kind::DiskCommandFailed, "ata:ata", 0},
    {"ata%d: exception Emask", Kind::DiskCommandFailed, "ata:ata", 0},
    {"ata%d: hard resetting link", Kind::DiskTimeout, "ata:ata", 0},
    {"NVRM: Xid (PCI:%w): %d", Kind::AcceleratorError, "pci:", 0, 1},
    {"NETDEV WATCHDOG: %w (", Kind::NetworkErrors, "net:", 0, 0},
    {"NETDEV WATCHDOG: CPU: %d: transmit queue", Kind::NetworkErrors, nullptr},
    {"%w %w %w: NETDEV WATCHDOG: CPU: %d: transmit queue", Kind::NetworkErrors, "net:", 2, 2},
    {"CPU%d: Core temperature above threshold", Kind::Throttled, "cpu:", 0},
    {"CPU%d: Package temperature above threshold", Kind::Throttled, "cpu:", 0},
    {"CPU%d: Core temperature is above threshold", Kind::Throttled, "cpu:", 0},
    {"CPU%d: Package temperature is above threshold", Kind::Throttled, "cpu:", 0},
    {"soft lockup - CPU#%d stuck", Kind::Lockup, "cpu:", 0},
    {"Watchdog detected hard LOCKUP on cpu %d", Kind::Lockup, "cpu:", 0},
    {"rcu: INFO: %w detected stalls", Kind::Lockup, nullptr},
    {"rcu: INFO: %w self-detected stall", Kind::Lockup, nullptr},
    {"INFO: task %* blocked for more than %d seconds", Kind::HungTask, nullptr, kNone, 0},
    {"pciehp: Slot(%*): Link Down", Kind::LinkLost, nullptr, kNone, 0},
    {"EXT4-fs error (device %w)", Kind::FileSystemError, "block:", 0, 0},
    {"XFS (%w): Metadata corruption", Kind::FileSystemError, "block:", 0, 0},
    {"XFS (%w): Corruption", Kind::FileSystemError, "block:", 0, 0},
    {"XFS (%w): %*Shutting down", Kind::FileSystemError, "block:", 0, 0},
    {"BTRFS error (device %w", Kind::FileSystemError, "block:", 0, 0},
    {"Out of memory: Killed process %d (%*)", Kind::OutOfMemory, nullptr, kNone, 1},
    {"out of memory: Killed process %d (%*)", Kind::OutOfMemory, nullptr, kNone, 1},
};

// What names the part of the kernel that speaks.
constexpr std::string_view kOrigins[] = {
    "mce: ",
    "AER: ",
    "watchdog: ",
    "NMI watchdog: ",
    "BUG: ",
    "blk_update_request: ",
    "print_req_error: ",
    "Memory cgroup ",
};

// Requests that a disk may refuse without being broken.
constexpr std::string_view kOptionalRequests[] = {":(DISCARD)", ":(WRITE_ZEROES)",
                                                  ":(SECURE_ERASE)", ":(ZONE_"};

template <class Number>
std::optional<Number> numberFrom(std::string_view text, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                  : std::nullopt;
}

/// What a thread has done, with the name that its program or user gave it: "NAME[PID]: segfault
/// at".
bool isOfThread(std::string_view text) {
  constexpr std::size_t kLongestName = 15;
  const std::size_t bracket = text.substr(0, kLongestName + 1).rfind('[');
  return bracket != std::string_view::npos && matchFront(text.substr(bracket), "[%d]:").has_value();
}

/// How long the driver's and the device's name at the front are, as in "pcieport 0000:00:1c.0: ".
std::size_t lengthOfDevice(std::string_view text) {
  constexpr std::string_view kBehind = ": ";
  const auto device = matchFront(text, "%w %x:%x:%x.%x: ");
  if (!device) {
    return 0;
  }
  const std::string_view last = device->back();
  return static_cast<std::size_t>(last.data() + last.size() - text.data()) + kBehind.size();
}

/// The message behind the names of those who log it: part of the kernel, driver and device, number
/// of a firmware's report ("{1}").
std::string_view withoutOrigin(std::string_view text) {
  for (;;) {
    const auto origin =
        std::find_if(std::begin(kOrigins), std::end(kOrigins),
                     [&](std::string_view known) { return text.starts_with(known); });
    const std::size_t length = origin != std::end(kOrigins)           ? origin->size()
                               : matchFront(text, "{%d}").has_value() ? text.find('}') + 1
                                                                      : lengthOfDevice(text);
    if (length == 0) {
      return text;
    }
    text.remove_prefix(length);
  }
}

std::string_view fieldOf(const std::vector<std::string_view>& fields, int number) {
  return number == kNone ? std::string_view() : fields[static_cast<std::size_t>(number)];
}

std::string pciDeviceOf(const KernelRecord& record) {
  constexpr std::string_view kPci = "+pci:";
  const std::string_view address = record.device.starts_with(kPci)
                                       ? record.device.substr(kPci.size())
                                       : pciAddressIn(record.text);
  return address.empty() ? kMachine : "pci:" + std::string(address);
}

std::string deviceOf(const Message& message, const std::vector<std::string_view>& fields,
                     const KernelRecord& record) {
  if (message.tag == nullptr) {
    return pciDeviceOf(record);
  }
  const std::string device = message.tag + std::string(fieldOf(fields, message.device));
  // Drivers of accelerators leave the function out.
  const bool isWhole = !device.starts_with("pci:") || device.find('.') != std::string::npos;
  return isWhole ? device : device + ".0";
}

/// "mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: 8c00004000010091", and "Machine Check
/// Exception" for what stopped the processor.
std::optional<Finding> machineCheckFrom(std::string_view text) {
  auto fields = matchFront(text, "[Hardware Error]: CPU %d: Machine Check%*: %x Bank %d: %x");
  if (!fields) {
    return std::nullopt;
  }
  const auto status = numberFrom<std::uint64_t>((*fields)[4], 16);
  if (!status) {
    return std::nullopt;
  }
  Finding finding;
  finding.kind = kindOfMachineCheck(*status);
  finding.isOfMemory = isOfMemory(*status);
  finding.device = "cpu:" + std::string((*fields)[0]);
  finding.part = "bank " + std::string((*fields)[3]);
  return finding;
}

std::optional<Finding> messageFrom(const KernelRecord& record) {
  const std::string_view text = withoutOrigin(record.text);
  for (const Message& message : kMessages) {
    const auto fields = matchFront(text, message.pattern);
    if (!fields) {
      continue;
    }
    Finding finding;
    finding.kind = message.kind;
    finding.device = deviceOf(message, *fields, record);
    finding.part = fieldOf(*fields, message.part);
    finding.place = fieldOf(*fields, message.place);
    finding.count = std::max<std::uint64_t>(
        1, numberFrom<std::uint64_t>(fieldOf(*fields, message.count)).value_or(1));
    return finding;
  }
  return std::nullopt;
}

bool isOptionalRequest(std::string_view text) {
  return std::any_of(
      std::begin(kOptionalRequests), std::end(kOptionalRequests),
      [&](std::string_view request) { return text.find(request) != std::string_view::npos; });
}

bool isHexadecimal(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f') ||
         (byte >= 'A' && byte <= 'F');
}

}  // namespace

std::optional<KernelRecord> parseKernelRecord(std::string_view record) {
  const std::size_t head = record.find(';');
  if (head == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view prefix = record.substr(0, head);
  const std::size_t first = prefix.find(',');
  const std::size_t second = prefix.find(',', first + 1);
  if (first == std::string_view::npos || second == std::string_view::npos) {
    return std::nullopt;
  }
  const auto priority = numberFrom<unsigned int>(prefix.substr(0, first));
  const auto sequence = numberFrom<std::uint64_t>(prefix.substr(first + 1, second - first - 1));
  if (!priority || !sequence) {
    return std::nullopt;
  }
  KernelRecord result;
  result.facility = *priority >> 3;
  result.sequence = *sequence;
  std::string_view rest = record.substr(head + 1);
  result.text = rest.substr(0, rest.find('\n'));
  constexpr std::string_view kDevice = "\n DEVICE=";
  if (const std::size_t device = rest.find(kDevice); device != std::string_view::npos) {
    rest.remove_prefix(device + kDevice.size());
    result.device = rest.substr(0, rest.find('\n'));
  }
  return result;
}

std::string_view pciAddressIn(std::string_view text) {
  constexpr std::string_view kForm = "xxxx:xx:xx.x";
  for (std::size_t place = 0; place + kForm.size() <= text.size(); ++place) {
    const std::string_view here = text.substr(place, kForm.size());
    if (std::equal(here.begin(), here.end(), kForm.begin(), [](char byte, char form) {
          return form == 'x' ? isHexadecimal(byte) : byte == form;
        })) {
      return here;
    }
  }
  return {};
}

std::optional<Moment> timeOfMachineCheck(const KernelRecord& record) {
  const auto fields =
      record.facility != 0
          ? std::nullopt
          : matchFront(withoutOrigin(record.text), "[Hardware Error]: PROCESSOR %x:%x TIME %d ");
  const auto seconds = fields ? numberFrom<std::int32_t>((*fields)[2]) : std::nullopt;
  return seconds ? std::optional(std::chrono::system_clock::from_time_t(*seconds)) : std::nullopt;
}

std::optional<Finding> findingFrom(const KernelRecord& record, Moment now) {
  if (record.facility != 0 || isOptionalRequest(record.text) || isOfThread(record.text)) {
    return std::nullopt;
  }
  std::optional<Finding> finding = machineCheckFrom(withoutOrigin(record.text));
  if (!finding) {
    finding = messageFrom(record);
  }
  if (finding) {
    finding->source = SourceKind::KernelLog;
    finding->time = now;
    finding->detail = record.text;
  }
  return finding;
}

}  // namespace TarvexDiags::Watching
