// The package: a device for each disk, and the engines as its tests.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "packagekit/PackageKit.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/UniqueDescriptor.h"
#include "packages/storage/Disks.h"
#include "packages/storage/FilePlace.h"
#include "packages/storage/Health.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/WriteVerify.h"

namespace TarvexDiags::Storage {
namespace {

using Common::judged;
using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::Package;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::Verdict;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;

/// @brief Codes of section DeviceStatus.
enum DiskStatus : unsigned int { DiskReady = 0, DiskForbidden = 1, DiskMissing = 2 };

// --- Devices

std::string nameOf(const Disk& disk) {
  return disk.model.empty() ? disk.name : disk.model + " (" + disk.name + ")";
}

Device deviceOf(const Disk& disk, const std::string& root) {
  Device device;
  device.name = nameOf(disk);
  device.resourceTag = (root.empty() ? "host" : root) + "/" + disk.name;
  device.disableName = disk.name;
  device.properties = {
      {"name", disk.name},
      {"path", disk.path},
      {"attachment", attachmentText(disk.attachment)},
      {"model", disk.model},
      {"serial", disk.serial},
      {"firmware", disk.firmware},
      {"bytes", std::to_string(disk.bytes)},
      {"logicalBlock", std::to_string(disk.logicalBlock)},
      {"physicalBlock", std::to_string(disk.physicalBlock)},
      {"rotational", disk.rotational ? "1" : "0"},
      {"readOnly", disk.readOnly ? "1" : "0"},
  };
  device.status = [path = disk.path]() -> unsigned int {
    if (access(path.c_str(), R_OK) == 0) {
      return DiskReady;
    }
    return errno == EACCES || errno == EPERM ? DiskForbidden : DiskMissing;
  };
  return device;
}

std::uint64_t numberOf(const Device& device, const std::string& key) {
  return std::stoull("0" + device.property(key));
}

Disk diskOf(const Device& device) {
  Disk disk;
  disk.name = device.property("name");
  disk.path = device.property("path");
  disk.attachment = attachmentFrom(device.property("attachment"));
  disk.model = device.property("model");
  disk.serial = device.property("serial");
  disk.firmware = device.property("firmware");
  disk.bytes = numberOf(device, "bytes");
  disk.logicalBlock = static_cast<std::uint32_t>(numberOf(device, "logicalBlock"));
  disk.physicalBlock = static_cast<std::uint32_t>(numberOf(device, "physicalBlock"));
  disk.rotational = device.property("rotational") == "1";
  disk.readOnly = device.property("readOnly") == "1";
  return disk;
}

/// @brief The machine's disks, and the files that the configuration names as further ones.
std::vector<Device> findDevices(const Environment& environment) {
  const auto virtualDisks = environment.settings.packageFlag("VirtualDiskHealth", false)
                                ? VirtualDisks::AsTheirBus
                                : VirtualDisks::WithoutHealth;
  std::vector<Device> devices;
  for (const Disk& disk : findDisks("/sys", virtualDisks)) {
    devices.push_back(deviceOf(disk, environment.resourceString));
  }
  for (int number = 1;; ++number) {
    const auto path = environment.settings.package("DeviceFile" + std::to_string(number));
    if (!path) {
      return devices;
    }
    if (const auto disk = fileAsDisk(*path)) {
      devices.push_back(deviceOf(*disk, environment.resourceString));
    } else {
      environment.log(*path + " is no file that can stand for a disk");
    }
  }
}

// --- What each test needs

Support hasHealth(const Device& device, const Environment&) {
  const std::string reason = whyNoHealth(diskOf(device));
  return reason.empty() ? Support::yes() : Support::no(reason);
}

Support canBeRead(const Device& device, const Environment&) {
  const std::string path = device.property("path");
  const Common::UniqueDescriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return opened ? Support::yes()
                : Support::no(path + " cannot be read: " + std::generic_category().message(errno));
}

Support canHoldFile(const Device& device, const Environment&) {
  try {
    findFilePlace(diskOf(device), kMebibyte);
    return Support::yes();
  } catch (const NotSupported& reason) {
    return Support::no(reason.what());
  }
}

/// @brief Seconds to read the whole disk, by a cautious guess of its speed.
int secondsToScan(const Device& device, const Environment&) {
  const std::uint64_t bytesPerSecond =
      device.property("rotational") == "1" ? 150'000'000 : 500'000'000;
  return static_cast<int>(numberOf(device, "bytes") / bytesPerSecond) + 1;
}

// --- Settings

/// @brief A number that a short run takes from the key with "Quick" before its name.
std::uint64_t amount(const TestContext& context, const std::string& key, long full, long quick) {
  const long value = context.quickMode() ? context.settingInteger("Quick" + key, quick)
                                         : context.settingInteger(key, full);
  return static_cast<std::uint64_t>(std::max(value, 0L));
}

SourceOptions sourceOptions(const TestContext& context, long blockBytes, long depth) {
  constexpr long page = 4096;
  constexpr long largest = long{16} << 20;
  const long bytes = context.settingInteger("BlockBytes", blockBytes);
  SourceOptions options;
  options.slots =
      static_cast<unsigned int>(std::clamp(context.settingInteger("Depth", depth), 1L, 256L));
  options.slotSize =
      static_cast<std::uint32_t>(std::clamp(bytes / page, 1L, largest / page) * page);
  constexpr std::uint32_t mostMemory = std::uint32_t{256} << 20;
  options.slots = std::min(options.slots, mostMemory / options.slotSize);
  return options;
}

double megabytesPerSecond(std::uint64_t bytes, Nanoseconds elapsed) {
  return rateOf(bytes, elapsed) / 1e6;
}

// --- Tests

Verdict identity(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    std::uint64_t bytes = 0;
    try {
      bytes = openForReading(disk.path, {.slots = 1, .slotSize = 4096})->size();
    } catch (const NotSupported& reason) {
      context.log(reason.what());  // what the kernel shows can be told all the same
    }
    const std::uint64_t partOfBlock = disk.attachment == Attachment::File ? disk.bytes % 4096 : 0;
    identify(disk, bytes == 0 ? 0 : bytes + partOfBlock, journal);
  });
}

HealthLimits healthLimits(const TestContext& context) {
  HealthLimits limits;
  limits.percentUsed = static_cast<unsigned int>(context.settingInteger("PercentUsed", 100));
  limits.celsius = static_cast<int>(context.settingInteger("Celsius", 70));
  limits.errorLogEntries = amount(context, "ErrorLogEntries", 0, 0);
  return limits;
}

Verdict health(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    judgeHealth(makeHealthReader(disk)->health(), healthLimits(context), disk.name, journal);
  });
}

Verdict errorLog(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    judgeErrorLog(makeHealthReader(disk)->errorLog(), healthLimits(context), disk.name, journal);
  });
}

Verdict sequentialScan(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    const auto source = openForReading(disk.path, sourceOptions(context, 1 << 20, 32));
    ScanOptions options;
    options.bytes = amount(context, "ScanMegabytes", 0, 512) * kMebibyte;
    options.minimumRate = context.settingNumber("MinimumRate", 0) * 1e6;
    const ReadFigures figures = scanSequentially(*source, options, disk.name, journal);
    context.measurement("readRate", megabytesPerSecond(figures.bytes, figures.elapsed), "MB/s");
  });
}

Verdict randomRead(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    const auto source = openForReading(disk.path, sourceOptions(context, 4096, 32));
    const RandomOptions options{amount(context, "Reads", 200'000, 20'000), context.seed()};
    const ReadFigures figures = readRandomly(*source, options, disk.name, journal);
    context.measurement("randomReads", rateOf(figures.reads, figures.elapsed), "reads/s");
  });
}

Verdict readStability(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    const auto source = openForReading(disk.path, sourceOptions(context, 1 << 20, 32));
    StabilityOptions options;
    options.bytes = amount(context, "CompareMegabytes", 4096, 256) * kMebibyte;
    checkStability(*source, options, disk.name, journal);
  });
}

Verdict latencyOutliers(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    const auto source = openForReading(disk.path, sourceOptions(context, 4096, 1));
    LatencyOptions options;
    options.reads = amount(context, "Reads", 20'000, 2'000);
    options.seed = context.seed();
    options.limit = std::chrono::milliseconds(context.settingInteger("LimitMilliseconds", 200));
    options.factor = context.settingNumber("Factor", 20);
    options.allowedStalls = static_cast<unsigned int>(context.settingInteger("AllowedStalls", 2));
    findSlowBlocks(*source, options, disk.name, journal);
  });
}

Verdict writeVerify(TestContext& context) {
  const Disk disk = diskOf(context.device());
  return judged(context, disk.name, [&](RunJournal& journal) {
    const FilePlace place =
        findFilePlace(disk, amount(context, "FileMegabytes", 1024, 64) * kMebibyte);
    context.log("the temporary file lies in " + place.directory);
    auto file = makeTemporaryFile(place.directory, place.bytes);
    const int descriptor = file.get();
    const auto start = startOnDisk(disk.name, place.device);
    const auto source = overFile(std::move(file), sourceOptions(context, 1 << 20, 32));
    WriteVerifyOptions options;
    options.seed = context.seed();
    options.placeOnDisk = [&](std::uint64_t offset) -> std::optional<std::uint64_t> {
      const auto onDevice = placeOnDevice(descriptor, offset);
      return start && onDevice ? std::optional(*start + *onDevice) : std::nullopt;
    };
    const WriteVerifyFigures figures = writeAndVerify(*source, options, disk.name, journal);
    context.measurement("writeRate", megabytesPerSecond(figures.bytes, figures.writing), "MB/s");
    context.measurement("verifyRate", megabytesPerSecond(figures.bytes, figures.verifying), "MB/s");
  });
}

}  // namespace

void define(Package& package) {
  package.discover(findDevices);
  package.test(1, identity);
  package.test(2, health).supportedWhen(hasHealth);
  package.test(3, errorLog).supportedWhen(hasHealth);
  package.test(4, sequentialScan).supportedWhen(canBeRead).estimate(secondsToScan);
  package.test(5, randomRead).supportedWhen(canBeRead);
  package.test(6, readStability).supportedWhen(canBeRead);
  package.test(7, latencyOutliers).supportedWhen(canBeRead);
  package.test(8, writeVerify).supportedWhen(canHoldFile).writes();
}

}  // namespace TarvexDiags::Storage

TARVEX_PACKAGE(package) {
  TarvexDiags::Storage::define(package);
}
