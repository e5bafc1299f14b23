// The supervision of a worker that nothing can end: simulated by signals that do not arrive.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>

#include "packagekit/KitEvents.h"
#include "packagekit/internal/KitDevice.h"
#include "packagekit/internal/KitDiagnostics.h"
#include "packagekit/internal/KitEnumerator.h"
#include "packagekit/internal/Module.h"
#include "packagekit/internal/WorkerSession.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;

namespace {

int swallowSignal(pid_t /*group*/, int /*signal*/) {
  return 0;
}

// The kit as it is linked into a package, here into the test itself; the worker runs the
// misbehaving package.
class UnkillableWorker : public ::testing::Test {
 protected:
  UnkillableWorker() {
    WorkerProcess::sendSignal = &swallowSignal;
    std::ofstream("unkillable.cfg")
        << "[Package]\nTestTimeout=0.2\nAbortGrace=0.05\nTermGrace=0.05\n"
           "KillGrace=0.05\n[TestID1]\nTestName=Hang\n";
    m_module.setConfigFile("unkillable.cfg");
    m_package.discover([](const Environment&) {
      return std::vector<Device>{{.name = "Stuck", .resourceTag = "host/stuck0"}};
    });
  }

  Module& m_module = Module::instance();
  Package m_package;
};

class SilentObserver : public SessionObserver {
 public:
  void testBegan(std::size_t) override {}
  void testProgressed(unsigned int) override {}
  void eventRaised(Diag::DiagnosticEvent::EventType, unsigned int,
                   std::vector<std::string>) override {}
  void testEnded(const TestReport&) override {}
};

}  // namespace

TEST_F(UnkillableWorker, IsGivenUpAfterTheLastGrace) {
  PassSetup setup;
  setup.testIds = {6};  // hangs and ignores SIGTERM
  setup.configFile = TARVEX_SELFTEST_DIR "/misbehaving.cfg";
  SessionLimits limits;
  limits.abortGrace = limits.termGrace = limits.killGrace = 0.05;
  limits.tests = {0.1};
  RunControl control;
  control.beginRun();
  SilentObserver observer;
  const auto start = std::chrono::steady_clock::now();
  WorkerProcess process(TARVEX_PACKAGE_DIR "/tarvex-package-worker",
                        TARVEX_SELFTEST_DIR "/libmisbehaving.so");
  const SessionEnd end = WorkerSession(setup, limits, control, observer).run(process);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(end.isGivenUp);
  EXPECT_TRUE(end.isTimedOut);
  ASSERT_GT(end.pid, 0);
  EXPECT_FALSE(reapIfEnded(end.pid));
  kill(end.pid, SIGKILL);
  EXPECT_EQ(waitpid(end.pid, nullptr, 0), end.pid);
}

TEST_F(UnkillableWorker, MakesItsDeviceHungAndRefusedUntilEnumeratedAgain) {
  // A worker that never gets ready: it loads no package, and the signals do not reach it.
  const std::string script = "./deaf-worker";
  std::ofstream(script) << "#!/bin/sh\nexec sleep 1000\n";
  chmod(script.c_str(), 0755);
  std::ofstream("unkillable.cfg", std::ios::app)
      << "[Package]\nStartTimeout=0.1\nWorkerPath=" << script << "\n";
  m_module.setConfigFile("unkillable.cfg");
  KitEnumerator enumerator(m_module, m_package, false, DiagnosticMode::CUSTOMER);
  DeviceEnum::VirtualDevice device = enumerator.getDeviceVector("", 0)->front();
  EXPECT_EQ(device.getDevice()->getDeviceStatus(), 0U);

  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({1});
  const auto codesOfRun = [&] {
    KitDiagnostics diagnostics(m_module, m_package, false, DiagnosticMode::CUSTOMER);
    EXPECT_EQ(diagnostics.runDiagnostic(device, &settings)->getTestResult(),
              Diag::DiagnosticResult::UNUSUAL_STATUS);
    std::vector<unsigned int> codes;
    const std::unique_ptr<std::vector<Diag::DiagnosticEvent*>> events(
        diagnostics.getDiagnosticEvents());
    for (auto* const event : *events) {
      codes.push_back(event->getEventCode());
      delete event;
    }
    return codes;
  };

  EXPECT_EQ(codesOfRun(), std::vector<unsigned int>{WORKER_UNKILLABLE});
  const auto hung = m_module.hungWorker("host/stuck0");
  ASSERT_TRUE(hung.has_value());
  EXPECT_EQ(device.getDevice()->getDeviceStatus(), DEVICE_STATUS_HUNG);
  EXPECT_EQ(codesOfRun(), std::vector<unsigned int>{DEVICE_REFUSED});

  enumerator.getDeviceVector("", 0);
  EXPECT_EQ(device.getDevice()->getDeviceStatus(), 0U);
  EXPECT_FALSE(m_module.hungWorker("host/stuck0"));

  kill(*hung, SIGKILL);
  EXPECT_EQ(waitpid(*hung, nullptr, 0), *hung);
}
