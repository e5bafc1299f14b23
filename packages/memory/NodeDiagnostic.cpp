#include "packages/memory/NodeDiagnostic.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "packages/common/ContextJournal.h"
#include "packages/common/CpuList.h"
#include "packages/memory/MemoryReasons.h"
#include "watch/CpuFiles.h"
#include "watch/ErrorCounters.h"

namespace TarvexDiags::Memory {

namespace {

using Common::filesOf;
using Common::RunJournal;
using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::optionalSetting;
using PackageKit::quickable;
using PackageKit::Seconds;
using PackageKit::Setting;
using PackageKit::SettingList;
using PackageKit::Settings;
using PackageKit::Support;
using PackageKit::TestContext;
using Watching::ErrorCounters;
using Watching::SystemFiles;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;

// Less than this is no test: it would stay in the caches.
constexpr std::uint64_t kLeastMegabytes = 1;

// --- Devices and settings
// --------------------------------------------------------------------------

Node nodeOf(const Device& device) {
  Node node;
  node.number = std::stoi(device.property("node", "-1"));
  node.cpus = Watching::parseCpuList(device.property("cpus"));
  node.bytes = std::stoull(device.property("bytes", "0"));
  return node;
}

/// The node's CPUs on which the process may run; for a node without CPUs, any.
std::vector<int> usableCpus(const Node& node) {
  std::vector<int> allowed = Common::allowedCpus();
  if (node.cpus.empty()) {
    return allowed;
  }
  std::vector<int> cpus;
  std::set_intersection(node.cpus.begin(), node.cpus.end(), allowed.begin(), allowed.end(),
                        std::back_inserter(cpus));
  return cpus;
}

constexpr auto kMaximumMegabytes = quickable<std::uint64_t>("MaximumMegabytes");
constexpr auto kMarginMegabytes = quickable<std::uint64_t>("MarginMegabytes");
constexpr auto kMarginPercent = quickable<std::uint64_t>("MarginPercent");
constexpr auto kRounds = quickable<std::uint64_t>("Rounds");
constexpr auto kHoldSeconds = quickable<Seconds>("HoldSeconds");
constexpr auto kDurationSeconds = quickable<Seconds>("DurationSeconds");
constexpr auto kInjectFault = optionalSetting<std::uint64_t>("InjectFault");

std::uint64_t bytesOf(std::uint64_t megabytes) {
  return std::min(megabytes, std::numeric_limits<std::uint64_t>::max() / kMebibyte) * kMebibyte;
}

SizeLimits limitsOf(const Settings& settings, int test, bool quick) {
  return {bytesOf(settings.value(kMaximumMegabytes, test, quick)),
          bytesOf(settings.value(kMarginMegabytes, test, quick)),
          static_cast<unsigned int>(
              std::min<std::uint64_t>(settings.value(kMarginPercent, test, quick), 100))};
}

int roundsOf(const Settings& settings, int test, bool quick) {
  return static_cast<int>(
      std::clamp<std::uint64_t>(settings.value(kRounds, test, quick), 1, 1000000));
}

TestOptions optionsOf(const TestContext& context, const MemoryTest& test) {
  const auto timeOf = [&](const Setting<Seconds>& setting) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(context.value(setting));
  };
  TestOptions options;
  options.seed = context.seed();
  options.quick = context.quickMode();
  options.rounds = roundsOf(context.settings(), test.number, context.quickMode());
  if (test.holds) {
    options.hold = timeOf(kHoldSeconds);
  }
  if (test.lasts) {
    options.duration = timeOf(kDurationSeconds);
  }
  return options;
}

// --- The region of a pass
// --------------------------------------------------------------------------

/// The threads and the memory, for as long as the tests of a pass want the same.
struct Workbench {
  explicit Workbench(const std::vector<int>& cpus) : team(cpus) {}

  Team team;
  std::unique_ptr<Region> region;
  int node = -1;
  bool isReady = false;  ///< false: given up half-way
};

std::unique_ptr<Workbench>& keptWorkbench() {
  static std::unique_ptr<Workbench> kept;
  return kept;
}

std::string megabytes(std::uint64_t bytes) {
  return std::to_string(bytes / kMebibyte);
}

// --- What the engine reports
// -----------------------------------------------------------------------

std::string hexadecimal(std::uint64_t word) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%016llx", static_cast<unsigned long long>(word));
  return text;
}

/// Tokens, which the client has translated as it fills the message's variables.
std::string tokenOf(FaultKind kind) {
  switch (kind) {
    case FaultKind::ReadDisturbance:
      return "READ_DISTURBANCE";
    case FaultKind::FlippedContent:
      return "FLIPPED_CONTENT";
    case FaultKind::StuckBit:
      return "STUCK_BIT";
  }
  return "";
}

class ContextObserver : public Observer {
 public:
  ContextObserver(TestContext& context, RunJournal& journal, ErrorCounters before)
      : m_context(context), m_journal(journal), m_before(std::move(before)) {}

  bool stopRequested() override {
    return m_context.stopRequested() || (m_found && m_context.haltOnError());
  }

  void progress(double share) override {
    m_context.progress(static_cast<unsigned int>(share * 100));
  }

  void walked(std::uint64_t bytes) override {
    m_context.processed(static_cast<double>(bytes) / 1e6, "MB");
  }

  bool wait(std::chrono::milliseconds duration) override { return m_context.sleepFor(duration); }

  void miscompare(const Miscompare& fault) override {
    m_found = true;
    m_journal.report(
        MiscompareFound,
        {m_context.device().name, hexadecimal(fault.virtualAddress), textOf(fault.physicalAddress),
         hexadecimal(fault.expected), hexadecimal(fault.found), hexadecimal(fault.differingBits()),
         tokenOf(fault.kind), hexadecimal(fault.foundAgain), fault.pattern});
  }

  void pagePoisoned(const PoisonedPage& page) override {
    m_found = true;
    m_journal.report(PageIsPoisoned, {m_context.device().name, hexadecimal(page.begin),
                                      textOf(page.physicalAddress), modulesAtFault()});
  }

 private:
  static std::string textOf(const std::optional<std::uint64_t>& address) {
    return address ? hexadecimal(*address) : std::string("UNKNOWN");
  }

  /// Those that have met an error which they could not correct since the test began.
  std::string modulesAtFault() const {
    std::string names;
    for (const auto& [name, count] :
         ErrorCounters::read(filesOf(m_context.device())).since(m_before)) {
      if (count.uncorrected > 0) {
        names += (names.empty() ? "" : ", ") + name;
      }
    }
    return names.empty() ? "UNKNOWN" : names;
  }

  TestContext& m_context;
  RunJournal& m_journal;
  const ErrorCounters m_before;
  std::atomic<bool> m_found{false};
};

void tellRemarks(const Workbench& bench, const std::string& device, RunJournal& journal) {
  std::vector<Region::Remark> remarks = bench.region->remarks();
  for (const int cpu : bench.team.refusedCpus()) {
    remarks.push_back({Reasons::kThreadNotPinned, std::to_string(cpu)});
  }
  for (const auto& [what, detail] : remarks) {
    journal.report(Remark, {device, what.token, PackageKit::Contract::inBrackets(detail)});
  }
}

/// Too little memory is reported, and then leaves nothing to test.
Workbench& workbenchFor(TestContext& context, const Node& node, RunJournal& journal,
                        Observer& observer) {
  const SizeLimits limits = limitsOf(context.settings(), context.testId(), context.quickMode());
  std::unique_ptr<Workbench>& kept = keptWorkbench();
  // What an earlier test of the pass has mapped counts as available to this one.
  const std::uint64_t held = kept != nullptr ? kept->region->bytes() : 0;
  const auto available = availableBytes(filesOf(context.device()), node);
  if (!available) {
    throw Common::NotSupported(Reasons::kAvailableUnknown);
  }
  const std::uint64_t bytes = testedBytes(*available + held, limits) / kBlockBytes * kBlockBytes;
  if (bytes < kLeastMegabytes * kMebibyte) {
    journal.report(
        TooLittleMemory,
        {context.device().name, megabytes(*available + held),
         megabytes(std::max(limits.marginBytes, *available / 100 * limits.marginPercent)) + " + " +
             std::to_string(kLeastMegabytes)});
    throw Common::NotSupported(Reasons::kTooLittleAvailable);
  }
  // A little less than could be had now is no reason to map and populate anew.
  if (kept != nullptr && kept->isReady && kept->node == node.number && held <= bytes + bytes / 4 &&
      held >= bytes - bytes / 4) {
    return *kept;
  }
  kept.reset();
  const std::vector<int> cpus = usableCpus(node);
  if (cpus.empty()) {
    throw Common::NotSupported(Reasons::kNoCpuAllowed);
  }
  auto made = std::make_unique<Workbench>(cpus);
  made->node = node.number;
  std::string reason;
  made->region = Region::map(
      bytes, node.number, made->team, [&] { return context.stopRequested(); }, reason);
  if (made->region == nullptr) {
    throw Common::NotSupported(Reasons::kNotMapped, reason);
  }
  Region& region = *made->region;
  for (const PoisonedPage& page : region.poisonedPages().takeNew()) {
    observer.pagePoisoned(page);
  }
  // Kept even half-way: who asked for a stop does not wait until all of it is given back.
  kept = std::move(made);
  context.throwIfStopped();
  kept->isReady = true;
  journal.report(RegionReady, {context.device().name, megabytes(region.bytes()),
                               std::to_string(kept->team.size()), bestKernels().name,
                               megabytes(region.lockedBytes())});
  tellRemarks(*kept, context.device().name, journal);
  return *kept;
}

/// Proves the way from a fault to the report: flips one bit before the memory is first compared.
class InjectedFault : public FaultSeam {
 public:
  explicit InjectedFault(std::uint64_t offset) : m_offset(offset) {}

  void written(const Region& region, std::size_t step) override {
    if (step == 0) {
      region.data()[m_offset % region.bytes()] ^= std::byte{1};
    }
  }

 private:
  std::size_t m_offset;
};

void reportCounters(const std::string& device, const ErrorCounters& before,
                    const ErrorCounters& after, RunJournal& journal) {
  for (const auto& [name, count] : after.since(before)) {
    if (count.uncorrected > 0) {
      journal.report(UncorrectedErrors, {device, name, std::to_string(count.uncorrected)});
    }
    if (count.corrected > 0) {
      journal.report(CorrectedErrors, {device, name, std::to_string(count.corrected)});
    }
  }
}

void reportResult(TestContext& context, const Region& region, const TestReport& report,
                  RunJournal& journal) {
  const std::string& device = context.device().name;
  const double rate =
      report.seconds > 0 ? static_cast<double>(report.bytesVerified) / report.seconds / 1e6 : 0;
  if (report.miscompares > Sweeper::kMaximumReported) {  // else each was told by itself
    journal.report(MiscompareTotal,
                   {device, std::to_string(report.miscompares), megabytes(report.bytesVerified)});
  }
  journal.report(MemoryVerified, {device, megabytes(report.bytesVerified),
                                  std::to_string(static_cast<std::uint64_t>(rate))});
  context.measurement("verifiedRate", rate, "MB/s");
  const std::uint64_t covered = std::min<std::uint64_t>(region.bytes(), report.bytesVerified);
  context.measurement("coveredBytes", static_cast<double>(covered), "B");
  context.measurement("totalBytes", static_cast<double>(nodeOf(context.device()).bytes), "B");
}

}  // namespace

PackageKit::Verdict NodeDiagnostic::run(TestContext& context) {
  const std::string& device = context.device().name;
  return Common::judged(context, [&](RunJournal& journal) {
    const Node node = nodeOf(context.device());
    const SystemFiles files = filesOf(context.device());
    const ErrorCounters before = ErrorCounters::read(files);
    ContextObserver observer(context, journal, before);
    Workbench& workbench = workbenchFor(context, node, journal, observer);
    if (!before.present()) {
      context.log(device + ": no driver counts the errors of the memory controllers");
    }
    std::optional<InjectedFault> injected;
    if (const auto offset = context.value(kInjectFault)) {
      injected.emplace(*offset);
    }
    Sweeper sweeper(*workbench.region, workbench.team, bestKernels(), observer,
                    injected ? &*injected : nullptr);
    const TestReport report = runTest(m_test, sweeper, optionsOf(context, m_test));
    reportCounters(device, before, ErrorCounters::read(files), journal);
    if (report.miscompares == 0) {
      context.throwIfStopped();
    }
    reportResult(context, *workbench.region, report, journal);
  });
}

Support NodeDiagnostic::supports(const Device& device, const Environment&) const {
  const Node node = nodeOf(device);
  if (usableCpus(node).empty()) {
    return Common::unsupported(Reasons::kNoCpuAllowed);
  }
  if (!availableBytes(filesOf(device), node)) {
    return Common::unsupported(Reasons::kAvailableUnknown);
  }
  return Support::yes();
}

double NodeDiagnostic::estimate(const Device& device, const Environment& environment) const {
  const Settings& settings = environment.settings;
  const int test = m_test.number;
  const bool isQuick = environment.isQuick;
  const auto available = availableBytes(filesOf(device), nodeOf(device));
  const std::uint64_t bytes = testedBytes(available.value_or(0), limitsOf(settings, test, isQuick));
  // Between what two cores verify in a second with nothing beside them and with tests of their own,
  // on machines of the last ten years. Populating costs as much as five walks, but the tests that
  // follow one another on a node share what the first of them populated.
  constexpr double kBytesPerSecond = 6e9;
  constexpr double kPopulatingWalks = 2;
  const double walk = static_cast<double>(bytes) / kBytesPerSecond;
  const double rounds = m_test.lasts ? 1 : roundsOf(settings, test, isQuick);
  double walking = walk * (isQuick ? m_test.quickWalks : m_test.walks) * rounds;
  if (m_test.holds) {
    walking += 2 * rounds * settings.value(kHoldSeconds, test, isQuick).count();
  }
  if (m_test.lasts) {
    walking = std::max(walking, settings.value(kDurationSeconds, test, isQuick).count());
  }
  constexpr double kStart = 0.1;
  return walk * kPopulatingWalks + walking + kStart;
}

SettingList settingsOf(const MemoryTest& test) {
  SettingList settings = {kMaximumMegabytes, kMarginMegabytes, kMarginPercent, kRounds,
                          kInjectFault};
  if (test.holds) {
    settings.push_back(kHoldSeconds);
  }
  if (test.lasts) {
    settings.push_back(kDurationSeconds);
  }
  return settings;
}

std::vector<Device> findNodeDevices(const Environment& environment) {
  const std::string root = Common::systemRootOf(environment);
  const std::string parent = environment.parentTag();
  std::vector<Device> devices;
  for (const Node& node : findNodes(SystemFiles(root))) {
    Device device;
    device.name = node.number < 0 ? "Memory" : "Memory of node " + std::to_string(node.number);
    device.resourceTag = parent + "/" + node.tagComponent();
    device.disableName = node.tagComponent();
    std::string cpus;
    for (const int cpu : node.cpus) {
      cpus += (cpus.empty() ? "" : ",") + std::to_string(cpu);
    }
    device.properties = {{"node", std::to_string(node.number)},
                         {"cpus", cpus},
                         {"bytes", std::to_string(node.bytes)},
                         {Common::kSystemRootProperty, root}};
    devices.push_back(std::move(device));
  }
  return devices;
}

}  // namespace TarvexDiags::Memory
