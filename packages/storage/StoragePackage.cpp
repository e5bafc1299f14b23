// The package: a device for each disk, and the engines as its tests.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <limits>
#include <memory>
#include <system_error>

#include "packagekit/PackageKit.h"
#include "packagekit/UniqueDescriptor.h"
#include "packages/common/ContextJournal.h"
#include "packages/storage/AnsweredCall.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/Disks.h"
#include "packages/storage/FilePlace.h"
#include "packages/storage/Health.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/TransferQueue.h"
#include "packages/storage/WriteVerify.h"

namespace TarvexDiags::Storage {
namespace {

using Common::judged;
using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::optionalSetting;
using PackageKit::Package;
using PackageKit::quickable;
using PackageKit::required;
using PackageKit::Seconds;
using PackageKit::Setting;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::TestRow;
using PackageKit::Verdict;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;

/// @brief Codes of section DeviceStatus.
enum DiskStatus : unsigned int { DiskReady = 0, DiskForbidden = 1, DiskMissing = 2 };

// --- Devices

std::string nameOf(const Disk& disk) {
  return disk.model.empty() ? disk.name : disk.model + " (" + disk.name + ")";
}

Device deviceOf(const Disk& disk, const std::string& parent) {
  Device device;
  device.name = nameOf(disk);
  device.resourceTag = parent + "/" + disk.name;
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
  return device;
}

unsigned int statusOf(const Device& device) {
  if (access(device.property("path").c_str(), R_OK) == 0) {
    return DiskReady;
  }
  return errno == EACCES || errno == EPERM ? DiskForbidden : DiskMissing;
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

constexpr auto kVirtualDiskHealth = required<bool>("VirtualDiskHealth");
constexpr auto kDeviceFile = optionalSetting<std::string>("DeviceFile#");

/// @brief The machine's disks, and the files that the configuration names as further ones.
std::vector<Device> findDevices(const Environment& environment) {
  const auto virtualDisks = environment.settings.value(kVirtualDiskHealth)
                                ? VirtualDisks::AsTheirBus
                                : VirtualDisks::WithoutHealth;
  std::vector<Device> devices;
  for (const Disk& disk : findDisks("/sys", virtualDisks)) {
    devices.push_back(deviceOf(disk, environment.parentTag()));
  }
  for (int number = 1;; ++number) {
    const auto path = environment.settings.package("DeviceFile" + std::to_string(number));
    if (!path) {
      return devices;
    }
    if (const auto disk = fileAsDisk(*path)) {
      devices.push_back(deviceOf(*disk, environment.parentTag()));
    } else {
      environment.log(*path + " is no file that can stand for a disk");
    }
  }
}

// --- What each test needs

Support hasHealth(const Device& device, const Environment&) {
  const auto reason = whyNoHealth(diskOf(device));
  return reason ? unsupported(*reason) : Support::yes();
}

/// @brief No for what is not possible. Trouble, such as a disk that has left, is for the test to
/// tell.
Support supportOf(const std::function<void()>& attempt) {
  try {
    attempt();
  } catch (const NotSupported& reason) {
    return unsupported(reason);
  } catch (const std::system_error&) {
  }
  return Support::yes();
}

Support canBeRead(const Device& device, const Environment&) {
  const std::string path = device.property("path");
  const PackageKit::UniqueDescriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return supportOf([&] {
    if (!opened) {
      failToOpen(path, errno);
    }
  });
}

Support canHoldFile(const Device& device, const Environment&) {
  return supportOf([&] { findFilePlace(diskOf(device), kMebibyte); });
}

void reportCoverage(TestContext& context, const Disk& disk, std::uint64_t bytes) {
  context.measurement("coveredBytes", static_cast<double>(bytes), "B");
  context.measurement("totalBytes", static_cast<double>(disk.bytes), "B");
}

/// @brief Seconds to read the whole disk, by a cautious guess of its speed.
int secondsToScan(const Disk& disk) {
  const std::uint64_t bytesPerSecond = disk.rotational ? 150'000'000 : 500'000'000;
  return static_cast<int>(disk.bytes / bytesPerSecond) + 1;
}

// --- What the configuration file says

constexpr auto kSilenceSeconds = required<Seconds>("SilenceSeconds");
constexpr auto kBlockBytes = required<std::uint64_t>("BlockBytes");
constexpr auto kDepth = required<std::uint64_t>("Depth");
constexpr auto kScanMegabytes = quickable<std::uint64_t>("ScanMegabytes");
constexpr auto kMinimumRate = required<double>("MinimumRate");
constexpr auto kReads = quickable<std::uint64_t>("Reads");
constexpr auto kCompareMegabytes = quickable<std::uint64_t>("CompareMegabytes");
constexpr auto kLimitMilliseconds = required<std::uint64_t>("LimitMilliseconds");
constexpr auto kFactor = required<double>("Factor");
constexpr auto kAllowedStalls = required<std::uint64_t>("AllowedStalls");
constexpr auto kFileMegabytes = quickable<std::uint64_t>("FileMegabytes");
constexpr auto kPercentUsed = required<std::uint64_t>("PercentUsed");
constexpr auto kCelsius = required<long>("Celsius");
constexpr auto kErrorLogEntries = quickable<std::uint64_t>("ErrorLogEntries");

// --- How long tests take, by cautious guesses

constexpr double kSecondsToStart = 0.1;

double bytesPerSecond(const Disk& disk) {
  return disk.rotational ? 150e6 : 500e6;
}

/// @brief An estimate by a setting in megabytes, of which 0 means all there are.
std::function<double(const Device&, const Environment&)> secondsFor(
    int test, const Setting<std::uint64_t>& megabytes, double timesMoved) {
  return [=](const Device& device, const Environment& environment) {
    const Disk disk = diskOf(device);
    const auto wanted =
        static_cast<double>(environment.settings.value(megabytes, test, environment.isQuick)) *
        static_cast<double>(kMebibyte);
    const auto all = static_cast<double>(disk.bytes);
    const double bytes = wanted > 0 ? std::min(wanted, all) : all;
    return timesMoved * bytes / bytesPerSecond(disk) + kSecondsToStart;
  };
}

/// @brief An estimate by the number of reads.
/// @param perSecond of a disk without moving parts
std::function<double(const Device&, const Environment&)> secondsForReads(int test,
                                                                         double perSecond) {
  return [=](const Device& device, const Environment& environment) {
    constexpr double kOfRotating = 150;
    const auto reads =
        static_cast<double>(environment.settings.value(kReads, test, environment.isQuick));
    return reads / (diskOf(device).rotational ? kOfRotating : perSecond) + kSecondsToStart;
  };
}

std::uint64_t bytesOf(const TestContext& context, const Setting<std::uint64_t>& megabytes) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max() / kMebibyte;
  return std::min(context.value(megabytes), kMost) * kMebibyte;
}

// A day: no disk takes as long, and it can be counted in nanoseconds.
constexpr std::uint64_t kMostMilliseconds = 86'400'000;

SourceOptions sourceOptions(const TestContext& context, std::uint64_t depth) {
  constexpr std::uint64_t kPage = 4096;
  constexpr std::uint64_t kLargest = std::uint64_t{16} << 20;
  constexpr std::uint64_t kMostMemory = std::uint64_t{256} << 20;
  const std::uint64_t bytes = std::clamp(context.value(kBlockBytes), kPage, kLargest);
  SourceOptions options;
  options.slotSize = static_cast<std::uint32_t>(bytes / kPage * kPage);
  options.slots = static_cast<unsigned int>(std::clamp(
      depth, std::uint64_t{1}, std::min<std::uint64_t>(256, kMostMemory / options.slotSize)));
  options.patience = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::max(context.value(kSilenceSeconds), Seconds(1)));
  return options;
}

SourceOptions sourceOptions(const TestContext& context) {
  return sourceOptions(context, context.value(kDepth));
}

double megabytesPerSecond(std::uint64_t bytes, Nanoseconds elapsed) {
  return rateOf(bytes, elapsed) / 1e6;
}

// --- Tests

/// How long a disk may take to tell what it is and how it fares.
constexpr std::chrono::milliseconds kAnswerPatience{9000};

/// @brief Runs an engine on the disk of the test, and judges what it says.
Verdict onDisk(TestContext& context,
               const std::function<void(const Disk& disk, RunJournal& journal)>& engine) {
  const Disk disk = diskOf(context.device());
  return judged(context, [&](RunJournal& journal) {
    try {
      engine(disk, journal);
    } catch (const SilentDisk& silence) {
      context.log(silence.what());  // its error has been raised
    } catch (const SilentCommand& silence) {
      tellSilence({journal, disk.name}, "?", std::to_string(disk.logicalBlock), silence.patience());
    }
  });
}

std::unique_ptr<BlockSource> openDisk(const Disk& disk, const SourceOptions& options,
                                      RunJournal& journal) {
  OpenedFile opened = answered({journal, disk.name}, options.patience,
                               [path = disk.path] { return openFile(path); });
  auto source = makeSource(std::move(opened), options);
  if (source->size() == 0 && disk.bytes >= source->blockSize()) {
    throwVanished(disk.name, Reasons::kNoBlocksLeft);
  }
  return source;
}

Verdict identity(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    std::uint64_t bytes = 0;
    try {
      const SourceOptions options{.slots = 1, .slotSize = 4096, .patience = kAnswerPatience};
      bytes = openDisk(disk, options, journal)->size();
    } catch (const NotSupported& reason) {
      context.log(reason.what());  // what the kernel shows can be told all the same
    }
    const std::uint64_t partOfBlock = disk.attachment == Attachment::File ? disk.bytes % 4096 : 0;
    Disk described = disk;
    try {
      described = answered({journal, disk.name}, kAnswerPatience, [disk] {
        Disk full = disk;
        describeByItself(full);
        return full;
      });
    } catch (const NotSupported& reason) {
      context.log(reason.what());
    }
    identify(described, bytes == 0 ? 0 : bytes + partOfBlock, journal);
  });
}

/// @brief Asks the disk for what it keeps about itself.
template <class Answer>
Answer ask(const Disk& disk, RunJournal& journal, Answer (HealthReader::*question)()) {
  return answered({journal, disk.name}, kAnswerPatience,
                  [disk, question] { return (*makeHealthReader(disk).*question)(); });
}

Verdict health(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    const HealthLimits limits{.percentUsed = context.value(kPercentUsed),
                              .celsius = context.value(kCelsius)};
    judgeHealth(ask(disk, journal, &HealthReader::health), limits, disk.name, journal);
  });
}

Verdict errorLog(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    const std::uint64_t allowed = context.value(kErrorLogEntries);
    judgeErrorLog(ask(disk, journal, &HealthReader::errorLog), allowed, disk.name, journal);
  });
}

Verdict sequentialScan(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    SourceOptions sourceOptions = Storage::sourceOptions(context);
    // A small disk is read in a moment, and its silence is waited for no longer than fits.
    const std::chrono::seconds fitting{std::max(4 * secondsToScan(disk), 10) - 2};
    sourceOptions.patience = std::min<std::chrono::milliseconds>(sourceOptions.patience, fitting);
    const auto source = openDisk(disk, sourceOptions, journal);
    ScanOptions options;
    options.bytes = bytesOf(context, kScanMegabytes);
    options.minimumRate = context.value(kMinimumRate) * 1e6;
    const ReadFigures figures = scanSequentially(*source, options, disk.name, journal);
    context.measurement("readRate", megabytesPerSecond(figures.bytes, figures.elapsed), "MB/s");
    reportCoverage(context, disk, figures.bytes);
  });
}

Verdict randomRead(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    const auto source = openDisk(disk, sourceOptions(context), journal);
    const RandomOptions options{context.value(kReads), context.seed()};
    const ReadFigures figures = readRandomly(*source, options, disk.name, journal);
    context.measurement("randomReads", rateOf(figures.reads, figures.elapsed), "reads/s");
    reportCoverage(context, disk, figures.bytes);
  });
}

Verdict readStability(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    const auto source = openDisk(disk, sourceOptions(context), journal);
    StabilityOptions options;
    options.bytes = bytesOf(context, kCompareMegabytes);
    reportCoverage(context, disk, checkStability(*source, options, disk.name, journal).bytes);
  });
}

Verdict latencyOutliers(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    SourceOptions sourceOptions = Storage::sourceOptions(context, 1);
    sourceOptions.useUring = false;  // the thread that reads knows how long it was kept waiting
    sourceOptions.clock = makeStarvationAwareClock();
    const auto source = openDisk(disk, sourceOptions, journal);
    LatencyOptions options;
    options.reads = context.value(kReads);
    options.seed = context.seed();
    options.limit = std::chrono::milliseconds(
        std::min<std::uint64_t>(context.value(kLimitMilliseconds), kMostMilliseconds));
    options.factor = context.value(kFactor);
    options.allowedStalls = context.value(kAllowedStalls);
    reportCoverage(context, disk, findSlowBlocks(*source, options, disk.name, journal).bytes);
  });
}

Verdict writeVerify(TestContext& context) {
  return onDisk(context, [&](const Disk& disk, RunJournal& journal) {
    const SourceOptions sourceOptions = Storage::sourceOptions(context);
    const Waiter waiter{journal, disk.name};
    const FilePlace place = answered(
        waiter, sourceOptions.patience,
        [disk, bytes = bytesOf(context, kFileMegabytes)] { return findFilePlace(disk, bytes); });
    context.log("the temporary file lies in " + place.directory);
    auto file = makeTemporaryFile(place.directory, place.bytes, [&](std::function<void()> step) {
      context.throwIfStopped();
      awaitCall(waiter, sourceOptions.patience, std::move(step));
    });
    // A question that is given up may still use it when the file is closed.
    const auto own =
        endedAside(PackageKit::UniqueDescriptor(fcntl(file.get(), F_DUPFD_CLOEXEC, 0)));
    const auto start = startOnDisk(disk.name, place.device);
    const std::string carrier = disk.attachment == Attachment::File ? "" : disk.name;
    const auto source = makeSource(lookAt(std::move(file), carrier), sourceOptions);
    WriteVerifyOptions options;
    options.seed = context.seed();
    options.placeOnDisk = [&](std::uint64_t offset) -> std::optional<std::uint64_t> {
      const auto onDevice = answered(waiter, sourceOptions.patience,
                                     [own, offset] { return placeOnDevice(own->get(), offset); });
      return start && onDevice ? std::optional(*start + *onDevice) : std::nullopt;
    };
    const WriteVerifyFigures figures = writeAndVerify(*source, options, disk.name, journal);
    context.measurement("writeRate", megabytesPerSecond(figures.bytes, figures.writing), "MB/s");
    context.measurement("verifyRate", megabytesPerSecond(figures.bytes, figures.verifying), "MB/s");
    reportCoverage(context, disk, figures.bytes);
  });
}

const std::vector<TestRow> kTests = {
    {.number = 1, .body = identity},
    {.number = 2, .body = health, .reads = {kPercentUsed, kCelsius}, .support = hasHealth},
    {.number = 3, .body = errorLog, .reads = {kErrorLogEntries}, .support = hasHealth},
    {.number = 4,
     .body = sequentialScan,
     .reads = {kSilenceSeconds, kBlockBytes, kDepth, kScanMegabytes, kMinimumRate},
     .support = canBeRead,
     .estimate = secondsFor(4, kScanMegabytes, 1)},
    {.number = 5,
     .body = randomRead,
     .reads = {kSilenceSeconds, kBlockBytes, kDepth, kReads},
     .support = canBeRead,
     .estimate = secondsForReads(5, 30'000)},
    {.number = 6,
     .body = readStability,
     .reads = {kSilenceSeconds, kBlockBytes, kDepth, kCompareMegabytes},
     .support = canBeRead,
     .estimate = secondsFor(6, kCompareMegabytes, 2)},
    {.number = 7,
     .body = latencyOutliers,
     .reads = {kSilenceSeconds, kBlockBytes, kReads, kLimitMilliseconds, kFactor, kAllowedStalls},
     .support = canBeRead,
     .estimate = secondsForReads(7, 5'000)},
    {.number = 8,
     .body = writeVerify,
     .reads = {kSilenceSeconds, kBlockBytes, kDepth, kFileMegabytes},
     .support = canHoldFile,
     .estimate = secondsFor(8, kFileMegabytes, 2),
     .writes = true},
};

}  // namespace

void define(Package& package) {
  package.discover(findDevices);
  package.status(statusOf);
  package.reads({kVirtualDiskHealth, kDeviceFile});
  package.tests(kTests);
}

}  // namespace TarvexDiags::Storage

TARVEX_PACKAGE(package) {
  TarvexDiags::Storage::define(package);
}
