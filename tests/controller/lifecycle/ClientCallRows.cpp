#include "tests/controller/lifecycle/ClientCallRows.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/BigLock.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::CallBackObject;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using Scripted::Living;
using enum DiagnosticController::errorCode;
typedef DiagnosticController C;
typedef C::errorCode Code;
typedef std::vector<int> Ids;

template <class Object>
Call handsOut(Code (C::*call)(Object*&)) {
  return [call](Stage& stage) {
    Object* object = nullptr;
    const Code code = (stage.controller().*call)(object);
    delete object;
    return code;
  };
}

template <class Value>
Call reads(Code (C::*call)(Value&)) {
  return [call](Stage& stage) {
    Value value{};
    return (stage.controller().*call)(value);
  };
}

template <class Value>
Call writes(Code (C::*call)(Value), Value value) {
  return [call, value](Stage& stage) { return (stage.controller().*call)(value); };
}

/// A call of the first package.
template <class Object>
Call hands(std::function<Code(C&, Object*&)> call) {
  return [call = std::move(call)](Stage& stage) {
    Object* object = nullptr;
    const Code code = call(stage.controller(), object);
    delete object;
    return code;
  };
}

/// One that shows an object of the controller's own.
template <class Object>
Call shows(std::function<Code(C&, Object*&)> call) {
  return [call = std::move(call)](Stage& stage) {
    Object* object = nullptr;
    return call(stage.controller(), object);
  };
}

Call tells(std::function<Code(Stage&, char*&)> call) {
  return [call = std::move(call)](Stage& stage) {
    char* text = nullptr;
    const Code code = call(stage, text);
    delete[] text;
    return code;
  };
}

void expectPhase(Stage& stage, DiagControllerStatus::diagCtrlPhase phase) {
  EXPECT_EQ(stage.harness.phase(), phase);
}

/// The end of one life, of which nothing may be left.
void shutDown(Stage& stage) {
  EXPECT_EQ(stage.harness.shutDown(), SUCCESS);
  expectPhase(stage, DiagControllerStatus::UNINITIALISED);
  EXPECT_EQ(stage.alpha.living(), Living());
}

void addStartAndStop(std::vector<Row>& rows) {
  rows.push_back({"initialize", "",
                  [](Stage& stage) {
                    const std::string path = stage.harness.directory().file("control.cfg");
                    return stage.controller().initialize(path.c_str());
                  },
                  [](Stage& stage) {
                    stage.harness.initialize();
                    shutDown(stage);
                  },
                  doNothing,
                  [](Stage& stage) {
                    if (stage.harness.phase() == DiagControllerStatus::UNINITIALISED) {
                      stage.harness.initialize();
                    }
                    stage.harness.enumerate();
                    shutDown(stage);
                  },
                  true});
  rows.push_back(
      {"shutDown", "", [](Stage& stage) { return stage.harness.shutDown(); },
       [](Stage& stage) { stage.alpha.everyPass({.duration = std::chrono::milliseconds(5)}); },
       [](Stage& stage) {
         stage.harness.start();
         stage.queueBehind();
         stage.queueBehind();
       },
       shutDown});
  rows.push_back({"resetDiagController", "",
                  [](Stage& stage) { return stage.controller().resetDiagController(); }, doNothing,
                  [](Stage& stage) {
                    stage.harness.start();
                    stage.queueBehind();
                  },
                  [](Stage& stage) {
                    if (stage.harness.phase() == DiagControllerStatus::INITIALIZE) {
                      EXPECT_EQ(stage.alpha.living(), Living());
                      stage.harness.enumerate();
                    }
                    shutDown(stage);
                  },
                  true});
  rows.push_back({"getDiagControllerStatus", "", handsOut(&C::getDiagControllerStatus)});
}

void addSettings(std::vector<Row>& rows) {
  rows.push_back({"getDebugLog", "", reads(&C::getDebugLog)});
  rows.push_back({"getRunMode", "", reads(&C::getRunMode)});
  rows.push_back({"getDiagLogMode", "", reads(&C::getDiagLogMode)});
  rows.push_back({"getHaltOnError", "", reads(&C::getHaltOnError)});
  rows.push_back({"getDiagnosticMode", "", reads(&C::getDiagnosticMode)});
  rows.push_back({"setDebugLog", "", [](Stage& stage) {
                    return stage.controller().setDebugLog(stage.isTraced
                                                              ? DiagCtrlConstants::DIAG_INFORMATION
                                                              : DiagCtrlConstants::DIAG_NO);
                  }});
  rows.push_back({"setRunMode", "", writes(&C::setRunMode, GlobalSettings::SERIAL)});
  rows.push_back({"setDiagLogMode", "", writes(&C::setDiagLogMode, true)});
  rows.push_back({"setHaltOnError", "", writes(&C::setHaltOnError, true)});
  rows.push_back({"setDiagnosticMode", "", writes(&C::setDiagnosticMode, GlobalSettings::FACTORY)});
}

/// After an enumeration that may have failed.
void enumerateAgainAndShutDown(Stage& stage) {
  if (stage.harness.phase() == DiagControllerStatus::INITIALIZE) {
    stage.harness.enumerate();
    EXPECT_EQ(stage.harness.catalogue(), std::vector<std::string>{"ALPHA"});
  }
  expectPhase(stage, DiagControllerStatus::IDLE);
  shutDown(stage);
}

void addEnumeration(std::vector<Row>& rows) {
  const auto initialize = [](Stage& stage) { stage.harness.initialize(); };
  rows.push_back({"enumerateAllPackages", "",
                  [](Stage& stage) { return stage.controller().enumerateAllPackages(); }, doNothing,
                  initialize, enumerateAgainAndShutDown});
  rows.push_back(
      {"enumerateByPackageClass", "",
       [](Stage& stage) { return stage.controller().enumerateByPackageClass(stage.wanted); },
       doNothing, initialize, enumerateAgainAndShutDown});
  rows.push_back({"enumerateDiagPackages", "",
                  [](Stage& stage) { return stage.controller().enumerateDiagPackages(1); },
                  doNothing, start,
                  [](Stage& stage) {
                    expectPhase(stage, DiagControllerStatus::IDLE);
                    shutDown(stage);
                  }});
  rows.push_back({"getEnumerationProgress", "", reads(&C::getEnumerationProgress)});
}

void addCatalogue(std::vector<Row>& rows) {
  const auto list = [&](const char* name, std::function<Code(C&, Ids*&)> call) {
    rows.push_back({name, "", hands<Ids>(std::move(call))});
  };
  rows.push_back({"getNumberOfDiagPackages", "", reads(&C::getNumberOfDiagPackages)});
  rows.push_back({"getDiagPackage", "", shows<DiagCtrl::DiagnosticPackage>([](C& c, auto*& to) {
                    return c.getDiagPackage(1, to);
                  })});
  rows.push_back({"getDevice", "", shows<DiagCtrl::DiagDevice>([](C& c, auto*& to) {
                    return c.getDevice(1, 1, to);
                  })});
  rows.push_back({"getTest", "", shows<DiagCtrl::PackageTestInfo>([](C& c, auto*& to) {
                    return c.getTest(1, 1, to);
                  })});
  list("getDeviceIdList", [](C& c, Ids*& to) { return c.getDeviceIdList(1, to); });
  list("getValidDeviceIdList", [](C& c, Ids*& to) { return c.getValidDeviceIdList(1, 1, to); });
  list("getTestIdList", [](C& c, Ids*& to) { return c.getTestIdList(1, to); });
  list("getValidTestIdList", [](C& c, Ids*& to) { return c.getValidTestIdList(1, 1, to); });
  list("getDisableTestList", [](C& c, Ids*& to) { return c.getDisableTestList(1, to); });
  list("getDisableDeviceList", [](C& c, Ids*& to) { return c.getDisableDeviceList(1, 1, to); });
  rows.push_back({"getDisablePackageList", "", handsOut(&C::getDisablePackageList)});
  rows.push_back({"getDeviceStatus", "", [](Stage& stage) {
                    unsigned int status = 0;
                    return stage.controller().getDeviceStatus(1, 1, status);
                  }});
}

/// Each request that was queued has its object in the package, and no other object is left.
void addQueueing(std::vector<Row>& rows) {
  const auto add = [&](const char* form, const Call& queue) {
    rows.push_back({"queueTest", form,
                    [queue](Stage& stage) {
                      const Code code = queue(stage);
                      stage.expected += code == SUCCESS ? 1 : 0;
                      return code;
                    },
                    [](Stage& stage) {
                      stage.harness.start();
                      stage.alpha.holdRuns();
                    },
                    doNothing,
                    [](Stage& stage) {
                      EXPECT_EQ(stage.harness.requestIds().size(), stage.expected);
                      EXPECT_EQ(stage.alpha.living().diagnostics, static_cast<int>(stage.expected));
                    }});
  };
  add("with_tests_and_a_halt_flag", [](Stage& stage) {
    return stage.controller().queueTest(1, 1, stage.tests, stage.settings, true, stage.id);
  });
  add("with_tests", [](Stage& stage) {
    return stage.controller().queueTest(1, 1, stage.tests, stage.settings, stage.id);
  });
  add("of_a_device",
      [](Stage& stage) { return stage.controller().queueTest(1, 1, stage.settings, stage.id); });
  add("of_a_package", [](Stage& stage) {
    struct Owned {
      DiagCtrl::VectorTestReqId* ids = nullptr;
      ~Owned() { delete ids; }
    } owned;
    return stage.controller().queueTest(1, stage.settings, owned.ids);
  });
}

void addSteering(std::vector<Row>& rows) {
  const auto onRunning = [&](const char* name, const Call& call) {
    rows.push_back({name, "", call, &Stage::holdOneRequest});
  };
  rows.push_back({"abortTest", "of_one",
                  [](Stage& stage) { return stage.controller().abortTest(stage.id); },
                  &Stage::holdOneRequest});
  onRunning("suspendTest", [](Stage& stage) { return stage.controller().suspendTest(stage.id); });
  onRunning("resumeTest", [](Stage& stage) { return stage.controller().resumeTest(stage.id); });
  onRunning("getDiagnosticProgress", [](Stage& stage) {
    unsigned int progress = 0;
    return stage.controller().getDiagnosticProgress(stage.id, progress);
  });
  onRunning("getDiagnosticStatus", [](Stage& stage) {
    auto status = Diag::DiagnosticStatus::UNKNOWN;
    return stage.controller().getDiagnosticStatus(stage.id, status);
  });
  const auto onQueued = [&](const char* name, const char* form, const Call& call) {
    rows.push_back(
        {name, form, call, &Stage::holdOneRequest, &Stage::queueBehind, [](Stage& stage) {
           EXPECT_EQ(stage.controller().abortAllTest(), SUCCESS);
           EXPECT_EQ(stage.controller().abortTest(stage.id), SUCCESS);
           EXPECT_EQ(stage.alpha.living().diagnostics, 1);
         }});
  };
  onQueued("abortTest", "of_several",
           [](Stage& stage) { return stage.controller().abortTest(stage.ids); });
  onQueued("abortAllTest", "", [](Stage& stage) { return stage.controller().abortAllTest(); });
}

void addRequests(std::vector<Row>& rows) {
  const auto oneHasEnded = [](Stage& stage) {
    stage.harness.start();
    stage.queueBehind();
    ASSERT_TRUE(stage.harness.awaitIdle(std::chrono::minutes(2)));
    stage.harness.forget();
  };
  rows.push_back({"getRequestIdList", "", handsOut(&C::getRequestIdList), &Stage::holdOneRequest});
  rows.push_back({"getRequestStatus", "",
                  [](Stage& stage) {
                    auto status = DiagCtrl::TestRequest::WAIT;
                    int passes[2] = {};
                    bool stress = false;
                    return stage.controller().getRequestStatus(1, status, passes[0], passes[1],
                                                               stress);
                  },
                  oneHasEnded});
  rows.push_back({"getTestRequest", "", shows<DiagCtrl::TestRequest>([](C& c, auto*& to) {
                    return c.getTestRequest(1, to);
                  }),
                  oneHasEnded});
  rows.push_back({"clearRequestIdList", "",
                  [](Stage& stage) { return stage.controller().clearRequestIdList(); },
                  oneHasEnded});
  rows.push_back(
      {"getEstimatedTime", "",
       [](Stage& stage) {
         Ids times;
         int total = 0;
         const bool served = stage.controller().getEstimatedTime(stage.one, times, total);
         return served ? SUCCESS : INCORRECT_PHASE;
       },
       oneHasEnded,
       [](Stage& /*stage*/) {
         auto result = std::make_unique<Diag::DiagnosticResult>();
         result->setTestRequestId(1);
         DiagCtrl::EventManager::getInstance()->pushResultInAllResultQueue({result.release()});
       }});
}

void addEstimation(std::vector<Row>& rows) {
  rows.push_back({"runEstimation", "",
                  [](Stage& stage) {
                    Ids ids;
                    const Code code = stage.controller().runEstimation(
                        stage.two, stage.two, stage.two, ids, stage.settings);
                    EXPECT_TRUE(code != SUCCESS || ids.size() == 2);
                    return code;
                  },
                  doNothing, start,
                  [](Stage& stage) {
                    EXPECT_FALSE(stage.controller().abortAllTest() == ABORT_ALL_ALREADY_IN_PROCESS);
                    shutDown(stage);
                  }});
  rows.push_back({"getToTalTimeRemaining", "", [](Stage& stage) {
                    const int total =
                        stage.controller().getToTalTimeRemaining(stage.two, stage.two);
                    return total == 2 ? SUCCESS : UNABLE_TO_GET_LOCK;
                  }});
  rows.push_back({"getTimeRemaining", "", [](Stage& stage) {
                    Ids times;
                    int total = 0;
                    return stage.controller().getTimeRemaining(stage.one, times, total)
                               ? UNABLE_TO_GET_LOCK
                               : SUCCESS;
                  }});
}

/// Fetches from the first registration. What a failed call leaves in the queue is not lost.
template <class Messages>
Row fetchRow(const char* name, Code (C::*call)(long, Messages*&), const Step& push) {
  const auto fetch = [call](Stage& stage) {
    Messages* handedOut = nullptr;
    const Code code = (stage.controller().*call)(1, handedOut);
    const std::unique_ptr<Messages> messages(handedOut);
    if (messages != nullptr) {
      stage.expected -= messages->size();
      for (auto* message : *messages) {
        delete message;
      }
    }
    return code;
  };
  return {name,
          "",
          fetch,
          start,
          [push](Stage& stage) {
            stage.harness.forget();
            push(stage);
            stage.expected = 1;
          },
          [fetch](Stage& stage) {
            if (stage.expected == 1) {
              EXPECT_EQ(fetch(stage), SUCCESS);
            }
            EXPECT_LE(stage.expected + 1, 1U);  // a failure may add an event of its own
          }};
}

/// A registration is a queue and an object to wake, or nothing at all.
void expectWholeRegistrations(Stage& stage) {
  unsigned int events = 0;
  unsigned int results = 0;
  unsigned int ctrlEvents = 0;
  EXPECT_EQ(stage.controller().getNumberOfRegistrations(events, results, ctrlEvents), SUCCESS);
  EXPECT_EQ(events + results + ctrlEvents, stage.expected + 2);
  EXPECT_EQ(stage.id, stage.expected == 1 ? 0 : stage.expected);
}

void addMessages(std::vector<Row>& rows) {
  typedef Code (C::*Register)(CallBackObject*, unsigned long&);
  const auto add = [&](const char* name, Register registerFor) {
    rows.push_back({name, "",
                    [registerFor](Stage& stage) {
                      const Code code =
                          (stage.controller().*registerFor)(&stage.callBack, stage.id);
                      stage.expected += code == SUCCESS ? 1 : 0;
                      return code;
                    },
                    [](Stage& stage) {
                      stage.harness.start();
                      stage.expected = 1;
                    },
                    doNothing, expectWholeRegistrations});
  };
  add("registerForDiagEvents", &C::registerForDiagEvents);
  add("registerForDiagResults", &C::registerForDiagResults);
  add("registerForDiagCtrlEvents", &C::registerForDiagCtrlEvents);
  rows.push_back({"getNumberOfRegistrations", "", [](Stage& stage) {
                    unsigned int counts[3] = {};
                    return stage.controller().getNumberOfRegistrations(counts[0], counts[1],
                                                                       counts[2]);
                  }});
  rows.push_back(fetchRow("getDiagnosticEvents", &C::getDiagnosticEvents, [](Stage& /*stage*/) {
    auto event = std::make_unique<Diag::DiagnosticEvent>();
    event->setParamVector({"first", "second"});
    DiagCtrl::EventManager::getInstance()->pushEventInAllEventQueue({event.release()});
  }));
  rows.push_back(fetchRow("getDiagnosticResults", &C::getDiagnosticResults, [](Stage& /*stage*/) {
    DiagCtrl::EventManager::getInstance()->pushResultInAllResultQueue({new Diag::DiagnosticResult});
  }));
  rows.push_back(
      fetchRow("getDiagnosticCtrlEvents", &C::getDiagnosticCtrlEvents, [](Stage& /*stage*/) {
        DiagCtrl::DiagUtil::getInstance()->pushDiagCtrlEvent(
            DiagCtrl::DiagCtrlEvent::DISABLE_TEST, Diag::DiagnosticEvent::WARNING_EVENT, 0);
      }));
}

void addTexts(std::vector<Row>& rows) {
  static char language[] = "en";
  static char token[] = "TOKEN";
  rows.push_back({"getTestToken", "", tells([](Stage& stage, char*& to) {
                    static char key[] = "TestDescription";
                    return stage.controller().getTestToken(1, 1, key, to);
                  })});
  rows.push_back({"getPackageToken", "", tells([](Stage& stage, char*& to) {
                    static char key[] = "Mnemonic";
                    return stage.controller().getPackageToken(1, key, to);
                  })});
  rows.push_back({"getMessageToken", "", tells([](Stage& stage, char*& to) {
                    return stage.controller().getMessageToken(1, Diag::DiagnosticEvent::ERROR_EVENT,
                                                              1, to);
                  })});
  rows.push_back({"getDeviceStatusToken", "", tells([](Stage& stage, char*& to) {
                    return stage.controller().getDeviceStatusToken(1, 1, to);
                  })});
  rows.push_back({"getLocalizedString", "", tells([](Stage& stage, char*& to) {
                    return stage.controller().getLocalizedString(1, language, token, to);
                  })});
  rows.push_back({"getLocalizedMessage", "", tells([](Stage& stage, char*& to) {
                    return stage.controller().getLocalizedMessage(1, language, token,
                                                                  stage.parameters, to);
                  })});
}

}  // namespace

const std::vector<Row>& allRows() {
  static const std::vector<Row> kRows = [] {
    std::vector<Row> made;
    addStartAndStop(made);
    addSettings(made);
    addEnumeration(made);
    addCatalogue(made);
    addQueueing(made);
    addSteering(made);
    addRequests(made);
    addEstimation(made);
    addMessages(made);
    addTexts(made);
    return made;
  }();
  return kRows;
}

void expectToBeAtRest(Stage& stage) {
  DiagCtrl::DiagCtrlLock& lock = TestSupport::bigLockOf(stage.controller());
  const bool isFree = lock.tryLock();
  EXPECT_TRUE(isFree);
  if (isFree) {
    lock.unlock();
  }
  EXPECT_FALSE(stage.controller().getShutDownFlag());
}

}  // namespace TarvexDiags::Lifecycle
