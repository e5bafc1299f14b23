// The package: a device for each interface, and the engines as its tests.

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <limits>
#include <system_error>

#include "packagekit/PackageKit.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/CpuList.h"
#include "packages/network/Capabilities.h"
#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/InterfaceRecords.h"
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
using PackageKit::OptionalSetting;
using PackageKit::optionalSetting;
using PackageKit::Package;
using PackageKit::quickable;
using PackageKit::required;
using PackageKit::Seconds;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::TestRow;
using PackageKit::Verdict;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr int kPairTest = 6;

/// @brief Codes of section DeviceStatus.
enum LinkStatus : unsigned int { LinkReady = 0, LinkWithoutCarrier = 1, LinkOff = 2, LinkGone = 3 };

// --- Devices

unsigned int statusOf(const Device& device) {
  try {
    const Link link = readLink(device.property("name"));
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

Device deviceOf(const Link& link, const std::string& parent) {
  const std::string driver = link.loopback ? "loopback" : driverOf(link);
  Device device;
  device.name = driver.empty() ? link.name : link.name + " (" + driver + ")";
  device.resourceTag = parent + "/" + link.name;
  device.disableName = link.name;
  device.properties = {{"name", link.name}, {"loopback", link.loopback ? "1" : "0"}};
  return device;
}

constexpr auto kFirstInterface = optionalSetting<std::string>("FirstInterface");
constexpr auto kSecondInterface = optionalSetting<std::string>("SecondInterface");

std::string pairSetting(const PackageKit::Settings& settings,
                        const OptionalSetting<std::string>& setting) {
  return settings.value(setting, kPairTest).value_or("");
}

constexpr auto kRecordDirectory = required<std::string>("RecordDirectory");

/// @brief Puts back what an earlier run has taken out of service and died.
void putBackWhatIsLeft(const Environment& environment) {
  try {
    const InterfaceRecords records(environment.settings.value(kRecordDirectory, kPairTest));
    for (const std::string& line : records.restore()) {
      environment.log(line);
    }
  } catch (const PackageKit::UnusableSetting& error) {
    environment.log(error.what());  // the test that needs it says so too
  }
}

/// @brief The interfaces with something to test, and the two that are to be tested as a pair.
std::vector<Device> findDevices(const Environment& environment) {
  const std::string first = pairSetting(environment.settings, kFirstInterface);
  const std::string second = pairSetting(environment.settings, kSecondInterface);
  putBackWhatIsLeft(environment);
  std::vector<Device> devices;
  for (const Link& link : readLinks()) {
    const std::string reason = whyNoDevice(link);
    if (reason.empty() || link.name == first || link.name == second) {
      devices.push_back(deviceOf(link, environment.parentTag()));
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
  return isLoopback(device) ? Support::yes() : unsupported(Reasons::kOwnAddressInside);
}

Support hasPartner(const Device& device, const Environment&) {
  return isLoopback(device) ? unsupported(Reasons::kLoopbackAlone) : Support::yes();
}

Support hasSelfTest(const Device& device, const Environment&) {
  try {
    if (makeLinkControl(device.property("name"))->driver().selfTests == 0) {
      return unsupported(Reasons::kNoSelfTest);
    }
  } catch (const NotSupported& reason) {
    return unsupported(reason);
  }
  return mayAdministrateNetwork() ? Support::yes() : unsupported(Reasons::kSelfTestNeedsRight);
}

Support isFirstOfPair(const Device& device, const Environment& environment) {
  const std::string first = pairSetting(environment.settings, kFirstInterface);
  const std::string second = pairSetting(environment.settings, kSecondInterface);
  if (first.empty() || second.empty()) {
    return unsupported(Reasons::kNoPairNamed);
  }
  if (device.property("name") != first) {
    return unsupported(Reasons::kTestedAtFirst);
  }
  return mayAdministrateNetwork() && mayMakeNamespaces()
             ? Support::yes()
             : unsupported(Reasons::kNamespacesNeedRight);
}

// --- What the configuration file says

constexpr auto kAllowedDrops = required<std::uint64_t>("AllowedDrops");
constexpr auto kMinimumMegabits = quickable<std::uint64_t>("MinimumMegabits");
constexpr auto kWatchMilliseconds = quickable<std::uint64_t>("WatchMilliseconds");
constexpr auto kStreamMegabytes = quickable<std::uint64_t>("StreamMegabytes");
constexpr auto kConnections = optionalSetting<std::uint64_t>("Connections");
constexpr auto kStallSeconds = required<Seconds>("StallSeconds");
constexpr auto kMinimumRate = required<double>("MinimumRate");
constexpr auto kStreamSeconds = required<Seconds>("StreamSeconds");
constexpr auto kDatagramSeconds = required<Seconds>("DatagramSeconds");
constexpr auto kDatagrams = quickable<std::uint64_t>("Datagrams");
constexpr auto kLongestDatagram = required<std::uint64_t>("LongestDatagram");
constexpr auto kCarrierSeconds = required<Seconds>("CarrierSeconds");

std::chrono::nanoseconds timeOf(Seconds seconds) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(seconds);
}

StreamOptions streamOptions(const TestContext& context, unsigned int connections,
                            std::uint64_t inFlight) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max() / kMebibyte;
  const std::uint64_t megabytes = std::min(context.value(kStreamMegabytes), kMost);
  return {.bytes = megabytes * kMebibyte / connections,
          .seed = context.seed(),
          .connections = connections,
          .inFlight = inFlight,
          .pace = {.stall = timeOf(context.value(kStallSeconds)),
                   .whole = timeOf(context.value(kStreamSeconds))},
          .minimumRate = context.value(kMinimumRate) * 1e6};
}

DatagramOptions datagramOptions(const TestContext& context) {
  DatagramOptions options{
      .datagrams = context.value(kDatagrams),
      .seed = context.seed(),
      .longest = std::clamp<std::uint64_t>(context.value(kLongestDatagram), 64, 60'000)};
  options.pace.whole = timeOf(context.value(kDatagramSeconds));
  return options;
}

/// @brief Null when the path refuses the sockets' addresses already, which is then told.
std::unique_ptr<DatagramLink> connectedOrTold(
    const std::function<std::unique_ptr<DatagramLink>()>& connect, const Path& path,
    RunJournal& journal) {
  try {
    return connect();
  } catch (const std::system_error& error) {
    Finding finding = path.notConnected(error.code().value());
    report(journal, finding.event, std::move(finding.parameters));
    return nullptr;
  }
}

/// @brief Sends the datagrams on a thread that stays on one processor: the kernel has a queue for
/// each of them, so a sender that moves overtakes itself.
void verifyInPlace(const std::function<std::unique_ptr<DatagramLink>()>& connect,
                   const DatagramOptions& options, const Path& path, RunJournal& journal) {
  std::async(std::launch::async, [&] {
    if (const int processor = sched_getcpu(); processor >= 0) {
      Common::pinThisThread(processor);
    }
    if (const auto link = connectedOrTold(connect, path, journal)) {
      verifyDatagrams(*link, options, path, journal);
    }
  }).get();
}

void measureRate(TestContext& context, const std::string& name, const StreamFigures& figures) {
  const double seconds = std::chrono::duration<double>(figures.elapsed).count();
  if (figures.isWhole && seconds > 0) {
    context.measurement(name, static_cast<double>(figures.bytes) / seconds / 1e6, "MB/s");
  }
}

CounterLimits counterLimits(const TestContext& context) {
  return {context.value(kAllowedDrops)};
}

/// @brief Runs a test with the interface's counters read before and after it.
Verdict withCounters(TestContext& context,
                     const std::function<void(const Link&, RunJournal&)>& engine) {
  const std::string name = context.property("name");
  return judged(context, [&](RunJournal& journal) {
    const Link before = readLink(name);
    engine(before, journal);
    judgeCounters(before, readLink(name), counterLimits(context), journal);
  });
}

// --- Tests

Verdict link(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const LinkLimits limits{context.value(kMinimumMegabits)};
    judgeLink(link, *makeLinkControl(link.name), limits, journal);
    constexpr std::uint64_t kHour = 3'600'000;
    const auto watch =
        std::chrono::milliseconds(std::min(context.value(kWatchMilliseconds), kHour));
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
  return judged(context, [&](RunJournal& journal) {
    runSelfTest(name, *makeLinkControl(name), true, journal);
  });
}

/// @brief The way over the loopback interface, which stays the same as long as the test runs.
Path loopbackPath(const Link& before) {
  return Path(before.name, Path::Medium::Loopback,
              [before] { requireSameLink(before, readLink(before.name)); });
}

/// @brief For all connections of one stream: never are they waited for longer than for the bytes
/// that are to follow.
ConnectLimits connectLimits(const TestContext& context, RunJournal& journal) {
  const std::chrono::nanoseconds stall = timeOf(context.value(kStallSeconds));
  return {.patience = std::make_shared<Patience>(
              std::min<std::chrono::nanoseconds>(stall, ConnectLimits::kMostPatience)),
          .stopRequested = [&journal] { return journal.stopRequested(); }};
}

Verdict loopbackStream(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const std::uint64_t processors = Common::allowedCpus().size();
    const auto connections = static_cast<unsigned int>(
        std::clamp<std::uint64_t>(context.value(kConnections).value_or(processors), 1, 64));
    const ConnectLimits limits = connectLimits(context, journal);
    const StreamFigures figures = verifyStreams(
        [&](unsigned int) { return connectOverLoopback(limits); },
        streamOptions(context, connections, std::uint64_t{256} << 10), loopbackPath(link), journal);
    measureRate(context, "streamRate", figures);
  });
}

Verdict loopbackDatagrams(TestContext& context) {
  return withCounters(context, [&](const Link& link, RunJournal& journal) {
    const Path path = loopbackPath(link);
    verifyInPlace([] { return connectDatagrams(loopbackEnd(), loopbackEnd()); },
                  datagramOptions(context), path, journal);
  });
}

/// @brief Sends a stream one way; false when nothing more is to be learned from this pair.
bool streamOneWay(TestContext& context, const End& from, const End& to, const Path& path,
                  const std::string& measurement, RunJournal& journal) {
  constexpr std::uint64_t inFlight = std::uint64_t{4} << 20;  // a long wire holds more than a cache
  const ConnectLimits limits = connectLimits(context, journal);
  const StreamFigures figures =
      verifyStreams([&](unsigned int) { return connectStream(from, to, limits); },
                    streamOptions(context, 1, inFlight), path, journal);
  measureRate(context, measurement, figures);
  return figures.isWhole;
}

void sendBetween(TestContext& context, const NamespacePair& pair, RunJournal& journal) {
  const auto presence = [&pair] { pair.requirePresence(); };
  const Path there(pair.first().name, Path::Medium::Wire, presence);
  const Path back(pair.second().name, Path::Medium::Wire, presence);
  const End first = pair.firstEnd();
  const End second = pair.secondEnd();
  // One way that is dead makes the other as good as dead: answers take it.
  if (streamOneWay(context, first, second, there, "streamRateThere", journal) &&
      streamOneWay(context, second, first, back, "streamRateBack", journal)) {
    verifyInPlace([&] { return connectDatagrams(first, second); }, datagramOptions(context), there,
                  journal);
  }
}

void judgeDamage(const std::string& interface, std::uint64_t packets, RunJournal& journal) {
  if (packets > 0) {
    report(journal, NetworkEvent::DamagedPackets, {interface, std::to_string(packets)});
  }
}

void testPair(TestContext& context, const NamespacePair& pair, RunJournal& journal) {
  const auto patience =
      std::chrono::duration_cast<std::chrono::milliseconds>(context.value(kCarrierSeconds));
  if (!pair.waitForCarrier(patience, connectLimits(context, journal).stopRequested)) {
    context.throwIfStopped();
    const Link dark = pair.first().carrier ? pair.second() : pair.first();
    report(journal, NetworkEvent::NoLink, {dark.name, dark.state});
    return;
  }
  const Link first = pair.first();
  const Link second = pair.second();
  sendBetween(context, pair, journal);
  judgeDamage(first.name, pair.damagedAtFirst(), journal);
  judgeDamage(second.name, pair.damagedAtSecond(), journal);
  judgeCounters(first, pair.first(), counterLimits(context), journal);
  judgeCounters(second, pair.second(), counterLimits(context), journal);
}

Verdict betweenInterfaces(TestContext& context) {
  const std::string first = context.property("name");
  const std::string second = pairSetting(context.settings(), kSecondInterface);
  return judged(context, [&](RunJournal& journal) {
    const InterfaceRecords records(context.value(kRecordDirectory));
    records.restore();
    const NamespacePair pair(first, second, records);
    testPair(context, pair, journal);
  });
}

// --- How long tests take, by cautious guesses

constexpr double kSecondsToStart = 0.1;

double secondsToWatch(const Device&, const Environment& environment) {
  constexpr double kMillisecondsInSecond = 1000;
  const auto watched = environment.settings.value(kWatchMilliseconds, 1, environment.isQuick);
  return static_cast<double>(watched) / kMillisecondsInSecond + kSecondsToStart;
}

double secondsToStream(const Device&, const Environment& environment) {
  constexpr double kMegabytesPerSecond = 1500;
  const auto sent = environment.settings.value(kStreamMegabytes, 4, environment.isQuick);
  return static_cast<double>(sent) / kMegabytesPerSecond + kSecondsToStart;
}

double secondsToSendDatagrams(const Device&, const Environment& environment) {
  constexpr double kDatagramsPerSecond = 100'000;
  const auto sent = environment.settings.value(kDatagrams, 5, environment.isQuick);
  return static_cast<double>(sent) / kDatagramsPerSecond + kSecondsToStart;
}

const std::vector<TestRow> kTests = {
    {.number = 1,
     .body = link,
     .reads = {kAllowedDrops, kMinimumMegabits, kWatchMilliseconds},
     .support = hasPartner,
     .estimate = secondsToWatch},
    {.number = 2, .body = onlineSelfTest, .reads = {kAllowedDrops}, .support = hasSelfTest},
    {.number = 3,
     .body = offlineSelfTest,
     .support = hasSelfTest,
     .modes = {DiagnosticMode::FACTORY}},
    {.number = 4,
     .body = loopbackStream,
     .reads = {kAllowedDrops, kStreamMegabytes, kConnections, kStallSeconds, kStreamSeconds,
               kMinimumRate},
     .support = isLoopbackInterface,
     .estimate = secondsToStream},
    {.number = 5,
     .body = loopbackDatagrams,
     .reads = {kAllowedDrops, kDatagrams, kLongestDatagram, kDatagramSeconds},
     .support = isLoopbackInterface,
     .estimate = secondsToSendDatagrams},
    {.number = kPairTest,
     .body = betweenInterfaces,
     .reads = {kAllowedDrops, kFirstInterface, kSecondInterface, kRecordDirectory, kCarrierSeconds,
               kStreamMegabytes, kStallSeconds, kStreamSeconds, kMinimumRate, kDatagrams,
               kLongestDatagram, kDatagramSeconds},
     .support = isFirstOfPair,
     .modes = {DiagnosticMode::FACTORY}},
};

}  // namespace

void define(Package& package) {
  package.discover(findDevices);
  package.status(statusOf);
  package.tests(kTests);
}

}  // namespace TarvexDiags::Network

TARVEX_PACKAGE(package) {
  TarvexDiags::Network::define(package);
}
