// Each test of the misbehaving package: nothing of it reaches the host, and all of it is told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/PackageTexts.h"
#include "packagekit/PhysicalAddress.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/Eventually.h"
#include "tests/support/Reaction.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryDirectory.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Diag::DiagnosticResult;
using ::testing::HasSubstr;
using Testing::PackageDriver;

namespace {

constexpr int kBehaves = 1;
constexpr unsigned int kFaultFound = 2;

class Misbehaviour : public ::testing::Test {
 protected:
  // A test that behaves follows, on the same device, in the same pass: it must not suffer.
  PackageDriver::Run runBefore(int testId) {
    const auto run = m_driver.run("unit0", {testId, kBehaves});
    const auto endings = endingsOf(run);
    EXPECT_EQ(endings.size(), 2U);
    EXPECT_EQ(endings.empty() ? "" : endings.back(), "PASSED");
    EXPECT_THAT(m_driver.eventsWithoutToken(), ::testing::IsEmpty());
    return run;
  }

  static std::vector<std::string> endingsOf(const PackageDriver::Run& run) {
    std::vector<std::string> endings;
    for (const auto& event : run.events) {
      if (event.code == TEST_ENDED) {
        endings.push_back(event.parameters[3]);
      }
    }
    return endings;
  }

  static std::vector<std::string> measurementsOf(const PackageDriver::Run& run,
                                                 const std::string& name) {
    std::vector<std::string> values;
    for (const auto& event : run.events) {
      if (event.code == TEST_MEASUREMENT && event.parameters[3] == name) {
        values.push_back(event.parameters[4]);
      }
    }
    return values;
  }

  // Trouble of the tool: an error event that names test and device, and no failed device.
  void expectTrouble(const PackageDriver::Run& run, unsigned int code, const std::string& testId) {
    EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
    expectTold(run, code, testId);
  }

  // A fault that was found before the trouble stands.
  void expectFaultBeside(const PackageDriver::Run& run, unsigned int code,
                         const std::string& testId) {
    EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
    EXPECT_EQ(endingsOf(run).front(), "FAILED");
    EXPECT_EQ(run.parametersOf(kFaultFound).back(), "bit 3");
    expectTold(run, code, testId);
  }

  void expectTold(const PackageDriver::Run& run, unsigned int code, const std::string& testId) {
    ASSERT_TRUE(run.has(code));
    const auto& parameters = run.parametersOf(code);
    EXPECT_EQ(parameters[0], testId);
    EXPECT_NE(parameters[1], "?");
    EXPECT_EQ(parameters[2], "selftest/unit0");
    for (const auto& event : run.events) {
      if (event.code == code) {
        EXPECT_EQ(event.type, Contract::findKitCode(code)->type);
      }
    }
  }

  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

// Whether an event of that code was among those that were waiting.
bool tookEvent(Diag::IDiagnostics& diagnostics, unsigned int code) {
  const std::unique_ptr<std::vector<Diag::DiagnosticEvent*>> events(
      diagnostics.getDiagnosticEvents());
  bool isTaken = false;
  if (events) {
    for (auto* const event : *events) {
      isTaken = isTaken || event->getEventCode() == code;
      delete event;
    }
  }
  return isTaken;
}

// Those of a test that tells them and goes on.
struct Processes {
  pid_t worker = 0;
  pid_t reaper = 0;
  pid_t child = 0;
};

Processes processesTold(Diag::IDiagnostics& diagnostics) {
  Processes processes;
  const auto takeThem = [&] {
    const std::unique_ptr<std::vector<Diag::DiagnosticEvent*>> events(
        diagnostics.getDiagnosticEvents());
    for (std::size_t index = 0; events && index < events->size(); ++index) {
      const std::unique_ptr<Diag::DiagnosticEvent> event((*events)[index]);
      if (event->getEventCode() == TEST_MEASUREMENT) {
        const auto& parameters = event->getParamVector();
        const std::map<std::string, pid_t*> places = {{"process", &processes.worker},
                                                      {"reaper", &processes.reaper},
                                                      {"child", &processes.child}};
        if (const auto place = places.find(parameters[3]); place != places.end()) {
          *place->second = std::stoi(parameters[4]);
        }
      }
    }
    return processes.worker > 0 && processes.reaper > 0 && processes.child > 0;
  };
  if (!TestSupport::eventually(takeThem)) {
    throw std::runtime_error("the test has not told its processes");
  }
  return processes;
}

// Whoever inherits orphans here may not collect them: a zombie is as dead as can be.
bool endsSoon(pid_t process) {
  return TestSupport::eventually([process] {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    return !std::getline(status, line) || line.find(") Z ") != std::string::npos ||
           line.find(") X ") != std::string::npos;
  });
}

// Whether the kernel tells this process where its pages lie.
bool maySeeFrames() {
  const char onStack = 1;
  return physicalAddressOf(&onStack).has_value();
}

// The suite itself may run at a nice value.
std::string atLeastOurs(int nice) {
  return std::to_string(std::max(nice, getpriority(PRIO_PROCESS, 0)));
}

bool exists(pid_t process) {
  return kill(process, 0) == 0;
}

pid_t childOf(const PackageDriver::Run& run) {
  return static_cast<pid_t>(std::stod(run.measurement("child")));
}

}  // namespace

TEST_F(Misbehaviour, a_segmentation_fault_is_told) {
  const auto run = runBefore(2);
  expectTrouble(run, WORKER_CRASHED, "2");
  EXPECT_EQ(run.parametersOf(WORKER_CRASHED)[3], "SIGSEGV");
  EXPECT_THAT(run.parametersOf(WORKER_CRASHED)[4], HasSubstr("about to read from nowhere"));
}

TEST_F(Misbehaviour, an_abort_is_told) {
  const auto run = runBefore(3);
  expectTrouble(run, WORKER_CRASHED, "3");
  EXPECT_EQ(run.parametersOf(WORKER_CRASHED)[3], "SIGABRT");
  EXPECT_THAT(run.parametersOf(WORKER_CRASHED)[4], HasSubstr("about to abort"));
}

TEST_F(Misbehaviour, an_exception_is_told) {
  const auto run = runBefore(4);
  expectTrouble(run, TEST_THREW, "4");
  EXPECT_EQ(run.parametersOf(TEST_THREW)[3], "deliberately thrown");
}

TEST_F(Misbehaviour, a_thrown_number_is_told) {
  expectTrouble(runBefore(11), TEST_THREW, "11");
}

TEST_F(Misbehaviour, an_endless_loop_is_ended_when_its_time_is_over) {
  const TestSupport::Reaction reaction;
  const auto run = runBefore(5);
  expectTrouble(run, TEST_TIMED_OUT, "5");
  EXPECT_EQ(run.parametersOf(TEST_TIMED_OUT)[3], "0.3");
  EXPECT_LT(run.duration, reaction.allowed(std::chrono::seconds(10)));
}

TEST_F(Misbehaviour, an_endless_loop_that_ignores_sigterm_is_killed) {
  const TestSupport::Reaction reaction;
  const auto run = runBefore(6);
  expectTrouble(run, TEST_TIMED_OUT, "6");
  EXPECT_LT(run.duration, reaction.allowed(std::chrono::seconds(10)));
}

TEST_F(Misbehaviour, a_deaf_sleep_is_ended_when_its_time_is_over) {
  expectTrouble(runBefore(24), TEST_TIMED_OUT, "24");
}

TEST_F(Misbehaviour, a_long_test_that_listens_ends_by_itself_when_its_time_is_over) {
  m_driver.set("TestID16", "TestTimeout", "0.2");
  expectTrouble(runBefore(16), TEST_TIMED_OUT, "16");
}

TEST_F(Misbehaviour, a_test_without_a_time_of_its_own_has_that_of_the_package) {
  m_driver.set("Package", "TestTimeout", "0.2");
  const auto run = m_driver.run("unit0", {16});
  expectTrouble(run, TEST_TIMED_OUT, "16");
  EXPECT_EQ(run.parametersOf(TEST_TIMED_OUT)[3], "0.2");
}

TEST_F(Misbehaviour, a_time_that_is_none_is_replaced_and_told) {
  for (const char* const value : {"nan", "inf", "1e300", "-1", "31536000.5", "soon"}) {
    m_driver.set("TestID1", "TestTimeout", value).set("Package", "KillGrace", value);
    m_driver.set("Package", "DiscoveryTimeout", value);
    const auto run = m_driver.run("unit0", {kBehaves});
    EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
    std::vector<std::vector<std::string>> replaced;
    for (const auto& event : run.events) {
      if (event.code == SETTING_REPLACED) {
        EXPECT_EQ(event.type, Diag::DiagnosticEvent::WARNING_EVENT);
        replaced.emplace_back(event.parameters.begin() + 3, event.parameters.end());
      }
    }
    EXPECT_THAT(replaced, ::testing::UnorderedElementsAre(
                              std::vector<std::string>{"DiscoveryTimeout", value, "20"},
                              std::vector<std::string>{"KillGrace", value, "5"},
                              std::vector<std::string>{"TestTimeout", value, "3600"}));
  }
}

TEST_F(Misbehaviour, a_year_and_nothing_are_times) {
  m_driver.set("TestID1", "TestTimeout", "31536000").set("Package", "KillGrace", "0");
  const auto run = m_driver.run("unit0", {kBehaves});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_FALSE(run.has(SETTING_REPLACED));
}

TEST_F(Misbehaviour, a_grace_that_is_none_does_not_keep_a_deaf_test_alive) {
  m_driver.set("Package", "AbortGrace", "nan").set("Package", "TermGrace", "inf");
  const auto run = m_driver.run("unit0", {6});
  expectTrouble(run, TEST_TIMED_OUT, "6");
}

TEST_F(Misbehaviour, an_abort_ends_a_test_that_does_not_listen) {
  m_driver.set("Package", "TestTimeout", "600").set("TestID6", "TestTimeout", "600");
  const TestSupport::Reaction reaction;
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({6});
  std::thread pass([&] { diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  while (diagnostics->getDiagnosticStatus().getStatus() != Diag::DiagnosticStatus::EXECUTING ||
         !tookEvent(*diagnostics, TEST_STARTED)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const auto start = std::chrono::steady_clock::now();
  diagnostics->abortDiagnostic();
  pass.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, reaction.allowed(std::chrono::seconds(10)));
}

TEST_F(Misbehaviour, an_end_half_way_through_a_message_is_told) {
  const auto run = runBefore(7);
  expectTrouble(run, WORKER_EXITED, "7");
  EXPECT_EQ(run.parametersOf(WORKER_EXITED)[3], "0");
}

TEST_F(Misbehaviour, an_early_exit_is_told) {
  const auto run = runBefore(22);
  expectTrouble(run, WORKER_EXITED, "22");
  EXPECT_EQ(run.parametersOf(WORKER_EXITED)[4], "leaving early");
}

TEST_F(Misbehaviour, a_flood_of_events_is_cut_and_counted) {
  m_driver.set("Package", "MaxEvents", "1000").set("TestID8", "FloodCount", "20000");
  const auto run = m_driver.run("unit0", {8});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_EQ(run.events.size(), 1003U) << "with its start, its end, and the count of the rest";
  EXPECT_EQ(run.parametersOf(EVENTS_DROPPED)[3], "19000");
}

TEST_F(Misbehaviour, a_flood_of_large_events_is_cut_and_counted) {
  constexpr std::size_t most = std::size_t{16} << 20U;
  constexpr int bytesOfEach = 60'000;
  m_driver.set("TestID8", "FloodCount", "1000");
  m_driver.set("TestID8", "BytesOfEach", std::to_string(bytesOfEach));
  const auto run = m_driver.run("unit0", {8});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  std::size_t bytes = 0;
  std::size_t floods = 0;
  for (const auto& event : run.events) {
    for (const std::string& parameter : event.parameters) {
      bytes += parameter.size();
    }
    floods += event.parameters.back().size() == bytesOfEach ? 1 : 0;
  }
  EXPECT_LE(bytes, most);
  EXPECT_GT(bytes, most / 2) << "what finds room is kept";
  EXPECT_EQ(run.parametersOf(EVENTS_DROPPED)[3], std::to_string(1000 - floods));
}

TEST_F(Misbehaviour, a_fault_behind_a_flood_of_large_events_is_told_with_its_words) {
  m_driver.set("TestID8", "FloodCount", "1000").set("TestID8", "BytesOfEach", "60000");
  const auto run = m_driver.run("unit0", {8, 14});
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_EQ(run.parametersOf(kFaultFound).back(), "bit 3");
}

TEST_F(Misbehaviour, a_flood_of_output_is_drained) {
  const auto run = runBefore(18);
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
}

TEST_F(Misbehaviour, allocation_without_end_stops_at_the_limit) {
  if (TestSupport::kIsSanitized) {
    GTEST_SKIP() << "a sanitizer needs the address space";
  }
  m_driver.set("Package", "MemoryLimit", "128");
  expectTrouble(runBefore(9), OUT_OF_MEMORY, "9");
}

TEST_F(Misbehaviour, without_a_limit_the_flood_of_memory_is_left_out) {
  m_driver.set("Package", "MemoryLimit", "0");
  const auto run = m_driver.run("unit0", {9});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_TRUE(run.has(TEST_NOT_SUPPORTED));
}

TEST_F(Misbehaviour, impossible_progress_ends_the_worker) {
  expectTrouble(runBefore(10), WORKER_BROKE_PROTOCOL, "10");
}

TEST_F(Misbehaviour, garbage_ends_the_worker) {
  const auto run = runBefore(17);
  expectTrouble(run, WORKER_BROKE_PROTOCOL, "17");
  EXPECT_EQ(run.parametersOf(WORKER_BROKE_PROTOCOL)[3], Contract::kNoFrame);
}

TEST_F(Misbehaviour, the_end_of_a_test_that_does_not_run_ends_the_worker) {
  expectTrouble(runBefore(26), WORKER_BROKE_PROTOCOL, "26");
}

TEST_F(Misbehaviour, events_of_the_kit_cant_be_forged) {
  const auto run = runBefore(27);
  expectTrouble(run, TEST_THREW, "27");
  EXPECT_FALSE(run.has(WORKER_CRASHED));
}

TEST_F(Misbehaviour, a_verdict_cant_use_a_code_of_the_kit) {
  m_driver.set("TestID27", "InVerdict", "TRUE");
  const auto run = runBefore(27);
  expectTrouble(run, TEST_THREW, "27");
  EXPECT_FALSE(run.has(WORKER_CRASHED));
}

TEST_F(Misbehaviour, a_verdict_past_the_kit_cant_use_its_codes_either) {
  const auto run = runBefore(42);
  expectTrouble(run, WORKER_BROKE_PROTOCOL, "42");
  EXPECT_EQ(run.parametersOf(WORKER_BROKE_PROTOCOL)[3], Contract::kVerdictNotAllowed);
  EXPECT_FALSE(run.has(MEMORY_POISONED));
}

TEST_F(Misbehaviour, the_verdict_of_the_next_test_cant_be_forged) {
  const auto run = m_driver.run("unit0", {43, 14});
  expectTold(run, WORKER_BROKE_PROTOCOL, "43");
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED) << "as the second test found a fault itself";
  EXPECT_EQ(endingsOf(run).back(), "FAILED");
}

TEST_F(Misbehaviour, a_vanished_device_is_no_fault) {
  const auto run = runBefore(12);
  expectTrouble(run, DEVICE_VANISHED, "12");
  EXPECT_EQ(run.parametersOf(DEVICE_VANISHED)[3], Contract::kNoSuchDevice);
  EXPECT_EQ(run.parametersOf(DEVICE_VANISHED)[4], " (read: No such device)");
}

TEST_F(Misbehaviour, a_missing_permission_is_no_fault) {
  const auto run = runBefore(13);
  expectTrouble(run, NO_PERMISSION, "13");
  EXPECT_THAT(run.parametersOf(NO_PERMISSION)[3], HasSubstr("open: Permission denied"));
}

TEST_F(Misbehaviour, a_test_that_is_not_there_is_told) {
  EXPECT_FALSE(m_driver.supports("unit0", 28));
  expectTrouble(runBefore(28), TEST_UNKNOWN, "28");
}

TEST_F(Misbehaviour, a_test_that_is_not_supported_says_why) {
  EXPECT_TRUE(m_driver.supports("unit0", 20));
  EXPECT_FALSE(m_driver.supports("unit1", 20));
  EXPECT_THAT(m_driver.logText(),
              HasSubstr("test 20 is not supported on selftest/unit1: unit 1 is excused"));
  const auto run = m_driver.run("unit0", {20});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_EQ(run.parametersOf(TEST_NOT_SUPPORTED)[3], "there is nothing to test");
}

TEST_F(Misbehaviour, a_fault_stays_told_whatever_ends_the_test_then) {
  const std::vector<std::pair<int, unsigned int>> endings = {
      {29, WORKER_CRASHED},    {30, WORKER_EXITED}, {31, WORKER_KILLED},
      {32, TEST_TIMED_OUT},    {33, TEST_THREW},    {34, WORKER_BROKE_PROTOCOL},
      {35, TEST_NOT_SUPPORTED}};
  for (const auto& [testId, code] : endings) {
    expectFaultBeside(runBefore(testId), code, std::to_string(testId));
  }
}

TEST_F(Misbehaviour, a_test_that_listens_keeps_its_fault_when_its_time_is_over) {
  m_driver.set("TestID36", "TestTimeout", "0.2");
  expectFaultBeside(runBefore(36), TEST_TIMED_OUT, "36");
}

TEST_F(Misbehaviour, a_fault_that_was_dropped_is_one_all_the_same) {
  m_driver.set("Package", "MaxEvents", "0");
  const auto run = m_driver.run("unit0", {29});
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_FALSE(run.has(kFaultFound));
}

TEST_F(Misbehaviour, the_result_of_a_fault_behind_which_the_test_crashed_is_the_fault) {
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({29});
  const auto* const result = diagnostics->runDiagnostic(m_driver.device("unit0"), &settings);
  EXPECT_EQ(result->getTestResult(), DiagnosticResult::FAILED);
  EXPECT_EQ(result->getEventType(), Diag::DiagnosticEvent::ERROR_EVENT);
  EXPECT_EQ(result->getEventCode(), kFaultFound);
  EXPECT_THAT(result->getParamVector(), ::testing::ElementsAre("Unit 0", "bit 3"));
}

TEST_F(Misbehaviour, an_abort_takes_no_fault_back) {
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({36});
  const Diag::DiagnosticResult* result = nullptr;
  std::thread pass(
      [&] { result = diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  while (!tookEvent(*diagnostics, kFaultFound)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  diagnostics->abortDiagnostic();
  pass.join();
  EXPECT_EQ(result->getTestResult(), DiagnosticResult::FAILED);
  EXPECT_EQ(result->getEventCode(), kFaultFound);
}

TEST_F(Misbehaviour, a_test_that_contradicts_itself_has_no_verdict) {
  expectTrouble(runBefore(37), TEST_CONTRADICTED_ITSELF, "37");
}

TEST_F(Misbehaviour, a_contradiction_ends_a_pass_that_halts_on_errors) {
  const auto run = m_driver.run("unit0", {37, kBehaves}, {.haltOnError = true});
  EXPECT_THAT(endingsOf(run), ::testing::ElementsAre("UNUSUAL_STATUS"));
}

TEST_F(Misbehaviour, a_fault_is_held_against_its_own_test_alone) {
  const auto run = m_driver.run("unit0", {29, 2, kBehaves});
  EXPECT_THAT(endingsOf(run), ::testing::ElementsAre("FAILED", "UNUSUAL_STATUS", "PASSED"));
}

TEST_F(Misbehaviour, a_warning_leaves_the_result_a_pass) {
  EXPECT_EQ(runBefore(38).verdict, DiagnosticResult::PASSED);
}

TEST_F(Misbehaviour, a_core_that_was_taken_away_leaves_no_verdict) {
  const auto run = runBefore(39);
  expectTrouble(run, TAKEN_AWAY, "39");
  EXPECT_EQ(run.parametersOf(TAKEN_AWAY)[3], "the core was taken away");
}

TEST_F(Misbehaviour, poisoned_memory_is_told_with_its_address) {
  const auto run = runBefore(40);
  expectTrouble(run, MEMORY_POISONED, "40");
  EXPECT_FALSE(run.has(WORKER_CRASHED));
  EXPECT_EQ(run.parametersOf(MEMORY_POISONED)[3], run.measurement("address"));
  const std::string physical = run.parametersOf(MEMORY_POISONED)[4];
  EXPECT_THAT(physical, ::testing::AnyOf("?", ::testing::MatchesRegex("0x[0-9a-f]+000")));
  EXPECT_TRUE(physical != "?" || !maySeeFrames());
}

TEST_F(Misbehaviour, poison_is_told_while_a_message_is_half_sent) {
  m_driver.set("TestID40", "InMidst", "TRUE");
  expectTrouble(runBefore(40), MEMORY_POISONED, "40");
}

TEST_F(Misbehaviour, a_fault_behind_which_poison_ended_the_test_stays_one) {
  m_driver.set("TestID40", "FindsFault", "TRUE");
  expectFaultBeside(runBefore(40), MEMORY_POISONED, "40");
}

TEST_F(Misbehaviour, a_test_that_takes_care_of_poison_itself_is_left_to_it) {
  m_driver.set("TestID40", "Handles", "TRUE");
  const auto run = runBefore(40);
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_FALSE(run.has(MEMORY_POISONED));
}

TEST_F(Misbehaviour, a_bus_error_that_is_no_poison_is_a_crash) {
  const auto run = runBefore(41);
  expectTrouble(run, WORKER_CRASHED, "41");
  EXPECT_EQ(run.parametersOf(WORKER_CRASHED)[3], "SIGBUS");
}

TEST_F(Misbehaviour, a_child_left_behind_dies_with_its_test) {
  const auto run = runBefore(19);
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_FALSE(exists(childOf(run)));
}

TEST_F(Misbehaviour, a_child_that_left_the_group_dies_with_its_test) {
  for (const char* const generations : {"1", "2", "5"}) {
    m_driver.set("TestID44", "Generations", generations);
    const auto run = runBefore(44);
    EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
    EXPECT_FALSE(exists(childOf(run))) << generations;
  }
}

TEST_F(Misbehaviour, a_child_that_left_the_group_and_talks_holds_nobody_up) {
  m_driver.set("TestID44", "Talks", "TRUE").set("TestID44", "Generations", "2");
  const auto run = runBefore(44);
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_FALSE(exists(childOf(run)));
}

TEST_F(Misbehaviour, a_child_that_left_the_group_dies_when_the_time_of_its_test_is_over) {
  m_driver.set("TestID44", "Hangs", "TRUE").set("TestID44", "TestTimeout", "2");
  const auto run = runBefore(44);
  expectTrouble(run, TEST_TIMED_OUT, "44");
  EXPECT_FALSE(exists(childOf(run)));
}

TEST_F(Misbehaviour, a_caretaker_may_put_back_what_the_test_cant) {
  const TestSupport::TemporaryDirectory place;
  const std::string mark = place.file("put-back");
  m_driver.set("TestID45", "Mark", mark);
  const auto run = runBefore(45);
  expectTrouble(run, WORKER_KILLED, "45");
  EXPECT_TRUE(std::filesystem::exists(mark));
  EXPECT_FALSE(exists(childOf(run)));
}

TEST_F(Misbehaviour, a_caretaker_that_never_ends_is_ended) {
  m_driver.set("TestID45", "Milliseconds", "600000").set("Package", "KillGrace", "60");
  const auto run = runBefore(45);
  expectTrouble(run, WORKER_KILLED, "45");
  EXPECT_FALSE(exists(childOf(run)));
  EXPECT_LT(run.duration, std::chrono::seconds(300));
}

TEST_F(Misbehaviour, a_child_that_talks_without_end_holds_nobody_up) {
  m_driver.set("TestID19", "Talks", "TRUE");
  EXPECT_EQ(runBefore(19).verdict, DiagnosticResult::PASSED);
}

TEST_F(Misbehaviour, nothing_of_the_host_leaks_into_the_worker) {
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  signal(SIGUSR2, SIG_IGN);
  int leaky[2];
  ASSERT_EQ(pipe(leaky), 0);
  const auto run = m_driver.run("unit0", {23});
  EXPECT_EQ(run.measurement("descriptors"), "0 1 2 3 4") << "the last is its own page map";
  EXPECT_EQ(run.measurement("blockedSignals"), "0000000000000000");
  // The two that the C library keeps for itself can't be reset.
  const auto ignored = std::stoull(run.measurement("ignoredSignals"), nullptr, 16);
  EXPECT_EQ(ignored & ~0x180000000ULL, 0U);
  EXPECT_EQ(run.measurement("oomScore"), "1000");
  EXPECT_EQ(run.measurement("process"), run.measurement("group"));
}

TEST_F(Misbehaviour, a_worker_is_nicer_than_its_host_before_it_loads_the_package) {
  const int before = getpriority(PRIO_PROCESS, 0);
  const auto run = m_driver.run("unit0", {23});
  EXPECT_EQ(run.measurement("nice"), atLeastOurs(10));
  EXPECT_EQ(run.measurement("niceAtLoad"), atLeastOurs(10));
  EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before) << "the host keeps its own";
}

TEST_F(Misbehaviour, a_worker_stays_in_the_scheduling_group_of_its_host) {
  const auto run = m_driver.run("unit0", {23});
  EXPECT_EQ(run.measurement("session"), std::to_string(getsid(0)));
  std::string group;
  std::getline(std::ifstream("/proc/self/autogroup"), group);
  EXPECT_EQ(run.measurement("schedulingGroup"), group);
}

TEST_F(Misbehaviour, the_nice_value_is_that_of_the_test_then_of_the_package) {
  m_driver.set("Package", "Nice", "19");
  EXPECT_EQ(m_driver.run("unit0", {23}).measurement("niceAtLoad"), "19");
  m_driver.set("TestID23", "Nice", "0");
  EXPECT_EQ(m_driver.run("unit0", {23}).measurement("niceAtLoad"), atLeastOurs(0));
}

TEST_F(Misbehaviour, a_nice_value_that_is_none_counts_as_absent) {
  for (const char* const value : {"20", "-1", "low", "1.5", "99999999999999999999"}) {
    m_driver.set("TestID23", "Nice", value);
    EXPECT_EQ(m_driver.run("unit0", {23}).measurement("nice"), atLeastOurs(10)) << value;
  }
}

TEST_F(Misbehaviour, each_test_of_a_request_has_a_worker_of_its_own) {
  m_driver.set("TestID1", "Nice", "0");
  const auto run = m_driver.run("unit0", {23, kBehaves, 23});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_EQ(endingsOf(run), (std::vector<std::string>{"PASSED", "PASSED", "PASSED"}));
  EXPECT_EQ(measurementsOf(run, "nice"), std::vector<std::string>(2, atLeastOurs(10)));
  EXPECT_NE(measurementsOf(run, "process").front(), measurementsOf(run, "process").back());
}

TEST_F(Misbehaviour, a_host_that_is_nicer_keeps_its_workers_there) {
  // Niceness is the thread's, and the run inherits it.
  std::thread([this] {
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 17), 0);
    EXPECT_EQ(m_driver.run("unit0", {23}).measurement("niceAtLoad"), "17");
  }).join();
}

TEST_F(Misbehaviour, the_hosts_descriptors_are_given_back) {
  m_driver.run("unit0", {kBehaves});
  const auto count = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = count();
  for (int pass = 0; pass < 5; ++pass) {
    m_driver.run("unit0", {2, 7, 4});
  }
  EXPECT_EQ(count(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

TEST_F(Misbehaviour, a_host_that_ignores_its_children_gets_its_verdicts) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(m_driver.run("unit0", {kBehaves}).verdict, DiagnosticResult::PASSED);
  expectTrouble(m_driver.run("unit0", {2}), WORKER_CRASHED, "2");
  signal(SIGCHLD, SIG_DFL);
}

TEST_F(Misbehaviour, a_test_ends_whatever_it_does_to_who_is_to_end_it) {
  m_driver.set("Package", "AbortGrace", "0.1").set("Package", "TermGrace", "0.1");
  m_driver.set("Package", "KillGrace", "60");
  std::vector<std::string> ways = {"queue", "flood", "stop", "group"};
  if (!TestSupport::kIsInstrumented) {  // else no call is refused to it
    ways.emplace_back("kill");
  }
  for (const std::string& way : ways) {
    m_driver.set("TestID47", "Way", way);
    const auto diagnostics = m_driver.makeDiagnostics();
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({47});
    const Diag::DiagnosticResult* result = nullptr;
    std::thread pass(
        [&] { result = diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
    const auto processes = processesTold(*diagnostics);
    diagnostics->abortDiagnostic();
    pass.join();
    EXPECT_NE(result->getEventCode(), WORKER_UNKILLABLE) << way;
    EXPECT_FALSE(exists(processes.worker)) << way;
    EXPECT_FALSE(exists(processes.child)) << way;
  }
}

TEST_F(Misbehaviour, orphans_that_end_beside_a_test_are_collected) {
  m_driver.set("TestID46", "Generations", "2");
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({46});
  std::thread pass([&] { diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  const auto processes = processesTold(*diagnostics);
  EXPECT_EQ(kill(processes.child, SIGKILL), 0);
  EXPECT_TRUE(TestSupport::eventually([&] { return !exists(processes.child); }));
  EXPECT_TRUE(exists(processes.worker));
  diagnostics->abortDiagnostic();
  pass.join();
}

TEST_F(Misbehaviour, a_reaper_that_is_killed_takes_its_worker_along) {
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({46});
  const Diag::DiagnosticResult* result = nullptr;
  std::thread pass(
      [&] { result = diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  const auto processes = processesTold(*diagnostics);
  EXPECT_EQ(kill(processes.reaper, SIGKILL), 0);
  pass.join();
  EXPECT_EQ(result->getEventCode(), WORKER_KILLED);
  EXPECT_TRUE(endsSoon(processes.worker));
  kill(processes.child, SIGKILL);  // of which nobody knows any more
}

TEST_F(Misbehaviour, all_of_a_worker_dies_with_its_host) {
  int report[2];
  ASSERT_EQ(pipe(report), 0);
  const pid_t host = fork();
  if (host == 0) {
    // Tells of the processes, then dies while the test runs.
    PackageDriver driver(TARVEX_SELFTEST_DIR, "misbehaving");
    const auto diagnostics = driver.makeDiagnostics();
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({46});
    std::thread pass([&] { diagnostics->runDiagnostic(driver.device("unit0"), &settings); });
    const Processes processes = processesTold(*diagnostics);
    if (write(report[1], &processes, sizeof processes) == sizeof processes) {
      raise(SIGKILL);
    }
    _exit(1);
  }
  close(report[1]);
  Processes processes;
  ASSERT_EQ(read(report[0], &processes, sizeof processes), static_cast<ssize_t>(sizeof processes));
  EXPECT_EQ(waitpid(host, nullptr, 0), host);
  EXPECT_TRUE(endsSoon(processes.worker));
  EXPECT_TRUE(endsSoon(processes.child)) << "which has left the group";
  EXPECT_TRUE(endsSoon(processes.reaper));
}

TEST_F(Misbehaviour, a_missing_worker_is_told) {
  m_driver.setForTests("Package", "WorkerPath", "/nonexistent/worker");
  auto run = m_driver.run("unit0", {kBehaves});
  expectTrouble(run, WORKER_NOT_STARTED, "1");
  EXPECT_THAT(run.parametersOf(WORKER_NOT_STARTED)[4], HasSubstr("No such file or directory"));
  m_driver.setForTests("Package", "WorkerPath", "/bin/false");
  run = m_driver.run("unit0", {kBehaves});
  expectTrouble(run, WORKER_NOT_STARTED, "1");
  EXPECT_EQ(run.parametersOf(WORKER_NOT_STARTED)[3], "exit status 1");
}

TEST_F(Misbehaviour, a_worker_that_never_gets_ready_is_ended) {
  const std::string script = std::filesystem::absolute("never-ready").string();
  const std::string spoken = script + ".spoken";
  std::filesystem::remove(spoken);
  std::ofstream(script) << "#!/bin/sh\necho stuck\n: > '" << spoken << "'\nsleep 1000\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  m_driver.setForTests("Package", "WorkerPath", script);
  PackageDriver::Run run{};
  // On a busy machine it takes longer to get as far as to say something.
  for (int milliseconds = 300; !std::filesystem::exists(spoken); milliseconds *= 4) {
    m_driver.setForTests("Package", "StartTimeout", std::to_string(milliseconds / 1000.0));
    run = m_driver.run("unit0", {kBehaves});
    expectTrouble(run, WORKER_NOT_STARTED, "1");
    EXPECT_EQ(run.parametersOf(WORKER_NOT_STARTED)[3], Contract::kNotReadyInTime);
  }
  EXPECT_EQ(run.parametersOf(WORKER_NOT_STARTED)[4], "stuck");
}

TEST_F(Misbehaviour, an_abort_ends_a_worker_that_is_not_ready) {
  const std::string script = std::filesystem::absolute("never-ready-aborted").string();
  const std::string begun = script + ".begun";
  std::filesystem::remove(begun);
  std::ofstream(script) << "#!/bin/sh\n: >'" << begun << "'\nsleep 1000\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  m_driver.setForTests("Package", "WorkerPath", script).setForTests("Package", "AbortGrace", "600");
  m_driver.setForTests("Package", "StartTimeout", "600");
  TestSupport::Reaction reaction;
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({kBehaves});
  const Diag::DiagnosticResult* result = nullptr;
  std::thread pass(
      [&] { result = diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  // Before there is a worker, the pass ends without one.
  EXPECT_TRUE(TestSupport::eventually([&] { return std::filesystem::exists(begun); }));
  reaction.forget();
  const auto start = std::chrono::steady_clock::now();
  diagnostics->abortDiagnostic();
  pass.join();
  const auto took = std::chrono::steady_clock::now() - start;
  // Half a second on an idle machine; who waited for the worker would take ten minutes.
  EXPECT_LE(took, reaction.allowed(std::chrono::seconds(1)));
  EXPECT_EQ(result->getEventCode(), TEST_ABORTED);
}

TEST_F(Misbehaviour, clashing_tags_are_told_at_enumeration) {
  EXPECT_EQ(m_driver.devices().size(), 4U);
  EXPECT_THAT(m_driver.logText(),
              HasSubstr("resource tags clash: selftest/unit0 and selftest/rack/unit0"));
}

TEST_F(Misbehaviour, a_device_without_a_tag_is_left_out) {
  m_driver.devices();
  EXPECT_THAT(m_driver.logText(),
              HasSubstr("left out, as it has no resource tag: 'Without a tag', ''"));
}

TEST_F(Misbehaviour, a_status_that_fails_is_unknown) {
  EXPECT_EQ(m_driver.device("unit2").getDevice()->getDeviceStatus(), DEVICE_STATUS_UNKNOWN);
  EXPECT_EQ(m_driver.device("unit1").getDevice()->getDeviceStatus(), 0U);
}

TEST_F(Misbehaviour, an_object_that_lies_about_its_status_really_does) {
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({25});
  std::thread pass([&] { diagnostics->runDiagnostic(m_driver.device("unit0"), &settings); });
  while (diagnostics->getDiagnosticStatus().getStatus() == Diag::DiagnosticStatus::READY) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(diagnostics->getDiagnosticStatus().getStatus(), Diag::DiagnosticStatus::COMPLETED);
  EXPECT_EQ(diagnostics->getDiagnosticStatus().getProgress(), 4'000'000'000U);
  pass.join();
}

TEST(MisbehavingPackage, is_understood_in_every_language) {
  EXPECT_THAT(checkPackageTexts(TARVEX_SELFTEST_DIR, "misbehaving"), ::testing::IsEmpty());
}

TEST(MisbehavingPackage, leaves_the_process_when_it_is_closed) {
  {
    PackageDriver driver(TARVEX_SELFTEST_DIR, "misbehaving");
    driver.run("unit0", {kBehaves});
  }
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    EXPECT_THAT(line, ::testing::Not(HasSubstr("libmisbehaving.so")));
  }
}
