#include "diagctl/report/Figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <iterator>
#include <numeric>
#include <variant>

#include "diagctl/report/TestDuration.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostFigures = 32;
constexpr std::size_t kMostFacts = 3;
constexpr std::size_t kMostDevices = 64;  ///< whose coverage is told
constexpr double kMebibyte = 1024.0 * 1024.0;

std::size_t sizeOf(const StepMeasurement& figure) {
  const auto* const words = std::get_if<std::string>(&figure.value);
  return sizeof figure + figure.name.size() + figure.unit.size() +
         (words != nullptr ? words->size() : 0);
}

bool isRate(const StepMeasurement& figure) {
  return figure.unit.ends_with("/s");
}

std::string numberText(double number) {
  const double size = std::fabs(number);
  if (size >= 1000 || number == std::floor(number)) {
    return wholeText(number);
  }
  return size >= 10 ? fmt::format("{:.0f}", number) : fmt::format("{:.2g}", number);
}

}  // namespace

bool hasMeaning(const StepMeasurement& figure) {
  return figure.name == FigureName::kCoveredBytes || figure.name == FigureName::kTotalBytes ||
         figure.name == FigureName::kCoveredCores || figure.name == FigureName::kSeed ||
         figure.name == kTestDuration;
}

// What the tests measure that come with the program; others are told by their names.
constexpr std::array kFigures = {marked("random reads"),     marked("read rate"),
                                 marked("write rate"),       marked("verify rate"),
                                 marked("results compared"), marked("verified rate"),
                                 marked("verified share"),   marked("verified time")};

std::string toWords(const std::string& name) {
  std::string words;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isupper(byte) != 0) {
      words += ' ';
    }
    words += static_cast<char>(std::tolower(byte));
  }
  return std::find(kFigures.begin(), kFigures.end(), words) != kFigures.end() ? told(words) : words;
}

std::size_t Figures::take(const StepMeasurement& figure, std::size_t room) {
  const auto known =
      std::find_if(m_figures.begin(), m_figures.end(),
                   [&](const StepMeasurement& other) { return other.name == figure.name; });
  const std::size_t before = known != m_figures.end() ? sizeOf(*known) : 0;
  const std::size_t after = sizeOf(figure);
  if (after > before + room || (known == m_figures.end() && m_figures.size() == kMostFigures)) {
    return 0;
  }
  if (known == m_figures.end()) {
    m_figures.push_back(figure);
  } else if (after <= before || after - before <= room) {
    *known = figure;
  }
  return after > before ? after - before : 0;
}

const StepMeasurement* Figures::find(const std::string& name) const {
  const auto found =
      std::find_if(m_figures.begin(), m_figures.end(),
                   [&](const StepMeasurement& figure) { return figure.name == name; });
  return found != m_figures.end() ? &*found : nullptr;
}

double Figures::number(const std::string& name) const {
  const StepMeasurement* const figure = find(name);
  const auto* const number = figure != nullptr ? std::get_if<double>(&figure->value) : nullptr;
  return number != nullptr ? *number : 0;
}

std::string wholeText(double number) {
  return fmt::format("{:.0f}", number);
}

std::string describe(const StepMeasurement& figure) {
  if (const auto* const words = std::get_if<std::string>(&figure.value)) {
    return figure.unit.empty() ? *words : *words + " " + figure.unit;
  }
  double number = std::get<double>(figure.value);
  std::string unit = figure.unit;
  if (unit == "MB/s" && std::fabs(number) >= 1000) {
    number /= 1000;
    unit = "GB/s";
  }
  return unit.empty() ? numberText(number) : numberText(number) + " " + unit;
}

std::string describeCoverage(double coveredBytes, double totalBytes) {
  const std::string covered = wholeText(std::ceil(coveredBytes / kMebibyte));
  if (totalBytes < 1 || totalBytes < coveredBytes) {
    return tr("{} MiB", covered);
  }
  return tr("{} of {} MiB ({:.0f} %)", covered, wholeText(std::ceil(totalBytes / kMebibyte)),
            std::floor(100 * coveredBytes / totalBytes));
}

std::string factsOf(const Figures& figures) {
  std::vector<std::string> facts;
  if (const double covered = figures.number(FigureName::kCoveredBytes); covered > 0) {
    facts.push_back(describeCoverage(covered, figures.number(FigureName::kTotalBytes)));
  }
  for (const bool wantsRates : {true, false}) {
    for (const StepMeasurement& figure : figures) {
      if (isRate(figure) != wantsRates || hasMeaning(figure) || facts.size() == kMostFacts) {
        continue;
      }
      const bool namesItself = wantsRates && facts.size() < 2;
      facts.push_back(namesItself ? describe(figure)
                                  : fmt::format("{} {}", toWords(figure.name), describe(figure)));
    }
  }
  return fmt::format("{}", fmt::join(facts, ", "));
}

Coverage::Coverage(const RunCoverage& told)
    : m_further(told.furtherDevices), m_seconds(told.seconds) {
  for (const DeviceCoverage& device : told.devices) {
    if (m_bytes.size() < kMostDevices) {
      m_bytes[device.device] = {device.coveredBytes, device.totalBytes};
    } else {
      ++m_further;
    }
  }
  if (told.cores > 0) {
    m_cores[""] = told.cores;
  }
}

RunCoverage Coverage::told() const {
  RunCoverage told{kCoverageStep, {}, m_further, cores(), m_seconds};
  for (const auto& [device, bytes] : m_bytes) {
    told.devices.push_back({device, bytes.covered, bytes.total});
  }
  return told;
}

double Coverage::cores() const {
  return std::accumulate(m_cores.begin(), m_cores.end(), 0.0,
                         [](double sum, const auto& device) { return sum + device.second; });
}

void Coverage::take(const std::string& device, const Figures& figures, double seconds) {
  m_seconds += seconds;
  const double covered = figures.number(FigureName::kCoveredBytes);
  const double cores = figures.number(FigureName::kCoveredCores);
  const bool isKnown = m_bytes.contains(device) || m_cores.contains(device);
  if ((covered <= 0 && cores <= 0) || (!isKnown && m_bytes.size() >= kMostDevices && cores <= 0)) {
    m_further += covered > 0 ? 1 : 0;
    return;
  }
  if (covered > 0) {
    Bytes& bytes = m_bytes[device];
    bytes.covered = std::max(bytes.covered, covered);
    bytes.total = std::max(bytes.total, figures.number(FigureName::kTotalBytes));
  }
  if (cores > 0) {
    m_cores[device] = std::max(m_cores[device], cores);
  }
}

std::string Coverage::describe() const {
  std::vector<std::string> parts;
  for (const auto& [device, bytes] : m_bytes) {
    parts.push_back(tr("{} of {}", describeCoverage(bytes.covered, bytes.total), device));
  }
  if (m_further > 0) {
    parts.push_back(tr("{} more", m_further));
  }
  if (const double count = cores(); count > 0) {
    parts.push_back(trn("1 core", "{1} cores", static_cast<std::size_t>(count), wholeText(count)));
  }
  if (m_seconds > 0) {
    parts.push_back(tr("{:.1f} s of tests", m_seconds));
  }
  return fmt::format("{}", fmt::join(parts, ", "));
}

}  // namespace TarvexDiags::FrontEnd
