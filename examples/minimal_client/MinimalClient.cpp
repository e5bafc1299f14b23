// minimal_client [control file [language]]: runs every test on every device, prints the outcome.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/CodeNames.h"
#include "DiagCtrl/DiagnosticController.h"

using namespace TarvexDiags::DiagCtrl;
using namespace TarvexDiags::Diag;
static DiagnosticController& controller = *DiagnosticController::getInstance();
static std::string language = "en";

static void require(DiagnosticController::errorCode code, const char* call) {
  if (code != controller.SUCCESS) {
    std::fprintf(stderr, "%s returned %s\n", call, nameOf(code));
    controller.shutDown();
    std::exit(2);
  }
}

// Prints the text of a token, from a package's file; package 0 is the file of MsgFilePath.
static void print(int package, std::string token, std::vector<std::string> parameters) {
  char* text = nullptr;
  controller.getLocalizedMessage(package, language.data(), token.data(), parameters, text);
  const std::unique_ptr<char[]> owned(text);
  std::puts(text != nullptr ? text : token.c_str());
}

static void print(int package, const DiagnosticEvent& event) {
  char* token = nullptr;
  controller.getMessageToken(package, event.getEventType(), event.getEventCode(), token);
  print(package, token ? std::unique_ptr<char[]>(token).get() : "?", event.getParamVector());
}

template <class Message>  // Empties a queue; vector and messages are the client's.
static std::vector<std::unique_ptr<Message>> drain(
    DiagnosticController::errorCode (DiagnosticController::*collect)(long, std::vector<Message*>*&),
    unsigned long id) {
  std::vector<Message*>* messages = nullptr;
  require((controller.*collect)(static_cast<long>(id), messages), "collecting messages");
  const std::unique_ptr<std::vector<Message*>> vector(messages);
  return {vector->begin(), vector->end()};
}

int main(int argc, char** argv) {
  language = argc > 2 ? argv[2] : language;
  CallBackObject wake;  // lives until the controller was shut down
  unsigned long ctrlEventId = 0, eventId = 0, resultId = 0;
  require(controller.initialize(argc > 1 ? argv[1] : CONTROL_FILE), "initialize");
  require(controller.registerForDiagCtrlEvents(&wake, ctrlEventId), "registerForDiagCtrlEvents");
  require(controller.registerForDiagEvents(&wake, eventId), "registerForDiagEvents");
  require(controller.registerForDiagResults(&wake, resultId), "registerForDiagResults");
  require(controller.enumerateAllPackages(), "enumerateAllPackages");
  DiagnosticSettings settings;
  settings.setRequestedPassCount(1);
  settings.setRunTime(600);
  std::map<unsigned long, int> packageOf;  // the package of each request
  int packages = 0;
  require(controller.getNumberOfDiagPackages(packages), "getNumberOfDiagPackages");
  for (int index = 1; index <= packages; ++index) {
    VectorTestReqId* ids = nullptr;  // stays null if the package has no devices
    const auto code = controller.queueTest(index, settings, ids);
    const std::unique_ptr<VectorTestReqId> ownedIds(ids);
    require(ids != nullptr ? code : controller.SUCCESS, "queueTest");
    for (std::size_t i = 0; ids != nullptr && i < ids->size(); ++i) {
      packageOf[(*ids)[i]] = index;
    }
  }
  // A wake-up that comes while nobody waits is lost, so one comes every quarter of a second.
  std::jthread ticker([&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(250))) {
      wake.notify();
    }
  });
  bool allPassed = !packageOf.empty();
  for (bool isPending = true; isPending; wake.wait()) {
    std::vector<unsigned long>* unfinished = nullptr;  // asked first: what has ended was delivered
    require(controller.getRequestIdList(unfinished), "getRequestIdList");
    isPending = !std::unique_ptr<std::vector<unsigned long>>(unfinished)->empty();
    for (const auto& event : drain(&DiagnosticController::getDiagnosticEvents, eventId)) {
      print(packageOf[event->getTestRequestId()], *event);
    }
    for (const auto& result : drain(&DiagnosticController::getDiagnosticResults, resultId)) {
      allPassed = allPassed && result->getTestResult() == DiagnosticResult::PASSED;
    }
    for (const auto& event : drain(&DiagnosticController::getDiagnosticCtrlEvents, ctrlEventId)) {
      print(0, nameOf(DiagCtrlEvent::eventCode{event->getEventCode()}), {});
    }
  }
  controller.shutDown();
  return allPassed ? EXIT_SUCCESS : EXIT_FAILURE;
}
