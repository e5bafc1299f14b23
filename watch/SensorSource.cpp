#include "watch/SensorSource.h"

#include <charconv>
#include <utility>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

struct Quantity {
  std::string_view prefix;
  const char* unit;
  double scale;
};

// Documentation/hwmon/sysfs-interface.rst of the kernel.
constexpr Quantity kQuantities[] = {
    {"temp", "°C", 1e-3}, {"fan", "RPM", 1}, {"in", "V", 1e-3}, {"power", "W", 1e-6}};
constexpr std::string_view kInput = "_input";
constexpr std::string_view kAverage = "_average";
constexpr auto kSlow = std::chrono::milliseconds(20);
constexpr auto kSlowInterval = std::chrono::seconds(30);
const std::filesystem::path kChips = "sys/class/hwmon";

/// The quantity of "temp1_input" and the like; none for other files.
const Quantity* quantityOf(std::string_view file) {
  for (const Quantity& quantity : kQuantities) {
    std::string_view rest = file;
    if (!rest.starts_with(quantity.prefix)) {
      continue;
    }
    rest.remove_prefix(quantity.prefix.size());
    const std::size_t digits = rest.find_first_not_of("0123456789");
    rest.remove_prefix(digits == std::string_view::npos ? rest.size() : digits);
    if (digits > 0 && (rest == kInput || rest == kAverage)) {
      return &quantity;
    }
  }
  return nullptr;
}

}  // namespace

std::optional<std::string> SensorSource::open() {
  m_sensors.clear();
  for (const int chip : m_files.numberedEntries(kChips, "hwmon")) {
    addChip(kChips / ("hwmon" + std::to_string(chip)));
  }
  return m_sensors.empty()
             ? std::optional<std::string>(because("the kernel shows no sensor of this machine"))
             : std::nullopt;
}

// Numbers of chips change from start to start, so a chip is named by its driver and its device.
void SensorSource::addChip(const std::filesystem::path& folder) {
  const std::string driver = m_files.word(folder / "name");
  const std::string device = m_files.resolved(folder / "device").filename().string();
  const std::string chip =
      (driver.empty() ? folder.filename().string() : driver) + (device.empty() ? "" : "/" + device);
  for (const std::string& file : m_files.entries(folder)) {
    if (quantityOf(file) != nullptr) {
      addSensor(folder, chip, file);
    }
  }
}

void SensorSource::addSensor(const std::filesystem::path& folder, const std::string& chip,
                             const std::string& input) {
  const Quantity& quantity = *quantityOf(input);
  const std::string stem = input.substr(0, input.find('_'));
  const auto beside = [&](const std::string& what) { return folder / (stem + what); };
  std::string label = m_files.text(beside("_label")).value_or("");
  label.erase(label.find_last_not_of(" \n") + 1);
  Sensor sensor;
  sensor.name = chip + "/" + (label.empty() ? stem : label);
  sensor.input = folder / input;
  sensor.unit = quantity.unit;
  sensor.scale = quantity.scale;
  // A limit of 0 or below has not been set. "Max" is where it becomes hot, "crit" where it ends.
  const auto limitOf = [&](const char* file) {
    const std::optional<double> limit = valueOf(beside(file), quantity.scale);
    return limit && *limit > 0 ? limit : std::nullopt;
  };
  const std::optional<double> critical = limitOf("_crit");
  sensor.limit = critical ? critical : limitOf("_max");
  if (quantity.prefix == "temp") {
    sensor.critical = critical;
  }
  const Kind alarm = quantity.prefix == "fan" ? Kind::FanFailed : Kind::SensorAlarm;
  for (const auto& [name, kind] :
       {std::pair("_crit_alarm", quantity.prefix == "temp" ? Kind::TemperatureCritical : alarm),
        std::pair("_alarm", alarm), std::pair("_fault", alarm)}) {
    // What lasts since before is nobody's.
    if (const auto state = m_files.number(beside(name))) {
      sensor.alarms.push_back({beside(name), kind, *state != 0});
    }
  }
  m_sensors.push_back(std::move(sensor));
}

std::optional<double> SensorSource::valueOf(const std::filesystem::path& file, double scale) const {
  const std::string word = m_files.word(file);
  long long value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  return error == std::errc() && end == word.data() + word.size()
             ? std::optional(static_cast<double>(value) * scale)
             : std::nullopt;
}

void SensorSource::look(Moment now, Collector& collector) {
  for (Sensor& sensor : m_sensors) {
    const auto begin = m_clock();
    if (begin < sensor.next) {
      continue;
    }
    lookAt(sensor, now, collector);
    const auto end = m_clock();
    if (end - begin > kSlow) {
      sensor.next = end + kSlowInterval;
    }
  }
}

void SensorSource::lookAt(Sensor& sensor, Moment now, Collector& collector) {
  const auto tell = [&](Kind kind, std::string detail) {
    Finding finding{.time = now, .source = SourceKind::Sensors, .kind = kind};
    finding.device = "sensor:" + sensor.name;
    finding.part = sensor.name;
    finding.detail = std::move(detail);
    collector.found(std::move(finding));
  };
  const std::optional<double> value = valueOf(sensor.input, sensor.scale);
  if (value) {
    collector.sampled({now, sensor.name, *value, sensor.unit, sensor.limit});
  }
  const bool isAbove = value && sensor.critical && *value >= *sensor.critical;
  if (isAbove && !sensor.isAbove) {
    tell(Kind::TemperatureCritical, m_files.word(sensor.input));
  }
  sensor.isAbove = isAbove;
  for (Alarm& alarm : sensor.alarms) {
    const bool isOn = m_files.number(alarm.file).value_or(0) != 0;
    if (isOn && !alarm.isOn) {
      tell(alarm.kind, alarm.file.filename().string());
    }
    alarm.isOn = isOn;
  }
}

}  // namespace TarvexDiags::Watching
