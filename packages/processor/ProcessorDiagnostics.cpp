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
  for (const auto part :
       {integerChecks, floatingPointChecks, vectorChecks, cryptographyChecks, loadChecks}) {
    const std::vector<Check> checks = part();
    all.insert(all.end(), checks.begin(), checks.end());
  }
  return all;
}

// In the order of TestNumber.
constexpr std::array<std::vector<Check> (*)(), 8> kCheckLists = {
    integerChecks, floatingPointChecks, vectorChecks,          cryptographyChecks,
    atomicChecks,  loadChecks,          randomGeneratorChecks, sustainedChecks};

std::vector<Check> allChecks(TestNumber number) {
  return kCheckLists.at(static_cast<std::size_t>(number) - 1)();
}

}  // namespace

std::vector<Check> availableChecks(TestNumber number) {
  std::vector<Check> checks = allChecks(number);
  checks.erase(std::remove_if(checks.begin(), checks.end(),
                              [](const Check& check) { return !check.available(); }),
               checks.end());
  return checks;
}

std::vector<std::string> missingChecks(TestNumber number) {
  std::vector<std::string> names;
  for (const Check& check : allChecks(number)) {
    if (!check.available()) {
      names.push_back(check.instructionClass);
    }
  }
  return names;
}

TestReport runTest(TestNumber number, Verifier& verifier, std::chrono::milliseconds duration) {
  const std::vector<Check> checks = availableChecks(number);
  const double wanted = std::chrono::duration<double>(duration).count();
  const std::uint64_t wrong = verifier.wrongResults();
  const std::uint64_t checked = verifier.checkedResults();
  const auto start = Clock::now();
  auto now = start;
  TestReport report{true, 0, 0, 0, 0};
  for (std::size_t turn = 0;
       !checks.empty() && (turn < checks.size() || secondsBetween(start, now) < wanted); ++turn) {
    if (verifier.observer().stopRequested()) {
      report.completed = false;
      break;
    }
    const Check& check = checks[turn % checks.size()];
    verifier.begin(check.instructionClass);
    const auto before = Clock::now();
    check.run(verifier);
    now = Clock::now();
    report.verifiedSeconds += secondsBetween(before, now);
    const double share = static_cast<double>(turn + 1) / static_cast<double>(checks.size());
    verifier.observer().progress(
        std::min({1.0, share, wanted > 0 ? secondsBetween(start, now) / wanted : 1.0}));
  }
  report.seconds = secondsBetween(start, Clock::now());
  report.wrongResults = verifier.wrongResults() - wrong;
  report.checkedResults = verifier.checkedResults() - checked;
  return report;
}

}  // namespace TarvexDiags::Processor
