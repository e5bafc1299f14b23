#include "packages/processor/CoreDiagnostic.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "packagekit/contract/Texts.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/CpuList.h"
#include "packages/processor/CoreHold.h"
#include "packages/processor/Cores.h"
#include "packages/processor/ProcessorReasons.h"
#include "watch/HealthCounters.h"

namespace TarvexDiags::Processor {

namespace {

using Common::filesOf;
using Common::RunJournal;
using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::optionalSetting;
using PackageKit::quickable;
using PackageKit::Seconds;
using PackageKit::SettingList;
using PackageKit::Support;
using PackageKit::TestContext;
using Watching::HealthCounters;
using Watching::SystemFiles;
using Watching::Trouble;

constexpr auto kDurationSeconds = quickable<Seconds>("DurationSeconds");
constexpr auto kInjectFault = optionalSetting<std::string>("InjectFault");

int coreOf(const Device& device) {
  return std::stoi(device.property("core", "0"));
}

bool isAllowed(int core) {
  const std::vector<int> allowed = Common::allowedCpus();
  return std::find(allowed.begin(), allowed.end(), core) != allowed.end();
}

int partnerOf(const Device& device) {
  return partnerOf(coreOf(device), findCores(filesOf(device)), Common::allowedCpus());
}

class ContextObserver : public Observer {
 public:
  ContextObserver(TestContext& context, RunJournal& journal)
      : m_context(context), m_journal(journal) {}

  bool stopRequested() override { return m_journal.stopRequested(); }
  void progress(double share) override {
    m_context.progress(static_cast<unsigned int>(share * 100));
  }
  void checked(std::uint64_t results) override {
    m_context.processed(static_cast<double>(results), "results");
  }
  void wrongResult(const WrongResult& result) override {
    m_journal.report(WrongResultFound,
                     {m_context.device().name, std::to_string(result.core), result.instructionClass,
                      result.operands, result.expected, result.found});
  }
  void coresDisagree(const Disagreement& disagreement) override {
    std::string results;
    for (const Agreement::Vote& vote : disagreement.votes) {
      results += (results.empty() ? "" : ", ") + std::to_string(vote.core) + " (" +
                 hexadecimal(vote.result) + ")";
    }
    m_journal.report(CoresDisagree, {m_context.device().name, disagreement.instructionClass,
                                     std::to_string(disagreement.seed), results});
  }
  void rest(std::chrono::milliseconds duration) override { m_context.sleepFor(duration); }

 private:
  TestContext& m_context;
  RunJournal& m_journal;
};

/// Proves the way from a wrong result to the report: spoils one result of an instruction class.
class InjectedFault : public ResultSeam {
 public:
  explicit InjectedFault(std::string instructionClass) : m_class(std::move(instructionClass)) {}

  void computed(const std::string& instructionClass, std::span<std::uint64_t> results) override {
    if (!m_done && instructionClass == m_class && !results.empty()) {
      results.front() ^= 1;
      m_done = true;
    }
  }

 private:
  std::string m_class;
  bool m_done = false;
};

unsigned int codeOf(Trouble trouble) {
  switch (trouble) {
    case Trouble::Throttling:
      return Throttled;
    case Trouble::Corrected:
      return ErrorsCorrected;
    case Trouble::MachineCheck:
      return MachineChecks;
  }
  return MachineChecks;
}

void reportCounters(const std::string& device, const HealthCounters& before,
                    const HealthCounters& after, RunJournal& journal) {
  for (const auto& [name, count] : after.since(before)) {
    journal.report(codeOf(count.trouble), {device, name, std::to_string(count.value)});
  }
}

void reportResult(TestContext& context, const TestReport& report, std::size_t classes,
                  RunJournal& journal) {
  const std::string& device = context.device().name;
  const double share = report.seconds > 0 ? 100 * report.verifiedSeconds / report.seconds : 100;
  if (report.wrongResults > Verifier::kMaximumReported) {  // else each was told by itself
    journal.report(WrongResultTotal, {device, std::to_string(report.wrongResults),
                                      std::to_string(report.checkedResults)});
  }
  journal.report(CoreVerified, {device, std::to_string(report.checkedResults),
                                std::to_string(classes), std::to_string(std::lround(share))});
  context.measurement("verifiedShare", share, "%");
  context.measurement("verifiedTime", report.verifiedSeconds, "s");
  context.measurement("resultsCompared", static_cast<double>(report.checkedResults));
  context.measurement("coveredCores", 1);
}

void reportMissing(const std::string& device, const ProcessorTest& test, RunJournal& journal) {
  std::string names;
  for (const std::string& name : missingChecks(test)) {
    names += (names.empty() ? "" : PackageKit::Contract::kBetweenWords) + name;
  }
  if (!names.empty()) {
    journal.report(ClassesMissing, {device, names});
  }
}

}  // namespace

PackageKit::Verdict CoreDiagnostic::run(TestContext& context) {
  try {
    return tested(context);
  } catch (const CoreTakenAway& reason) {
    if (reason.core() == coreOf(context.device())) {
      throw PackageKit::TakenAway(Reasons::kCoreTakenAway.token);
    }
    context.warning(PartnerLost, {context.device().name, std::to_string(reason.core())});
    throw PackageKit::TakenAway(Reasons::kPartnerTakenAway.token);
  }
}

PackageKit::Verdict CoreDiagnostic::tested(TestContext& context) const {
  const std::string& device = context.device().name;
  return Common::judged(context, [&](RunJournal& journal) {
    const int core = coreOf(context.device());
    const int partner = partnerOf(context.device());
    const std::vector<int> voters = votersBeside(core, Common::allowedCpus());
    const CoreHold hold(core);
    const SystemFiles files = filesOf(context.device());
    const HealthCounters before = HealthCounters::read(files, core);
    if (!before.present()) {
      context.log(device +
                  ": the kernel counts neither throttling nor machine checks of this core");
    }
    const std::optional<std::string> injected = context.value(kInjectFault);
    InjectedFault fault(injected.value_or(""));
    ContextObserver observer(context, journal);
    Verifier verifier(core, partner, context.seed(), observer, injected ? &fault : nullptr);
    verifier.requireHold(hold);
    verifier.setVoters(voters);
    const auto duration =
        std::chrono::duration_cast<std::chrono::milliseconds>(context.value(kDurationSeconds));
    const TestReport report = runTest(m_test, verifier, duration);
    hold.requireAlone();
    reportCounters(device, before, HealthCounters::read(files, core), journal);
    if (report.wrongResults == 0) {
      context.throwIfStopped();
    }
    reportMissing(device, m_test, journal);
    reportResult(context, report, availableChecks(m_test).size(), journal);
  });
}

Support CoreDiagnostic::supports(const Device& device, const Environment&) const {
  const int core = coreOf(device);
  if (!isAllowed(core)) {
    return Common::unsupported(Reasons::kCoreForbidden);
  }
  if (availableChecks(m_test).empty()) {
    return Common::unsupported(Reasons::kNoInstructions);
  }
  if (m_test.needs == Needs::Partner && partnerOf(device) < 0) {
    return Common::unsupported(Reasons::kNoOtherCore);
  }
  if (m_test.needs == Needs::Counters && !HealthCounters::read(filesOf(device), core).present()) {
    return Common::unsupported(Reasons::kNoCounters);
  }
  return Support::yes();
}

double CoreDiagnostic::estimate(const Device&, const Environment& environment) const {
  constexpr double kAround = 0.1;  // to start, and to end a round
  return environment.settings.value(kDurationSeconds, m_test.number, environment.isQuick).count() +
         kAround;
}

SettingList coreSettings() {
  return {kDurationSeconds, kInjectFault};
}

std::vector<Device> findCoreDevices(const Environment& environment) {
  const std::string root = Common::systemRootOf(environment);
  const std::string parent = environment.parentTag();
  std::vector<Device> devices;
  for (const Core& core : findCores(SystemFiles(root))) {
    const std::string component = "cpu" + std::to_string(core.number);
    Device device;
    device.name = "Core " + std::to_string(core.number);
    if (!core.model.empty()) {
      device.name += " (" + core.model + ")";
    }
    device.resourceTag = parent + "/" + component;
    device.disableName = component;
    device.properties = {{"core", std::to_string(core.number)},
                         {"package", std::to_string(core.package)},
                         {"physicalCore", std::to_string(core.physicalCore)},
                         {"model", core.model},
                         {Common::kSystemRootProperty, root}};
    devices.push_back(std::move(device));
  }
  return devices;
}

}  // namespace TarvexDiags::Processor
