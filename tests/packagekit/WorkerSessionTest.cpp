// The supervision of a worker: the order in which it is ended, the time that it is allowed, and one
// that nothing can end, simulated by signals that do not arrive.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/DiscoveryLines.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/internal/KitDevice.h"
#include "packagekit/internal/KitDiagnostics.h"
#include "packagekit/internal/KitEnumerator.h"
#include "packagekit/internal/Module.h"
#include "packagekit/internal/WorkerSession.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;

namespace {

const auto kSendInEarnest = WorkerProcess::sendSignal;

int swallowSignal(pid_t /*target*/, int /*signal*/, ReaperRecord& /*reaper*/) {
  return 0;
}

// The kit as it is linked into a package, here into the test itself; the worker runs the
// misbehaving package.
class UnkillableWorker : public ::testing::Test {
 protected:
  UnkillableWorker() {
    WorkerProcess::sendSignal = &swallowSignal;
    std::ofstream(config) << "[Package]\nTestTimeout=0.2\nAbortGrace=0.05\nTermGrace=0.05\n"
                             "KillGrace=0.05\n[TestID1]\nTestName=Hang\n";
    m_module.setConfigFile(config.c_str());
  }
  ~UnkillableWorker() override { WorkerProcess::sendSignal = kSendInEarnest; }

  TestSupport::TemporaryDirectory place;
  const std::string config = place.file("unkillable.cfg");
  Module& m_module = Module::instance();
  Package m_package;
};

class SilentObserver : public SessionObserver {
 public:
  void testBegan(std::size_t, Time) override {}
  void testProgressed(unsigned int, Time) override {}
  void eventRaised(Diag::DiagnosticEvent::EventType, unsigned int, std::vector<std::string>,
                   Time) override {}
  void testEnded(const TestReport&) override {}
};

// Keeps the times that it is told.
class TimesObserver : public SilentObserver {
 public:
  void testBegan(std::size_t, Time time) override { times.push_back(time); }
  void eventRaised(Diag::DiagnosticEvent::EventType, unsigned int, std::vector<std::string>,
                   Time time) override {
    times.push_back(time);
  }
  void testEnded(const TestReport& report) override { times.push_back(report.time); }

  std::vector<Time> times;
};

using Seconds = std::chrono::duration<double>;

struct SentSignal {
  int number;
  std::chrono::steady_clock::time_point time;
};
std::vector<SentSignal> sentSignals;

std::atomic<bool> hasSentStop{false};

int swallowedKills = 0;

// Counts those that would hit the process itself.
int swallowKill(pid_t target, int /*signal*/, ReaperRecord& /*reaper*/) {
  swallowedKills += target < 0 ? 1 : 0;
  return 0;
}

int recordSignal(pid_t target, int signal, ReaperRecord& reaper) {
  sentSignals.push_back({signal, std::chrono::steady_clock::now()});
  hasSentStop = hasSentStop || signal == SIGSTOP;
  return kSendInEarnest(target, signal, reaper);
}

// As if the signals to stop and to go on came late: what the worker says meanwhile is still read.
int loseStops(pid_t target, int signal, ReaperRecord& reaper) {
  return signal == SIGSTOP || signal == SIGCONT ? 0 : kSendInEarnest(target, signal, reaper);
}

std::string statusLineOf(pid_t process) {
  std::string line;
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::getline(file, line);
  return line;
}

// 0: there is none.
int stoppedChildOf(pid_t parent) {
  const std::string mark = ") T " + std::to_string(parent) + " ";
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int process = std::atoi(entry.path().filename().c_str());
    if (process > 0 && statusLineOf(process).find(mark) != std::string::npos) {
      return process;
    }
  }
  return 0;
}

bool hasLoaded(pid_t process, const std::string& library) {
  std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
  const std::string text{std::istreambuf_iterator<char>(maps), {}};
  return text.find(library) != std::string::npos;
}

// Suspends the run when its first test begins, and resumes it when its second does.
class SuspendingObserver : public SilentObserver {
 public:
  explicit SuspendingObserver(RunControl& control) : m_control(control) {}
  void testBegan(std::size_t position, Time) override {
    position == 0 ? m_control.suspend() : m_control.resume();
  }

 private:
  RunControl& m_control;
};

// Aborts the run at a moment of its first test.
class AbortingObserver : public SilentObserver {
 public:
  enum class At { Begin, End };
  AbortingObserver(RunControl& control, At moment) : m_control(control), m_moment(moment) {}
  void testBegan(std::size_t, Time) override { abortAt(At::Begin); }
  void testEnded(const TestReport&) override {
    abortAt(At::End);
    hasToldAll = true;
  }

  std::atomic<bool> hasToldAll{false};

 private:
  void abortAt(At moment) {
    if (moment == m_moment) {
      m_control.abort();
    }
  }

  RunControl& m_control;
  const At m_moment;
};

// Workers of the misbehaving package.
class SupervisedWorker : public ::testing::Test {
 protected:
  SupervisedWorker() {
    sentSignals.clear();
    hasSentStop = false;
    WorkerProcess::sendSignal = kSendInEarnest;
    setup.configFile = TARVEX_SELFTEST_DIR "/misbehaving.cfg";
    control.beginRun();
  }
  ~SupervisedWorker() override { control.endRun(); }

  SessionEnd run(SessionObserver& observer) {
    WorkerProcess process(TARVEX_PACKAGE_DIR "/tarvex-package-worker",
                          TARVEX_SELFTEST_DIR "/libmisbehaving.so", 0);
    return WorkerSession(setup, limits, control, observer).run(process);
  }

  // A worker that tells all of its one test, at once or when it is asked to stop, and is deaf to
  // SIGTERM, as one that gives much memory back. It ends once the file "may-end" is there.
  SessionEnd runOneThatEndsSlowly(SessionObserver& observer, bool waitsForStop) {
    setup.testIds = {1};
    limits.tests = {60};
    FrameWriter ready(FrameType::Ready);
    FrameWriter begin(FrameType::TestBegin);
    FrameWriter end(FrameType::TestEnd);
    FrameWriter passEnd(FrameType::PassEnd);
    std::ofstream(place.file("begin"), std::ios::binary)
        << ready.number(1).bytes() << begin.number(0).bytes();
    std::ofstream(place.file("end"), std::ios::binary)
        << end.number(0).number(0).number(0).texts({}).bytes() << passEnd.bytes();
    const std::size_t upToStop = setup.toFrame().bytes().size() + 1;
    const std::string script = place.file("slow-to-end");
    std::ofstream(script) << "#!/bin/sh\ncd " << place.path() << "\ntrap '' TERM\ncat begin >&3\n"
                          << (waitsForStop
                                  ? "head -c " + std::to_string(upToStop) + " <&3 >/dev/null\n"
                                  : "")
                          << "cat end >&3\nwhile ! [ -e may-end ]; do sleep 0.02; done\n";
    chmod(script.c_str(), 0755);
    WorkerProcess process(script, "", 0);
    return WorkerSession(setup, limits, control, observer).run(process);
  }

  // A worker that says what is given, and ends as if all was well.
  SessionEnd runOneThatSays(const std::string& frames, SessionObserver& observer) {
    setup.testIds = {1};
    limits.tests = {60};
    std::ofstream(place.file("frames"), std::ios::binary) << frames;
    const std::string script = place.file("talker");
    std::ofstream(script) << "#!/bin/sh\ncat " << place.file("frames") << " >&3\n";
    chmod(script.c_str(), 0755);
    WorkerProcess process(script, "", 0);
    return WorkerSession(setup, limits, control, observer).run(process);
  }

  static std::vector<int> numbersOfSignals() {
    std::vector<int> numbers;
    for (const SentSignal& sent : sentSignals) {
      numbers.push_back(sent.number);
    }
    return numbers;
  }

  TestSupport::TemporaryDirectory place;
  PassSetup setup;
  SessionLimits limits;
  RunControl control;
};

}  // namespace

TEST_F(SupervisedWorker, that_listens_is_ended_by_the_request_alone) {
  WorkerProcess::sendSignal = &recordSignal;
  setup.testIds = {16};  // takes a minute, and asks whether it shall stop
  limits.tests = {0.1};
  limits.abortGrace = 60;
  SilentObserver observer;
  const SessionEnd end = run(observer);
  EXPECT_TRUE(end.isTimedOut);
  EXPECT_TRUE(end.isComplete);
  EXPECT_FALSE(end.isKilledByHost);
  EXPECT_EQ(numbersOfSignals(), std::vector<int>{SIGKILL}) << "to what is left of its group";
}

TEST_F(SupervisedWorker, that_lies_about_the_time_is_not_believed) {
  using Time = FrameWriter::Clock::time_point;
  const Time start = FrameWriter::Clock::now();
  const auto event = [](Time time) {
    FrameWriter frame(FrameType::Event, time);
    return frame.number(Diag::DiagnosticEvent::INFORMATION_EVENT).number(1).texts({}).bytes();
  };
  FrameWriter ready(FrameType::Ready, Time::max());
  FrameWriter begin(FrameType::TestBegin, Time::min());
  FrameWriter end(FrameType::TestEnd, Time());
  FrameWriter last(FrameType::PassEnd);
  std::string frames = ready.number(1).bytes() + begin.number(0).bytes();
  for (const Time time : {start + std::chrono::hours(1), Time::max(), start, Time::min()}) {
    frames += event(time);
  }
  frames += end.number(0).number(0).number(0).texts({}).bytes() + last.bytes();
  TimesObserver observer;
  EXPECT_TRUE(runOneThatSays(frames, observer).isComplete);
  ASSERT_EQ(observer.times.size(), 6U);
  EXPECT_GE(observer.times.front(), start);
  EXPECT_LE(observer.times.back(), FrameWriter::Clock::now());
  EXPECT_TRUE(std::is_sorted(observer.times.begin(), observer.times.end()));
}

TEST_F(SupervisedWorker, is_told_by_its_own_clock_however_late_it_is_heard) {
  using Time = FrameWriter::Clock::time_point;
  setup.testIds = {1};
  limits.tests = {60};
  const std::string script = place.file("talker");
  TimesObserver observer;
  // The frames are made while the supervision goes on, and heard half a second later.
  std::ofstream(script) << "#!/bin/sh\ncd " << place.path()
                        << "\n: >is-there\nuntil [ -e frames ]; do sleep 0.01; done\n"
                           "sleep 0.5\ncat frames >&3\n";
  chmod(script.c_str(), 0755);
  Time made;
  std::thread writer([&] {
    EXPECT_TRUE(
        TestSupport::eventually([&] { return std::filesystem::exists(place.file("is-there")); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    FrameWriter ready(FrameType::Ready);
    FrameWriter begin(FrameType::TestBegin);
    FrameWriter end(FrameType::TestEnd);
    FrameWriter last(FrameType::PassEnd);
    std::ofstream(place.file("frames.new"), std::ios::binary)
        << ready.number(1).bytes() << begin.number(0).bytes()
        << end.number(0).number(0).number(0).texts({}).bytes() << last.bytes();
    made = FrameWriter::Clock::now();
    std::filesystem::rename(place.file("frames.new"), place.file("frames"));
  });
  WorkerProcess process(script, "", 0);
  EXPECT_TRUE(WorkerSession(setup, limits, control, observer).run(process).isComplete);
  writer.join();
  ASSERT_EQ(observer.times.size(), 2U);
  EXPECT_LE(observer.times.back(), made);
}

TEST_F(SupervisedWorker, that_is_deaf_gets_sigterm_and_sigkill_each_after_its_grace) {
  WorkerProcess::sendSignal = &recordSignal;
  setup.testIds = {6};  // hangs and ignores SIGTERM
  limits.tests = {2};   // or SIGTERM might come before it is ignored
  limits.abortGrace = 0.25;
  limits.termGrace = 0.3;
  SilentObserver observer;
  const auto start = std::chrono::steady_clock::now();
  const SessionEnd end = run(observer);
  EXPECT_TRUE(end.isTimedOut);
  EXPECT_TRUE(end.isKilledByHost);
  ASSERT_EQ(numbersOfSignals(), (std::vector<int>{SIGTERM, SIGKILL, SIGKILL}));
  EXPECT_GE(Seconds(sentSignals[0].time - start).count(), 2 + 0.25);
  EXPECT_GE(Seconds(sentSignals[1].time - sentSignals[0].time).count(), 0.3);
}

TEST_F(SupervisedWorker, is_stopped_and_continued_by_the_client) {
  WorkerProcess::sendSignal = &recordSignal;
  setup.configFile = place.write("continued.cfg", "[TestID16]\nMilliseconds=2000\n");
  setup.testIds = {16};  // not at its end before the client has been heard
  limits.tests = {60};
  limits.start = 3;  // does not run while the worker is stopped
  control.suspend();
  std::thread client([this] {
    EXPECT_TRUE(TestSupport::eventually([] { return hasSentStop.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    control.resume();
  });
  SilentObserver observer;
  const SessionEnd end = run(observer);
  client.join();
  EXPECT_TRUE(end.isComplete);
  EXPECT_FALSE(end.isTimedOut);
  EXPECT_EQ(numbersOfSignals(), (std::vector<int>{SIGSTOP, SIGCONT, SIGKILL}));
}

// The host has found nobody in place, and is about to kill what it has started.
TEST_F(SupervisedWorker, does_not_begin_once_its_host_has_given_it_up) {
  bool isGivenUp = false;
  while (!isGivenUp) {
    WorkerProcess process(TARVEX_PACKAGE_DIR "/tarvex-package-worker",
                          TARVEX_SELFTEST_DIR "/libmisbehaving.so", 0);
    ASSERT_EQ(kill(process.pid(), SIGSTOP), 0);
    swallowedKills = 0;
    WorkerProcess::sendSignal = &swallowKill;
    process.signalGroup(SIGKILL);
    isGivenUp = swallowedKills > 0;
    WorkerProcess::sendSignal = kSendInEarnest;
    ASSERT_EQ(kill(process.pid(), SIGCONT), 0);
    if (isGivenUp) {
      pollfd end{process.processDescriptor(), POLLIN, 0};
      EXPECT_EQ(poll(&end, 1, 30'000), 1);
      EXPECT_EQ(process.reap().kind, ProcessEnd::Kind::Exited);
    }
  }
}

// Stopped before it has got as far as to its own code.
TEST_F(SupervisedWorker, obeys_an_order_that_came_before_there_was_anybody_to_obey) {
  std::optional<WorkerProcess> process;
  bool isEarly = false;
  while (!isEarly) {
    process.emplace(TARVEX_PACKAGE_DIR "/tarvex-package-worker",
                    TARVEX_SELFTEST_DIR "/libmisbehaving.so", 0);
    ASSERT_EQ(kill(process->pid(), SIGSTOP), 0);
    ASSERT_TRUE(TestSupport::eventually(
        [&] { return statusLineOf(process->pid()).find(") T ") != std::string::npos; }));
    isEarly = !hasLoaded(process->pid(), "libc.so");
    process->signalGroup(SIGSTOP);
    process->signalGroup(SIGCONT);
    process->signalGroup(SIGSTOP);
    ASSERT_EQ(kill(process->pid(), SIGCONT), 0);
  }
  int worker = 0;
  EXPECT_TRUE(TestSupport::eventually([&] {
    worker = stoppedChildOf(process->pid());
    return worker > 0;
  }));
  EXPECT_FALSE(hasLoaded(worker, "libmisbehaving.so"));
  process->signalGroup(SIGKILL);
  pollfd end{process->processDescriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&end, 1, 30'000), 1);
  const ProcessEnd how = process->reap();
  EXPECT_EQ(how.kind, ProcessEnd::Kind::Signalled);
  EXPECT_EQ(how.number, SIGKILL);
}

TEST_F(SupervisedWorker, has_the_whole_time_of_a_test_that_begins_while_it_is_suspended) {
  WorkerProcess::sendSignal = &loseStops;
  std::ofstream(place.file("suspended.cfg"))
      << "[TestID16]\nMilliseconds=200\n[TestID25]\nMilliseconds=900\n";
  setup.configFile = place.file("suspended.cfg");
  setup.testIds = {16, 25};
  limits.tests = {0.5, 60};
  SuspendingObserver observer(control);
  const SessionEnd end = run(observer);
  EXPECT_FALSE(end.isTimedOut) << "with what was left of the first test";
  EXPECT_TRUE(end.isComplete);
  EXPECT_EQ(end.testsEnded, 2U);
}

TEST_F(SupervisedWorker, that_has_told_all_is_left_to_end_when_an_abort_comes) {
  WorkerProcess::sendSignal = &recordSignal;
  limits.abortGrace = limits.termGrace = limits.killGrace = 0.01;
  AbortingObserver observer(control, AbortingObserver::At::End);
  std::thread release([&] {
    EXPECT_TRUE(TestSupport::eventually([&] { return observer.hasToldAll.load(); }));
    // Long past all that an impatient host would wait, however late it comes.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::ofstream(place.file("may-end"));
  });
  const SessionEnd end = runOneThatEndsSlowly(observer, false);
  release.join();
  EXPECT_TRUE(control.isAborted());
  EXPECT_TRUE(end.isComplete);
  EXPECT_FALSE(end.isGivenUp);
  EXPECT_FALSE(end.isKilledByHost);
  EXPECT_EQ(numbersOfSignals(), std::vector<int>{SIGKILL}) << "to what is left of its group";
}

TEST_F(SupervisedWorker, that_was_asked_to_stop_and_has_told_all_has_the_time_of_an_end) {
  WorkerProcess::sendSignal = &recordSignal;
  limits.abortGrace = 60;
  limits.exit = limits.termGrace = 0.01;
  AbortingObserver observer(control, AbortingObserver::At::Begin);
  const auto start = std::chrono::steady_clock::now();
  const SessionEnd end = runOneThatEndsSlowly(observer, true);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
  EXPECT_TRUE(end.isComplete);
  EXPECT_EQ(numbersOfSignals(), (std::vector<int>{SIGTERM, SIGKILL, SIGKILL}));
}

TEST_F(SupervisedWorker, cannot_end_its_pass_before_its_test) {
  SilentObserver observer;
  const std::string ready = FrameWriter(FrameType::Ready).number(1).bytes();
  const std::string begin = FrameWriter(FrameType::TestBegin).number(0).bytes();
  const std::string passEnd = FrameWriter(FrameType::PassEnd).bytes();
  for (const std::string& frames : {ready + passEnd, ready + begin + passEnd}) {
    const SessionEnd end = runOneThatSays(frames, observer);
    EXPECT_EQ(end.protocolError, Contract::kPassEndNotDue);
    EXPECT_FALSE(end.isComplete);
  }
}

TEST_F(UnkillableWorker, is_given_up_after_the_last_grace) {
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
                        TARVEX_SELFTEST_DIR "/libmisbehaving.so", 0);
  const SessionEnd end = WorkerSession(setup, limits, control, observer).run(process);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(100));
  EXPECT_TRUE(end.isGivenUp);
  EXPECT_TRUE(end.isTimedOut);
  ASSERT_GT(end.pid, 0);
  EXPECT_FALSE(reapIfEnded(end.pid));
  kill(end.pid, SIGKILL);
  EXPECT_EQ(waitpid(end.pid, nullptr, 0), end.pid);
}

TEST_F(UnkillableWorker, makes_its_device_hung_and_refused_until_enumerated_again) {
  // A worker that never gets ready: it loads no package, and the signals do not reach it.
  const std::string script = place.file("deaf-worker");
  std::ofstream(script) << "#!/bin/sh\nexec sleep 1000\n";
  chmod(script.c_str(), 0755);
  std::ofstream(config, std::ios::app)
      << "[Package]\nStartTimeout=0.1\nDiscoveryTimeout=0.1\nWorkerPath=" << script << "\n";
  m_module.setConfigFile(config.c_str());
  DeviceEnum::VirtualDevice device(
      new KitDevice(m_module, m_package, {{.name = "Stuck", .resourceTag = "host/stuck0"}}));
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

  WorkerProcess::sendSignal = kSendInEarnest;
  KitEnumerator(m_module, m_package, false, DiagnosticMode::CUSTOMER).getDeviceVector("", 0);
  EXPECT_EQ(device.getDevice()->getDeviceStatus(), 0U);
  EXPECT_FALSE(m_module.hungWorker("host/stuck0"));

  kill(*hung, SIGKILL);
  EXPECT_EQ(waitpid(*hung, nullptr, 0), *hung);
}

// The client wants to end when all has been tried already.
TEST_F(UnkillableWorker, of_a_discovery_is_waited_for_no_longer_than_the_client_wants) {
  static std::optional<Contract::DiscoveryInbox> inbox;
  inbox.emplace();
  WorkerProcess::sendSignal = [](pid_t, int signal, ReaperRecord&) {
    if (signal == SIGKILL) {
      inbox->endDiscoveries();
    }
    return 0;
  };
  const std::string script = place.file("deaf-worker");
  std::ofstream(script) << "#!/bin/sh\nexec sleep 1000\n";
  chmod(script.c_str(), 0755);
  std::ofstream(config) << "[Package]\nDiscoveryTimeout=0.1\nTermGrace=0.05\nKillGrace=600\n"
                        << "WorkerPath=" << script << "\n";
  m_module.setConfigFile(config.c_str());
  const auto start = std::chrono::steady_clock::now();
  const Discovered found = m_module.discover(DiagnosticMode::CUSTOMER, "", 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(300));
  EXPECT_EQ(found.failure, DiscoverySession::kEndedOnRequest);
  inbox.reset();
  ASSERT_TRUE(found.unkillable.has_value());
  kill(*found.unkillable, SIGKILL);
  EXPECT_EQ(waitpid(*found.unkillable, nullptr, 0), *found.unkillable);
}

TEST(DiscoveringWorker, is_told_once_when_it_takes_long) {
  DiscoverySetup setup;
  setup.configFile = TARVEX_SELFTEST_DIR "/misbehaving.cfg";
  const TestSupport::TemporaryDirectory place;
  const std::string script = place.file("never-ready");
  std::ofstream(script) << "#!/bin/sh\nexec sleep 1000\n";
  chmod(script.c_str(), 0755);
  WorkerLimits limits;
  limits.start = 600;
  limits.abortGrace = limits.termGrace = 0;
  RunControl control;
  control.beginRun();
  int times = 0;
  const auto tellSlow = [&] {
    ++times;
    control.abort();
  };
  WorkerProcess process(script, TARVEX_SELFTEST_DIR "/libmisbehaving.so", 0);
  const Discovered found =
      DiscoverySession(setup, limits, control, tellSlow, std::chrono::milliseconds(1)).run(process);
  EXPECT_EQ(times, 1);
  EXPECT_EQ(found.failure, DiscoverySession::kEndedOnRequest);
}

TEST_F(UnkillableWorker, of_a_discovery_is_given_up_and_told) {
  const std::string script = place.file("deaf-worker");
  std::ofstream(script) << "#!/bin/sh\nexec sleep 1000\n";
  chmod(script.c_str(), 0755);
  std::ofstream(config, std::ios::app)
      << "[Package]\nDiscoveryTimeout=0.1\nWorkerPath=" << script << "\n";
  m_module.setConfigFile(config.c_str());
  const Discovered found = m_module.discover(DiagnosticMode::CUSTOMER, "", 0);
  ASSERT_TRUE(found.unkillable.has_value());
  EXPECT_EQ(found.failure, "it was not done within 0.1 s; its process " +
                               std::to_string(*found.unkillable) + " cannot be ended");
  EXPECT_FALSE(reapIfEnded(*found.unkillable));
  kill(*found.unkillable, SIGKILL);
  EXPECT_EQ(waitpid(*found.unkillable, nullptr, 0), *found.unkillable);
}
