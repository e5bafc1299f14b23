#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "report/svg/ThinnedSeries.h"

namespace TarvexDiags::FrontEnd {

/// What a page tells of a run beside its verdict, gathered from the stream in bounded space: what
/// is left out is counted. Tests that came to the same are folded into one row.
class RunStory {
 public:
  /// A test on a device that somebody is to look at.
  struct Problem {
    StepStarted start;
    StepRecord::Outcome outcome = StepRecord::Outcome::Failed;
    std::string finding;
    std::string action;
    std::vector<std::string> further;  ///< what was found besides
    std::vector<std::string> furtherActions;
    std::string symptom;
    std::string seed;
    std::string facts;
    double begin = 0;  ///< seconds from the beginning of the run
    double seconds = 0;
    int passes = 0;
  };

  /// A test that came to the same on some devices, for the same reason.
  struct FoldKey {
    std::string package;
    std::string test;
    StepRecord::Outcome outcome = StepRecord::Outcome::Passed;
    std::string reason;
    // NOLINTNEXTLINE(modernize-use-nullptr): the literal 0 is the compiler's own
    auto operator<=>(const FoldKey&) const = default;
  };
  struct Fold {
    std::vector<std::string> devices;  ///< as many as somebody would read
    std::size_t count = 0;
    double seconds = 0;
    std::string facts;  ///< of the first
  };

  struct Span {
    float from = 0;  ///< seconds from the beginning of the run
    float to = 0;
    StepRecord::Outcome outcome = StepRecord::Outcome::Passed;
    std::uint32_t problem = 0;  ///< its place among the problems, from 1; 0: none
  };
  /// A finding that shows beside the tests.
  struct Mark {
    double at = 0;  ///< seconds from the beginning of the run
    Verdict verdict = Verdict::Unknown;
    std::string text;
  };
  struct Lane {
    std::string device;
    std::vector<Span> spans;
    std::vector<Mark> marks;
    OutcomeSums sums;
    double seconds = 0;       ///< of tests
    double coveredBytes = 0;  ///< the most that one test has
    double totalBytes = 0;
    double coveredCores = 0;  ///< the same
  };

  struct Sensor {
    std::string name;
    std::string unit;
    std::optional<double> most;
    Svg::ThinnedSeries values{kMostBuckets};  ///< over seconds from the beginning of the run
  };

  struct FigureKey {
    std::string package;
    std::string name;
    std::string unit;
    // NOLINTNEXTLINE(modernize-use-nullptr): the literal 0 is the compiler's own
    auto operator<=>(const FigureKey&) const = default;
  };
  struct Value {
    std::uint32_t lane = 0;
    double value = 0;
  };
  using ValuesByTest = std::map<std::string, std::vector<Value>>;

  /// What the random part of a test that passed went by.
  struct Seed {
    std::string test;  ///< with its package
    std::string device;
    std::string seed;
  };

  struct Message {
    double at = 0;  ///< seconds from the beginning of the run
    Severity severity = Severity::Information;
    std::string about;  ///< test and device; empty: the run
    std::string text;
  };

  static constexpr std::size_t kMostBuckets = 128;

  /// @param most bytes that it may take.
  explicit RunStory(std::size_t most) : m_most(most) {}

  /// Takes an event, before the record of the run does.
  void take(const RunEvent& event);
  /// Takes a step that has ended, or stands open when the run is over.
  void takeEnded(const StepRecord& step);

  const RunStarted& start() const { return m_start; }
  std::chrono::system_clock::time_point begin() const { return m_begin; }
  const std::vector<Problem>& problems() const { return m_problems; }
  const std::map<FoldKey, Fold>& folds() const { return m_folds; }
  const std::vector<Lane>& lanes() const { return m_lanes; }
  const std::vector<Sensor>& sensors() const { return m_sensors; }
  const std::map<FigureKey, ValuesByTest>& figures() const { return m_figures; }
  const std::vector<Message>& messages() const { return m_messages; }
  /// Of tests that passed; the others are among the problems.
  const std::vector<Seed>& seeds() const { return m_seeds; }

  /// How many there were beyond those that are kept.
  struct Omitted {
    std::size_t problems = 0;
    std::size_t folded = 0;
    std::size_t lanes = 0;  ///< steps on devices that have no lane
    std::size_t sensors = 0;
    std::size_t values = 0;
    std::size_t messages = 0;
    std::size_t seeds = 0;
  };
  const Omitted& omitted() const { return m_omitted; }

 private:
  struct Into;

  double secondsAt(std::chrono::system_clock::time_point time) const {
    return secondsBetween(m_begin, time);
  }
  bool makeRoom(std::size_t bytes);
  std::optional<std::uint32_t> laneOf(const std::string& device);
  void tell(double at, Severity severity, const std::string& stepId, const std::string& text,
            const std::string& action);
  void mark(double at, const std::string& stepId, Verdict verdict, const std::string& text);
  bool addProblem(const StepRecord& step);
  void fold(const StepRecord& step);
  void keepSeed(const StepRecord& step);
  void takeFigures(const StepRecord& step, std::uint32_t lane);

  std::size_t m_most;
  std::size_t m_size = 0;
  bool m_hasBegun = false;
  std::chrono::system_clock::time_point m_begin;
  RunStarted m_start;
  std::map<std::string, StepStarted> m_open;
  std::vector<Problem> m_problems;
  std::map<FoldKey, Fold> m_folds;
  std::vector<Lane> m_lanes;
  std::map<std::string, std::uint32_t> m_laneByDevice;
  std::vector<Sensor> m_sensors;
  std::map<std::string, std::size_t> m_sensorById;
  std::map<FigureKey, ValuesByTest> m_figures;
  std::vector<Message> m_messages;
  std::vector<Seed> m_seeds;
  Omitted m_omitted;
};

}  // namespace TarvexDiags::FrontEnd
