// How much of the wall time of a pass goes into verified work, on each core: a request for tests 1
// to 7, from the call to its end, the worker process and everything between the tests included.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/support/Comparison.h"
#include "packagekit/KitEvents.h"
#include "packagekit/testing/PackageDriver.h"
#include "packages/common/CpuList.h"

namespace TarvexDiags {
namespace {

using PackageKit::Testing::PackageDriver;

constexpr double kWantedShare = 95;

/// @brief Seconds that all tests of a run spent on work whose results were compared.
double verifiedSeconds(const PackageDriver::Run& run) {
  double seconds = 0;
  for (const PackageDriver::Event& event : run.events) {
    if (event.code == PackageKit::TEST_MEASUREMENT && event.parameters.at(3) == "verifiedTime") {
      seconds += std::atof(event.parameters.at(4).c_str());
    }
  }
  return seconds;
}

/// @brief The median share of some rounds, in percent.
double shareOf(PackageDriver& driver, int core, int rounds) {
  const std::string name = "cpu" + std::to_string(core);
  std::vector<int> tests;
  for (int test = 1; test <= 7; ++test) {
    if (driver.supports(name, test)) {
      tests.push_back(test);
    }
  }
  std::vector<double> shares;
  for (int round = 0; round < rounds; ++round) {
    const PackageDriver::Run run = driver.run(name, tests);
    const double wall = std::chrono::duration<double>(run.duration).count();
    if (run.verdict != Diag::DiagnosticResult::PASSED) {
      std::fprintf(stderr, "%s did not pass\n", name.c_str());
      std::exit(1);
    }
    shares.push_back(100 * verifiedSeconds(run) / wall);
  }
  return Bench::medianOf(shares);
}

}  // namespace
}  // namespace TarvexDiags

/// Usage: processor_share [seconds of each test [rounds]]
int main(int count, char** texts) {
  using namespace TarvexDiags;
  PackageDriver driver(TARVEX_PACKAGE_DIR, "processor");
  driver.set("Package", "DurationSeconds", count > 1 ? texts[1] : "1");
  const int rounds = count > 2 ? std::max(std::atoi(texts[2]), 1) : 5;
  bool good = true;
  std::printf(
      "| Core | Verified work, share of wall time | Target | Reached |\n|---|---:|---:|---|\n");
  for (const int core : Common::allowedCpus()) {
    const double share = shareOf(driver, core, rounds);
    std::printf("| cpu%d | %.2f %% | %.0f %% | %s |\n", core, share, kWantedShare,
                share >= kWantedShare ? "yes" : "no");
    good &= share >= kWantedShare;
  }
  return good ? 0 : 1;
}
