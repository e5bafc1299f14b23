// The package: a device for each interface, and the engines as its tests.

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <system_error>

#include "packagekit/PackageKit.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/CpuList.h"
#include "packages/network/Capabilities.h"
#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/LinkDiagnostics.h"
#include "packages/network/Links.h"
#include "packages/network/NamespacePair.h"
#include "packages/network/Sockets.h"
#include "packages/network/StreamDiagnostic.h"

namespace TarvexDiags::Network {
namespace {

using Common::judged;
using PackageKit::Device;
using PackageKit::DiagnosticMode;
using PackageKit::Environment;
using PackageKit::Package;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::Verdict;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr int kPairTest = 6;

/// @brief Codes of section DeviceStatus.
enum LinkStatus : unsigned int { LinkReady = 0, LinkWithoutCarrier = 1, LinkOff = 2, LinkGone = 3 };

// --- Devices

unsigned int statusOf(const std::string& name) {
  try {
    const Link link = readLink(name);
    if (!link.up) {
      return LinkOff;
    }
    return link.carrier ? LinkReady : LinkWithoutCarrier;
  } catch (const std::system_error&) {
    return LinkGone;
  }
}

std::string driverOf(const Link& link) {
  try {
    return makeLinkControl(link.name)->driver().driver;
  } catch (const NotSupported&) {
    return {};
  }
}

Device deviceOf(const Link& link, const std::string& root) {
  const std::string driver = link.loopback ? "loopback" : driverOf(link);
  Device device;
  device.name = driver.empty() ? link.name : link.name + " (" + driver + ")";
  device.resourceTag = (root.empty() ? "host" : root) + "/" + link.name;
  device.disableName = link.name;
  device.properties = {{"name", link.name}, {"loopback", link.loopback ? "1" : "0"}};
  device.status = [name = link.name] { return statusOf(name); };
  return device;
}

std::string pairSetting(const PackageKit::Settings& settings, const std::string& key) {
  return settings.test(kPairTest, key).value_or("");
}

/// @brief The interfaces with something to test, and the two that are to be tested as a pair.
std::vector<Device> findDevices(const Environment& environment) {
  const std::string first = pairSetting(environment.settings, "FirstInterface");
  const std::string second = pairSetting(environment.settings, "SecondInterface");
  std::vector<Device> devices;
  for (const Link& link : readLinks()) {
    const std::string reason = whyNoDevice(link);
    if (reason.empty() || link.name == first || link.name == second) {
      devices.push_back(deviceOf(link, environment.resourceString));
    } else {
      environment.log(link.name + " is left out: it " + reason);
    }
  }
  return devices;
}

// --- What each test needs

bool isLoopback(const Device& device) {
  return device.property("loopback") == "1";
}

Support isLoopbackInterface(const Device& device, const Environment&) {
  return isLoopback(device) ? Support::yes()
                            : Support::no("its own address is never reached over the interface");
}

Support hasPartner(const Device& device, const Environment&) {
  return isLoopback(device) ? Support::no("the loopback interface has no partner") : Support::yes();
}

Support hasSelfTest(const Device& device, const Environment&) {
  try {
    if (makeLinkControl(device.property("name"))->driver().selfTests == 0) {
      return Support::no("the driver has no self-test");
    }
  } catch (const NotSupported& reason) {
    return Support::no(reason.what());
  }
  return mayAdministrateNetwork() ? Support::yes()
                                  : Support::no("the driver's self-test needs CAP_NET_ADMIN");
}

Support isFirstOfPair(const Device& device, const Environment& environment) {
  const std::string first = pairSetting(environment.settings, "FirstInterface");
  const std::string second = pairSetting(environment.settings, "SecondInterface");
  if (first.empty() || second.empty()) {
    return Support::no("the configuration names no two interfaces");
  }
  if (device.property("name") != first) {
    return Support::no("the pair is tested as a whole, at its first interface");
  }
  return mayAdministrateNetwork() && mayMakeNamespaces()
             ? Support::yes()
             : Support::no("namespaces need CAP_NET_ADMIN and CAP_SYS_ADMIN");
}

// --- Settings

std::uint64_t amount(const TestContext& context, const std::string& key, long full, long quick) {
  const long value = context.quickMode() ? context.settingInteger("Quick" + key, quick)
                                         : context.settingInteger(key, full);
  return static_cast<std::uint64_t>(std::max(value, 0L));
}

StreamOptions streamOptions(const TestContext& context, unsigned int connections,
                            std::uint64_t inFlight) {
  StreamOptions options;
  options.connections = connections;
  options.bytes = amount(context, "StreamMegabytes", 8192, 512) * kMebibyte / connections;
  options.seed = context.seed();
  options.inFlight = inFlight;
  options.stall = std::chrono::milliseconds(
      static_cast<long>(context.settingNumber("StallSeconds", 10) * 1000));
  options.minimumRate = context.settingNumber("MinimumRate", 0) * 1e6;
  return options;
}

DatagramOptions datagramOptions(const TestContext& context, long longest) {
  DatagramOptions options;
  options.datagrams = amount(context, "Datagrams", 200'000, 20'000);
  options.seed = context.seed();
  options.longest = static_cast<std::size_t>(
      std::clamp(context.settingInteger("LongestDatagram", longest), 64L, 60'000L));
  return options;
}

/// @brief Sends the datagrams on a thread that stays on one processor: the kernel has a queue for
/// each of them, so a sender that moves overtakes itself.
void verifyInPlace(DatagramLink& path, const DatagramOptions& options, const std::string& interface,
                   RunJournal& journal) {
  std::async(std::launch::async, [&] {
    if (const int processor = sched_getcpu(); processor >= 0) {
      Common::pinThisThread(processor);
    }
    verifyDatagrams(path, options, interface, journal);
  }).get();
}

void measureRate(TestContext& context, const std::string& name, const StreamFigures& figures) {
  const double seconds = std::chrono::duration<double>(figures.elapsed).count();
  if (seconds > 0) {
    context.measurement(name, static_cast<double>(figures.bytes) / seconds / 1e6, "MB/s");
  }
}

CounterLimits counterLimits(const TestContext& context) {
  return {static_cast<std::uint64_t>(std::max(context.settingInteger("AllowedDrops", 10), 0L))};
}

/// @brief Runs a test with the interface's counters read before and after it.
Verdict withCounters(TestContext& context,
                     const std::function<void(const Link&, RunJournal&)>& engine) {
  const std::string name = context.property("name");
  return judged(context, name, [&](RunJournal& journal) {
    const Link before = readLink(name);
    engine(before, journal);
    judgeCounters(before, readLink(name), counterLimits(context), journal);
  });
}

// --- Tests

Verdict link(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const LinkLimits limits{static_cast<unsigned int>(amount(context, "MinimumMegabits", 0, 0))};
    judgeLink(link, *makeLinkControl(link.name), limits, journal);
    const auto watch = std::chrono::milliseconds(amount(context, "WatchMilliseconds", 3000, 300));
    context.sleepFor(watch);  // for the counters, and for a carrier that comes and goes
  });
}

Verdict onlineSelfTest(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    runSelfTest(link.name, *makeLinkControl(link.name), false, journal);
  });
}

Verdict offlineSelfTest(TestContext& context) {
  // Without counters: the test takes the interface down, and its own traffic is meant to fail.
  const std::string name = context.property("name");
  return judged(context, name, [&](RunJournal& journal) {
    runSelfTest(name, *makeLinkControl(name), true, journal);
  });
}

Verdict loopbackStream(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const long processors = static_cast<long>(Common::allowedCpus().size());
    const auto connections = static_cast<unsigned int>(
        std::clamp(context.settingInteger("Connections", processors), 1L, 64L));
    const StreamFigures figures = verifyStreams(
        [](unsigned int) { return connectOverLoopback(); },
        streamOptions(context, connections, std::uint64_t{256} << 10), link.name, journal);
    measureRate(context, "streamRate", figures);
  });
}

Verdict loopbackDatagrams(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const auto path = connectDatagrams(loopbackEnd(), loopbackEnd());
    verifyInPlace(*path, datagramOptions(context, 4096), link.name, journal);
  });
}

void streamBetween(TestContext& context, const NamespacePair& pair, RunJournal& journal) {
  constexpr std::uint64_t inFlight = std::uint64_t{4} << 20;  // a long wire holds more than a cache
  const StreamOptions options = streamOptions(context, 1, inFlight);
  const auto there = [&](unsigned int) { return connectStream(pair.firstEnd(), pair.secondEnd()); };
  const auto back = [&](unsigned int) { return connectStream(pair.secondEnd(), pair.firstEnd()); };
  const std::string second = pairSetting(context.settings(), "SecondInterface");
  measureRate(context, "streamRateThere",
              verifyStreams(there, options, context.property("name"), journal));
  measureRate(context, "streamRateBack", verifyStreams(back, options, second, journal));
  const auto path = connectDatagrams(pair.firstEnd(), pair.secondEnd());
  verifyInPlace(*path, datagramOptions(context, 1472), context.property("name"), journal);
}

Verdict betweenInterfaces(TestContext& context) {
  const std::string first = context.property("name");
  const std::string second = pairSetting(context.settings(), "SecondInterface");
  return judged(context, first, [&](RunJournal& journal) {
    const NamespacePair pair(first, second);
    const auto patience = std::chrono::milliseconds(
        static_cast<long>(context.settingNumber("CarrierSeconds", 10) * 1000));
    if (!pair.waitForCarrier(patience)) {
      const Link dark = pair.first().carrier ? pair.second() : pair.first();
      report(journal, NetworkEvent::NoLink, {dark.name, dark.state});
      return;
    }
    const Link firstBefore = pair.first();
    const Link secondBefore = pair.second();
    streamBetween(context, pair, journal);
    judgeCounters(firstBefore, pair.first(), counterLimits(context), journal);
    judgeCounters(secondBefore, pair.second(), counterLimits(context), journal);
  });
}

}  // namespace

void define(Package& package) {
  package.discover(findDevices);
  package.test(1, link).supportedWhen(hasPartner);
  package.test(2, onlineSelfTest).supportedWhen(hasSelfTest);
  package.test(3, offlineSelfTest).supportedWhen(hasSelfTest).onlyIn({DiagnosticMode::FACTORY});
  package.test(4, loopbackStream).supportedWhen(isLoopbackInterface);
  package.test(5, loopbackDatagrams).supportedWhen(isLoopbackInterface);
  package.test(kPairTest, betweenInterfaces)
      .supportedWhen(isFirstOfPair)
      .onlyIn({DiagnosticMode::FACTORY});
}

}  // namespace TarvexDiags::Network

TARVEX_PACKAGE(package) {
  TarvexDiags::Network::define(package);
}
