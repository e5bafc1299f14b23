#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// The figures of one step: of each name the last that was measured, in the order of their first
/// appearance, as many as somebody would read: 32.
class Figures {
 public:
  /// @param room for it, in bytes. @return about how many bytes that took.
  std::size_t take(const StepMeasurement& figure, std::size_t room);

  auto begin() const { return m_figures.begin(); }
  auto end() const { return m_figures.end(); }
  bool empty() const { return m_figures.empty(); }
  /// Null for a name that was not measured.
  const StepMeasurement* find(const std::string& name) const;
  /// The number of that name; 0 if it was not measured or is none.
  double number(const std::string& name) const;

 private:
  std::vector<StepMeasurement> m_figures;
};

/// Names of figures that have a meaning of their own, whichever package measures them.
namespace FigureName {
inline constexpr const char* kCoveredBytes = "coveredBytes";  ///< of the device, by this test
inline constexpr const char* kTotalBytes = "totalBytes";      ///< that the device has
inline constexpr const char* kCoveredCores = "coveredCores";
inline constexpr const char* kSeed = "seed";  ///< of the last pass that began
}  // namespace FigureName

/// The value and its unit, for people: "2.6 GB/s", "1234 reads/s".
std::string describe(const StepMeasurement& figure);

/// A count, its digits in one row: "21594". What parts thousands parts decimals elsewhere.
std::string wholeText(double number);

/// "256 of 21594 MiB (1 %)"; without a total, "256 MiB".
std::string describeCoverage(double coveredBytes, double totalBytes);

/// Whether a figure has a meaning of its own, and is told by that.
bool hasMeaning(const StepMeasurement& figure);

/// The name of a figure as people read it: "verified share" for "verifiedShare".
std::string toWords(const std::string& name);

/// What a test did, in figures, for people: how much of the device it covered, then how fast, then
/// what else it measured. Empty if it measured nothing.
std::string factsOf(const Figures& figures);

/// How much of the machine a run has covered: of each device the most that one test has.
class Coverage {
 public:
  Coverage() = default;
  /// As a log tells it.
  explicit Coverage(const RunCoverage& told);

  void take(const std::string& device, const Figures& figures, double seconds);

  /// For people: "256 of 21,594 MiB of node 0, 8 cores, 12.3 s of tests"; empty if there was no
  /// test.
  std::string describe() const;

  /// For a log. @return without devices, cores and seconds if there was no test.
  RunCoverage told() const;

 private:
  struct Bytes {
    double covered = 0;
    double total = 0;
  };

  double cores() const;

  std::map<std::string, Bytes> m_bytes;   ///< by device
  std::map<std::string, double> m_cores;  ///< by device
  std::size_t m_further = 0;              ///< devices beyond those that are named
  double m_seconds = 0;
};

}  // namespace TarvexDiags::FrontEnd
