#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "watch/Source.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief Temperatures, fans, voltages and power by the kernel's hwmon interface, and the alarms of
/// the chips that measure them.
///
/// A sensor that takes over 20 ms to answer, as those behind a slow bus do, is read every 30 s.
class SensorSource : public Source {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit SensorSource(SystemFiles files, Clock clock = std::chrono::steady_clock::now)
      : m_files(std::move(files)), m_clock(std::move(clock)) {}

  SourceKind kind() const override { return SourceKind::Sensors; }
  std::optional<std::string> open() override;
  void look(Moment now, Collector& collector) override;

 private:
  struct Alarm {
    std::filesystem::path file;
    Kind kind;
    bool isOn = false;  ///< each is told once while it lasts
  };
  struct Sensor {
    std::string name;
    std::filesystem::path input;
    std::string unit;
    double scale = 1;  ///< of the kernel's unit
    std::optional<double> limit;
    std::optional<double> critical;  ///< of a temperature
    bool isAbove = false;
    std::vector<Alarm> alarms;
    std::chrono::steady_clock::time_point next;
  };

  void addChip(const std::filesystem::path& folder);
  void addSensor(const std::filesystem::path& folder, const std::string& chip,
                 const std::string& input);
  void lookAt(Sensor& sensor, Moment now, Collector& collector);
  std::optional<double> valueOf(const std::filesystem::path& file, double scale) const;

  SystemFiles m_files;
  Clock m_clock;
  std::vector<Sensor> m_sensors;
};

}  // namespace TarvexDiags::Watching
