// Faults of cables, filters and processes, from the fault to diagctl's exit code and to what each
// format tells.

#include <net/if.h>
#include <netlink/route/link/veth.h>
#include <sched.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "packagekit/testing/PackageDriver.h"
#include "packages/network/InterfaceSetter.h"
#include "packages/network/Links.h"
#include "packages/network/Netlink.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/inject/network/LoopbackFilter.h"
#include "tests/packages/network/TapWire.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Network {
namespace {

namespace fs = std::filesystem;
using DiagctlTest::contentsOf;
using DiagctlTest::ReportedProgram;
using DiagctlTest::reportedRun;
using DiagctlTest::ReportedRun;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using TestSupport::eventually;

/// @brief What a run says of its one step, in every format.
struct Expected {
  int exitCode;
  std::string verdict;
  std::string symptom;  ///< empty for a step that passed, or failed by whatever was found first
  std::string says;     ///< part of a sentence
};

/// @brief In a network namespace of its own, with packages whose settings may be changed.
class NetworkInjection : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "needs CAP_SYS_ADMIN: " << std::strerror(errno);
    InterfaceSetter("lo").switchOn();
    fs::create_directory(m_folder.file("packages"));
    for (const auto& entry : fs::directory_iterator(TARVEX_PACKAGE_DIR)) {
      const fs::path name = entry.path().filename();
      if (name != "network.cfg") {
        fs::create_symlink(entry.path(), fs::path(m_folder.file("packages")) / name);
      }
    }
    m_configuration = contentsOf(TARVEX_PACKAGE_DIR "/network.cfg");
    set("TestID6", "RecordDirectory", records());
    m_folder.write("control.cfg", "[GlobalSettings]\nPackDirPath=" + m_folder.file("packages") +
                                      "\nLogDirPath=" + m_folder.path() +
                                      "\nRunMode=PARALLEL\nHaltOnError=FALSE\n"
                                      "DiagnosticMode=FACTORY\n");
  }

  /// @brief Of a key that comes twice, the first counts.
  void set(const std::string& section, const std::string& key, const std::string& value) {
    const std::string head = "[" + section + "]\n";
    m_configuration.insert(m_configuration.find(head) + head.size(), key + "=" + value + "\n");
    m_folder.write("packages/network.cfg", m_configuration);
  }

  std::string records() const { return m_folder.file("records"); }

  std::vector<std::string> commandLine(const std::string& test, const std::string& device,
                                       const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"--allow-insecure",
                                       "--config",
                                       m_folder.file("control.cfg"),
                                       "run",
                                       "-q",
                                       "--quick",
                                       "--allow-disruptive",
                                       "-p",
                                       "network",
                                       "-t",
                                       test,
                                       "-d",
                                       "*" + device + "*"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  static void expectTold(const ReportedRun& run, const Expected& expected) {
    SCOPED_TRACE(run.outcome().err);
    EXPECT_EQ(run.exitCode(), expected.exitCode);
    EXPECT_THAT(run.faultsOfLog(), IsEmpty());
    ASSERT_THAT(run.steps(), SizeIs(1));
    const std::string step = *run.steps().begin();
    EXPECT_THAT(run.verdictsOf(step), ElementsAre(expected.verdict));
    if (!expected.symptom.empty()) {
      EXPECT_THAT(run.symptomsOf(step), ElementsAre(expected.symptom));
    } else if (expected.exitCode == DiagctlTest::kHardwareFailure) {
      EXPECT_THAT(run.symptomsOf(step), ElementsAre(AllOf(Not(""), Not("failed"))));
    }
    EXPECT_THAT(run.formatsWithout(step, expected.says), IsEmpty()) << run.accountOf(step, "text");
  }

  TestSupport::TemporaryDirectory m_folder;

 private:
  std::string m_configuration;
};

class InjectedWire : public NetworkInjection {
 protected:
  void SetUp() override {
    NetworkInjection::SetUp();
    wire.emplace();
    set("TestID6", "FirstInterface", "left");
    set("TestID6", "SecondInterface", "right");
    set("TestID6", "StallSeconds", "1");
    set("TestID6", "QuickStreamMegabytes", "16");
    set("TestID6", "QuickDatagrams", "10000");
  }

  ReportedRun run(const std::vector<std::string>& more = {}) {
    return reportedRun(commandLine("Between two interfaces", "left", more));
  }

  std::optional<TapWire> wire;
};

Expected failed(const std::string& says) {
  return {DiagctlTest::kHardwareFailure, "FAILED", "", says};
}

TEST_F(InjectedWire, that_is_sound_passes) {
  expectTold(run(), {DiagctlTest::kPassed, "PASSED", "", ""});
}

TEST_F(InjectedWire, whose_end_is_dead_fails) {
  wire->faults.isDead = true;
  expectTold(run(), failed("no connection could be made"));
}

TEST_F(InjectedWire, that_dies_in_the_midst_fails) {
  wire->faults.deadFrom = 5000;
  expectTold(run(), failed("nothing arrived for 1.0 seconds"));
}

TEST_F(InjectedWire, that_dies_under_the_datagrams_fails) {
  set("TestID6", "QuickStreamMegabytes", "1");
  wire->faults.deadFrom = 6000;
  expectTold(run(), failed("datagrams were lost"));
}

TEST_F(InjectedWire, that_loses_six_of_ten_frames_fails) {
  wire->faults.loseOfHundred = 60;
  expectTold(run(), failed("left"));
}

TEST_F(InjectedWire, that_loses_one_frame_in_a_hundred_fails) {
  set("TestID6", "QuickStreamMegabytes", "1");
  set("TestID6", "QuickDatagrams", "2000");
  wire->faults.loseOfHundred = 1;
  expectTold(run(), failed("datagrams were lost"));
}

TEST_F(InjectedWire, that_damages_one_frame_in_three_thousand_is_told_with_their_number) {
  wire->faults.damageEach = 3000;
  const ReportedRun outcome = run();
  EXPECT_GT(wire->spoiltFrames(), 3U);
  expectTold(outcome, failed("packets arrived damaged"));
}

TEST_F(InjectedWire, that_forges_one_frame_in_three_thousand_is_told_with_the_byte) {
  wire->faults.forgeEach = 3000;
  const ReportedRun outcome = run();
  EXPECT_GT(wire->spoiltFrames(), 3U);
  expectTold(outcome, failed("was changed on its way: byte"));
}

TEST_F(InjectedWire, that_repeats_datagrams_fails) {
  wire->faults.repeatEach = 1000;
  expectTold(run(), failed("datagrams came more than once"));
}

TEST_F(InjectedWire, that_resets_a_connection_fails) {
  wire->faults.resetAt = 4000;
  expectTold(run(), failed("the connection broke: Connection reset by peer"));
}

TEST_F(InjectedWire, that_lets_a_kilobit_a_second_through_fails) {
  wire->faults.bytesPerSecond = 125;
  expectTold(run(), failed("left"));
}

/// @brief Pulls an interface out in the midst of its test.
class InjectedUnplug : public InjectedWire {
 protected:
  ReportedRun runUnplugged(const std::vector<std::string>& more = {}) {
    set("TestID6", "QuickStreamMegabytes", "100000");
    ReportedProgram program(commandLine("Between two interfaces", "left", more));
    EXPECT_TRUE(eventually([&] { return wire->dataFrames() > 5000; }));
    wire->unplugRight();
    return program.finish();
  }
};

TEST_F(InjectedUnplug, has_no_verdict_but_that_the_interface_vanished) {
  expectTold(runUnplugged(),
             {DiagctlTest::kNoVerdict, "ERROR", "device-vanished", "right: No such device"});
}

TEST_F(InjectedUnplug, is_a_failure_where_vanishing_is_one) {
  const ReportedRun outcome = runUnplugged({"--vanished=failure"});
  EXPECT_EQ(outcome.exitCode(), DiagctlTest::kHardwareFailure);
  EXPECT_THAT(outcome.verdictsOf("Network: Between two interfaces on left (tun)"),
              ElementsAre("FAILED"));
}

// --- Deaths

class InjectedDeath : public InjectedWire {
 protected:
  void SetUp() override {
    InjectedWire::SetUp();
    InterfaceSetter("left").switchOn();
    InterfaceSetter("right").switchOn();
    set("TestID6", "QuickStreamMegabytes", "100000");
    m_program.emplace(commandLine("Between two interfaces", "left"));
    ASSERT_TRUE(eventually([&] { return wire->dataFrames() > 1000; }));
    m_worker = ownerOfRecord();
    ASSERT_GT(m_worker, 0);
  }

  pid_t ownerOfRecord() const {
    for (const auto& entry : fs::directory_iterator(records())) {
      const std::string text = contentsOf(entry.path());
      const std::string key = "owner=";
      if (const auto place = text.find(key); place != std::string::npos) {
        return std::stoi(text.substr(place + key.size()));
      }
    }
    return 0;
  }

  static bool isUp(const std::string& interface) {
    return if_nametoindex(interface.c_str()) != 0 && readLink(interface).up;
  }

  void expectAsBefore() {
    EXPECT_TRUE(eventually([] { return isUp("left") && isUp("right"); }));
    EXPECT_TRUE(eventually([&] { return fs::is_empty(records()); }));
    set("TestID6", "QuickStreamMegabytes", "1");
    expectTold(run(), {DiagctlTest::kPassed, "PASSED", "", ""});
  }

  std::optional<ReportedProgram> m_program;
  pid_t m_worker = 0;
};

TEST_F(InjectedDeath, of_the_worker_leaves_the_interfaces_as_before) {
  kill(m_worker, SIGKILL);
  expectTold(m_program->finish(), {DiagctlTest::kNoVerdict, "ERROR", "worker-killed", ""});
  expectAsBefore();
}

TEST_F(InjectedDeath, of_the_front_end_leaves_the_interfaces_as_before) {
  m_program->program().signal(SIGKILL);
  m_program->program().finish();
  expectAsBefore();
}

TEST_F(InjectedDeath, of_both_leaves_the_interfaces_as_before) {
  m_program->program().signal(SIGKILL);
  kill(m_worker, SIGKILL);
  m_program->program().finish();
  expectAsBefore();
}

// --- Aborts

class InjectedAbort : public InjectedWire {
 protected:
  /// @brief Aborts the test at ten moments from its very start on.
  void expectAnswerAtAnyMoment(std::chrono::milliseconds step) {
    PackageKit::Testing::PackageDriver driver(m_folder.file("packages"), "network",
                                              PackageKit::DiagnosticMode::FACTORY);
    DeviceEnum::VirtualDevice& device = driver.device("left");
    for (int moment = 0; moment < 10; ++moment) {
      // What is slow by itself is so each time, what was held up by a busy machine is not.
      bool isInTime = false;
      for (int attempt = 0; attempt < 4 && !isInTime; ++attempt) {
        isInTime = answerTime(driver, device, moment * step) < std::chrono::milliseconds(500);
      }
      EXPECT_TRUE(isInTime) << "moment " << moment;
    }
  }

 private:
  static std::chrono::nanoseconds answerTime(PackageKit::Testing::PackageDriver& driver,
                                             DeviceEnum::VirtualDevice& device,
                                             std::chrono::milliseconds moment) {
    const auto diagnostics = driver.makeDiagnostics();
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({6});
    std::thread pass([&] { diagnostics->runDiagnostic(device, &settings); });
    std::this_thread::sleep_for(moment);
    const auto begin = std::chrono::steady_clock::now();
    diagnostics->abortDiagnostic();
    pass.join();
    return std::chrono::steady_clock::now() - begin;
  }
};

TEST_F(InjectedAbort, is_answered_within_half_a_second) {
  expectAnswerAtAnyMoment(std::chrono::milliseconds(40));
}

TEST_F(InjectedAbort, is_answered_within_half_a_second_while_nothing_connects) {
  wire->faults.isDead = true;
  expectAnswerAtAnyMoment(std::chrono::milliseconds(40));
}

TEST_F(InjectedAbort, is_answered_within_half_a_second_while_there_is_no_carrier) {
  const NetlinkSocket socket;
  ASSERT_EQ(rtnl_link_veth_add(socket.get(), "other", "alone", getpid()), 0);
  set("TestID6", "SecondInterface", "other");
  expectAnswerAtAnyMoment(std::chrono::milliseconds(20));
}

// --- The loopback interface

class InjectedFilter : public NetworkInjection {
 protected:
  void SetUp() override {
    NetworkInjection::SetUp();
    set("TestID4", "StallSeconds", "1");
    filterLoopback();
  }

  static Expected warned(int exitCode) {
    return {exitCode, "WARNING", "path-filtered", "the path is filtered"};
  }
};

TEST_F(InjectedFilter, over_a_stream_is_a_warning) {
  const ReportedRun run = reportedRun(commandLine("Loopback stream", "lo"));
  expectTold(run, warned(DiagctlTest::kPassed));
  EXPECT_THAT(run.accountOf("Network: Loopback stream on lo (loopback)", "text"),
              HasSubstr("Look at the packet filter"));
}

/// @brief A kilobit a second: each connection is made, and then hardly a byte arrives.
class InjectedSlowness : public NetworkInjection {
 protected:
  void SetUp() override {
    NetworkInjection::SetUp();
    slowLoopback(125);
  }

  void expectFilteredInTime(const std::string& test) {
    const auto begin = std::chrono::steady_clock::now();
    expectTold(reportedRun(commandLine(test, "lo")),
               {DiagctlTest::kPassed, "WARNING", "path-filtered", "the path is filtered"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << test;
  }
};

TEST_F(InjectedSlowness, of_the_loopback_interface_ends_a_stream_in_time) {
  set("TestID4", "Connections", "8");
  set("TestID4", "StallSeconds", "3");
  expectFilteredInTime("Loopback stream");
}

TEST_F(InjectedSlowness, of_the_loopback_interface_ends_datagrams_in_time) {
  expectFilteredInTime("Loopback datagrams");
}

TEST_F(InjectedFilter, over_datagrams_is_a_warning_and_no_success_when_strict) {
  expectTold(reportedRun(commandLine("Loopback datagrams", "lo", {"--strict"})),
             warned(DiagctlTest::kNoVerdict));
}

}  // namespace
}  // namespace TarvexDiags::Network
