#include "packages/processor/ProcessorDiagnostics.h"

#include <algorithm>
#include <array>

#include "packages/processor/Checks.h"

namespace TarvexDiags::Processor {

namespace {

using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

std::vector<Check> sustainedChecks() {
  std::vector<Check> all;
  for (const auto part : {integerChecks, floatingPointChecks, vectorChecks, cryptographyChecks,
                          loadChecks, transcendentalChecks, blockChecks, matrixChecks}) {
    const std::vector<Check> checks = part();
    all.insert(all.end(), checks.begin(), checks.end());
  }
  return all;
}

constexpr ProcessorTest kTests[] = {
    {.number = 1, .checks = integerChecks},
    {.number = 2, .checks = floatingPointChecks},
    {.number = 3, .checks = vectorChecks},
    {.number = 4, .checks = cryptographyChecks},
    {.number = 5, .checks = atomicChecks, .needs = Needs::Partner},
    {.number = 6, .checks = loadChecks},
    {.number = 7, .checks = randomGeneratorChecks},
    // All that one core does alone but the random generator, to warm the core up.
    {.number = 8, .checks = sustainedChecks, .needs = Needs::Counters},
    {.number = 9, .checks = transcendentalChecks},
    {.number = 10, .checks = blockChecks},
    {.number = 11, .checks = chainChecks, .needs = Needs::Partner},
    {.number = 12, .checks = matrixChecks},
    {.number = 13, .checks = sustainedChecks, .rests = true},
};

/// @brief When a core that works in turns has to rest, and for how long.
///
/// Short turns move the supply, long ones heat and frequency; the first work after a rest is
/// verified like all other.
class Turns {
 public:
  explicit Turns(Clock::time_point start) : m_start(start) {}

  /// @return how long to rest now, as long as the turn was meant to be; nothing while it goes on
  std::chrono::milliseconds restDue(Clock::time_point now) const {
    return now - m_start < length() ? std::chrono::milliseconds(0) : length();
  }
  void begin(Clock::time_point now) {
    m_start = now;
    ++m_turn;
  }

 private:
  std::chrono::milliseconds length() const {
    constexpr std::array<int, 4> lengths = {5, 20, 80, 160};
    return std::chrono::milliseconds(lengths[m_turn % lengths.size()]);
  }

  Clock::time_point m_start;
  std::size_t m_turn = 0;
};

}  // namespace

std::span<const ProcessorTest> processorTests() {
  return kTests;
}

std::vector<Check> availableChecks(const ProcessorTest& test) {
  std::vector<Check> checks = test.checks();
  checks.erase(std::remove_if(checks.begin(), checks.end(),
                              [](const Check& check) { return !check.available(); }),
               checks.end());
  return checks;
}

std::vector<std::string> missingChecks(const ProcessorTest& test) {
  std::vector<std::string> names;
  for (const Check& check : test.checks()) {
    if (!check.available()) {
      names.push_back(check.instructionClass);
    }
  }
  return names;
}

TestReport runTest(const ProcessorTest& test, Verifier& verifier,
                   std::chrono::milliseconds duration) {
  const std::vector<Check> checks = availableChecks(test);
  const double wanted = std::chrono::duration<double>(duration).count();
  const std::uint64_t wrong = verifier.wrongResults();
  const std::uint64_t checked = verifier.checkedResults();
  const auto start = Clock::now();
  auto now = start;
  Turns turns(start);
  TestReport report{true, 0, 0, 0, 0};
  // Time is told in whole numbers: a core that cannot divide must not end its test before the time.
  for (std::size_t turn = 0; !checks.empty() && (turn < checks.size() || now - start < duration);
       ++turn) {
    if (verifier.observer().stopRequested()) {
      report.completed = false;
      break;
    }
    const Check& check = checks[turn % checks.size()];
    verifier.begin(check.instructionClass);
    const std::uint64_t checkedBefore = verifier.checkedResults();
    const auto before = Clock::now();
    check.run(verifier);
    now = Clock::now();
    verifier.observer().checked(verifier.checkedResults() - checkedBefore);
    report.verifiedSeconds += secondsBetween(before, now);
    const double share = static_cast<double>(turn + 1) / static_cast<double>(checks.size());
    if (const auto rest = turns.restDue(now); test.rests && rest.count() > 0) {
      verifier.observer().rest(rest);
      now = Clock::now();
      turns.begin(now);
    }
    verifier.observer().progress(
        std::min({1.0, share, wanted > 0 ? secondsBetween(start, now) / wanted : 1.0}));
  }
  report.seconds = secondsBetween(start, Clock::now());
  report.wrongResults = verifier.wrongResults() - wrong;
  report.checkedResults = verifier.checkedResults() - checked;
  return report;
}

}  // namespace TarvexDiags::Processor
