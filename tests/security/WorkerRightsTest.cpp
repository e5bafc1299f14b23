// What the process of a test may do, and what it knows of whoever started it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "packagekit/PhysicalAddress.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/testing/PackageDriver.h"
#include "packages/memory/NodeDiagnostic.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/security/People.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::artifacts;
using DiagctlTest::Diagctl;
using DiagctlTest::Outcome;
using DiagctlTest::parseLines;
using Json = nlohmann::json;
using PackageKit::Testing::PackageDriver;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::kIsInstrumented;
using TestSupport::kIsSanitized;

constexpr int kLooksAround = 23;
constexpr int kTellsItsRights = 48;

class WorkerRights : public ::testing::Test {
 protected:
  PackageDriver::Run told(const std::string& privileges = "none") {
    m_driver.set("TestID48", "Privileges", privileges);
    return m_driver.run("unit0", {kTellsItsRights});
  }

  static std::uint64_t setOf(const PackageDriver::Run& run, const char* field) {
    return std::stoull(run.measurement(field), nullptr, 16);
  }

  // By what each call that workers are refused ended.
  static void expectAllRefused(const PackageDriver::Run& run) {
    for (const char* const call :
         {"mount", "modules", "reboot", "bpf", "keyctl", "ptrace", "openTreeAttr"}) {
      EXPECT_EQ(run.measurement(call), "EPERM") << call;
    }
  }

  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

constexpr std::uint64_t bitOf(int capability) {
  return std::uint64_t{1} << capability;
}

std::string ownStatus(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field + ":\t")) {
      return line.substr(field.size() + 2);
    }
  }
  return "";
}

// What this process has not, as in a container, it can't leave to a worker.
bool mayLeave(const std::string& privileges) {
  const std::uint64_t own = std::stoull(ownStatus("CapEff"), nullptr, 16);
  return (PackageKit::Contract::privilegesFrom(privileges).capabilities & ~own) == 0;
}

TEST_F(WorkerRights, include_none_of_roots_that_its_package_does_not_name) {
  const auto run = told();
  EXPECT_EQ(setOf(run, "CapPrm"), 0U);
  EXPECT_EQ(setOf(run, "CapEff"), 0U);
  EXPECT_EQ(setOf(run, "CapInh"), 0U);
  EXPECT_EQ(setOf(run, "CapAmb"), 0U);
  EXPECT_EQ(run.measurement("NoNewPrivs"), "1");
}

TEST_F(WorkerRights, are_bounded_for_all_that_it_executes) {
  SKIP_UNLESS_ROOT();
  EXPECT_EQ(setOf(told(), "CapBnd"), 0U);
  EXPECT_EQ(setOf(told("CAP_NET_RAW, cap_kill"), "CapBnd"), bitOf(CAP_NET_RAW) | bitOf(CAP_KILL));
}

TEST_F(WorkerRights, include_those_of_roots_that_its_test_names_before_its_package) {
  SKIP_UNLESS_ROOT();
  m_driver.set("Package", "Privileges", "CAP_NET_RAW");
  EXPECT_EQ(setOf(told("CAP_IPC_LOCK"), "CapEff"), bitOf(CAP_IPC_LOCK));
  EXPECT_EQ(setOf(m_driver.run("unit0", {kTellsItsRights}), "CapPrm"), bitOf(CAP_IPC_LOCK));
  EXPECT_EQ(setOf(told(""), "CapEff"), bitOf(CAP_NET_RAW));
  EXPECT_EQ(setOf(told("none"), "CapEff"), 0U);
}

TEST_F(WorkerRights, include_no_call_that_its_package_does_not_name) {
  if (kIsInstrumented) {
    GTEST_SKIP() << "an instrumented build has no filter of calls";
  }
  const auto run = told("CAP_SYS_ADMIN CAP_SYS_MODULE CAP_SYS_BOOT CAP_BPF CAP_SYS_PTRACE");
  EXPECT_EQ(run.measurement("Seccomp"), "2");
  expectAllRefused(run);
}

// They end what it leaves behind, and all of them are one user's.
TEST_F(WorkerRights, include_no_signal_to_those_that_watch_over_it_nor_to_everybody) {
  if (kIsInstrumented) {
    GTEST_SKIP() << "an instrumented build has no filter of calls";
  }
  const auto run = told("mount modules reboot bpf keyctl ptrace");
  for (const char* const call :
       {"signalReaper", "signalHost", "signalThread", "signalAnyThread", "signalGroup",
        "queueToReaper", "signalEverybody", "joinGroup", "openHost", "boundHost", "owner"}) {
    EXPECT_EQ(run.measurement(call), "EPERM") << call;
  }
  EXPECT_EQ(run.measurement("signalItself"), "none");
}

TEST_F(WorkerRights, include_each_call_that_its_package_names) {
  if (ownStatus("Seccomp") != "0") {
    GTEST_SKIP() << "calls may be refused to the host itself";
  }
  const std::map<std::string, std::string> capabilities = {{"mount", ""},
                                                           {"modules", "CAP_SYS_MODULE"},
                                                           {"reboot", "CAP_SYS_BOOT"},
                                                           {"bpf", "CAP_SYS_ADMIN"},
                                                           {"keyctl", ""},
                                                           {"ptrace", ""}};
  for (const auto& [call, capability] : capabilities) {
    if (mayLeave(capability)) {
      const auto run = told(call + " " + capability);
      EXPECT_NE(run.measurement(call), "EPERM") << call;
    }
  }
}

// As much as this process may allow.
void allowCoreFiles() {
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_CORE, &limit);
}

TEST_F(WorkerRights, leave_it_unread_by_others_of_its_user_and_without_core_files) {
  allowCoreFiles();
  const auto run = told();
  EXPECT_EQ(run.measurement("dumpable"), kIsInstrumented ? "1" : "0");
  EXPECT_EQ(run.measurement("coreLimitAtLoad"), "0");
  EXPECT_EQ(run.measurement("coreLimit"), "0");
}

TEST_F(WorkerRights, include_core_files_where_the_package_wants_them) {
  allowCoreFiles();
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  m_driver.set("Package", "CoreDumps", "TRUE");
  const auto run = told();
  EXPECT_EQ(run.measurement("coreLimitAtLoad"), "0");
  EXPECT_EQ(run.measurement("coreLimit"), std::to_string(static_cast<long>(limit.rlim_max)));
  EXPECT_EQ(run.measurement("dumpable"), "1");
}

TEST_F(WorkerRights, include_no_sight_of_its_hosts_environment_and_place) {
  setenv("TARVEX_SECRET", "of the host", 1);
  setenv("LD_LIBRARY_PATH", "/tmp", 1);
  setenv("LC_NUMERIC", "C", 1);
  const auto run = told();
  unsetenv("TARVEX_SECRET");
  unsetenv("LD_LIBRARY_PATH");
  EXPECT_THAT(run.measurement("variables"), HasSubstr("LC_NUMERIC"));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("TARVEX_SECRET")));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("LD_LIBRARY_PATH")));
  EXPECT_THAT(run.measurement("variables"), Not(HasSubstr("HOME")));
  EXPECT_EQ(run.measurement("directory"), "/");
}

Json measuredIn(const std::string& log, const std::string& name) {
  for (const Json& each : artifacts(parseLines(log), "measurement")) {
    if (each["name"] == name) {
      return each["value"];
    }
  }
  return {};
}

TEST_F(Diagctl, a_worker_is_open_to_a_debugger_for_those_alone_who_ask_for_it) {
  if (kIsInstrumented) {
    GTEST_SKIP() << "every worker of this build is open to its runtime";
  }
  place.useMisbehavingPackage();
  std::vector<std::string> arguments = {"run", "-t", "Own rights", "-d", "1", "--format", "jsonl"};
  const Outcome closed = run(arguments);
  EXPECT_EQ(measuredIn(closed.out, "dumpable"), 0);
  EXPECT_EQ(measuredIn(closed.out, "Seccomp"), 2);
  EXPECT_THAT(closed.err, Not(HasSubstr("--debug-worker")));
  arguments.emplace_back("--debug-worker");
  const Outcome open = run(arguments);
  EXPECT_EQ(measuredIn(open.out, "dumpable"), 1);
  EXPECT_EQ(measuredIn(open.out, "Seccomp"), 0);
  EXPECT_EQ(measuredIn(open.out, "NoNewPrivs"), 1);
  EXPECT_THAT(open.err, HasSubstr("--debug-worker: workers may be read by other processes"));
}

// It answers for all of its tests whether they can run.
TEST_F(WorkerRights, of_a_discovery_include_those_of_every_test_and_no_others) {
  const std::string named = "CAP_NET_RAW, CAP_SYS_NICE";
  m_driver.set("TestID1", "Privileges", "CAP_NET_RAW");
  m_driver.set("TestID48", "Privileges", "CAP_SYS_NICE");
  const auto run = m_driver.run("unit0", {kLooksAround});
  const std::uint64_t own = std::stoull(ownStatus("CapEff"), nullptr, 16);
  EXPECT_EQ(setOf(run, "discoveredWith"),
            PackageKit::Contract::privilegesFrom(named).capabilities & own);
}

class MemoryRights : public ::testing::Test {
 protected:
  MemoryRights() {
    getrlimit(RLIMIT_MEMLOCK, &m_before);
    const rlimit little{64 * 1024, m_before.rlim_max};
    setrlimit(RLIMIT_MEMLOCK, &little);
    m_driver.set("Package", "MaximumMegabytes", "4");
    m_driver.set("Package", "MarginMegabytes", "0").set("Package", "MarginPercent", "0");
    m_driver.set("TestID1", "InjectFault", "4242");
  }
  ~MemoryRights() override { setrlimit(RLIMIT_MEMLOCK, &m_before); }

  PackageDriver::Run testedAddressLines() {
    const std::string tag = m_driver.devices().at(0).getDevice()->getResourceTag();
    return m_driver.run(tag.substr(tag.rfind('/') + 1), {1});
  }

  PackageDriver m_driver{TARVEX_PACKAGE_DIR, "memory"};
  rlimit m_before{};
};

TEST_F(MemoryRights, suffice_to_lock_all_of_it_whatever_the_limit) {
  if (kIsSanitized || !mayLeave("CAP_IPC_LOCK")) {
    GTEST_SKIP() << "this process can't lock memory without limit, or its runtime only pretends";
  }
  const auto ready = testedAddressLines().parametersOf(Memory::RegionReady);
  EXPECT_EQ(ready[1], ready[4]) << "of the bytes";
  m_driver.set("Package", "Privileges", "none");
  const auto without = testedAddressLines().parametersOf(Memory::RegionReady);
  EXPECT_NE(without[1], without[4]);
}

TEST_F(MemoryRights, suffice_to_tell_the_physical_address_of_a_fault) {
  const char here = 0;
  if (!PackageKit::physicalAddressOf(&here)) {
    GTEST_SKIP() << "the host itself may not know it";
  }
  const auto fault = testedAddressLines().parametersOf(Memory::MiscompareFound);
  EXPECT_THAT(fault[2], HasSubstr("0x"));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
