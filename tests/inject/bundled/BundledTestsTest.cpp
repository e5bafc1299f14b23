// What each test of each bundled package owes whoever runs it: an answer to an abort, whenever it
// comes, and an end. The list of tests comes from the packages, so a new one is under test at once.

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "packagekit/ResourceTags.h"
#include "packagekit/Settings.h"
#include "tests/inject/bundled/TestRuns.h"
#include "tests/support/Reaction.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::BundledTests {
namespace {

using namespace std::chrono_literals;
using Clock = BundledTest::Clock;
using PackageKit::Testing::PackageDriver;

constexpr int kMoments = 10;
constexpr auto kAnswerTime = 500ms;

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

/// Why the package offers a test nowhere, as its log tells it.
std::string reasonsAgainst(int number, const PackageDriver& driver) {
  std::istringstream log(driver.logText());
  const std::string about = "test " + std::to_string(number) + " is not supported on ";
  std::set<std::string> reasons;
  for (std::string line; std::getline(log, line);) {
    if (const auto position = line.find(about); position != std::string::npos) {
      reasons.insert(line.substr(position + about.size()));
    }
  }
  std::string text;
  for (const std::string& reason : reasons) {
    text += "  on " + reason + "\n";
  }
  return text.empty() ? "  the package finds no device here\n" : text;
}

/// Runs it for each test of the package: on a device that offers it. One that this machine offers
/// nowhere is named with the reason, and only where the arrangement says that this may be.
void forEachTest(const std::string& package,
                 const std::function<void(const BundledTest&)>& action) {
  enterOwnNamespace();
  const Machine machine;
  const std::vector<Arrangement> all = machine.arrangements();
  int tried = 0;
  for (const Arrangement& arrangement : all) {
    if (arrangement.package != package) {
      continue;
    }
    PackageDriver driver(TARVEX_PACKAGE_DIR, arrangement.package, arrangement.mode);
    for (const auto& [section, key, value] : arrangement.changes) {
      driver.set(section, key, value);
    }
    const std::set<int> numbers = numbersOf(arrangement, all, driver);
    EXPECT_FALSE(numbers.empty()) << arrangement.package;
    for (const int number : numbers) {
      ++tried;
      const std::string device = deviceFor(number, arrangement, driver);
      if (!device.empty()) {
        action(BundledTest(driver, arrangement, device, number));
        continue;
      }
      std::ostringstream told;
      told << package << " offers test " << number << " nowhere:\n"
           << reasonsAgainst(number, driver);
      std::cout << told.str();
      EXPECT_TRUE(arrangement.needsHardware) << told.str();
    }
  }
  EXPECT_GT(tried, 0) << "of " << package;
}

bool hasNoChildren() {
  siginfo_t ended{};
  return waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

/// How a test answered aborts at different moments of its run.
struct Answers {
  int count = 0;
  Clock::duration slowest{};
  Clock::duration slowestAt{};  ///< after the start of the run
  Clock::duration whole{};      ///< the run that the moments are parts of
};

/// The first answer counts: what it may take beyond half a second is what an empty process took at
/// the same time, on this machine as busy as it is. Where a run ends before it is aborted, the
/// moments are parts of that shorter run from then on, and it is tried again.
/// @return whether it was aborted at that moment
bool answersAt(int moment, const BundledTest& test, TestSupport::Reaction& reaction,
               Answers& answers) {
  constexpr int attempts = 100;  // a run of some milliseconds is easily missed
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const Clock::duration asked = answers.whole * moment / kMoments;
    const auto outcome = test.abortAfter(asked, [&] { reaction.forget(); });
    const Clock::duration allowed = reaction.allowed(kAnswerTime);
    EXPECT_TRUE(hasNoChildren()) << test.name() << " left its worker behind";
    if (!outcome.wasAborted) {
      answers.whole = std::min(answers.whole, outcome.took);
      continue;
    }
    EXPECT_LE(outcome.took, allowed) << test.name() << ", asked " << milliseconds(asked)
                                     << " ms after its start; an empty process took "
                                     << milliseconds(reaction.slowest()) << " ms";
    if (outcome.took > answers.slowest) {
      answers.slowest = outcome.took;
      answers.slowestAt = asked;
    }
    return true;
  }
  return false;
}

Answers answersOf(const BundledTest& test, TestSupport::Reaction& reaction) {
  Answers answers;
  answers.whole = test.run().duration;
  for (int moment = 0; moment < kMoments; ++moment) {
    answers.count += answersAt(moment, test, reaction, answers) ? 1 : 0;
  }
  return answers;
}

/// One case for each package that is there, also for those that nobody thought of.
class BundledTests : public ::testing::TestWithParam<std::string> {};

TEST_P(BundledTests, answer_an_abort_within_half_a_second_at_any_moment_of_their_run) {
  TestSupport::Reaction reaction;
  forEachTest(GetParam(), [&](const BundledTest& test) {
    const Answers answers = answersOf(test, reaction);
    std::ostringstream told;
    told << test.name() << ": " << answers.count << " aborts in a run of "
         << milliseconds(answers.whole) << " ms, the slowest answer after "
         << milliseconds(answers.slowest) << " ms, asked at " << milliseconds(answers.slowestAt)
         << " ms\n";
    std::cout << told.str();
    EXPECT_EQ(answers.count, kMoments) << told.str();
  });
}

std::chrono::seconds timeAllowed(const BundledTest& test) {
  return std::max<std::chrono::seconds>(4 * test.estimate(), 10s);
}

TEST_P(BundledTests, end_with_their_verdict_within_four_times_their_estimate_or_ten_seconds) {
  forEachTest(GetParam(), [](const BundledTest& test) {
    const auto allowed = timeAllowed(test);
    const auto run = test.run();
    EXPECT_LE(run.duration, allowed) << test.name();
    EXPECT_EQ(run.verdict, Diag::DiagnosticResult::PASSED)
        << test.name() << " tells event " << (run.events.empty() ? 0U : run.events.back().code);
  });
}

INSTANTIATE_TEST_SUITE_P(of, BundledTests, ::testing::ValuesIn(namesOfPackages()),
                         [](const auto& package) { return package.param; });

TEST(DevicesThatAnswerNothing, end_the_tests_as_soon_as_others) {
  enterOwnNamespace();
  makeSilentInterfaces();
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DeviceEnum::IDeviceEnumerator::FACTORY);
  driver.set("TestID6", "FirstInterface", "left").set("TestID6", "SecondInterface", "right");
  const Arrangement network{.package = "network"};
  const BundledTest tests[] = {
      {driver, network, "lo", 4}, {driver, network, "lo", 5}, {driver, network, "left", 6}};
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
