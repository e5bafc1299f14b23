// The controller is started, loaded and shut down or reset again and again, while four clients
// fetch, poll, watch and queue all the time, whatever it is doing.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::Cycles {
namespace {

using DiagCtrl::CallBackObject;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using Scripted::Script;
using TestSupport::ControllerHarness;
using TestSupport::eventually;
using TestSupport::PackageConfig;
using namespace std::chrono_literals;
using enum DiagnosticController::errorCode;
typedef DiagnosticController::errorCode Code;

int cyclesWanted() {
  const char* wanted = std::getenv("TARVEX_CYCLES");
  return wanted != nullptr ? std::atoi(wanted) : 100;
}

/// What the clients have got, over all lives.
struct Tally {
  std::atomic<unsigned long> messages{0};
  std::atomic<unsigned long> statuses{0};
  std::atomic<unsigned long> progress{0};
  std::atomic<unsigned long> healths{0};
  std::atomic<unsigned long> answers{0};
  std::atomic<unsigned long> queued{0};
  std::atomic<unsigned long> refusals{0};

  /// Counts an answer. @return whether it was a success.
  bool note(Code code, std::atomic<unsigned long>& counter) {
    refusals += code == INCORRECT_PHASE ? 1 : 0;
    counter += code == SUCCESS ? 1 : 0;
    return code == SUCCESS;
  }
};

class Client {
 public:
  Client(DiagnosticController& controller, Tally& tally, unsigned int seed)
      : m_controller(controller), m_tally(tally), m_random(seed) {}

  /// Takes what stands in the queues of the three first registrations.
  void fetch() {
    drain(&DiagnosticController::getDiagnosticEvents);
    drain(&DiagnosticController::getDiagnosticResults);
    drain(&DiagnosticController::getDiagnosticCtrlEvents);
  }

  /// Asks for the requests, steers one of them and asks for its progress.
  void poll() {
    std::vector<unsigned long>* handedOut = nullptr;
    const Code code = m_controller.getRequestIdList(handedOut);
    const std::unique_ptr<std::vector<unsigned long>> ids(handedOut);
    if (code != SUCCESS || ids->empty()) {
      return;
    }
    const unsigned long id = (*ids)[pick(static_cast<unsigned int>(ids->size()))];
    auto status = DiagCtrl::TestRequest::WAIT;
    int pass = 0;
    int passes = 0;
    bool stress = false;
    m_tally.note(m_controller.getRequestStatus(static_cast<long>(id), status, pass, passes, stress),
                 m_tally.statuses);
    unsigned int progress = 0;
    m_tally.note(m_controller.getDiagnosticProgress(id, progress), m_tally.progress);
    switch (pick(8)) {
      case 0:
        m_tally.note(m_controller.abortTest(id), m_tally.answers);
        break;
      case 1:
        m_tally.note(m_controller.suspendTest(id), m_tally.answers);
        m_tally.note(m_controller.resumeTest(id), m_tally.answers);
        break;
      default:
        break;
    }
  }

  /// Looks at the controller's health, its settings, its catalogue and its texts.
  void watch() {
    DiagControllerStatus* health = nullptr;
    if (m_tally.note(m_controller.getDiagControllerStatus(health), m_tally.healths)) {
      delete health;
    }
    int progress = 0;
    m_tally.note(m_controller.getEnumerationProgress(progress), m_tally.answers);
    auto mode = DiagCtrl::GlobalSettings::SERIAL;
    m_tally.note(m_controller.getRunMode(mode), m_tally.answers);
    m_tally.note(m_controller.setHaltOnError(pick(2) == 0), m_tally.answers);
    unsigned int counts[3] = {};
    m_tally.note(m_controller.getNumberOfRegistrations(counts[0], counts[1], counts[2]),
                 m_tally.answers);
    std::vector<int>* tests = nullptr;
    m_tally.note(m_controller.getValidTestIdList(1, 1, tests), m_tally.answers);
    delete tests;
    unsigned int status = 0;
    m_tally.note(m_controller.getDeviceStatus(1, 1, status), m_tally.answers);
    char key[] = "Mnemonic";
    char* text = nullptr;
    m_tally.note(m_controller.getPackageToken(1, key, text), m_tally.answers);
    delete[] text;
    std::vector<int> times;
    int total = 0;
    m_controller.getEstimatedTime({1}, times, total);
  }

  void queue() {
    auto settings = ControllerHarness::settings(1 + static_cast<int>(pick(2)));
    const int package = 1 + static_cast<int>(pick(2));
    if (pick(4) == 0) {
      DiagCtrl::VectorTestReqId* ids = nullptr;
      m_tally.note(m_controller.queueTest(package, settings, ids), m_tally.queued);
      delete ids;
    } else {
      std::vector<int> tests{1};
      unsigned long id = 0;
      m_tally.note(m_controller.queueTest(package, 1 + pick(2), tests, settings, id),
                   m_tally.queued);
    }
    m_tally.note(m_controller.clearRequestIdList(), m_tally.answers);
  }

 private:
  unsigned int pick(unsigned int choices) {
    return static_cast<unsigned int>(m_random() % choices);
  }

  template <class Messages>
  void drain(Code (DiagnosticController::*call)(long, Messages*&)) {
    Messages* handedOut = nullptr;
    if ((m_controller.*call)(1, handedOut) != SUCCESS) {
      return;
    }
    const std::unique_ptr<Messages> messages(handedOut);
    for (auto* message : *messages) {
      delete message;
      ++m_tally.messages;
    }
  }

  DiagnosticController& m_controller;
  Tally& m_tally;
  std::mt19937 m_random;
};

class CyclesTest : public ::testing::Test {
 protected:
  CyclesTest() {
    for (const char* name : {"ALPHA", "BETA"}) {
      Script& script = harness.addPackage(name, PackageConfig(2));
      script.setDevices(2).recordNothing();
      script.everyPass({.events = {{.code = 7}}, .duration = 200us});
      scripts.push_back(&script);
    }
    harness.control().parallel();
  }

  /// Runs the clients while an action goes on.
  void amongClients(const std::function<void()>& action) {
    DiagnosticController& c = harness.controller();
    std::vector<std::thread> clients;
    unsigned int seed = 0;
    const auto run = [&](void (Client::*step)(), const std::function<void()>& before) {
      ++living;
      clients.emplace_back([this, &c, step, before, number = ++seed] {
        Client client(c, tally, number);
        while (!isOver) {
          before();
          (client.*step)();
        }
        --living;
      });
    };
    run(&Client::fetch, [this] { harness.callBack().wait(); });
    run(&Client::poll, [] {});
    run(&Client::watch, [] {});
    run(&Client::queue, [] { std::this_thread::sleep_for(100us); });
    action();
    isOver = true;
    EXPECT_TRUE(eventually([&] {
      harness.callBack().notify();  // one of them waits
      return living == 0;
    }));
    for (std::thread& client : clients) {
      client.join();
    }
  }

  /// Until the clients have got something in this life.
  void awaitLoad() {
    const unsigned long messages = tally.messages + 10;
    const unsigned long queued = tally.queued + 5;
    EXPECT_TRUE(eventually([&] { return tally.messages > messages && tally.queued > queued; }));
  }

  void expectNothingLeft() {
    for (const Script* script : scripts) {
      EXPECT_EQ(script->living(), Scripted::Living()) << script->package();
      EXPECT_EQ(script->running(), 0) << script->package();
    }
  }

  ControllerHarness harness;
  std::vector<Script*> scripts;
  Tally tally;
  std::atomic<bool> isOver{false};
  std::atomic<int> living{0};
};

TEST_F(CyclesTest, lives_of_a_controller_end_under_clients_that_never_rest) {
  const int cycles = cyclesWanted();
  ASSERT_GT(cycles, 0);
  amongClients([&] {
    for (int cycle = 1; cycle <= cycles && !HasFailure(); ++cycle) {
      SCOPED_TRACE("cycle " + std::to_string(cycle));
      harness.start();
      awaitLoad();
      if (cycle % 3 == 0) {
        EXPECT_EQ(harness->resetDiagController(), SUCCESS);
        expectNothingLeft();
        harness.registerForAll();
        harness.enumerate();
        awaitLoad();
      }
      EXPECT_EQ(harness.shutDown(), SUCCESS);
      EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
      expectNothingLeft();
    }
  });
  for (const auto* counter : {&tally.messages, &tally.statuses, &tally.progress, &tally.healths,
                              &tally.answers, &tally.queued, &tally.refusals}) {
    EXPECT_GT(*counter, 0U);
  }
  std::printf("%d cycles: %lu requests queued, %lu messages, %lu refusals\n", cycles,
              tally.queued.load(), tally.messages.load(), tally.refusals.load());
}

}  // namespace
}  // namespace TarvexDiags::Cycles
