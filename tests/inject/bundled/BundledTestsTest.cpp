// What each test of each bundled package owes whoever runs it: an answer to an abort, whenever it
// comes, and an end. The list of tests comes from the packages, so a new one is under test at once.

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <iostream>
#include <optional>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "packagekit/ResourceTags.h"
#include "packagekit/Settings.h"
#include "tests/inject/bundled/TestRuns.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::BundledTests {
namespace {

using namespace std::chrono_literals;
using Clock = BundledTest::Clock;
using PackageKit::Testing::PackageDriver;

constexpr int kMoments = 10;
constexpr auto kAnswerTime = 500ms;
constexpr Clock::duration kLongestLook = 1s;  ///< the moments lie in the first part of a longer run

/// The numbers that the arrangement is for: its own, or all that no other one has taken.
std::set<int> numbersOf(const Arrangement& arrangement, const std::vector<Arrangement>& all,
                        const PackageDriver& driver) {
  if (!arrangement.tests.empty()) {
    return {arrangement.tests.begin(), arrangement.tests.end()};
  }
  const auto count = PackageKit::Settings(driver.configFile()).package("NumberOfTests");
  std::set<int> numbers;
  for (int number = 1; number <= std::stoi(count.value_or("0")); ++number) {
    numbers.insert(number);
  }
  for (const Arrangement& other : all) {
    for (const int number :
         other.package == arrangement.package ? other.tests : std::vector<int>()) {
      numbers.erase(number);
    }
  }
  return numbers;
}

/// The device to run the test on; empty when none offers it.
std::string deviceFor(int number, const Arrangement& arrangement, PackageDriver& driver) {
  for (auto& found : driver.devices()) {
    const std::string device = PackageKit::lastComponent(found.getDevice()->getResourceTag());
    if ((arrangement.device.empty() || arrangement.device == device) &&
        driver.supports(device, number)) {
      return device;
    }
  }
  return {};
}

void forEachTest(const std::function<void(const BundledTest&)>& action) {
  enterOwnNamespace();
  const Machine machine;
  const std::vector<Arrangement> all = machine.arrangements();
  for (const Arrangement& arrangement : all) {
    PackageDriver driver(TARVEX_PACKAGE_DIR, arrangement.package, arrangement.mode);
    for (const auto& [section, key, value] : arrangement.changes) {
      driver.set(section, key, value);
    }
    const std::set<int> numbers = numbersOf(arrangement, all, driver);
    EXPECT_FALSE(numbers.empty()) << arrangement.package;
    for (const int number : numbers) {
      const std::string device = deviceFor(number, arrangement, driver);
      if (!device.empty()) {
        action(BundledTest(driver, arrangement.package, device, number));
      } else if (!needsRareHardware(arrangement.package, number)) {
        ADD_FAILURE() << arrangement.package << " offers test " << number << " nowhere:\n"
                      << driver.logText();
      }
    }
  }
}

bool hasNoChildren() {
  siginfo_t ended{};
  return waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

/// How a test answered aborts at different moments of its run.
struct Answers {
  int count = 0;
  Clock::duration slowest{};
  Clock::duration slowestAt{};  ///< after the start of the run
  Clock::duration whole{};      ///< the run that the moments are parts of
};

/// At each moment the quickest answer of three at most counts: a machine that is busy elsewhere is
/// late once, a test that does not listen each time. Where a run ends before it is aborted, the
/// moments are parts of that shorter run from then on.
Answers answersOf(const BundledTest& test) {
  Answers answers;
  answers.whole = std::min<Clock::duration>(test.run().duration, kLongestLook);
  for (int moment = 0; moment < kMoments; ++moment) {
    std::optional<Clock::duration> best;
    for (int attempt = 0; attempt < 3 && (!best || *best > kAnswerTime); ++attempt) {
      const auto outcome = test.abortAfter(answers.whole * moment / kMoments);
      EXPECT_TRUE(hasNoChildren()) << test.name() << " left its worker behind";
      if (outcome.wasAborted) {
        best = std::min(best.value_or(outcome.took), outcome.took);
      } else {
        answers.whole = std::min(answers.whole, outcome.took);
      }
    }
    answers.count += best ? 1 : 0;
    if (best.value_or(Clock::duration::zero()) > answers.slowest) {
      answers.slowest = *best;
      answers.slowestAt = answers.whole * moment / kMoments;
    }
  }
  return answers;
}

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

TEST(BundledTests, answer_an_abort_within_half_a_second_at_any_moment_of_their_run) {
  forEachTest([](const BundledTest& test) {
    const Answers answers = answersOf(test);
    std::ostringstream told;
    told << test.name() << ": " << answers.count << " aborts in a run of "
         << milliseconds(answers.whole) << " ms, the slowest answer after "
         << milliseconds(answers.slowest) << " ms, asked at " << milliseconds(answers.slowestAt)
         << " ms\n";
    std::cout << told.str();
    EXPECT_LE(answers.slowest, kAnswerTime) << told.str();
    EXPECT_GE(answers.count, kMoments - 2) << told.str();
  });
}

std::chrono::seconds timeAllowed(const BundledTest& test) {
  return std::max<std::chrono::seconds>(4 * test.estimate(), 10s);
}

TEST(BundledTests, end_within_four_times_their_estimate_or_ten_seconds) {
  forEachTest([](const BundledTest& test) {
    const auto allowed = timeAllowed(test);
    const auto run = test.run();
    EXPECT_LE(run.duration, allowed) << test.name();
    EXPECT_NE(run.verdict, Diag::DiagnosticResult::FAILED) << test.name();
  });
}

TEST(BundledTests, end_as_soon_on_devices_that_answer_nothing) {
  enterOwnNamespace();
  makeSilentInterfaces();
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DeviceEnum::IDeviceEnumerator::FACTORY);
  driver.set("TestID6", "FirstInterface", "left").set("TestID6", "SecondInterface", "right");
  const BundledTest tests[] = {
      {driver, "network", "lo", 4}, {driver, "network", "lo", 5}, {driver, "network", "left", 6}};
  std::vector<std::thread> runs;
  for (const BundledTest& test : tests) {
    runs.emplace_back([&test, allowed = timeAllowed(test)] {
      const auto outcome = test.abortAfter(allowed);
      EXPECT_FALSE(outcome.wasAborted)
          << test.name() << " went on after " << allowed.count() << " s";
      EXPECT_GT(outcome.took, 100ms) << test.name() << " did not even wait for an answer";
      std::ostringstream told;
      told << test.name() << ": " << milliseconds(outcome.took) / 1000 << " of " << allowed.count()
           << " s\n";
      std::cout << told.str();
    });
  }
  for (std::thread& run : runs) {
    run.join();
  }
}

}  // namespace
}  // namespace TarvexDiags::BundledTests
