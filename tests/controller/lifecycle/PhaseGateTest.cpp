// Every client call in every phase: what is served, what is refused, and what a refused call
// leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/Barrier.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/CtrlEventTap.h"
#include "tests/support/Eventually.h"
#include "tests/support/ThreadState.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::CallBackObject;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using DiagCtrl::TestRequest;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Script;
using TestSupport::Barrier;
using TestSupport::Companion;
using TestSupport::ControllerHarness;
using TestSupport::CtrlEventTap;
using TestSupport::eventually;
using TestSupport::nameOf;

using Phase = DiagControllerStatus::diagCtrlPhase;
typedef std::vector<std::string> Lines;

/// The phases as letters: Uninitialised, iNitialize, Enumerate, Idle, Active, eStimation.
char letterOf(Phase phase) {
  switch (phase) {
    case DiagControllerStatus::UNINITIALISED:
      return 'U';
    case DiagControllerStatus::INITIALIZE:
      return 'N';
    case DiagControllerStatus::ENUMERATE:
      return 'E';
    case DiagControllerStatus::IDLE:
      return 'I';
    case DiagControllerStatus::ACTIVE:
      return 'A';
    case DiagControllerStatus::ESTIMATION:
      return 'S';
  }
  return '?';
}

/// What a call did: its result, and what became of the outputs.
struct Outcome {
  std::string result;
  std::string output;
};

/// The arguments of the calls, filled with what no call leaves there, and the controller.
class Client {
 public:
  explicit Client(ControllerHarness& harness) : c(harness.controller()), m_harness(harness) {}

  Outcome none(DiagnosticController::errorCode code) { return {nameOf(code), "none"}; }
  template <class T>
  Outcome kept(DiagnosticController::errorCode code, const T& value, const T& before) {
    return {nameOf(code), value == before ? "kept" : "changed"};
  }
  /// A call that hands out a vector in any case.
  template <class T>
  Outcome vectorOf(DiagnosticController::errorCode code, std::vector<T>* output) {
    const std::unique_ptr<std::vector<T>> owned(output);
    return {nameOf(code), output == nullptr ? "kept" : output->empty() ? "empty" : "filled"};
  }
  Outcome text(DiagnosticController::errorCode code, char* output) {
    const std::unique_ptr<char[]> owned(output);
    return {nameOf(code), output == nullptr ? "kept" : "changed"};
  }
  template <class Messages>
  Outcome messages(DiagnosticController::errorCode code, Messages* output) {
    const std::unique_ptr<Messages> owned(output);
    if (output != nullptr) {
      for (auto* const message : *output) {
        delete message;
      }
    }
    return {nameOf(code), output == nullptr ? "kept" : "changed"};
  }

  /// Lives until the controller was shut down, as a registered object must.
  CallBackObject* callBack() { return &m_harness.callBack(); }
  std::string goodFile() const { return m_harness.directory().file("control.cfg"); }

  DiagnosticController& c;
  Diag::DiagnosticSettings settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  std::vector<int> noInts;
  std::vector<unsigned long> noIds;
  unsigned long request = 99;
  char key[10] = "Mnemonic";
  char language[3] = "en";
  char token[6] = "TOKEN";

 private:
  ControllerHarness& m_harness;
};

/// One client call. Served, it is called so that it changes no phase: with a package, a request or
/// a registration that does not exist, where there would be one.
struct Row {
  std::string name;
  std::string served;        ///< the letters of the phases
  std::string servedResult;  ///< SUCCESS, or what the missing object gives
  std::string refusedOutput;
  std::string refusedEvent;
  std::string refusedResult;
  std::function<Outcome(Client&)> call;
};

constexpr const char* kWrong = "INCORRECT_PHASE E 0";
constexpr const char* kLock = "UNABLE_TO_GET_LOCK E 0";
constexpr const char* kSilent = "";
constexpr const char* kRefused = "INCORRECT_PHASE";
constexpr const char* kEveryPhase = "UNEIAS";

void addStartAndStop(std::vector<Row>& rows) {
  rows.push_back({"initialize", "U", "", "none", kSilent, kRefused, [](Client& client) {
                    return client.none(client.c.initialize(client.goodFile().c_str()));
                  }});
  rows.push_back({"initialize without a file", kEveryPhase, "INVALID_FILE_NAME_PASSED", "", "", "",
                  [](Client& client) { return client.none(client.c.initialize(nullptr)); }});
  rows.push_back({"resetDiagController", "NEIAS", "", "none", kSilent, kRefused,
                  [](Client& client) { return client.none(client.c.resetDiagController()); }});
  rows.push_back({"enumerateAllPackages", "N", "NO_PACKAGE_ENABLED", "none", kWrong, kRefused,
                  [](Client& client) { return client.none(client.c.enumerateAllPackages()); }});
  rows.push_back(
      {"enumerateByPackageClass", "N", "NO_PACKAGE_ENABLED", "none", kWrong, kRefused,
       [](Client& client) { return client.none(client.c.enumerateByPackageClass({"SCRIPTED"})); }});
  rows.push_back({"enumerateDiagPackages", "I", "PACKAGE_NOT_FOUND", "none", kWrong, kRefused,
                  [](Client& client) { return client.none(client.c.enumerateDiagPackages(99)); }});
  rows.push_back(
      {"getEnumerationProgress", "UNEIA", "SUCCESS", "kept", kWrong, kRefused, [](Client& client) {
         int progress = -7;
         const auto code = client.c.getEnumerationProgress(progress);
         return client.kept(code, progress, -7);
       }});
  rows.push_back(
      {"getDiagControllerStatus", "UNIAS", "SUCCESS", "kept", kWrong, kRefused, [](Client& client) {
         DiagControllerStatus* status = nullptr;
         const auto code = client.c.getDiagControllerStatus(status);
         const std::unique_ptr<DiagControllerStatus> owned(status);
         return client.kept(code, status, decltype(status)(nullptr));
       }});
}

template <class Value>
Row readerOf(const std::string& name, const char* event,
             DiagnosticController::errorCode (DiagnosticController::*get)(Value&), Value before) {
  return {name, "NIAS", "SUCCESS", "kept", event, kRefused, [get, before](Client& client) {
            Value value = before;
            const auto code = (client.c.*get)(value);
            return client.kept(code, value, before);
          }};
}

template <class Value>
Row writerOf(const std::string& name,
             DiagnosticController::errorCode (DiagnosticController::*set)(Value), Value value) {
  return {name, "I", "SUCCESS", "none", kWrong, kRefused, [set, value](Client& client) {
            return client.none((client.c.*set)(value));
          }};
}

void addSettings(std::vector<Row>& rows) {
  using C = DiagnosticController;
  rows.push_back(
      readerOf("getDebugLog", kSilent, &C::getDebugLog, DiagCtrlConstants::debugLevel(77)));
  rows.push_back(readerOf("getRunMode", kWrong, &C::getRunMode, GlobalSettings::runMode(77)));
  rows.push_back(readerOf("getDiagLogMode", kWrong, &C::getDiagLogMode, true));
  rows.push_back(readerOf("getHaltOnError", kWrong, &C::getHaltOnError, true));
  rows.push_back(
      readerOf("getDiagnosticMode", kWrong, &C::getDiagnosticMode, GlobalSettings::diagMode(77)));
  rows.push_back(writerOf("setDebugLog", &C::setDebugLog, DiagCtrlConstants::DIAG_NO));
  rows.push_back(writerOf("setRunMode", &C::setRunMode, GlobalSettings::SERIAL));
  rows.push_back(writerOf("setDiagLogMode", &C::setDiagLogMode, false));
  rows.push_back(writerOf("setHaltOnError", &C::setHaltOnError, false));
  rows.push_back(writerOf("setDiagnosticMode", &C::setDiagnosticMode, GlobalSettings::CUSTOMER));
}

/// A call of the catalogue with a pointer as its output.
template <class Object, class Ask>
Row objectQuery(const std::string& name, Ask ask) {
  return {name, "IA", "OBJECT_NOT_FOUND", "kept", kWrong, kRefused, [ask](Client& client) {
            Object* object = nullptr;
            const auto code = ask(client.c, object);
            return client.kept(code, object, decltype(object)(nullptr));
          }};
}

/// One that hands out ids.
template <class Ask>
Row idQuery(const std::string& name, Ask ask) {
  return {name, "IA", "OBJECT_NOT_FOUND", "empty", kWrong, kRefused, [ask](Client& client) {
            std::vector<int>* ids = nullptr;
            const auto code = ask(client.c, ids);
            return client.vectorOf(code, ids);
          }};
}

void addCatalogue(std::vector<Row>& rows) {
  using C = DiagnosticController;
  typedef std::vector<int>* Ids;
  rows.push_back(
      {"getNumberOfDiagPackages", "IA", "SUCCESS", "zero", kWrong, kRefused, [](Client& client) {
         int count = 77;
         const auto code = client.c.getNumberOfDiagPackages(count);
         return Outcome{nameOf(code), count == 0 ? "zero" : "other"};
       }});
  rows.push_back(objectQuery<DiagCtrl::DiagnosticPackage>(
      "getDiagPackage", [](C& c, auto*& package) { return c.getDiagPackage(99, package); }));
  rows.push_back(objectQuery<DiagCtrl::DiagDevice>(
      "getDevice", [](C& c, auto*& device) { return c.getDevice(99, 1, device); }));
  rows.push_back(objectQuery<DiagCtrl::PackageTestInfo>(
      "getTest", [](C& c, auto*& test) { return c.getTest(99, 1, test); }));
  rows.push_back(
      idQuery("getDeviceIdList", [](C& c, Ids& ids) { return c.getDeviceIdList(99, ids); }));
  rows.push_back(idQuery("getValidDeviceIdList",
                         [](C& c, Ids& ids) { return c.getValidDeviceIdList(99, 1, ids); }));
  rows.push_back(idQuery("getTestIdList", [](C& c, Ids& ids) { return c.getTestIdList(99, ids); }));
  rows.push_back(idQuery("getValidTestIdList",
                         [](C& c, Ids& ids) { return c.getValidTestIdList(99, 1, ids); }));
  rows.push_back(
      idQuery("getDisableTestList", [](C& c, Ids& ids) { return c.getDisableTestList(99, ids); }));
  rows.push_back(idQuery("getDisableDeviceList",
                         [](C& c, Ids& ids) { return c.getDisableDeviceList(99, 1, ids); }));
  rows.push_back(
      {"getDisablePackageList", "IA", "SUCCESS", "kept", kWrong, kRefused, [](Client& client) {
         DiagCtrl::PackageList* list = nullptr;
         const auto code = client.c.getDisablePackageList(list);
         const std::unique_ptr<DiagCtrl::PackageList> owned(list);
         return client.kept(code, list, decltype(list)(nullptr));
       }});
  rows.push_back(
      {"getDeviceStatus", "IA", "OBJECT_NOT_FOUND", "kept", kWrong, kRefused, [](Client& client) {
         unsigned int status = 77;
         const auto code = client.c.getDeviceStatus(99, 1, status);
         return client.kept(code, status, 77U);
       }});
}

void addQueueing(std::vector<Row>& rows) {
  const auto queue = [&](const std::string& form, auto ask) {
    rows.push_back({"queueTest " + form, "IA", "OBJECT_NOT_FOUND", "kept", kWrong, kRefused,
                    [ask](Client& client) {
                      unsigned long id = 77;
                      const auto code = ask(client, id);
                      return client.kept(code, id, 77UL);
                    }});
  };
  queue("with tests and a halt flag", [](Client& client, unsigned long& id) {
    return client.c.queueTest(99, 1, client.tests, client.settings, true, id);
  });
  queue("with tests", [](Client& client, unsigned long& id) {
    return client.c.queueTest(99, 1, client.tests, client.settings, id);
  });
  queue("without tests", [](Client& client, unsigned long& id) {
    return client.c.queueTest(99, 1, client.settings, id);
  });
  queue("with an empty vector of tests, refused for its phase first",
        [](Client& client, unsigned long& id) {
          const auto code = client.c.queueTest(99, 1, client.noInts, client.settings, id);
          return code == DiagnosticController::TEST_VECTOR_IS_EMPTY
                     ? client.c.queueTest(99, 1, client.tests, client.settings, id)
                     : code;
        });
  rows.push_back({"queueTest of a package", "IA", "OBJECT_NOT_FOUND", "kept", kWrong, kRefused,
                  [](Client& client) {
                    DiagCtrl::VectorTestReqId* ids = nullptr;
                    const auto code = client.c.queueTest(99, client.settings, ids);
                    return client.vectorOf(code, ids);
                  }});
  rows.push_back({"runEstimation", "I", "SUCCESS", "none", kWrong, kRefused, [](Client& client) {
                    std::vector<int> ids;
                    return client.none(client.c.runEstimation({}, {}, {}, ids, client.settings));
                  }});
  rows.push_back({"getEstimatedTime", "I", "true", "-1", kWrong, "false", [](Client& client) {
                    std::vector<int> times;
                    int total = 77;
                    const bool answer = client.c.getEstimatedTime({1, 2, 3}, times, total);
                    return Outcome{answer ? "true" : "false", std::to_string(total)};
                  }});
  rows.push_back(
      {"getToTalTimeRemaining", "IA", "5", "none", kWrong, "0", [](Client& client) {
         return Outcome{std::to_string(client.c.getToTalTimeRemaining({1}, {2, 3})), "none"};
       }});
  rows.push_back({"getTimeRemaining", kEveryPhase, "false", "", "", "", [](Client& client) {
                    std::vector<int> times;
                    int total = 77;
                    const bool answer = client.c.getTimeRemaining({1}, times, total);
                    return Outcome{answer ? "true" : "false",
                                   total == 77 && times.empty() ? "kept" : "changed"};
                  }});
}

void addControl(std::vector<Row>& rows) {
  using C = DiagnosticController;
  constexpr const char* missing = "REQUEST_OBJECT_NOT_FOUND";
  const auto control = [&](const std::string& name, auto call) {
    rows.push_back({name, "A", missing, "none", kWrong, kRefused,
                    [call](Client& client) { return client.none(call(client)); }});
  };
  control("abortTest", [](Client& client) { return client.c.abortTest(client.request); });
  control("abortTest of several", [](Client& client) {
    std::vector<unsigned long> ids{client.request};
    return client.c.abortTest(ids);
  });
  control("suspendTest", [](Client& client) { return client.c.suspendTest(client.request); });
  control("resumeTest", [](Client& client) { return client.c.resumeTest(client.request); });
  rows.push_back(
      {"getDiagnosticStatus", "A", missing, "kept", kWrong, kRefused, [](Client& client) {
         auto status = Diag::DiagnosticStatus::Status(77);
         const auto code = client.c.getDiagnosticStatus(client.request, status);
         return client.kept(code, status, Diag::DiagnosticStatus::Status(77));
       }});
  rows.push_back(
      {"getDiagnosticProgress", "A", missing, "kept", kWrong, kRefused, [](Client& client) {
         unsigned int progress = 77;
         const auto code = client.c.getDiagnosticProgress(client.request, progress);
         return client.kept(code, progress, 77U);
       }});
  rows.push_back({"getRequestStatus", "IA", missing, "kept", kWrong, kRefused, [](Client& client) {
                    auto status = TestRequest::TestRequestStatus(77);
                    int pass = 77;
                    int passes = 77;
                    bool stress = true;
                    const auto code = client.c.getRequestStatus(99, status, pass, passes, stress);
                    const bool isKept = status == TestRequest::TestRequestStatus(77) &&
                                        pass == 77 && passes == 77 && stress;
                    return client.kept(code, isKept, true);
                  }});
  rows.push_back(
      {"getRequestIdList", "IA", "SUCCESS", "empty", kWrong, kRefused, [](Client& client) {
         std::vector<unsigned long>* ids = nullptr;
         const auto code = client.c.getRequestIdList(ids);
         return client.vectorOf(code, ids);
       }});
  rows.push_back(objectQuery<TestRequest>(
      "getTestRequest", [](C& c, auto*& request) { return c.getTestRequest(99, request); }));
}

void addRegistration(std::vector<Row>& rows) {
  typedef DiagnosticController C;
  typedef C::errorCode (C::*Register)(CallBackObject*, unsigned long&);
  const auto add = [&](const std::string& name, const char* event, Register registerFor) {
    rows.push_back(
        {name, "NEIAS", "SUCCESS", "kept", event, kRefused, [registerFor](Client& client) {
           unsigned long id = 77;
           const auto code = (client.c.*registerFor)(client.callBack(), id);
           return client.kept(code, id, 77UL);
         }});
  };
  add("registerForDiagResults", kWrong, &C::registerForDiagResults);
  add("registerForDiagEvents", kLock, &C::registerForDiagEvents);
  add("registerForDiagCtrlEvents", kLock, &C::registerForDiagCtrlEvents);
  rows.push_back(
      {"getNumberOfRegistrations", "NIAS", "SUCCESS", "kept", kWrong, kRefused, [](Client& client) {
         unsigned int events = 77;
         unsigned int results = 77;
         unsigned int ctrlEvents = 77;
         const auto code = client.c.getNumberOfRegistrations(events, results, ctrlEvents);
         return client.kept(code, events + results + ctrlEvents, 231U);
       }});
  rows.push_back({"getDiagnosticEvents", "IA", "RESULT_REG_ID_NOT_FOUND", "kept", kWrong, kRefused,
                  [](Client& client) {
                    DiagCtrl::EventVector* events = nullptr;
                    const auto code = client.c.getDiagnosticEvents(99, events);
                    return client.messages(code, events);
                  }});
  rows.push_back({"getDiagnosticResults", "IA", "RESULT_REG_ID_NOT_FOUND", "kept", kWrong, kRefused,
                  [](Client& client) {
                    DiagCtrl::ResultVector* results = nullptr;
                    const auto code = client.c.getDiagnosticResults(99, results);
                    return client.messages(code, results);
                  }});
  rows.push_back({"getDiagnosticCtrlEvents", "NIA", "CTRL_EVENT_REG_ID_NOT_FOUND", "kept", kSilent,
                  kRefused, [](Client& client) {
                    DiagCtrl::CtrlEventVector* events = nullptr;
                    const auto code = client.c.getDiagnosticCtrlEvents(99, events);
                    return client.messages(code, events);
                  }});
}

void addTexts(std::vector<Row>& rows) {
  const auto add = [&](const std::string& name, auto ask) {
    rows.push_back(
        {name, "IA", "PACKAGE_NOT_FOUND", "kept", kWrong, kRefused, [ask](Client& client) {
           char* text = nullptr;
           const auto code = ask(client, text);
           return client.text(code, text);
         }});
  };
  add("getTestToken",
      [](Client& client, char*& text) { return client.c.getTestToken(99, 1, client.key, text); });
  add("getPackageToken",
      [](Client& client, char*& text) { return client.c.getPackageToken(99, client.key, text); });
  add("getMessageToken", [](Client& client, char*& text) {
    return client.c.getMessageToken(99, Diag::DiagnosticEvent::ERROR_EVENT, 1, text);
  });
  add("getDeviceStatusToken",
      [](Client& client, char*& text) { return client.c.getDeviceStatusToken(99, 1, text); });
  add("getLocalizedString", [](Client& client, char*& text) {
    return client.c.getLocalizedString(99, client.language, client.token, text);
  });
  add("getLocalizedMessage", [](Client& client, char*& text) {
    DiagCtrl::ParamStringVector parameters;
    return client.c.getLocalizedMessage(99, client.language, client.token, parameters, text);
  });
  const auto addNull = [&](const std::string& what, const std::string& result, auto ask) {
    rows.push_back(
        {"a text without a " + what, kEveryPhase, result, "", "", "", [ask](Client& client) {
           char* text = nullptr;
           const auto code = ask(client, text);
           return client.text(code, text);
         }});
  };
  addNull("language", "LANG_ID_IS_NULL", [](Client& client, char*& text) {
    return client.c.getLocalizedString(99, nullptr, nullptr, text);
  });
  addNull("token", "MESSAGE_TOKEN_IS_NULL", [](Client& client, char*& text) {
    return client.c.getLocalizedString(99, client.language, nullptr, text);
  });
  addNull("language, in a message", "LANG_ID_IS_NULL", [](Client& client, char*& text) {
    DiagCtrl::ParamStringVector parameters;
    return client.c.getLocalizedMessage(99, nullptr, nullptr, parameters, text);
  });
  addNull("token, in a message", "MESSAGE_TOKEN_IS_NULL", [](Client& client, char*& text) {
    DiagCtrl::ParamStringVector parameters;
    return client.c.getLocalizedMessage(99, client.language, nullptr, parameters, text);
  });
}

/// What ends the phase where it is served, so it comes last.
void addEnds(std::vector<Row>& rows) {
  rows.push_back({"clearRequestIdList", "I", "SUCCESS", "none", kWrong, kRefused,
                  [](Client& client) { return client.none(client.c.clearRequestIdList()); }});
  rows.push_back({"abortAllTest", "A", "SUCCESS", "none", kWrong, kRefused,
                  [](Client& client) { return client.none(client.c.abortAllTest()); }});
}

std::vector<Row> gateTable() {
  std::vector<Row> rows;
  addStartAndStop(rows);
  addSettings(rows);
  addCatalogue(rows);
  addQueueing(rows);
  addControl(rows);
  addRegistration(rows);
  addTexts(rows);
  addEnds(rows);
  return rows;
}

///  Whether a shut-down waits for the call by its big lock, or the call needs nothing of what goes.
bool isUncounted(const Row& row) {
  static const Lines kFamilies = {"initialize", "reset",         "enumerate",
                                  "queueTest",  "abort",         "suspend",
                                  "resume",     "runEstimation", "getNumberOfDiagPackages"};
  return row.served.find('U') != std::string::npos ||
         std::any_of(kFamilies.begin(), kFamilies.end(),
                     [&](const std::string& family) { return row.name.rfind(family, 0) == 0; });
}

class PhaseGateTest : public ::testing::Test {
 protected:
  /// Tries every call that a waiting shut-down turns away: as if there was no controller.
  void tryTurnedAwayCalls() {
    Client client(harness);
    const CtrlEventTap tap;
    for (const Row& row : gateTable()) {
      if (isUncounted(row)) {
        continue;
      }
      SCOPED_TRACE(row.name);
      tap.take();
      const Outcome outcome = row.call(client);
      EXPECT_EQ(outcome.result, row.refusedResult);
      EXPECT_EQ(outcome.output, row.refusedOutput);
      EXPECT_EQ(tap.take(), row.refusedEvent.empty() ? Lines() : Lines{row.refusedEvent});
    }
  }

  /// Tries every call in the phase that the controller is in.
  void tryEveryCall(Phase phase) {
    ASSERT_EQ(harness.phase(), phase);
    Client client(harness);
    const char letter = letterOf(phase);
    const CtrlEventTap tap;
    for (const Row& row : gateTable()) {
      SCOPED_TRACE(row.name + " in " + nameOf(phase));
      const bool isServed = row.served.find(letter) != std::string::npos;
      if (isServed && row.servedResult.empty()) {
        continue;  // would leave the phase: tried where that is the point
      }
      const Outcome outcome = row.call(client);
      const Lines events = tap.take();
      if (isServed) {
        EXPECT_EQ(outcome.result, row.servedResult);
        EXPECT_THAT(events, ::testing::Not(::testing::Contains(kWrong)));
      } else {
        EXPECT_EQ(outcome.result, row.refusedResult);
        EXPECT_EQ(outcome.output, row.refusedOutput);
        EXPECT_EQ(events, row.refusedEvent.empty() ? Lines() : Lines{row.refusedEvent});
      }
      EXPECT_EQ(harness.phase(), phase);
    }
  }

  ControllerHarness harness;
};

TEST_F(PhaseGateTest, uninitialised) {
  harness.control().writeTo(harness.directory());
  tryEveryCall(DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(harness->initialize(Client(harness).goodFile().c_str()), DiagnosticController::SUCCESS);
}

TEST_F(PhaseGateTest, uninitialised_again_after_a_run) {
  harness.addPackage("ALPHA");
  harness.start();
  harness.shutDown();
  tryEveryCall(DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(harness.shutDown(), DiagnosticController::SUCCESS);
  harness.initialize();
}

TEST_F(PhaseGateTest, initialize) {
  harness.initialize();
  tryEveryCall(DiagControllerStatus::INITIALIZE);
  EXPECT_EQ(harness->resetDiagController(), DiagnosticController::SUCCESS);
}

TEST_F(PhaseGateTest, enumerate_while_the_first_enumeration_runs) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.initialize();
  alpha.on(Call::GetDevices, [&](const CallRecord&) {
    Companion client([&] { tryEveryCall(DiagControllerStatus::ENUMERATE); });
    EXPECT_TRUE(client.ends());
  });
  harness.enumerate();
  EXPECT_EQ(alpha.count(Call::GetDevices), 1U);
}

TEST_F(PhaseGateTest, enumerate_while_a_package_is_enumerated_again) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.on(Call::GetDevices, [&](const CallRecord&) {
    Companion client([&] { tryEveryCall(DiagControllerStatus::ENUMERATE); });
    EXPECT_TRUE(client.ends());
  });
  EXPECT_EQ(harness->enumerateDiagPackages(1), DiagnosticController::SUCCESS);
  EXPECT_EQ(alpha.count(Call::GetDevices), 2U);
}

TEST_F(PhaseGateTest, idle) {
  harness.addPackage("ALPHA");
  harness.start();
  tryEveryCall(DiagControllerStatus::IDLE);
  EXPECT_EQ(harness->resetDiagController(), DiagnosticController::SUCCESS);
}

TEST_F(PhaseGateTest, active) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  Barrier end;  // at which the test stays when it is aborted, so that the phase does
  alpha.on(Call::RunEnd, [&](const CallRecord&) { end.pass(); });
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  tryEveryCall(DiagControllerStatus::ACTIVE);
  end.open();
  EXPECT_EQ(harness.shutDown(), DiagnosticController::SUCCESS);
}

TEST_F(PhaseGateTest, active_during_an_estimation) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  Barrier end;
  alpha.on(Call::RunEnd, [&](const CallRecord&) { end.pass(); });
  std::vector<int> ids;
  auto settings = ControllerHarness::settings();
  ASSERT_EQ(harness->runEstimation({1}, {1}, {1}, ids, settings), DiagnosticController::SUCCESS);
  ASSERT_TRUE(alpha.awaitRunning(1));
  tryEveryCall(DiagControllerStatus::ACTIVE);
  end.open();
  EXPECT_EQ(harness.shutDown(), DiagnosticController::SUCCESS);
}

TEST_F(PhaseGateTest, estimation_which_only_a_test_can_set) {
  harness.addPackage("ALPHA");
  harness.start();
  harness->setDiagCtrlPhase(DiagControllerStatus::ESTIMATION, -1);
  tryEveryCall(DiagControllerStatus::ESTIMATION);
}

TEST_F(PhaseGateTest, a_shut_down_that_waits_for_a_call_turns_others_away) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  Barrier inPackage;
  alpha.on(Call::DeviceStatus, [&](const CallRecord&) { inPackage.pass(); });
  const Companion inside([&] {
    unsigned int status = 0;
    EXPECT_EQ(harness->getDeviceStatus(1, 1, status), DiagnosticController::SUCCESS);
  });
  ASSERT_TRUE(inPackage.awaitArrival());
  const Companion shutDown([&] { harness.shutDown(); });
  EXPECT_TRUE(eventually([&] {
    bool mode = false;
    return harness->getDiagLogMode(mode) == DiagnosticController::INCORRECT_PHASE;
  }));
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  tryTurnedAwayCalls();
  EXPECT_FALSE(shutDown.ended());
  inPackage.open();
  ASSERT_TRUE(inside.ends() && shutDown.ends());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
