// What a controller relies on, with a package of which every test is known.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/LogWish.h"
#include "packagekit/contract/SupportLines.h"
#include "packagekit/contract/ThroughputWish.h"
#include "packagekit/contract/TimeWish.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/Reaction.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Diag::DiagnosticResult;
using Diag::DiagnosticStatus;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Testing::PackageDriver;

namespace {

enum Tests { BEHAVES = 1, FINDS_FAULT = 14, SMALL_MARGIN = 15, TAKES_TIME = 16, LOOKS_AROUND = 23 };

// One request, driven step by step.
class Request {
 public:
  Request(PackageDriver& driver, std::vector<int> testIds, bool stressMode = false,
          int requestedPasses = 1)
      : m_device(driver.device("unit0")), m_diagnostics(driver.makeDiagnostics()) {
    m_settings.setTestNumberVector(std::move(testIds));
    m_settings.setStressMode(stressMode);
    m_settings.setRequestedPassCount(requestedPasses);
    m_settings.setRunTime(600);
    m_settings.setTestRequestId(7);
    m_settings.setOpenMode(DeviceEnum::IDevice::READ_WRITE);
  }
  ~Request() {
    m_diagnostics->abortDiagnostic();
    join();
  }

  Diag::DiagnosticSettings& settings() { return m_settings; }
  Diag::IDiagnostics& operator*() { return *m_diagnostics; }
  Diag::IDiagnostics* operator->() { return m_diagnostics.get(); }

  void start() {
    m_pass =
        std::thread([this] { m_result = m_diagnostics->runDiagnostic(m_device, &m_settings); });
  }
  DiagnosticResult* join() {
    if (m_pass.joinable()) {
      m_pass.join();
    }
    return m_result;
  }
  DiagnosticResult* runPass() {
    start();
    return join();
  }

  DiagnosticStatus::Status status() { return m_diagnostics->getDiagnosticStatus().getStatus(); }

  std::size_t takeEvents() {
    const std::unique_ptr<std::vector<Diag::DiagnosticEvent*>> events(
        m_diagnostics->getDiagnosticEvents());
    std::size_t count = 0;
    if (events) {
      for (auto* const event : *events) {
        EXPECT_EQ(event->getTestRequestId(), 7U);
        m_codes.push_back(event->getEventCode());
        delete event;
        ++count;
      }
    }
    return count;
  }

  std::vector<DiagnosticResult::TestResult> takeResults() {
    const std::unique_ptr<std::vector<DiagnosticResult*>> results(
        m_diagnostics->getDiagnosticResults());
    std::vector<DiagnosticResult::TestResult> verdicts;
    if (results) {
      for (auto* const result : *results) {
        EXPECT_NE(result, m_result.load());
        EXPECT_EQ(result->getTestRequestId(), 7U);
        verdicts.push_back(result->getTestResult());
        delete result;
      }
    }
    return verdicts;
  }

  const std::vector<unsigned int>& codes() const { return m_codes; }

  bool hasBegun() {
    takeEvents();
    return std::count(m_codes.begin(), m_codes.end(), TEST_STARTED) > 0;
  }

 private:
  DeviceEnum::VirtualDevice& m_device;
  std::unique_ptr<Diag::IDiagnostics> m_diagnostics;
  Diag::DiagnosticSettings m_settings;
  std::thread m_pass;
  std::atomic<DiagnosticResult*> m_result{nullptr};
  std::vector<unsigned int> m_codes;
};

// Looks until the condition holds; a deadline ends a test that would hang.
template <class Condition>
::testing::AssertionResult eventually(Condition condition, milliseconds limit = seconds(100)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return ::testing::AssertionFailure() << "not within " << limit.count() << " ms";
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
  return ::testing::AssertionSuccess();
}

class DiagnosticsContract : public ::testing::Test {
 protected:
  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

constexpr auto kPassed = DiagnosticResult::PASSED;
constexpr auto kUnusual = DiagnosticResult::UNUSUAL_STATUS;
constexpr auto kFailed = DiagnosticResult::FAILED;

}  // namespace

TEST_F(DiagnosticsContract, completed_lasts_from_the_last_event_to_the_results) {
  Request request(m_driver, {BEHAVES});
  EXPECT_EQ(request.status(), DiagnosticStatus::READY);
  const DiagnosticResult* const result = request.runPass();
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(const_cast<DiagnosticResult*>(result)->getTestResult(), kPassed);
  EXPECT_EQ(request.status(), DiagnosticStatus::EXECUTING) << "events are still queued";
  EXPECT_GT(request.takeEvents(), 0U);
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED);
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED);
  EXPECT_THAT(request.takeResults(), ::testing::ElementsAre(kPassed));
  EXPECT_EQ(request.status(), DiagnosticStatus::READY);
  EXPECT_EQ(request->getDiagnosticEvents(), nullptr);
  EXPECT_EQ(request->getDiagnosticResults(), nullptr);
}

TEST_F(DiagnosticsContract, results_taken_before_the_end_was_told_leave_it_to_be_told) {
  Request request(m_driver, {BEHAVES});
  request.runPass();
  EXPECT_THAT(request.takeResults(), ::testing::ElementsAre(kPassed));
  request.takeEvents();
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED);
  EXPECT_THAT(request.takeResults(), ::testing::IsEmpty());
  EXPECT_EQ(request.status(), DiagnosticStatus::READY);
}

TEST_F(DiagnosticsContract, every_pass_hands_over_one_result) {
  Request request(m_driver, {BEHAVES});
  for (int pass = 1; pass <= 3; ++pass) {
    request.settings().setPassCount(pass);
    request.runPass();
    request.takeEvents();
    ASSERT_EQ(request.status(), DiagnosticStatus::COMPLETED);
    EXPECT_THAT(request.takeResults(), ::testing::ElementsAre(kPassed));
  }
}

TEST_F(DiagnosticsContract, the_worst_verdict_is_that_of_the_pass) {
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES, SMALL_MARGIN, BEHAVES}).verdict, kUnusual);
  const auto run = m_driver.run("unit0", {SMALL_MARGIN, FINDS_FAULT, BEHAVES});
  EXPECT_EQ(run.verdict, kFailed);
  EXPECT_THAT(run.parametersOf(2), ::testing::ElementsAre("Unit 0", "bit 3"));
  EXPECT_THAT(run.parametersOf(3), ::testing::ElementsAre("0.1"));
}

TEST_F(DiagnosticsContract, halt_on_error_leaves_out_the_rest) {
  PackageDriver::Options options;
  options.haltOnError = true;
  const auto run = m_driver.run("unit0", {BEHAVES, FINDS_FAULT, TAKES_TIME}, options);
  EXPECT_EQ(run.verdict, kFailed);
  const auto started = [](const PackageDriver::Event& event) { return event.code == TEST_STARTED; };
  EXPECT_EQ(std::count_if(run.events.begin(), run.events.end(), started), 2);
}

TEST_F(DiagnosticsContract, tells_what_happens_in_order) {
  const auto run = m_driver.run("unit0", {BEHAVES});
  std::vector<unsigned int> codes;
  for (const auto& event : run.events) {
    codes.push_back(event.code);
  }
  EXPECT_THAT(codes, ::testing::ElementsAre(TEST_STARTED, 1, TEST_MEASUREMENT, TEST_ENDED));
  EXPECT_THAT(run.parametersOf(TEST_MEASUREMENT),
              ::testing::ElementsAre("1", "Behaves", "selftest/unit0", "answer", "42", "units"));
  EXPECT_THAT(run.parametersOf(TEST_STARTED),
              ::testing::ElementsAre("1", "Behaves", "selftest/unit0", "1", ::testing::_));
  EXPECT_EQ(run.parametersOf(TEST_ENDED)[3], "PASSED");
}

TEST_F(DiagnosticsContract, reports_progress_when_the_client_asks_for_it) {
  PackageDriver::Options options;
  EXPECT_FALSE(m_driver.run("unit0", {BEHAVES}, options).has(TEST_PROGRESS));
  options.reportStatusMessage = true;
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES}, options).parametersOf(TEST_PROGRESS)[3], "50");
}

TEST_F(DiagnosticsContract, tells_lines_of_the_log_when_the_client_asks_for_them) {
  PackageDriver::Options options;
  EXPECT_FALSE(m_driver.run("unit0", {LOOKS_AROUND}, options).has(TEST_LOG_LINE));
  options.parameters = Contract::toLogWishLine();
  EXPECT_THAT(m_driver.run("unit0", {LOOKS_AROUND}, options).parametersOf(TEST_LOG_LINE),
              ::testing::ElementsAre("23", "Looks around", "selftest/unit0", "looked around"));
  EXPECT_THAT(m_driver.logText(), ::testing::HasSubstr("looked around"));
}

TEST_F(DiagnosticsContract, tells_the_time_of_each_event_when_the_client_asks_for_it) {
  using Time = std::chrono::system_clock::time_point;
  PackageDriver::Options options;
  for (const auto& event : m_driver.run("unit0", {BEHAVES}, options).events) {
    std::vector<std::string> parameters = event.parameters;
    EXPECT_FALSE(Contract::takeTime(parameters)) << event.code;
  }
  options.parameters = Contract::toTimeWishLine();
  const Time before = std::chrono::floor<std::chrono::milliseconds>(Time::clock::now());
  const auto run = m_driver.run("unit0", {BEHAVES}, options);
  EXPECT_TRUE(run.has(TEST_STARTED) && run.has(TEST_ENDED));
  for (const auto& event : run.events) {
    std::vector<std::string> parameters = event.parameters;
    const auto time = Contract::takeTime(parameters);
    ASSERT_TRUE(time) << event.code;
    EXPECT_GE(*time, before) << event.code;
    EXPECT_LE(*time, Time::clock::now()) << event.code;
  }
}

TEST_F(DiagnosticsContract, a_flood_of_log_lines_is_bounded_and_costs_no_event_of_the_test) {
  m_driver.set("TestID23", "LogLines", "1500").set("Package", "MaxEvents", "50");
  PackageDriver::Options options;
  options.parameters = Contract::toLogWishLine();
  const auto run = m_driver.run("unit0", {LOOKS_AROUND}, options);
  std::vector<std::string> lines;
  for (const auto& event : run.events) {
    if (event.code == TEST_LOG_LINE) {
      lines.push_back(event.parameters.back());
    }
  }
  ASSERT_EQ(lines.size(), 1000U);
  EXPECT_EQ(lines[998], "looked around");
  EXPECT_EQ(lines[999], "...");
  EXPECT_FALSE(run.has(EVENTS_DROPPED));
}

TEST_F(DiagnosticsContract, tells_how_fast_a_test_is_when_the_client_asks_for_it) {
  PackageDriver::Options options;
  EXPECT_FALSE(m_driver.run("unit0", {LOOKS_AROUND}, options).has(TEST_THROUGHPUT));
  options.parameters = Contract::toThroughputWishLine();
  EXPECT_THAT(m_driver.run("unit0", {LOOKS_AROUND}, options).parametersOf(TEST_THROUGHPUT),
              ::testing::ElementsAre("23", "Looks around", "selftest/unit0", "12.5", "looks/s"));
}

TEST_F(DiagnosticsContract, a_flood_of_throughputs_is_thinned_and_costs_no_event_of_the_test) {
  m_driver.set("TestID23", "Throughputs", "1500").set("Package", "MaxEvents", "50");
  PackageDriver::Options options;
  options.parameters = Contract::toThroughputWishLine();
  const auto run = m_driver.run("unit0", {LOOKS_AROUND}, options);
  const auto told = std::count_if(run.events.begin(), run.events.end(),
                                  [](const auto& event) { return event.code == TEST_THROUGHPUT; });
  EXPECT_GE(told, 1);
  EXPECT_LT(told, 100);
  EXPECT_FALSE(run.has(EVENTS_DROPPED));
}

TEST_F(DiagnosticsContract, quick_mode_reaches_the_test) {
  PackageDriver::Options options;
  options.quickMode = true;
  EXPECT_EQ(m_driver.run("unit0", {TAKES_TIME}, options).verdict, kPassed);
}

TEST_F(DiagnosticsContract, the_open_mode_reaches_the_test) {
  PackageDriver::Options options;
  options.openMode = DeviceEnum::IDevice::READ_ONLY;
  EXPECT_EQ(m_driver.run("unit0", {LOOKS_AROUND}, options).measurement("openMode"), "1");
}

TEST_F(DiagnosticsContract, a_reason_reaches_a_client_that_wants_it) {
  const Contract::SupportInbox inbox;
  EXPECT_TRUE(m_driver.supports("unit0", 20));
  EXPECT_FALSE(m_driver.supports("unit1", 20));
  const auto lines = inbox.lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].package, "misbehaving");
  EXPECT_EQ(lines[0].testId, 20);
  EXPECT_EQ(lines[0].resourceTag, "selftest/unit1");
  EXPECT_EQ(lines[0].reason, "unit 1 is excused");
  EXPECT_EQ(lines[0].detail, "");
}

TEST_F(DiagnosticsContract, a_test_that_writes_needs_an_open_mode_for_it) {
  PackageDriver factory(TARVEX_SELFTEST_DIR, "misbehaving", DiagnosticMode::FACTORY);
  EXPECT_FALSE(m_driver.supports("unit0", 21));
  EXPECT_TRUE(factory.supports("unit0", 21));
  PackageDriver::Options options;
  options.openMode = DeviceEnum::IDevice::READ_ONLY;
  const auto refused = factory.run("unit0", {21}, options);
  EXPECT_EQ(refused.verdict, kUnusual);
  EXPECT_TRUE(refused.has(OPEN_MODE_REFUSED));
  EXPECT_EQ(factory.run("unit0", {21}).verdict, kPassed);
}

TEST_F(DiagnosticsContract, estimation_answers_without_running) {
  PackageDriver::Options options;
  options.estimationMode = true;
  auto run = m_driver.run("unit0", {BEHAVES}, options);
  EXPECT_EQ(run.estimatedTime, 3) << "as configured";
  EXPECT_TRUE(run.events.empty());
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES, TAKES_TIME}, options).estimatedTime, 15);
  options.quickMode = true;
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES}, options).estimatedTime, 3) << "no other figure";
  m_driver.set("TestID1", "QuickTestEstimatedTime", "0.4");
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES}, options).estimatedTime, 1);
  options.quickMode = false;
  m_driver.set("TestID1", "TestEstimatedTime", "-1");
  EXPECT_EQ(m_driver.run("unit0", {BEHAVES, TAKES_TIME}, options).estimatedTime, -1);
}

TEST_F(DiagnosticsContract, stress_loops_by_itself_until_the_passes_are_done) {
  Request request(m_driver, {BEHAVES}, true, 3);
  request.start();
  // The controller writes the count of passes back, as it does in stress mode.
  ASSERT_TRUE(eventually([&] {
    request.takeEvents();
    const auto status = request->getDiagnosticStatus();
    request.settings().setPassCount(static_cast<int>(status.getPassCount()));
    return status.getStatus() == DiagnosticStatus::COMPLETED;
  }));
  EXPECT_EQ(request.join()->getTestResult(), kPassed);
  EXPECT_EQ(request->getDiagnosticStatus().getPassCount(), 3U);
  EXPECT_EQ(request.takeResults().size(), 3U);
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED) << "for ever";
}

TEST_F(DiagnosticsContract, stress_ends_when_its_time_is_over) {
  const auto onePass = m_driver.run("unit0", {BEHAVES}).duration;
  const auto time = seconds(1) + std::chrono::ceil<seconds>(5 * onePass);  // for several
  PackageDriver::Options options;
  options.stressMode = true;
  options.requestedPassCount = 1'000'000;
  options.runTime = static_cast<Ulong>(time.count());
  const auto run = m_driver.run("unit0", {BEHAVES}, options);
  EXPECT_GE(run.duration, time);
  EXPECT_LT(run.duration, time + seconds(60));
  EXPECT_GT(run.results.size(), 1U);
}

TEST_F(DiagnosticsContract, stress_halts_at_the_first_error_when_told_to) {
  PackageDriver::Options options;
  options.stressMode = true;
  options.requestedPassCount = 5;
  options.haltOnError = true;
  const auto run = m_driver.run("unit0", {FINDS_FAULT}, options);
  EXPECT_THAT(run.results, ::testing::ElementsAre(kFailed));
  EXPECT_EQ(run.verdict, kFailed);
}

TEST_F(DiagnosticsContract, an_abort_before_the_run_keeps_the_device_untouched) {
  Request request(m_driver, {TAKES_TIME});
  request->abortDiagnostic();
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED) << "it will never run";
  EXPECT_EQ(request.runPass()->getTestResult(), kUnusual);
  EXPECT_EQ(request.takeEvents(), 0U);
  EXPECT_THAT(request.takeResults(), ::testing::ElementsAre(kUnusual));
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED);
}

TEST_F(DiagnosticsContract, an_abort_during_the_run_ends_it_soon) {
  const TestSupport::Reaction reaction;
  Request request(m_driver, {TAKES_TIME, BEHAVES});
  request.start();
  ASSERT_TRUE(eventually([&] { return request.hasBegun(); }));
  const auto start = std::chrono::steady_clock::now();
  request->abortDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kUnusual);
  EXPECT_LT(std::chrono::steady_clock::now() - start, reaction.allowed(seconds(5)));
  request.takeEvents();
  EXPECT_THAT(request.codes(), ::testing::Contains(static_cast<unsigned int>(TEST_ABORTED)));
  EXPECT_THAT(request.codes(), ::testing::Not(::testing::Contains(1U))) << "the rest is left out";
  EXPECT_EQ(request.takeResults().size(), 1U);
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED) << "for ever";
}

TEST_F(DiagnosticsContract, a_fault_found_before_the_abort_stands) {
  Request request(m_driver, {FINDS_FAULT, TAKES_TIME});
  request.start();
  ASSERT_TRUE(eventually([&] {
    request.takeEvents();
    return std::count(request.codes().begin(), request.codes().end(), TEST_STARTED) == 2;
  }));
  request->abortDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kFailed);
}

TEST_F(DiagnosticsContract, suspend_stops_the_process_and_resume_continues_it) {
  m_driver.set("TestID16", "Milliseconds", "30000");  // a step of progress every 300
  Request request(m_driver, {TAKES_TIME});
  request.start();
  ASSERT_TRUE(eventually([&] { return request.hasBegun(); }));
  request->suspendDiagnostic();
  EXPECT_EQ(request.status(), DiagnosticStatus::SUSPENDED);
  // The signal takes its time, and what was told before it may be read behind it.
  unsigned int progress = 0;
  EXPECT_TRUE(eventually([&] {
    progress = request->getDiagnosticStatus().getProgress();
    std::this_thread::sleep_for(milliseconds(600));
    return request->getDiagnosticStatus().getProgress() == progress;
  }));
  EXPECT_EQ(request.status(), DiagnosticStatus::SUSPENDED);
  request->resumeDiagnostic();
  EXPECT_TRUE(eventually([&] { return request->getDiagnosticStatus().getProgress() > progress; }));
  EXPECT_EQ(request.status(), DiagnosticStatus::EXECUTING);
}

TEST_F(DiagnosticsContract, time_stands_still_for_a_suspended_test) {
  m_driver.set("TestID16", "Milliseconds", "200").set("TestID16", "TestTimeout", "6");
  Request request(m_driver, {TAKES_TIME});
  request.start();
  ASSERT_TRUE(eventually([&] { return request.hasBegun(); }));
  request->suspendDiagnostic();
  std::this_thread::sleep_for(milliseconds(6200));  // longer than the test may take
  request->resumeDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kPassed);
}

TEST_F(DiagnosticsContract, an_abort_wakes_a_suspended_test) {
  Request request(m_driver, {TAKES_TIME});
  request.start();
  ASSERT_TRUE(eventually([&] { return request.hasBegun(); }));
  request->suspendDiagnostic();
  std::this_thread::sleep_for(milliseconds(50));
  request->abortDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kUnusual);
}

TEST_F(DiagnosticsContract, a_suspend_before_the_run_holds_it_at_its_start) {
  Request request(m_driver, {BEHAVES});
  request->suspendDiagnostic();
  EXPECT_EQ(request.status(), DiagnosticStatus::READY);
  request.start();
  ASSERT_TRUE(eventually([&] { return request.status() == DiagnosticStatus::SUSPENDED; }));
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_EQ(request.takeEvents(), 0U);
  request->resumeDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kPassed);
}

TEST_F(DiagnosticsContract, an_abort_wakes_a_run_that_is_held_at_its_start) {
  Request request(m_driver, {BEHAVES});
  request->suspendDiagnostic();
  request.start();
  ASSERT_TRUE(eventually([&] { return request.status() == DiagnosticStatus::SUSPENDED; }));
  request->abortDiagnostic();
  EXPECT_EQ(request.join()->getTestResult(), kUnusual);
}

TEST_F(DiagnosticsContract, a_suspend_after_the_end_is_ignored) {
  Request request(m_driver, {BEHAVES});
  request.runPass();
  request->suspendDiagnostic();
  request.takeEvents();
  EXPECT_EQ(request.status(), DiagnosticStatus::COMPLETED);
  request.takeResults();
  EXPECT_EQ(request.runPass()->getTestResult(), kPassed);
}

TEST_F(DiagnosticsContract, clients_may_ask_at_full_speed_while_tests_run) {
  Request request(m_driver, {BEHAVES, FINDS_FAULT, LOOKS_AROUND}, true, 10);
  std::atomic<bool> stop{false};
  std::thread asking([&] {
    while (!stop) {
      request->getDiagnosticStatus();
      request->resumeDiagnostic();
      std::this_thread::yield();
    }
  });
  request.start();
  std::size_t results = 0;
  EXPECT_TRUE(eventually([&] {
    request.takeEvents();
    results += request.takeResults().size();
    return request.status() == DiagnosticStatus::COMPLETED;
  }));
  stop = true;
  asking.join();
  EXPECT_EQ(results + request.takeResults().size(), 10U);
  EXPECT_EQ(request.join()->getTestResult(), kFailed);
}

TEST_F(DiagnosticsContract, requests_on_several_devices_run_at_once) {
  m_driver.set("TestID16", "Milliseconds", "50");
  m_driver.devices();
  std::vector<std::thread> threads;
  std::atomic<int> passedRuns{0};
  for (int client = 0; client < 8; ++client) {
    threads.emplace_back([&, client] {
      const auto diagnostics = m_driver.makeDiagnostics();
      auto device = m_driver.device(client % 2 == 0 ? "unit0" : "unit1");
      Diag::DiagnosticSettings settings;
      settings.setTestNumberVector({BEHAVES, TAKES_TIME});
      passedRuns += diagnostics->runDiagnostic(device, &settings)->getTestResult() == kPassed;
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(passedRuns, 8);
}

TEST_F(DiagnosticsContract, a_device_that_is_not_the_kits_is_tested_all_the_same) {
  DeviceEnum::VirtualDevice stranger(new DeviceEnum::IDevice("a/b", "b", "b"));
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({BEHAVES});
  EXPECT_EQ(diagnostics->runDiagnostic(stranger, &settings)->getTestResult(), kPassed);
}

TEST_F(DiagnosticsContract, configuration_and_properties_reach_the_test) {
  const auto run = m_driver.run("unit0", {LOOKS_AROUND});
  EXPECT_EQ(run.measurement("property"), "a = [b]");
  EXPECT_EQ(run.measurement("setting"), "from the test");
  EXPECT_EQ(run.measurement("packageSetting"), "from the package");
  EXPECT_THAT(m_driver.logText(), ::testing::HasSubstr("selftest/unit0: looked around"));
}

TEST_F(DiagnosticsContract, the_seed_is_new_for_each_pass_unless_configured) {
  const auto seedOf = [](const PackageDriver::Run& run) {
    return run.parametersOf(TEST_STARTED).back();
  };
  EXPECT_NE(seedOf(m_driver.run("unit0", {BEHAVES})), seedOf(m_driver.run("unit0", {BEHAVES})));
  m_driver.set("Package", "Seed", "4711");
  EXPECT_EQ(seedOf(m_driver.run("unit0", {BEHAVES})), "4711");
}
