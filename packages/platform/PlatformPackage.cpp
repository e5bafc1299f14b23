// The package: a device for each kind of parts that the rules are about.

#include <chrono>
#include <string>

#include "packagekit/PackageKit.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/SystemRoot.h"
#include "packages/platform/Clocks.h"
#include "packages/platform/DiskFirmware.h"
#include "packages/platform/KernelTaint.h"
#include "packages/platform/MemoryPopulation.h"
#include "packages/platform/PcieLinks.h"
#include "packages/platform/UniformProcessors.h"

namespace TarvexDiags::Platform {
namespace {

using Common::judged;
using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::quickable;
using PackageKit::required;
using PackageKit::Seconds;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::TestRow;
using PackageKit::Verdict;

constexpr auto kLooks = required<std::uint64_t>("Looks");
constexpr auto kLookSeconds = required<Seconds>("LookSeconds");
constexpr auto kClockSeconds = quickable<std::uint64_t>("ClockSeconds");

// The parts, by the last component of their tags.
constexpr const char* kLinks = "pcie-links";
constexpr const char* kProcessors = "processors";
constexpr const char* kModules = "memory-modules";
constexpr const char* kDisks = "disks";
constexpr const char* kClocks = "clocks";
constexpr const char* kPartProperty = "part";

struct Part {
  const char* part;
  const char* name;
};

constexpr Part kParts[] = {{kLinks, "PCI Express links"},
                           {kProcessors, "Processors"},
                           {kModules, "Memory modules"},
                           {kDisks, "Disks"},
                           {kClocks, "Clocks"}};

std::vector<Device> findParts(const Environment& environment) {
  const std::string root = Common::systemRootOf(environment);
  std::vector<Device> devices;
  for (const Part& part : kParts) {
    Device device;
    device.name = part.name;
    device.resourceTag = environment.parentTag() + "/" + part.part;
    device.properties = {{kPartProperty, part.part}, {Common::kSystemRootProperty, root}};
    devices.push_back(std::move(device));
  }
  return devices;
}

/// Rules that take no time are applied beforehand, to nobody's ears, to hear whether they can be.
class SilentJournal : public RunJournal {
 public:
  void report(unsigned int /*code*/, std::vector<std::string> /*parameters*/) override {}
  void progress(unsigned int /*percent*/) override {}
  bool stopRequested() override { return false; }
};

using Rule = void (*)(const std::string& device, const SystemFiles& files, RunJournal& journal);

void judgeLinksOnce(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  judgeLinks(
      device, [&] { return readLinks(files); }, 1, [] { return true; }, journal);
}

void judgeClocksAtOnce(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  judgeClocks(device, files, std::chrono::seconds(0), kernelTime({}), journal);
}

std::function<Support(const Device&, const Environment&)> isFor(const char* part, Rule rule) {
  return [=](const Device& device, const Environment&) {
    if (device.property(kPartProperty) != part) {
      return Support::notForThisKind();
    }
    try {
      SilentJournal silence;
      rule(device.name, Common::filesOf(device), silence);
    } catch (const NotSupported& refusal) {
      return Common::unsupported(refusal);
    }
    return Support::yes();
  };
}

std::function<Verdict(TestContext&)> applied(Rule rule) {
  return [=](TestContext& context) {
    const std::string& device = context.device().name;
    return judged(context, [&](RunJournal& journal) {
      rule(device, Common::filesOf(context.device()), journal);
    });
  };
}

Verdict links(TestContext& context) {
  const std::string& device = context.device().name;
  const SystemFiles files = Common::filesOf(context.device());
  const auto between =
      std::chrono::duration_cast<std::chrono::nanoseconds>(context.value(kLookSeconds));
  const auto looks = static_cast<unsigned int>(context.value(kLooks));
  return judged(context, [&](RunJournal& journal) {
    judgeLinks(
        device, [&] { return readLinks(files); }, looks, [&] { return context.sleepFor(between); },
        journal);
    context.throwIfStopped();
  });
}

Verdict clocks(TestContext& context) {
  const std::string& device = context.device().name;
  const SystemFiles files = Common::filesOf(context.device());
  const auto watched = std::chrono::seconds(context.value(kClockSeconds));
  return judged(context, [&](RunJournal& journal) {
    const Reference reference =
        kernelTime([&](std::chrono::seconds time) { return context.sleepFor(time); });
    judgeClocks(device, files, watched, reference, journal);
    context.throwIfStopped();
  });
}

const std::vector<TestRow> kTests = {
    {.number = 1,
     .body = links,
     .reads = {kLooks, kLookSeconds},
     .support = isFor(kLinks, judgeLinksOnce)},
    {.number = 2, .body = applied(judgeProcessors), .support = isFor(kProcessors, judgeProcessors)},
    {.number = 3, .body = applied(judgePopulation), .support = isFor(kModules, judgePopulation)},
    {.number = 4, .body = applied(judgeDiskFirmware), .support = isFor(kDisks, judgeDiskFirmware)},
    {.number = 5, .body = applied(judgeTaint), .support = isFor(kProcessors, judgeTaint)},
    {.number = 6,
     .body = clocks,
     .reads = {kClockSeconds},
     .support = isFor(kClocks, judgeClocksAtOnce)},
};

}  // namespace

void define(PackageKit::Package& package) {
  package.discover(findParts);
  package.reads({Common::kSystemRoot});
  package.tests(kTests);
}

}  // namespace TarvexDiags::Platform

TARVEX_PACKAGE(package) {
  TarvexDiags::Platform::define(package);
}
