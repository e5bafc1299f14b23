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
#include "tests/diagctl/Reports.h"
#include "tests/inject/network/LoopbackFilter.h"
#include "tests/packages/network/TapWire.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Network {
namespace {

namespace fs = std::filesystem;
using DiagctlTest::contentsOf;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::HasSubstr;
using TestSupport::eventually;

/// @brief What a run says of its one step, whatever the format.
struct Expected {
  int exitCode;
  std::string status;     ///< the word before the step in the text for people
  std::string diagnosis;  ///< the type in the log; empty: there is none
  std::string symptom;
  std::string says;  ///< part of a sentence that each format holds
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
                                       "-p",
                                       "network",
                                       "-t",
                                       test,
                                       "-d",
                                       "*" + device + "*"};
    for (const char* format : {"text", "jsonl", "junit", "tap"}) {
      arguments.insert(arguments.end(), {"-o", std::string(format) + "=" + m_folder.file(format)});
    }
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  void expectTold(const Outcome& outcome, const Expected& expected) const {
    const std::string text = contentsOf(m_folder.file("text"));
    SCOPED_TRACE(text + outcome.err);
    EXPECT_EQ(outcome.exitCode, expected.exitCode);
    EXPECT_THAT(text, HasSubstr(expected.status + " "));
    EXPECT_THAT(text, HasSubstr(expected.says));
    expectInLog(expected);
    const std::string junit = contentsOf(m_folder.file("junit"));
    EXPECT_THAT(junit, HasSubstr(expected.says));
    EXPECT_EQ(junit.find("<failure") != std::string::npos, expected.status == "FAILED") << junit;
    EXPECT_EQ(junit.find("<error") != std::string::npos, expected.status == "ERROR") << junit;
    const auto tap = DiagctlTest::parseTap(contentsOf(m_folder.file("tap")));
    ASSERT_EQ(tap.points.size(), 1U);
    EXPECT_EQ(tap.points[0].isOk, expected.exitCode == DiagctlTest::kPassed);
  }

  void expectInLog(const Expected& expected) const {
    const std::string log = contentsOf(m_folder.file("jsonl"));
    EXPECT_THAT(log, HasSubstr(expected.says));
    const auto lines = DiagctlTest::parseLines(log);
    const auto diagnoses = DiagctlTest::artifacts(lines, "diagnosis");
    EXPECT_EQ(diagnoses.size(), expected.diagnosis.empty() ? 0U : 1U) << log;
    for (const auto& diagnosis : diagnoses) {
      EXPECT_EQ(diagnosis.value("type", ""), expected.diagnosis);
      EXPECT_EQ(diagnosis.value("verdict", ""), expected.symptom);
    }
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

  Outcome run(const std::vector<std::string>& more = {}) {
    return DiagctlTest::diagctl(commandLine("Between two interfaces", "left", more));
  }

  std::optional<TapWire> wire;
};

Expected failed(const std::string& says) {
  return {DiagctlTest::kHardwareFailure, "FAILED", "FAIL", "failed", says};
}

TEST_F(InjectedWire, that_is_sound_passes) {
  expectTold(run(), {DiagctlTest::kPassed, "PASSED", "PASS", "passed", "Between two interfaces"});
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
  const Outcome outcome = run();
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kHardwareFailure);
  expectTold(outcome, failed("left"));
}

TEST_F(InjectedWire, that_loses_one_frame_in_a_hundred_fails) {
  set("TestID6", "QuickStreamMegabytes", "1");
  set("TestID6", "QuickDatagrams", "2000");
  wire->faults.loseOfHundred = 1;
  expectTold(run(), failed("datagrams were lost"));
}

TEST_F(InjectedWire, that_damages_one_frame_in_three_thousand_is_told_with_their_number) {
  wire->faults.damageEach = 3000;
  const Outcome outcome = run();
  EXPECT_GT(wire->spoiltFrames(), 3U);
  expectTold(outcome, failed("packets arrived damaged"));
}

TEST_F(InjectedWire, that_forges_one_frame_in_three_thousand_is_told_with_the_byte) {
  wire->faults.forgeEach = 3000;
  const Outcome outcome = run();
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

TEST_F(InjectedWire, whose_interface_is_unplugged_has_vanished) {
  set("TestID6", "QuickStreamMegabytes", "100000");
  Program program(commandLine("Between two interfaces", "left"));
  EXPECT_TRUE(eventually([&] { return wire->dataFrames() > 5000; }));
  wire->unplugRight();
  expectTold(program.finish(),
             {DiagctlTest::kNoVerdict, "ERROR", "", "device-vanished", "vanished"});
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
    EXPECT_EQ(run().exitCode, DiagctlTest::kPassed) << contentsOf(m_folder.file("text"));
  }

  std::optional<Program> m_program;
  pid_t m_worker = 0;
};

TEST_F(InjectedDeath, of_the_worker_leaves_the_interfaces_as_before) {
  kill(m_worker, SIGKILL);
  expectTold(m_program->finish(),
             {DiagctlTest::kNoVerdict, "ERROR", "", "worker-killed", "Between two interfaces"});
  expectAsBefore();
}

TEST_F(InjectedDeath, of_the_front_end_leaves_the_interfaces_as_before) {
  m_program->signal(SIGKILL);
  m_program->finish();
  expectAsBefore();
}

TEST_F(InjectedDeath, of_both_leaves_the_interfaces_as_before) {
  m_program->signal(SIGKILL);
  kill(m_worker, SIGKILL);
  m_program->finish();
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
      const auto diagnostics = driver.makeDiagnostics();
      Diag::DiagnosticSettings settings;
      settings.setTestNumberVector({6});
      std::thread pass([&] { diagnostics->runDiagnostic(device, &settings); });
      std::this_thread::sleep_for(moment * step);
      const auto begin = std::chrono::steady_clock::now();
      diagnostics->abortDiagnostic();
      pass.join();
      EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500)) << moment;
    }
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

  Expected warned(int exitCode) const {
    return {exitCode, "WARNING", "UNKNOWN", "unusual", "the path is filtered"};
  }
};

TEST_F(InjectedFilter, over_a_stream_is_a_warning) {
  const Outcome outcome = DiagctlTest::diagctl(commandLine("Loopback stream", "lo"));
  expectTold(outcome, warned(DiagctlTest::kPassed));
  EXPECT_THAT(contentsOf(m_folder.file("text")), HasSubstr("Look at the packet filter"));
}

TEST_F(InjectedFilter, over_datagrams_is_a_warning_and_no_success_when_strict) {
  const Outcome outcome =
      DiagctlTest::diagctl(commandLine("Loopback datagrams", "lo", {"--strict"}));
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(contentsOf(m_folder.file("text")), HasSubstr("the path is filtered"));
}

}  // namespace
}  // namespace TarvexDiags::Network
