// The kit's packages under a real controller: the program above never notices what tests do to
// themselves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/Texts.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/TemporaryDirectory.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using DiagCtrl::DiagnosticController;
using DiagCtrl::TestRequest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::ControllerHarness;

namespace {

const std::string kPackage = "misbehaving";
constexpr unsigned int kUnit0 = 1;
constexpr unsigned int kUnit1 = 2;
constexpr unsigned int kUnit2 = 4;
enum Tests {
  BEHAVES = 1,
  SEGFAULTS = 2,
  DEAF = 6,
  FAULT = 14,
  TAKES_TIME = 16,
  LIES = 25,
  CRASHES_BEHIND_FAULT = 29,
};

class KitUnderController : public ::testing::Test {
 protected:
  // Each test has a process of its own to start, on a machine that may be busy.
  static constexpr std::chrono::milliseconds kLimit{100'000};

  KitUnderController() { m_harness.control().packDirPath(TARVEX_SELFTEST_DIR); }

  bool awaitIdle() { return m_harness.awaitIdle(kLimit); }
  bool awaitEvent(const std::string& start) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (std::chrono::steady_clock::now() < deadline) {
      for (const std::string& event : m_harness.events()) {
        if (event.compare(0, start.size(), start) == 0) {
          return true;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  ControllerHarness m_harness;
};

// Several copies of the package, each with more keys in its configuration.
class KitDiscoveryUnderController : public ::testing::Test {
 protected:
  KitDiscoveryUnderController() { m_harness.control().packDirPath(m_place.path()); }

  void addCopy(const std::string& name, const std::string& keys) {
    const std::filesystem::path from = TARVEX_SELFTEST_DIR;
    std::filesystem::copy(from / "libmisbehaving.so", m_place.file("lib" + name + ".so"));
    std::ofstream(m_place.file(name + ".cfg"))
        << "[Package]\n"
        << keys << "WorkerPath=" TARVEX_PACKAGE_DIR "/tarvex-package-worker\n"
        << std::ifstream(from / "misbehaving.cfg").rdbuf();
  }

  TestSupport::TemporaryDirectory m_place;
  ControllerHarness m_harness;
};

std::string taken(char* text) {
  const std::unique_ptr<char[]> owned(text);
  return text == nullptr ? "" : text;
}

}  // namespace

TEST_F(KitUnderController, each_pass_counts_once) {
  m_harness.start();
  const auto id = m_harness.queue(kPackage, kUnit0, {BEHAVES}, ControllerHarness::settings(3));
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(id), TestRequest::COMPLETED);
  EXPECT_THAT(m_harness.results(), ElementsAre("PASSED 1", "PASSED 1", "PASSED 1"));
  EXPECT_THAT(m_harness.ctrlEventsOf(id), ElementsAre("DROP_REQUEST_ON_COMPLETION I"));
}

TEST_F(KitUnderController, a_crash_is_one_requests_trouble_and_nobody_elses) {
  m_harness.control().parallel();
  m_harness.start();
  const auto crashing = m_harness.queue(kPackage, kUnit0, {SEGFAULTS});
  const auto behaving = m_harness.queue(kPackage, kUnit1, {BEHAVES});
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(crashing), TestRequest::COMPLETED);
  EXPECT_EQ(m_harness.statusOf(behaving), TestRequest::COMPLETED);
  EXPECT_THAT(m_harness.results(), ::testing::UnorderedElementsAre("UNUSUAL_STATUS 1", "PASSED 2"));
  EXPECT_THAT(m_harness.events(),
              Contains(HasSubstr("9000 E 1 [2, Segmentation fault, selftest/unit0, SIGSEGV")));
}

TEST_F(KitUnderController, a_fault_behind_which_its_test_crashed_is_handed_over_as_failed) {
  m_harness.start();
  m_harness.queue(kPackage, kUnit0, {CRASHES_BEHIND_FAULT});
  ASSERT_TRUE(awaitIdle());
  EXPECT_THAT(m_harness.results(), ElementsAre("FAILED 1"));
  EXPECT_THAT(m_harness.events(), Contains(HasSubstr("2 E 1 [Unit 0, bit 3]")));
  EXPECT_THAT(m_harness.events(), Contains(HasSubstr("9000 E 1 [29, ")));
}

TEST_F(KitUnderController, stress_is_looped_by_the_package) {
  m_harness.start();
  auto settings = ControllerHarness::settings(4);
  settings.setStressMode(true);
  const auto id = m_harness.queue(kPackage, kUnit0, {BEHAVES}, settings);
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(id), TestRequest::COMPLETED);
  EXPECT_EQ(m_harness.results().size(), 4U);
}

TEST_F(KitUnderController, an_abort_ends_even_a_deaf_test) {
  m_harness.start();
  const auto id = m_harness.queue(kPackage, kUnit0, {24}, ControllerHarness::settings(1000));
  ASSERT_TRUE(awaitEvent("9060 I"));
  EXPECT_EQ(m_harness->abortTest(id), DiagnosticController::SUCCESS);
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(id), TestRequest::ABORTED);
}

TEST_F(KitUnderController, a_suspended_test_waits_and_goes_on) {
  m_harness.start();
  const auto id = m_harness.queue(kPackage, kUnit0, {TAKES_TIME});
  ASSERT_TRUE(awaitEvent("9060 I"));
  EXPECT_EQ(m_harness->suspendTest(id), DiagnosticController::SUCCESS);
  auto status = Diag::DiagnosticStatus::UNKNOWN;
  EXPECT_EQ(m_harness->getDiagnosticStatus(id, status), DiagnosticController::SUCCESS);
  EXPECT_EQ(status, Diag::DiagnosticStatus::SUSPENDED);
  EXPECT_EQ(m_harness->resumeTest(id), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->getDiagnosticStatus(id, status), DiagnosticController::SUCCESS);
  EXPECT_EQ(status, Diag::DiagnosticStatus::EXECUTING);
  EXPECT_EQ(m_harness->abortTest(id), DiagnosticController::SUCCESS);
  ASSERT_TRUE(awaitIdle());
}

TEST_F(KitUnderController, a_fault_halts_the_loop_when_told_to) {
  m_harness.control().haltOnError();
  m_harness.start();
  const auto id = m_harness.queue(kPackage, kUnit0, {FAULT}, ControllerHarness::settings(3));
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(id), TestRequest::COMPLETED);
  EXPECT_THAT(m_harness.results(), ElementsAre("FAILED 1"));
  EXPECT_THAT(m_harness.ctrlEventsOf(id), Contains("ERROR_RECVD_AND_HALT_ON_ERROR E"));
}

TEST_F(KitUnderController, estimation_gives_the_packages_figures) {
  m_harness.start();
  auto settings = ControllerHarness::settings();
  settings.setEstimationMode(true);
  std::vector<int> ids;
  const int package = m_harness.indexOf(kPackage);
  ASSERT_EQ(m_harness->runEstimation({package, package}, {kUnit0, kUnit0}, {BEHAVES, TAKES_TIME},
                                     ids, settings),
            DiagnosticController::SUCCESS);
  ASSERT_TRUE(awaitIdle());
  std::vector<int> figures;
  int total = 0;
  EXPECT_TRUE(m_harness->getEstimatedTime(ids, figures, total));
  EXPECT_THAT(figures, ElementsAre(3, 12));
  EXPECT_EQ(total, 15);
}

TEST_F(KitUnderController, a_package_that_lies_about_its_status_harms_only_its_own_request) {
  m_harness.start();
  const auto lying = m_harness.queue(kPackage, kUnit0, {LIES});
  const auto honest = m_harness.queue(kPackage, kUnit0, {BEHAVES});
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(lying), TestRequest::COMPLETED);
  EXPECT_EQ(m_harness.statusOf(honest), TestRequest::COMPLETED);
  EXPECT_THAT(m_harness.results(), Contains("PASSED 2"));
}

TEST_F(KitUnderController, a_worker_that_nothing_ends_costs_its_own_device_and_no_other) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::absolute("signals-lost");
  fs::copy(TARVEX_SELFTEST_DIR, folder,
           fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  std::ostringstream original;
  original << std::ifstream(folder / "misbehaving.cfg").rdbuf();
  std::ofstream(folder / "misbehaving.cfg") << "[Package]\nSignalsLost=TRUE\nKillGrace=0.2\n"
                                            << original.str();
  m_harness.control().packDirPath(folder.string());
  m_harness.start();
  const auto hanging = m_harness.queue(kPackage, kUnit0, {DEAF});
  const auto other = m_harness.queue(kPackage, kUnit1, {BEHAVES});
  const auto refused = m_harness.queue(kPackage, kUnit0, {BEHAVES});
  ASSERT_TRUE(awaitIdle());
  for (const auto id : {hanging, other, refused}) {
    EXPECT_EQ(m_harness.statusOf(id), TestRequest::COMPLETED);
  }
  EXPECT_THAT(m_harness.results(), ElementsAre("UNUSUAL_STATUS 1", "PASSED 2", "UNUSUAL_STATUS 3"));
  EXPECT_THAT(m_harness.events(),
              Contains(HasSubstr("9011 E 1 [6, Endless loop, deaf, selftest/unit0")));
  EXPECT_THAT(m_harness.events(), Contains(HasSubstr("9012 E 3 [1, Behaves, selftest/unit0")));

  const int package = m_harness.indexOf(kPackage);
  unsigned int status = 0;
  ASSERT_EQ(m_harness->getDeviceStatus(package, kUnit0, status), DiagnosticController::SUCCESS);
  EXPECT_EQ(status, DEVICE_STATUS_HUNG);
  ASSERT_EQ(m_harness->enumerateDiagPackages(package), DiagnosticController::SUCCESS);
  ASSERT_EQ(m_harness->getDeviceStatus(package, kUnit0, status), DiagnosticController::SUCCESS);
  EXPECT_EQ(status, 0U);
  m_harness.queue(kPackage, kUnit0, {BEHAVES});
  ASSERT_TRUE(awaitIdle());
  EXPECT_THAT(m_harness.results(), Contains("PASSED 4"));
}

TEST_F(KitDiscoveryUnderController, that_crashes_costs_its_package_alone) {
  addCopy("first", "Discovery=crashes\n");
  addCopy("second", "");
  m_harness.start();
  EXPECT_THAT(m_harness.catalogue(), ElementsAre("second"));
  m_harness.queue("second", kUnit0, {BEHAVES});
  ASSERT_TRUE(m_harness.awaitIdle());
  EXPECT_THAT(m_harness.results(), ElementsAre("PASSED 1"));
}

TEST_F(KitDiscoveryUnderController, that_fails_last_is_told_by_the_code_of_the_enumeration) {
  addCopy("first", "");
  addCopy("second", "Discovery=throws\n");
  m_harness.initialize();
  EXPECT_EQ(m_harness->enumerateAllPackages(),
            DiagnosticController::UNABLE_TO_CREATE_DEVICE_VECTOR);
  EXPECT_THAT(m_harness.catalogue(), ElementsAre("first"));
}

TEST_F(KitUnderController, every_misbehaviour_at_once_leaves_a_healthy_controller) {
  m_harness.control().parallel();
  m_harness.start();
  const std::vector<int> all = {2, 3, 4, 5, 7, 10, 11, 12, 13, 15, 17, 19, 22, 24, 26, 27};
  for (const unsigned int device : {kUnit0, kUnit1, kUnit2}) {
    m_harness.queue(kPackage, device, all);
  }
  const auto last = m_harness.queue(kPackage, kUnit0, {BEHAVES});
  ASSERT_TRUE(awaitIdle());
  EXPECT_EQ(m_harness.statusOf(last), TestRequest::COMPLETED);
  EXPECT_EQ(m_harness.results().size(), 4U);
  EXPECT_THAT(m_harness.results(), Contains("PASSED 4"));
  EXPECT_THAT(m_harness.results(), Not(Contains(HasSubstr("FAILED"))));
  EXPECT_EQ(m_harness.shutDown(), DiagnosticController::SUCCESS);
}

TEST_F(KitUnderController, the_kits_events_have_texts_in_every_language) {
  m_harness.start();
  const int package = m_harness.indexOf(kPackage);
  char* token = nullptr;
  ASSERT_EQ(m_harness->getMessageToken(package, Diag::DiagnosticEvent::ERROR_EVENT, WORKER_CRASHED,
                                       token),
            DiagnosticController::SUCCESS);
  const std::unique_ptr<char[]> owned(token);
  for (std::string language : Contract::kLanguages) {
    std::vector<std::string> parameters = {"2", "Name", "host/cpu0", "SIGSEGV", "last"};
    char* text = nullptr;
    ASSERT_EQ(m_harness->getLocalizedMessage(package, language.data(), token, parameters, text),
              DiagnosticController::SUCCESS);
    const std::string message = taken(text);
    for (const char* const part : {"2", "Name", "host/cpu0", "SIGSEGV", "last"}) {
      EXPECT_THAT(message, HasSubstr(part));
    }
  }
}

TEST_F(KitUnderController, the_status_of_a_device_has_a_token) {
  m_harness.start();
  unsigned int status = 0;
  const int package = m_harness.indexOf(kPackage);
  ASSERT_EQ(m_harness->getDeviceStatus(package, kUnit2, status), DiagnosticController::SUCCESS);
  EXPECT_EQ(status, DEVICE_STATUS_UNKNOWN);
  char* token = nullptr;
  ASSERT_EQ(m_harness->getDeviceStatusToken(package, status, token), DiagnosticController::SUCCESS);
  EXPECT_EQ(taken(token), "KIT_DEVICE_STATUS_UNKNOWN");
}
