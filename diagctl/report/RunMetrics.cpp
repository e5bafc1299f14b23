#include "diagctl/report/RunMetrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string_view>
#include <variant>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/WrittenFile.h"
#include "diagctl/terminal/Printable.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostHeldForMetrics = 16UL << 20U;
constexpr std::size_t kLongestLabel = 160;
constexpr std::size_t kMostKinds = 200;  ///< of findings, and of sensors

/// A family of series: its name, and what it tells, which is the same in each file.
struct MetricFamily {
  const char* name;
  const char* help;
};

constexpr MetricFamily kFamilyOfBuild{"tarvexdiags_build_info", "The version of the program."};
constexpr MetricFamily kFamilyOfUnderWay{"tarvexdiags_run_under_way",
                                         "Whether what this file tells of still goes on."};
constexpr MetricFamily kFamilyOfExitCode{
    "tarvexdiags_run_exit_code",
    "What the last run came to: 0 passed, 1 hardware failure, 2 no verdict, 3 nothing ran."};
constexpr MetricFamily kFamilyOfEnd{"tarvexdiags_run_end_timestamp_seconds",
                                    "When the last run ended."};
constexpr MetricFamily kFamilyOfDuration{"tarvexdiags_run_duration_seconds",
                                         "How long the run has taken so far, or took."};
constexpr MetricFamily kFamilyOfTests{"tarvexdiags_tests",
                                      "Tests of the last run by their outcome."};
constexpr MetricFamily kFamilyOfResult{
    "tarvexdiags_test_result",
    "What a test came to: 0 passed, 1 skipped or not run, 2 a warning, "
    "3 no verdict, 4 hardware failure."};
constexpr MetricFamily kFamilyOfTestDuration{"tarvexdiags_test_duration_seconds",
                                             "How long a test has taken."};
constexpr MetricFamily kFamilyOfMeasurement{"tarvexdiags_test_measurement",
                                            "What a test has measured, in its unit."};
constexpr MetricFamily kFamilyOfFindings{"tarvexdiags_watch_findings",
                                         "What the machine showed, by kind and verdict."};
constexpr MetricFamily kFamilyOfSensor{"tarvexdiags_sensor",
                                       "The last value of a sensor, in its unit."};
constexpr MetricFamily kFamilyOfSensorLimit{"tarvexdiags_sensor_limit",
                                            "Above which the hardware is in danger, in its unit."};
constexpr MetricFamily kFamilyOfOmitted{"tarvexdiags_series_omitted",
                                        "Series that did not fit into the file."};

constexpr std::pair<StepRecord::Outcome, const char*> kOutcomes[] = {
    {StepRecord::Outcome::Passed, "passed"},
    {StepRecord::Outcome::Failed, "failed"},
    {StepRecord::Outcome::Warning, "warning"},
    {StepRecord::Outcome::Trouble, "no-verdict"},
    {StepRecord::Outcome::Aborted, "aborted"},
    {StepRecord::Outcome::NotRun, "not-run"},
    {StepRecord::Outcome::Skipped, "skipped"},
    {StepRecord::Outcome::SkippedForPrivilege, "skipped-for-privilege"},
    {StepRecord::Outcome::SkippedForMode, "skipped-in-this-mode"},
};

// The greater, the worse.
int weightOf(StepRecord::Outcome outcome) {
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return 0;
    case StepRecord::Outcome::Warning:
      return 2;
    case StepRecord::Outcome::Trouble:
    case StepRecord::Outcome::Aborted:
      return 3;
    case StepRecord::Outcome::Failed:
      return 4;
    case StepRecord::Outcome::NotRun:
    case StepRecord::Outcome::Skipped:
    case StepRecord::Outcome::SkippedForPrivilege:
    case StepRecord::Outcome::SkippedForMode:
      break;
  }
  return 1;
}

std::string labelValue(const std::string& text) {
  const std::string printable = toPrintable(text);
  std::string value;
  for (const char character : wholeCharacters(printable, kLongestLabel)) {
    value += character == '\\' || character == '"' ? "\\" : "";
    value += character;
  }
  return value;
}

std::string numberText(double value) {
  if (std::isnan(value)) {
    return "NaN";
  }
  if (std::isinf(value)) {
    return value > 0 ? "+Inf" : "-Inf";
  }
  return fmt::format("{}", value);
}

double secondsOf(std::chrono::system_clock::time_point time) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  return static_cast<double>(milliseconds.count()) / 1000;  // as fine as events are
}

}  // namespace

/// The text as it grows, a family behind the other.
class RunMetrics::Exposition {
 public:
  using Labels = std::initializer_list<std::pair<const char*, std::string>>;

  /// @param first of the labels of each series, with its value.
  explicit Exposition(const std::string& verb) : m_verb(labelValue(verb)) {}

  /// Of two series of one name the greater value counts.
  void add(const MetricFamily& family, const Labels& labels, double value) {
    std::string series = fmt::format("{}{{verb=\"{}\"", family.name, m_verb);
    for (const auto& [name, text] : labels) {
      series += fmt::format(",{}=\"{}\"", name, labelValue(text));
    }
    Family& known = familyOf(family);
    const auto entry = known.values.find(series + "}");
    if (entry != known.values.end()) {
      entry->second = std::max(entry->second, value);
    } else if (m_count < kMostSeries || labels.size() == 0) {
      known.values.emplace(series + "}", value);
      ++m_count;
    } else {
      ++m_omitted;
    }
  }

  void omit(std::size_t series) { m_omitted += series; }

  std::string text() {
    add(kFamilyOfOmitted, {}, static_cast<double>(m_omitted));
    std::string text;
    for (const Family& family : m_families) {
      text += fmt::format("# HELP {} {}\n# TYPE {} gauge\n", family.family->name,
                          family.family->help, family.family->name);
      for (const auto& [series, value] : family.values) {
        text += fmt::format("{} {}\n", series, numberText(value));
      }
    }
    return text;
  }

 private:
  struct Family {
    const MetricFamily* family;
    std::map<std::string, double> values = {};
  };

  Family& familyOf(const MetricFamily& family) {
    const auto known = std::find_if(m_families.begin(), m_families.end(),
                                    [&](const Family& each) { return each.family == &family; });
    if (known != m_families.end()) {
      return *known;
    }
    m_families.push_back({&family});
    return m_families.back();
  }

  const std::string m_verb;
  std::vector<Family> m_families;
  std::size_t m_count = 0;
  std::size_t m_omitted = 0;
};

RunMetrics::RunMetrics(std::string verb, const RunConditions& conditions,
                       std::optional<VanishedAs> vanished)
    : m_verb(std::move(verb)),
      m_conditions(conditions),
      m_judge(vanished),
      m_record(RunRecord::Ended::Held, kMostHeldForMetrics) {}

void RunMetrics::handle(const RunEvent& event) {
  const RunEvent judged{event.time, m_judge.judge(event.body, m_record)};
  if (const auto* const start = std::get_if<RunStarted>(&judged.body)) {
    m_record.clear();
    m_version = start->version;
    m_locations.learn(*start);
  }
  m_record.handle(judged);
  takeFinding(judged.body);
  takeSensor(judged.body);
}

// What belongs to no pass of a test comes from the watch, and so does what belongs to no test.
void RunMetrics::takeFinding(const RunEventBody& body) {
  std::pair<std::string, std::string> finding;
  const auto* const diagnosis = std::get_if<StepDiagnosis>(&body);
  const auto* const trouble = std::get_if<StepTrouble>(&body);
  if (diagnosis != nullptr && diagnosis->pass == 0 && diagnosis->verdict != Verdict::Pass) {
    finding = {diagnosis->symptom, diagnosis->verdict == Verdict::Fail ? "failure" : "warning"};
  } else if (trouble != nullptr && trouble->stepId == kMachineStep) {
    finding = {trouble->symptom, "no-verdict"};
  } else {
    return;
  }
  if (m_findings.size() < kMostKinds || m_findings.contains(finding)) {
    ++m_findings[finding];
  }
}

void RunMetrics::takeSensor(const RunEventBody& body) {
  if (const auto* const series = std::get_if<SeriesStarted>(&body)) {
    if (m_sensors.size() < kMostKinds) {
      m_sensors[series->seriesId] = {series->name, series->unit, std::nullopt, series->most};
    }
  } else if (const auto* const element = std::get_if<SeriesElement>(&body)) {
    const auto sensor = m_sensors.find(element->seriesId);
    if (sensor != m_sensors.end()) {
      sensor->second.value = element->value;
    }
  }
}

void RunMetrics::tellRun(Exposition& out) const {
  out.add(kFamilyOfBuild, {{"version", m_version}}, 1);
  out.add(kFamilyOfUnderWay, {}, m_record.hasEnded() ? 0 : 1);
  out.add(kFamilyOfDuration, {}, m_record.seconds());
  if (m_record.hasEnded()) {
    out.add(kFamilyOfExitCode, {}, exitCodeOf(m_record, m_conditions));
    out.add(kFamilyOfEnd, {}, secondsOf(m_record.last()));
  }
  OutcomeSums sums = m_record.sums();
  for (const auto& [outcome, name] : kOutcomes) {
    out.add(kFamilyOfTests, {{"outcome", name}}, static_cast<double>(sums[outcome]));
  }
}

void RunMetrics::tellTests(Exposition& out) const {
  for (const StepRecord* const step : m_record.steps()) {
    const StepStarted& start = step->start;
    const Exposition::Labels labels = {{"package", start.package},
                                       {"test", start.test},
                                       {"device", start.device},
                                       {"location", m_locations.of(start)}};
    out.add(kFamilyOfResult, labels, weightOf(step->outcome()));
    out.add(kFamilyOfTestDuration, labels, step->seconds());
  }
  out.omit(m_record.dropped().begun);
}

void RunMetrics::tellFigures(Exposition& out) const {
  for (const StepRecord* const step : m_record.steps()) {
    for (const StepMeasurement& figure : step->figures) {
      if (const double* const value = std::get_if<double>(&figure.value)) {
        out.add(kFamilyOfMeasurement,
                {{"package", step->start.package},
                 {"test", step->start.test},
                 {"device", step->start.device},
                 {"location", m_locations.of(step->start)},
                 {"name", figure.name},
                 {"unit", figure.unit}},
                *value);
      }
    }
  }
}

void RunMetrics::tellMachine(Exposition& out) const {
  for (const auto& [finding, count] : m_findings) {
    out.add(kFamilyOfFindings, {{"kind", finding.first}, {"verdict", finding.second}},
            static_cast<double>(count));
  }
  for (const auto& [series, sensor] : m_sensors) {
    const Exposition::Labels labels = {{"sensor", sensor.name}, {"unit", sensor.unit}};
    if (sensor.value) {
      out.add(kFamilyOfSensor, labels, *sensor.value);
    }
    if (sensor.most) {
      out.add(kFamilyOfSensorLimit, labels, *sensor.most);
    }
  }
}

// What matters most comes first, as there may be no room for the rest.
std::string RunMetrics::text() const {
  Exposition out(m_verb);
  tellRun(out);
  tellMachine(out);
  tellTests(out);
  tellFigures(out);
  return out.text();
}

std::string textfileOf(const std::string& directory, const std::string& verb) {
  return fmt::format("{}/tarvexdiags-{}.prom", directory, verb);
}

void writeTextfile(const std::string& file, const RunMetrics& metrics) {
  WrittenFile written(file, Access::EverybodyReads);
  written.out().write(metrics.text());
  written.finish();
}

}  // namespace TarvexDiags::FrontEnd
