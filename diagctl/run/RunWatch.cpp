#include "diagctl/run/RunWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "diagctl/run/FindingText.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/KitCodes.h"
#include "watch/NodeFiles.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Watching::Finding;
using Clock = std::chrono::steady_clock;

// A disk that is dying may hold a look up; the run goes on.
constexpr std::chrono::milliseconds kLongestLook(500);
// A beginning is told up to so much later than it was.
constexpr std::chrono::milliseconds kBeginSlack(100);
// A value that stays is told so often.
constexpr std::chrono::seconds kLongestSilence(60);
// So many times as often as was told is worth telling again.
constexpr std::uint64_t kMany = 10;

// "net" for "net:eth0".
std::string sortOf(const std::string& resource) {
  return resource.substr(0, resource.find(':'));
}

bool isNumbered(const std::string& name, const std::string& prefix) {
  return name.size() > prefix.size() && name.starts_with(prefix) &&
         name.find_first_not_of("0123456789", prefix.size()) == std::string::npos;
}

// "0-3,8" as the kernel writes the processors of a node.
std::vector<std::string> processorsOf(const Watching::SystemFiles& files, const std::string& node) {
  std::vector<std::string> resources;
  for (const int cpu : files.numberedEntries(Watching::kNodesFolder / node, "cpu")) {
    resources.push_back("cpu:" + std::to_string(cpu));
  }
  return resources;
}

/// In the reader's language; what the system says is told as it does.
std::string toldReason(const std::string& reason) {
  const std::size_t words = std::min(reason.find(": "), reason.size());
  return told(reason.substr(0, words)) + reason.substr(words);
}

}  // namespace

std::vector<std::string> resourcesOf(const std::string& tag, const Watching::SystemFiles& files) {
  const std::string name = tag.substr(tag.rfind('/') + 1);
  if (isNumbered(name, "cpu")) {
    return {"cpu:" + name.substr(3)};
  }
  if (isNumbered(name, "node")) {
    // A test of memory runs on the processors beside it, which tell of its errors.
    std::vector<std::string> resources = processorsOf(files, name);
    resources.push_back("memory:" + name.substr(4));
    return resources;
  }
  if (name.empty()) {
    return {};
  }
  for (const auto& [kind, folder] :
       {std::pair("block:", "sys/class/block"), std::pair("block:", "sys/block"),
        std::pair("net:", "sys/class/net"), std::pair("nvme:", "sys/class/nvme"),
        std::pair("pci:", "sys/bus/pci/devices")}) {
    if (files.exists(std::filesystem::path(folder) / name)) {
      return {kind + name};
    }
  }
  return {};
}

/// Holds what the thread of the watch tells until the run asks.
class RunWatch::Inbox : public Watching::WatchSink {
 public:
  void found(const Finding& finding) override {
    const std::lock_guard hold(m_lock);
    m_findings.push_back(finding);
  }
  void sampled(const Watching::Sample& sample) override {
    const std::lock_guard hold(m_lock);
    if (m_samples.size() < kMostSamples) {
      m_samples.push_back(sample);
    }
  }
  void absent(Watching::SourceKind source, const std::string& reason) override {
    const std::lock_guard hold(m_lock);
    m_absent.emplace_back(source, reason);
  }

  std::vector<Finding> takeFindings() {
    const std::lock_guard hold(m_lock);
    return std::exchange(m_findings, {});
  }
  std::vector<Watching::Sample> takeSamples() {
    const std::lock_guard hold(m_lock);
    return std::exchange(m_samples, {});
  }
  std::vector<std::pair<Watching::SourceKind, std::string>> takeAbsent() {
    const std::lock_guard hold(m_lock);
    return std::exchange(m_absent, {});
  }

 private:
  // More than a large machine has sensors: what a run that hangs does not ask for is not kept.
  static constexpr std::size_t kMostSamples = 10'000;

  std::mutex m_lock;
  std::vector<Finding> m_findings;
  std::vector<Watching::Sample> m_samples;
  std::vector<std::pair<Watching::SourceKind, std::string>> m_absent;
};

RunWatch::RunWatch(const WatchWishes& wishes, const std::string& language, const RunRecord& record,
                   MachineWatch& machine, VanishedAs vanished, Tell tell, const char* during)
    : m_wishes(wishes),
      m_texts(language),
      m_record(record),
      m_machine(machine),
      m_vanished(vanished),
      m_tell(std::move(tell)),
      m_during(during),
      m_files(wishes.root),
      m_attribution(Watching::Topology(m_files), wishes.settle),
      m_inbox(std::make_unique<Inbox>()) {}

RunWatch::~RunWatch() = default;

void RunWatch::start() {
  if (m_wishes.settings.sources.empty()) {
    return;
  }
  try {
    m_watch = std::make_unique<Watching::Watch>(m_files, m_wishes.settings, *m_inbox);
    m_watch->start();
  } catch (const std::system_error& failure) {
    m_watch.reset();
    m_tell(RunMessage{Severity::Warning, tr("The machine is not watched: {}.", failure.what())});
  }
  tellAbsent();
}

// The reasons are for who looks into the log.
void RunWatch::tellAbsent() {
  std::vector<std::string> names;
  for (const auto& [source, reason] : m_inbox->takeAbsent()) {
    names.emplace_back(Watching::nameOf(source));
    m_tell(
        RunMessage{Severity::Debug, tr("Not watched: {}: {}.", names.back(), toldReason(reason))});
  }
  if (!names.empty()) {
    m_tell(RunMessage{Severity::Information,
                      tr("Not watched on this machine: {}.", fmt::join(names, ", "))});
  }
}

void RunWatch::begin(const std::string& stepId, const SelectedPair& pair,
                     const std::set<std::string>& provoked) {
  if (m_watch == nullptr) {
    return;
  }
  if (m_tests.empty()) {
    m_firstBegin = Clock::now();
  }
  m_tests[stepId] = pair.test->name;
  const std::vector<std::string> resources = resourcesOf(pair.device->tag, m_files);
  if (!provoked.empty()) {
    Provocation& provocation = m_provoked[stepId];
    provocation.kinds = provoked;
    for (const std::string& resource : resources) {
      provocation.sorts.insert(sortOf(resource));
    }
  }
  const bool isOnDisk = std::any_of(resources.begin(), resources.end(), [](const auto& resource) {
    return sortOf(resource) == "block" || sortOf(resource) == "nvme";
  });
  if (isOnDisk) {
    m_onDisks.insert(stepId);
  }
  m_attribution.begin(stepId, resources, std::chrono::system_clock::now() - kBeginSlack);
}

void RunWatch::end(const std::string& stepId, bool hasVanished) {
  if (m_watch == nullptr || !m_tests.contains(stepId)) {
    return;
  }
  // A disk that raises a warning under its own test has not passed it.
  const bool isOnDisk = m_onDisks.erase(stepId) > 0;
  m_watch->look(kLongestLook,
                isOnDisk ? Watching::Watch::Disks::Asked : Watching::Watch::Disks::Left);
  m_attribution.end(stepId, std::chrono::system_clock::now());
  collect();
  const auto vanishing = m_vanishing.extract(stepId);
  if (!vanishing.empty() && !hasVanished && isOpen(stepId)) {
    const FindingText text = textOf(vanishing.mapped().front(), m_texts, duringOf({stepId}), 1);
    const StepRecord& step = *m_record.find(stepId);
    m_tell(judged(StepTrouble{stepId,
                              std::string(PackageKit::Contract::symptomOfTrouble(
                                  PackageKit::DEVICE_VANISHED)),
                              text.message, text.action},
                  step.start, 0, m_vanished));
  }
  tellRest(stepId);
}

void RunWatch::collect() {
  if (m_watch == nullptr) {
    return;
  }
  for (Finding& finding : m_inbox->takeFindings()) {
    take(std::move(finding));
  }
  for (const Watching::Sample& sample : m_inbox->takeSamples()) {
    tell(sample);
  }
  tellMore(std::chrono::system_clock::now());
}

void RunWatch::finish(bool mayWait) {
  if (m_watch == nullptr) {
    return;
  }
  if (mayWait) {
    settle();
  }
  m_watch->stop();
  collect();
  for (const auto& [stepId, findings] : std::exchange(m_vanishing, {})) {
    tellVanished(findings.front(), {});
  }
  tellRest(MachineWatch::kStep);
  endSeries();
}

// The kernel asks memory controllers once in a second, and processors as often as it is asked to.
void RunWatch::settle() const {
  const bool tellsLate = m_files.exists("sys/devices/system/edac/mc/mc0") ||
                         m_wishes.correctedErrorInterval.has_value();
  const auto ran = m_tests.empty() ? Clock::duration() : Clock::now() - m_firstBegin;
  if (tellsLate) {
    std::this_thread::sleep_for(std::min<Clock::duration>(m_wishes.settle, ran));
  }
}

bool RunWatch::isOpen(const std::string& stepId) const {
  const StepRecord* const step = m_record.find(stepId);
  return step != nullptr && !step->hasEnded();
}

std::string RunWatch::duringOf(const std::vector<std::string>& tests) const {
  std::string names;
  for (const std::string& test : tests) {
    names += (names.empty() ? "" : ", ") + m_tests.at(test);
  }
  return names.empty() ? m_texts.text(m_during) : names;
}

// On its own device, and on others of the sort: a test of a cable takes both its ends.
bool RunWatch::isProvoked(const Finding& finding) const {
  return std::any_of(m_provoked.begin(), m_provoked.end(), [&](const auto& entry) {
    return isOpen(entry.first) && entry.second.kinds.contains(Watching::nameOf(finding.kind)) &&
           entry.second.sorts.contains(sortOf(finding.device));
  });
}

void RunWatch::take(Finding finding) {
  // No test of this run has to do with it; but nobody has told it yet.
  if (finding.isBefore) {
    tell(MachineWatch::kStep, {}, finding);
    return;
  }
  const std::vector<std::string> tests = m_attribution.testsOf(finding);
  const bool isOfTest = isProvoked(finding);
  if (isOfTest) {
    finding.severity = Watching::Severity::Information;
  }
  if (finding.kind == Watching::Kind::DeviceVanished && !isOfTest) {
    tellVanished(finding, tests);
    return;
  }
  const bool isOfStep = tests.size() == 1 && isOpen(tests.front());
  tell(isOfStep ? tests.front() : MachineWatch::kStep, tests, finding);
}

// The test itself may be about to find it, and it is told once.
void RunWatch::tellVanished(const Finding& finding, const std::vector<std::string>& tests) {
  for (const std::string& test : tests) {
    if (isOpen(test)) {
      m_vanishing[test].push_back(finding);
      return;
    }
  }
  const bool wasTold = std::any_of(tests.begin(), tests.end(), [this](const std::string& test) {
    const StepRecord* const step = m_record.find(test);
    return step != nullptr && (step->troubles > 0 || step->hasFailed());
  });
  if (wasTold) {
    return;
  }
  const FindingText text = textOf(finding, m_texts, duringOf(tests), 1);
  m_machine.begin();
  m_tell(judged(
      StepTrouble{MachineWatch::kStep,
                  std::string(PackageKit::Contract::symptomOfTrouble(PackageKit::DEVICE_VANISHED)),
                  text.message, text.action},
      StepStarted{}, 0, m_vanished));
}

// What stays as it is fills no log.
void RunWatch::tell(const Watching::Sample& sample) {
  m_machine.begin();
  const auto [entry, isNew] = m_series.try_emplace(sample.sensor);
  Series& series = entry->second;
  if (isNew) {
    series.id = std::to_string(m_series.size());
    m_tell(SeriesStarted{MachineWatch::kStep, series.id, sample.sensor, sample.unit, sample.limit});
  } else if (sample.value == series.value && sample.time - series.time < kLongestSilence) {
    return;
  }
  series.value = sample.value;
  series.time = sample.time;
  m_tell(SeriesElement{MachineWatch::kStep, series.id, series.count++, sample.value, sample.time});
}

void RunWatch::endSeries() {
  for (const auto& [sensor, series] : m_series) {
    m_tell(SeriesEnded{MachineWatch::kStep, series.id, series.count});
  }
  m_series.clear();
}

// At once, and again when it weighs more. That it has become many is no further verdict.
void RunWatch::tell(const std::string& stepId, const std::vector<std::string>& tests,
                    const Finding& finding) {
  using Level = Watching::Severity;
  const bool isOfMachine = stepId == MachineWatch::kStep;
  const std::string during = duringOf(tests);
  Told& told = m_told[{stepId, finding.kind, finding.device + "\n" + during, finding.part}];
  told.count += finding.count;
  told.last = finding;
  const bool isNews = told.told == 0 || finding.severity != told.severity;
  if (!isNews && told.count < told.told * kMany) {
    return;
  }
  told.told = told.count;
  told.time = finding.time;
  told.severity = finding.severity;
  const FindingText text = textOf(finding, m_texts, during, told.count);
  if (isOfMachine && finding.severity == Level::Information) {
    m_tell(RunMessage{Severity::Debug, text.message});
    return;
  }
  if (!isNews) {
    m_tell(StepMessage{stepId, Severity::Information, text.message, ""});
    return;
  }
  if (isOfMachine) {
    m_machine.begin();
  }
  const StepRecord* const step = m_record.find(stepId);
  const std::string hardware = step != nullptr ? step->start.hardwareId : "";
  switch (finding.severity) {
    case Level::Information:
      m_tell(StepMessage{stepId, Severity::Information, text.message, ""});
      break;
    case Level::Trouble:
      m_tell(StepTrouble{stepId, text.symptom, text.message, text.action});
      break;
    case Level::Warning:
    case Level::Failure:
      m_tell(StepDiagnosis{stepId,
                           finding.severity == Level::Failure ? Verdict::Fail : Verdict::Unknown,
                           text.symptom, text.message, text.action, hardware, 0});
      break;
  }
  if (!finding.detail.empty()) {
    m_tell(StepMessage{stepId, Severity::Debug, finding.detail, ""});
  }
}

void RunWatch::tellMore(Watching::Moment now) {
  for (auto& [key, told] : m_told) {
    if (now - told.time >= m_wishes.again) {
      tellCount(key, told);
      told.time = now;
    }
  }
}

void RunWatch::tellRest(const std::string& stepId) {
  for (auto entry = m_told.begin(); entry != m_told.end();) {
    if (std::get<0>(entry->first) != stepId) {
      ++entry;
      continue;
    }
    tellCount(entry->first, entry->second);
    entry = m_told.erase(entry);
  }
}

// What has come since it was told last.
void RunWatch::tellCount(const Key& key, Told& told) {
  const auto& [stepId, kind, device, part] = key;
  const bool isUnheard =
      stepId == MachineWatch::kStep && told.severity == Watching::Severity::Information;
  if (told.count == told.told || isUnheard || !isOpen(stepId)) {
    return;
  }
  told.told = told.count;
  const std::string during = device.substr(device.find('\n') + 1);
  m_tell(StepMessage{stepId, Severity::Information,
                     textOf(told.last, m_texts, during, told.count).message, ""});
}

}  // namespace TarvexDiags::FrontEnd
