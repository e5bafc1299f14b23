// Discovery in a process of its own: what it finds, and that whatever it does costs its package
// alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/contract/DiscoveryLines.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Contract::DiscoveryLine;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Testing::PackageDriver;
using TestSupport::eventually;

namespace {

// For what a busy machine does late.
constexpr std::chrono::seconds kPatience{120};
constexpr int kBehaves = 1;
constexpr int kPicky = 20;
constexpr int kLooksAround = 23;

bool hasChild() {
  return waitpid(-1, nullptr, WNOHANG) == 0;
}

class Discovery : public ::testing::Test {
 protected:
  // On a busy machine a process takes its time to die.
  Discovery() { m_driver.set("Package", "KillGrace", "600"); }

  // What the package tells of a discovery that fails; the driver throws then.
  std::optional<DiscoveryLine> failureOf(PackageDriver& driver) {
    EXPECT_THROW(driver.devices(), std::runtime_error);
    std::optional<DiscoveryLine> line = m_inbox.next();
    while (line && line->kind != DiscoveryLine::Kind::Failed) {
      line = m_inbox.next();
    }
    return line;
  }

  void expectTold(const std::optional<DiscoveryLine>& line, const std::string& reason,
                  const std::string& lastLines) {
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->package, "misbehaving");
    EXPECT_THAT(line->text, HasSubstr(reason));
    EXPECT_EQ(line->lastLines, lastLines);
    EXPECT_THAT(m_driver.logText(), HasSubstr("looking for them failed: " + line->text));
    EXPECT_TRUE(eventually([] { return !hasChild(); }, kPatience));
  }

  void expectFailure(const std::string& reason, const std::string& lastLines = "") {
    expectTold(failureOf(m_driver), reason, lastLines);
  }

  // Of one that waits for another in m_place.
  bool hasBegun() const {
    return eventually([this] { return !std::filesystem::is_empty(m_place.path()); }, kPatience);
  }

  // Of one that leaves a mark when it has said something. On a busy machine it takes longer to get
  // as far.
  void expectFailureByTime(const std::string& mark, const std::string& lastLines) {
    std::optional<DiscoveryLine> line;
    std::string seconds;
    for (const char* const tried : {"0.2", "2", "20", "200"}) {
      seconds = tried;
      m_driver.set("Package", "DiscoveryTimeout", seconds);
      line = failureOf(m_driver);
      if (std::filesystem::exists(mark)) {
        break;
      }
    }
    expectTold(line, "it was not done within " + seconds + " s", lastLines);
  }

  const TestSupport::TemporaryDirectory m_place;
  const Contract::DiscoveryInbox m_inbox;
  PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
};

struct Failure {
  const char* way;
  const char* reason;
  const char* lastLines = "";
};

// Not its bytes, which would differ from run to run.
void PrintTo(const Failure& failure, std::ostream* out) {
  *out << failure.way;
}

class FailingDiscovery : public Discovery, public ::testing::WithParamInterface<Failure> {};

std::string nameOf(const ::testing::TestParamInfo<Failure>& info) {
  std::string name = info.param.way;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

// A package of its own for the process: the same one at another place.
class Copy {
 public:
  explicit Copy(const std::string& name) : m_name(name) {
    const std::filesystem::path from = TARVEX_SELFTEST_DIR;
    std::filesystem::copy(from / "libmisbehaving.so", m_place.file("lib" + name + ".so"));
    std::filesystem::copy(from / "misbehaving.cfg", m_place.file(name + ".cfg"));
    m_driver = std::make_unique<PackageDriver>(m_place.path(), name);
    m_driver->set("Package", "WorkerPath", TARVEX_PACKAGE_DIR "/tarvex-package-worker");
  }
  PackageDriver& driver() { return *m_driver; }

 private:
  const std::string m_name;
  TestSupport::TemporaryDirectory m_place;
  std::unique_ptr<PackageDriver> m_driver;
};

}  // namespace

TEST_F(Discovery, runs_in_a_process_that_no_test_shares) {
  const auto run = m_driver.run("unit0", {kLooksAround});
  EXPECT_NE(run.measurement("discoveredBy"), "none");
  EXPECT_NE(run.measurement("discoveredBy"), std::to_string(getpid()));
  EXPECT_NE(run.measurement("discoveredBy"), run.measurement("process"));
  EXPECT_FALSE(hasChild());
}

TEST_F(Discovery, tells_devices_as_data) {
  std::vector<std::string> tags;
  for (DeviceEnum::VirtualDevice& device : m_driver.devices()) {
    tags.push_back(device.getDevice()->getResourceTag());
  }
  EXPECT_THAT(tags, ElementsAre("selftest/unit0", "selftest/unit1", "selftest/rack/unit0",
                                "selftest/unit2"));
  EXPECT_EQ(m_driver.run("unit0", {kLooksAround}).measurement("property"), "a = [b]");
}

TEST_F(Discovery, keeps_nothing_for_the_tests_but_what_it_tells) {
  EXPECT_EQ(m_driver.run("unit0", {kLooksAround}).measurement("devicesFoundHere"), "0");
}

TEST_F(Discovery, is_told_where_to_look_and_for_whom) {
  m_driver.set("Package", "DeviceType", "7");
  EXPECT_EQ(m_driver.run("unit0", {kLooksAround}).measurement("discoveredIn"), "selftest 7 0");
  PackageDriver factory(TARVEX_SELFTEST_DIR, "misbehaving", DiagnosticMode::FACTORY);
  EXPECT_EQ(factory.run("unit0", {kLooksAround}).measurement("discoveredIn"),
            "selftest 0 " + std::to_string(DiagnosticMode::FACTORY));
}

TEST_F(Discovery, says_for_each_test_whether_it_can_run) {
  EXPECT_TRUE(m_driver.supports("unit0", kPicky));
  EXPECT_FALSE(m_driver.supports("unit1", kPicky));
  EXPECT_THAT(m_driver.logText(), HasSubstr("selftest/unit1: unit 1 is excused"));
  EXPECT_FALSE(m_driver.supports("unit0", 28)) << "stands in the configuration file alone";
}

TEST_F(Discovery, takes_an_exception_of_a_predicate_for_a_no_with_a_reason) {
  m_driver.set("Package", "Predicate", "throws");
  EXPECT_FALSE(m_driver.supports("unit0", kPicky));
  EXPECT_TRUE(m_driver.supports("unit0", kBehaves));
  EXPECT_THAT(m_driver.logText(), HasSubstr("selftest/unit0: nobody knows"));
}

TEST_F(Discovery, that_crashes_in_a_predicate_costs_its_package_alone) {
  m_driver.set("Package", "Predicate", "crashes");
  expectFailure("crashed with SIGSEGV", "about to look behind the bus");
}

TEST_P(FailingDiscovery, costs_its_package_alone_and_is_told) {
  m_driver.set("Package", "Discovery", GetParam().way).set("Package", "DiscoveryTimeout", "600");
  expectFailure(GetParam().reason, GetParam().lastLines);
  m_driver.set("Package", "Discovery", "");
  EXPECT_EQ(m_driver.run("unit0", {kBehaves}).verdict, Diag::DiagnosticResult::PASSED);
}

INSTANTIATE_TEST_SUITE_P(
    OfAllKinds, FailingDiscovery,
    ::testing::Values(Failure{"throws", "no bus"},
                      Failure{"crashes", "its process crashed with SIGSEGV",
                              "about to look behind the bus"},
                      Failure{"exits", "ended early with exit status 3", "leaving early"},
                      Failure{"sends garbage", "what is no message (KIT_NO_FRAME)"},
                      Failure{"has no end", "too many devices"},
                      Failure{"tells of a device without a name", "it has no name"},
                      Failure{"tells of a long tag", "its resource tag is too long"},
                      Failure{"tells of a deep tag", "its resource tag has too many components"},
                      Failure{"counts wrong", "the end of another discovery"},
                      Failure{"ends twice", "the end of another discovery"},
                      Failure{"tells a verdict", "a frame that tells of no device"}),
    nameOf);

TEST_F(Discovery, that_hangs_is_ended_when_its_time_is_over) {
  const std::string mark = m_place.file("mark");
  m_driver.set("Package", "Discovery", "hangs").set("Package", "MarkOfHanging", mark);
  m_driver.set("Package", "TermGrace", "0.05");
  expectFailureByTime(mark, "waiting for the bus");
}

TEST_F(Discovery, that_is_asked_to_end_does) {
  m_driver.set("Package", "MeetingPlace", m_place.path()).set("Package", "DiscoveryTimeout", "600");
  const auto start = std::chrono::steady_clock::now();
  std::thread client([this] {
    EXPECT_TRUE(hasBegun());
    m_inbox.endDiscoveries();
  });
  expectFailure("it was asked to end");
  client.join();
  // Less than a second on an idle machine; who waited for the discovery would take ten minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(300));
}

TEST_F(Discovery, does_not_begin_once_all_are_asked_to_end) {
  m_inbox.endDiscoveries();
  m_driver.set("Package", "WorkerPath", "/bin/false");
  expectFailure("it was asked to end");
}

TEST_F(Discovery, replaces_a_time_that_is_none) {
  m_driver.set("Package", "DiscoveryTimeout", "nan");
  EXPECT_EQ(m_driver.devices().size(), 4U);
  EXPECT_THAT(m_driver.logText(), HasSubstr("DiscoveryTimeout=nan is no time: 20 s hold"));
}

TEST_F(Discovery, without_a_worker_is_told) {
  m_driver.set("Package", "WorkerPath", "/nonexistent/worker");
  expectFailure("No such file or directory");
  m_driver.set("Package", "WorkerPath", "/bin/false");
  expectFailure("exit status 1");
}

TEST_F(Discovery, in_a_worker_that_never_gets_ready_ends) {
  const std::string script = m_place.file("never-ready");
  const std::string mark = m_place.file("mark");
  std::ofstream(script) << "#!/bin/sh\necho stuck\n: > '" << mark << "'\nsleep 1000\n";
  chmod(script.c_str(), 0755);
  m_driver.set("Package", "WorkerPath", script);
  expectFailureByTime(mark, "stuck");
}

TEST_F(Discovery, leaves_out_a_device_that_is_too_large_and_says_so) {
  m_driver.set("Package", "Discovery", "finds large devices");
  EXPECT_EQ(m_driver.devices().size(), 5U);
  EXPECT_EQ(m_driver.device("large0").getDevice()->getDeviceName(), std::string(1024, 'n'));
  EXPECT_THAT(m_driver.logText(), HasSubstr("left out, as its name is too long"));
  EXPECT_THAT(m_driver.logText(), HasSubstr("left out, as its property 'value' is too long"));
  EXPECT_THAT(m_driver.logText(), HasSubstr("its resource tag has too many components"));
}

TEST_F(Discovery, that_was_begun_ahead_is_the_one_that_is_asked_for) {
  m_driver.set("Package", "MeetingPlace", m_place.path()).beginDiscovery();
  ASSERT_TRUE(hasBegun());
  std::ofstream(m_place.file("another")) << "here";
  EXPECT_EQ(m_driver.devices().size(), 4U);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_place.path()),
                          std::filesystem::directory_iterator()),
            2)
      << "one process looked for devices";
}

TEST_F(Discovery, of_packages_runs_beside_each_other) {
  Copy first("first");
  Copy second("second");
  for (Copy* const copy : {&first, &second}) {
    copy->driver().set("Package", "MeetingPlace", m_place.path());
    copy->driver().set("Package", "DiscoveryTimeout", "60");
  }
  first.driver().beginDiscovery();
  second.driver().beginDiscovery();
  EXPECT_EQ(first.driver().devices().size(), 4U);
  EXPECT_EQ(second.driver().devices().size(), 4U);
}

TEST_F(Discovery, that_was_begun_for_somebody_else_is_not_taken) {
  Copy copy("other");
  copy.driver().set("Package", "Discovery", "hangs").beginDiscovery();
  copy.driver().set("Package", "DeviceType", "3").set("Package", "Discovery", "");
  EXPECT_EQ(copy.driver().devices().size(), 4U);
  EXPECT_FALSE(hasChild());
}

TEST_F(Discovery, that_nobody_asks_for_ends_with_its_package) {
  {
    Copy copy("closed");
    copy.driver().set("Package", "MeetingPlace", m_place.path());
    copy.driver().set("Package", "DiscoveryTimeout", "600").beginDiscovery();
    ASSERT_TRUE(hasBegun());
  }
  EXPECT_FALSE(hasChild());
}
