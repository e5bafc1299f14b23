#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "diagctl/report/DeviceLocations.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// What a run came to, in the text format of Prometheus: gauges, each with a HELP and a TYPE, no
/// timestamps, no series twice, and at most kMostSeries of them.
class RunMetrics {
 public:
  static constexpr std::size_t kMostSeries = 2000;

  /// @param verb a label of each series, so that those of several verbs stand beside each other.
  /// @param vanished how the events are judged anew; nothing: as they are told.
  explicit RunMetrics(std::string verb, const RunConditions& conditions = {},
                      std::optional<VanishedAs> vanished = std::nullopt);

  void handle(const RunEvent& event);
  /// Of what was told so far.
  std::string text() const;

 private:
  /// A sensor's last value.
  struct Sensor {
    std::string name;
    std::string unit;
    std::optional<double> value;
    std::optional<double> most;
  };
  class Exposition;

  void takeFinding(const RunEventBody& body);
  void takeSensor(const RunEventBody& body);
  void tellRun(Exposition& out) const;
  void tellTests(Exposition& out) const;
  void tellFigures(Exposition& out) const;
  void tellMachine(Exposition& out) const;

  const std::string m_verb;
  const RunConditions m_conditions;
  const VanishedJudge m_judge;
  RunRecord m_record;
  std::string m_version;
  DeviceLocations m_locations;
  std::map<std::pair<std::string, std::string>, std::size_t> m_findings;  ///< by kind and verdict
  std::map<std::string, Sensor> m_sensors;                                ///< by series
};

/// The file of a verb in a directory from which the exporter reads.
std::string textfileOf(const std::string& directory, const std::string& verb);

/// Puts the file there, whole or not at all.
/// @throws std::system_error naming it.
void writeTextfile(const std::string& file, const RunMetrics& metrics);

/// A run as metrics, once it is over.
class MetricsReporter : public Reporter {
 public:
  /// @param out kept alive by the caller.
  MetricsReporter(Printer& out, const RunConditions& conditions)
      : m_out(out), m_metrics("run", conditions) {}

  void handle(const RunEvent& event) override { m_metrics.handle(event); }
  void finish() override { m_out.write(m_metrics.text()); }

 private:
  Printer& m_out;
  RunMetrics m_metrics;
};

}  // namespace TarvexDiags::FrontEnd
