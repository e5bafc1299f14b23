// Every client call while memory runs out on its thread: it answers with a code, lets nothing out,
// leaves nothing half-made, and the controller goes on. TARVEX_EVERY_ALLOCATION=1 tries each one.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/FailingAllocation.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::CallBackObject;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using Scripted::Living;
using Scripted::Script;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::FailingAllocation;
using enum DiagnosticController::errorCode;
typedef DiagnosticController C;
typedef C::errorCode Code;
typedef std::vector<int> Ids;

/// The next allocation to fail: each of the first 500, then every twentieth.
unsigned long after(unsigned long ordinal) {
  const bool isEach = std::getenv("TARVEX_EVERY_ALLOCATION") != nullptr;
  return ordinal + (ordinal < 500 || isEach ? 1 : 20);
}

class NoMemoryTest : public ControllerTest {
 protected:
  typedef std::function<Code()> Call;

  NoMemoryTest() : alpha(harness.addPackage("ALPHA")) {
    alpha.recordNothing();
    harness.packages().addLanguage("ALPHA", "en", {{"TOKEN", "a $1$ b"}});
  }

  /// Makes the call again and again, one more allocation failing each time, until none fails.
  void tryEach(const std::string& name, const Call& call, const std::function<void()>& prepare = {},
               const std::function<void()>& tidy = {}) {
    SCOPED_TRACE(name);
    bool failed = true;
    for (unsigned long ordinal = 1; failed && !HasFailure(); ordinal = after(ordinal)) {
      SCOPED_TRACE("allocation " + std::to_string(ordinal));
      prepare ? prepare() : void();
      Code code = OUT_OF_RANGE;
      {
        const FailingAllocation failing(ordinal);
        EXPECT_NO_THROW(code = call());
        failed = failing.hasFailed();
      }
      EXPECT_NE(code, OUT_OF_RANGE);
      EXPECT_TRUE(failed || code == SUCCESS) << code;
      tidy ? tidy() : void();
    }
  }

  template <class Object>
  void tryHandingOut(const std::string& name, const std::function<Code(Object*&)>& call) {
    tryEach(name, [call] {
      Object* object = nullptr;
      const Code code = call(object);
      delete object;
      return code;
    });
  }
  void tryText(const std::string& name, const std::function<Code(char*&)>& call) {
    tryEach(name, [call] {
      char* text = nullptr;
      const Code code = call(text);
      delete[] text;
      return code;
    });
  }
  template <class Messages>
  void tryFetching(const std::string& name, Code (C::*call)(long, Messages*&)) {
    tryEach(name, [this, call] {
      Messages* messages = nullptr;
      const Code code = (controller().*call)(1, messages);
      const std::unique_ptr<Messages> owned(messages);
      if (messages != nullptr) {
        for (auto* message : *messages) {
          delete message;
        }
      }
      return code;
    });
  }

  Script& alpha;
  CallBackObject callBack;
  Diag::DiagnosticSettings settings = ControllerHarness::settings();
};

TEST_F(NoMemoryTest, settings_and_health) {
  harness.start();
  C& c = controller();
  tryEach("setRunMode", [&] { return c.setRunMode(GlobalSettings::SERIAL); });
  tryEach("setDiagnosticMode", [&] { return c.setDiagnosticMode(GlobalSettings::FACTORY); });
  tryEach("setDebugLog", [&] { return c.setDebugLog(DiagCtrlConstants::DIAG_NO); });
  tryEach("setHaltOnError", [&] { return c.setHaltOnError(true); });
  tryEach("getHaltOnError", [&] {
    bool halt = false;
    return c.getHaltOnError(halt);
  });
  tryHandingOut<DiagControllerStatus>(
      "getDiagControllerStatus", [&](auto*& status) { return c.getDiagControllerStatus(status); });
  tryEach("getEnumerationProgress", [&] {
    int progress = 0;
    return c.getEnumerationProgress(progress);
  });
}

TEST_F(NoMemoryTest, catalogue_and_texts) {
  harness.start();
  C& c = controller();
  const std::vector<std::pair<std::string, std::function<Code(Ids*&)>>> lists = {
      {"getDeviceIdList", [&](Ids*& to) { return c.getDeviceIdList(1, to); }},
      {"getValidDeviceIdList", [&](Ids*& to) { return c.getValidDeviceIdList(1, 1, to); }},
      {"getTestIdList", [&](Ids*& to) { return c.getTestIdList(1, to); }},
      {"getValidTestIdList", [&](Ids*& to) { return c.getValidTestIdList(1, 1, to); }},
      {"getDisableTestList", [&](Ids*& to) { return c.getDisableTestList(1, to); }},
      {"getDisableDeviceList", [&](Ids*& to) { return c.getDisableDeviceList(1, 1, to); }}};
  for (const auto& [name, call] : lists) {
    tryHandingOut<Ids>(name, call);
  }
  tryHandingOut<DiagCtrl::PackageList>("getDisablePackageList",
                                       [&](auto*& to) { return c.getDisablePackageList(to); });
  tryEach("getDeviceStatus", [&] {
    unsigned int status = 0;
    return c.getDeviceStatus(1, 1, status);
  });
  tryEach("getNumberOfDiagPackages", [&] {
    int count = 0;
    return c.getNumberOfDiagPackages(count);
  });
  char key[] = "Mnemonic";
  char testKey[] = "TestDescription";
  char language[] = "en";
  char token[] = "TOKEN";
  tryText("getPackageToken", [&](char*& to) { return c.getPackageToken(1, key, to); });
  tryText("getTestToken", [&](char*& to) { return c.getTestToken(1, 1, testKey, to); });
  tryText("getLocalizedString",
          [&](char*& to) { return c.getLocalizedString(1, language, token, to); });
  tryText("getLocalizedMessage", [&](char*& to) {
    DiagCtrl::ParamStringVector parameters;
    return c.getLocalizedMessage(1, language, token, parameters, to);
  });
}

TEST_F(NoMemoryTest, queueing_and_requests) {
  harness.control().parallel();
  harness.start();
  C& c = controller();
  std::vector<int> tests{1};
  unsigned long id = 0;
  tryEach("queueTest with tests", [&] { return c.queueTest(1, 1, tests, settings, true, id); });
  tryEach("queueTest of a device", [&] { return c.queueTest(1, 1, settings, id); });
  tryEach("queueTest of a package", [&] {
    DiagCtrl::VectorTestReqId* ids = nullptr;
    const Code code = c.queueTest(1, settings, ids);
    delete ids;
    return code;
  });
  ASSERT_TRUE(harness.awaitIdle(std::chrono::minutes(2)));
  tryHandingOut<std::vector<unsigned long>>("getRequestIdList",
                                            [&](auto*& to) { return c.getRequestIdList(to); });
  tryEach("getRequestStatus", [&] {
    auto status = DiagCtrl::TestRequest::WAIT;
    int passes[2] = {};
    bool stress = false;
    return c.getRequestStatus(1, status, passes[0], passes[1], stress);
  });
  const Ids one{1};
  tryEach("getEstimatedTime", [&] {
    Ids times;
    int total = 0;
    return c.getEstimatedTime(one, times, total) ? SUCCESS : INCORRECT_PHASE;
  });
  tryEach("clearRequestIdList", [&] { return c.clearRequestIdList(); });
}

TEST_F(NoMemoryTest, steering_a_request) {
  harness.control().parallel();
  harness.start();
  alpha.holdRuns();
  C& c = controller();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  tryEach("suspendTest", [&] { return c.suspendTest(id); });
  tryEach("resumeTest", [&] { return c.resumeTest(id); });
  tryEach("getDiagnosticProgress", [&] {
    unsigned int progress = 0;
    return c.getDiagnosticProgress(id, progress);
  });
  tryEach("getDiagnosticStatus", [&] {
    auto status = Diag::DiagnosticStatus::UNKNOWN;
    return c.getDiagnosticStatus(id, status);
  });
  tryEach("abortTest", [&] { return c.abortTest(id); });
}

TEST_F(NoMemoryTest, registration_and_collection) {
  harness.start();
  C& c = controller();
  unsigned long id = 0;
  tryEach("registerForDiagEvents", [&] { return c.registerForDiagEvents(&callBack, id); });
  tryEach("registerForDiagResults", [&] { return c.registerForDiagResults(&callBack, id); });
  tryEach("registerForDiagCtrlEvents", [&] { return c.registerForDiagCtrlEvents(&callBack, id); });
  tryEach("getNumberOfRegistrations", [&] {
    unsigned int counts[3] = {};
    return c.getNumberOfRegistrations(counts[0], counts[1], counts[2]);
  });
  tryFetching("getDiagnosticEvents", &C::getDiagnosticEvents);
  tryFetching("getDiagnosticResults", &C::getDiagnosticResults);
  tryFetching("getDiagnosticCtrlEvents", &C::getDiagnosticCtrlEvents);
  harness.shutDown();  // before the object goes
}

TEST_F(NoMemoryTest, an_enumeration_can_be_tried_again) {
  harness.control().disablePackage("BETA");
  harness.addPackage("BETA");
  tryEach(
      "enumerateAllPackages",
      [&] {
        const Code code = controller().enumerateAllPackages();
        return code == PACKAGE_INITIALIZE_FAILED ? UNABLE_TO_GET_LOCK : code;
      },
      [&] { harness.initialize(); },
      [&] {
        if (harness.phase() == DiagControllerStatus::INITIALIZE) {
          EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
          EXPECT_EQ(harness.catalogue(), std::vector<std::string>{"ALPHA"});
        }
        EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
        harness.shutDown();
        EXPECT_EQ(alpha.living(), Living());
      });
}

TEST_F(NoMemoryTest, a_package_that_is_enumerated_again_may_leave_the_catalogue) {
  tryEach(
      "enumerateDiagPackages", [&] { return controller().enumerateDiagPackages(1); },
      [&] { harness.start(); },
      [&] {
        EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
        harness.shutDown();
      });
}

TEST_F(NoMemoryTest, a_shut_down_needs_no_memory) {
  alpha.everyPass({.duration = std::chrono::milliseconds(5)});
  tryEach(
      "shutDown", [&] { return harness.shutDown(); },
      [&] {
        harness.start();
        harness.queue("ALPHA", 1, {1});
        harness.queue("ALPHA", 1, {1});
      },
      [&] {
        EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
        EXPECT_EQ(alpha.living(), Living());
      });
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
