// The parts of the kit that need no process of their own.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "packagekit/PackageKit.h"
#include "packagekit/PackageTexts.h"
#include "packagekit/ResourceTags.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/PackageLog.h"
#include "packagekit/testing/RecordingContext.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

std::string writeFile(const std::string& name, const std::string& text) {
  fs::create_directories(fs::path(name).parent_path());
  std::ofstream(name) << text;
  return name;
}

std::string readFile(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(name).rdbuf();
  return text.str();
}

// Other tests run at the same time, in the same working directory.
std::string freshDirectory(const std::string& name) {
  const std::string own = name + "-" + std::to_string(getpid());
  fs::remove_all(own);
  fs::create_directories(own);
  return fs::absolute(own).string();
}

Environment customerEnvironment() {
  return {DeviceEnum::IDeviceEnumerator::CUSTOMER, Settings(""), "", 0, [](const std::string&) {}};
}

}  // namespace

TEST(Settings, takes_a_tests_own_key_before_the_packages) {
  const Settings settings(
      writeFile("settings/a.cfg", "[Package]\nA=package\nB=package\n[TestID2]\nA=test\n"));
  EXPECT_EQ(settings.test(2, "A"), "test");
  EXPECT_EQ(settings.test(2, "B"), "package");
  EXPECT_EQ(settings.test(1, "A"), "package");
  EXPECT_EQ(settings.test(1, "C"), std::nullopt);
}

TEST(Settings, gives_the_default_for_what_is_no_number) {
  const Settings settings(writeFile(
      "settings/b.cfg",
      "[Package]\nI=12\nJ=12x\nK=99999999999999999999\nD=0.25\nE=,5\nT=true\nF=False\nM=maybe\n"));
  EXPECT_EQ(settings.testInteger(1, "I", 7), 12);
  EXPECT_EQ(settings.testInteger(1, "J", 7), 7);
  EXPECT_EQ(settings.testInteger(1, "K", 7), 7);
  EXPECT_EQ(settings.testInteger(1, "absent", 7), 7);
  EXPECT_EQ(settings.testNumber(1, "D", 1), 0.25);
  EXPECT_EQ(settings.testNumber(1, "I", 1), 12);
  EXPECT_EQ(settings.testNumber(1, "E", 1), 1);
  EXPECT_TRUE(settings.testFlag(1, "T", false));
  EXPECT_FALSE(settings.testFlag(1, "F", true));
  EXPECT_TRUE(settings.testFlag(1, "M", true));
}

TEST(Package, refuses_a_test_that_is_defined_twice) {
  Package package;
  package.test(1, [](TestContext&) { return passed(); });
  EXPECT_THROW(package.test(1, [](TestContext&) { return passed(); }), std::logic_error);
}

TEST(TestEntry, is_offered_in_its_modes_only) {
  Package package;
  const TestEntry& entry = package.test(1, [](TestContext&) { return passed(); })
                               .onlyIn({DiagnosticMode::FACTORY, DiagnosticMode::BRINGUP});
  Environment environment = customerEnvironment();
  EXPECT_THAT(entry.supports({}, environment).detail(), HasSubstr("CUSTOMER"));
  environment.diagnosticMode = DiagnosticMode::FACTORY;
  EXPECT_TRUE(entry.supports({}, environment));
}

TEST(TestEntry, asks_its_predicate_and_then_its_class) {
  struct Picky : PackageKit::Test {
    Verdict run(TestContext&) override { return passed(); }
    Support supports(const Device& device, const Environment&) const override {
      return device.name == "b" ? Support::no("not b") : Support::yes();
    }
    double estimate(const Device&, const Environment&) const override { return 4; }
  };
  Package package;
  const TestEntry& entry =
      package.test<Picky>(1).supportedWhen([](const Device& device, const Environment&) {
        return device.name == "a" ? Support::no("") : Support::yes();
      });
  const Environment environment = customerEnvironment();
  Device device;
  device.name = "a";
  EXPECT_EQ(entry.supports(device, environment).reason(), Contract::kNoReason);
  device.name = "b";
  EXPECT_EQ(entry.supports(device, environment).reason(), "not b");
  device.name = "c";
  EXPECT_TRUE(entry.supports(device, environment));
  EXPECT_EQ(entry.estimateFor(device, environment), 4);
}

TEST(TestContext, tells_what_the_open_mode_allows) {
  struct Row {
    AccessMode mode;
    bool mayRead;
    bool mayWrite;
    int flags;
  };
  const Row rows[] = {{DeviceEnum::IDevice::QUERY, false, false, O_RDONLY | O_NONBLOCK},
                      {DeviceEnum::IDevice::READ_ONLY, true, false, O_RDONLY},
                      {DeviceEnum::IDevice::WRITE_ONLY, false, true, O_WRONLY},
                      {DeviceEnum::IDevice::READ_WRITE, true, true, O_RDWR}};
  for (const Row& row : rows) {
    TestParameters parameters;
    parameters.openMode = row.mode;
    const Testing::RecordingContext context(parameters);
    EXPECT_EQ(context.mayRead(), row.mayRead);
    EXPECT_EQ(context.mayWrite(), row.mayWrite);
    EXPECT_EQ(context.openFlags(), row.flags | O_CLOEXEC);
  }
}

TEST(TestContext, records_what_a_test_says) {
  TestParameters parameters;
  parameters.device.properties["path"] = "/dev/x";
  Testing::RecordingContext context(parameters);
  context.progress(250);
  context.warning(5, {"a"});
  context.measurement("speed", 0.1, "GB/s");
  context.log("a line");
  EXPECT_EQ(context.property("path"), "/dev/x");
  EXPECT_EQ(context.property("none", "fallback"), "fallback");
  EXPECT_THAT(context.progressSteps(), ElementsAre(100));
  ASSERT_EQ(context.events().size(), 2U);
  EXPECT_EQ(context.events()[0].type, Diag::DiagnosticEvent::WARNING_EVENT);
  EXPECT_EQ(context.events()[1].code, TEST_MEASUREMENT);
  EXPECT_THAT(context.events()[1].parameters, ElementsAre("speed", "0.1", "GB/s"));
  EXPECT_THAT(context.logLines(), ElementsAre("a line"));
}

TEST(TestContext, throws_once_a_stop_was_requested) {
  Testing::RecordingContext context{TestParameters()};
  context.stopAfter(2);
  EXPECT_NO_THROW(context.throwIfStopped());
  EXPECT_THROW(context.throwIfStopped(), Stopped);
  EXPECT_FALSE(context.sleepFor(std::chrono::hours(1)));
}

TEST(OutputTail, keeps_the_last_lines) {
  OutputTail tail;
  EXPECT_EQ(tail.lines(), "");
  for (int line = 0; line < 3000; ++line) {
    const std::string text = "line " + std::to_string(line) + "\n";
    tail.add(text.data(), text.size());
  }
  tail.add("unfinished", 10);
  EXPECT_THAT(tail.lines(), testing::EndsWith("line 2998 | line 2999 | unfinished"));
  EXPECT_THAT(tail.lines(), testing::StartsWith("line 2991 | "));
}

TEST(OutputTail, is_always_plain_valid_text) {
  OutputTail tail;
  const std::string bytes = "tab\tand \x01 and \xff\xc3\xa4\n\xed\xa0\x80\xf0\x9f\x98\x80\xc3";
  tail.add(bytes.data(), bytes.size());
  EXPECT_EQ(tail.lines(), "tab and   and ?\xc3\xa4 | ???\xf0\x9f\x98\x80?");
}

TEST(PackageLog, writes_each_line_with_time_and_process) {
  const std::string file = freshDirectory("log") + "/a.log";
  writeLogLine(file, "first\nstill first");
  writeLogLine(file, "second");
  EXPECT_THAT(readFile(file), testing::MatchesRegex("[0-9TZ:.-]+ \\[[0-9]+\\] first still first\n"
                                                    "[0-9TZ:.-]+ \\[[0-9]+\\] second\n"));
}

TEST(PackageLog, starts_a_new_file_when_it_is_large) {
  const std::string file = freshDirectory("log") + "/b.log";
  writeLogLine(file, "old");
  fs::resize_file(file, 17 * 1024 * 1024);
  writeLogLine(file, "last of the old");
  writeLogLine(file, "new");
  EXPECT_LT(fs::file_size(file), 100U);
  EXPECT_GT(fs::file_size(file + ".1"), 17U * 1024 * 1024);
}

TEST(PackageLog, writes_into_no_pipe_and_waits_for_no_reader) {
  const std::string directory = freshDirectory("log");
  const std::string pipe = directory + "/pipe.log";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  writeLogLine(pipe, "nobody is there");
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  writeLogLine(pipe, "somebody is there");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  fs::remove_all(directory);
}

TEST(RateMeter, tells_what_was_done_a_second_once_a_second) {
  using std::chrono::milliseconds;
  const RateMeter::Clock::time_point begin{std::chrono::hours(1)};
  RateMeter meter;
  EXPECT_FALSE(meter.add(1e9, begin)) << "nobody knows how long that took";
  EXPECT_FALSE(meter.add(100, begin + milliseconds(400)));
  EXPECT_FALSE(meter.add(100, begin + milliseconds(999)));
  EXPECT_EQ(meter.add(100, begin + milliseconds(2000)), 150);
  EXPECT_FALSE(meter.add(100, begin + milliseconds(2999)));
  EXPECT_EQ(meter.add(0, begin + milliseconds(4000)), 50) << "counted anew";
  EXPECT_EQ(meter.add(0, begin + milliseconds(5000)), 0) << "it stands still";
}

TEST(RateMeter, speaks_for_a_test_that_says_what_it_has_done) {
  Testing::RecordingContext context({});
  const auto deadline = RateMeter::Clock::now() + std::chrono::seconds(20);
  while (context.throughputs().empty() && RateMeter::Clock::now() < deadline) {
    context.processed(1, "MB");
    usleep(1000);
  }
  ASSERT_EQ(context.throughputs().size(), 1U);
  EXPECT_GT(std::stod(context.throughputs()[0][0]), 0);
  EXPECT_EQ(context.throughputs()[0][1], "MB/s");
  EXPECT_THAT(context.events(), IsEmpty()) << "no report has it";
}

TEST(PackageLog, follows_no_link) {
  const std::string directory = freshDirectory("log");
  const std::string file = directory + "/kept";
  std::ofstream(file) << "kept";
  fs::create_symlink(file, directory + "/link.log");
  writeLogLine(directory + "/link.log", "lost");
  EXPECT_EQ(readFile(file), "kept");
  fs::remove_all(directory);
}

TEST(PackageLog, bears_a_file_that_cant_be_written) {
  writeLogLine("/nonexistent/folder/x.log", "lost");
  writeLogLine("", "nowhere");
}

TEST(ResourceTags, clash_by_their_last_component) {
  EXPECT_EQ(lastComponent("host/cpu3"), "cpu3");
  EXPECT_EQ(lastComponent("cpu3"), "cpu3");
  EXPECT_EQ(lastComponent("host/"), "");
  EXPECT_THAT(findTagClashes({"host/cpu0", "host/cpu1", "host/node0"}), IsEmpty());
  EXPECT_THAT(findTagClashes({"host/cpu0", "rack/cpu0", "host/cpu1", "host/cpu0"}),
              ElementsAre("host/cpu0 and rack/cpu0", "host/cpu0 and host/cpu0"));
}

namespace {

class PackageTexts : public testing::Test {
 protected:
  PackageTexts() {
    write("p.cfg", "[Package]\nNameToken=NAME\n[Error]\n1=BROKEN\n[DeviceStatus]\n2=FINE\n");
    for (const char* const language : Contract::kLanguages) {
      writeLanguage(language,
                    "NAME=x\nBROKEN=$1$ is broken: $2$\nBROKEN_ACTION=x\n"
                    "FINE=x\nFINE_ACTION=x\n");
    }
  }
  void write(const std::string& name, const std::string& text) {
    writeFile(m_directory + "/" + name, text);
  }
  void writeLanguage(const std::string& language, const std::string& text) {
    write(language + "/p.cfg", "[" + language + "]\n" + text);
  }
  std::vector<std::string> faults() { return checkPackageTexts(m_directory, "p"); }

  ~PackageTexts() override { fs::remove_all(m_directory); }

  const std::string m_directory = freshDirectory("texts");
};

}  // namespace

TEST_F(PackageTexts, are_good_when_every_token_is_in_every_language) {
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(PackageTexts, lack_a_language) {
  fs::remove(m_directory + "/ja/p.cfg");
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("ja/p.cfg: missing")));
}

TEST_F(PackageTexts, lack_a_text_an_action_and_a_name) {
  writeLanguage("de", "BROKEN=$1$ ist kaputt: $2$\nFINE=\nFINE_ACTION=x\n");
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("BROKEN_ACTION"), HasSubstr("no text for FINE"),
                                    HasSubstr("NAME")));
}

TEST_F(PackageTexts, must_use_the_same_variables) {
  writeLanguage("fr", "NAME=x\nBROKEN=$1$ est en panne\nBROKEN_ACTION=x\nFINE=x\nFINE_ACTION=x\n");
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("fr/p.cfg: BROKEN has other variables")));
}

TEST_F(PackageTexts, need_plain_codes_once_each) {
  write("p.cfg", "[Error]\n1=BROKEN\n01=BROKEN\nx=BROKEN\n1=FINE\n9500=FINE\n3=\n");
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("01 is no code"), HasSubstr("x is no code"),
                                    HasSubstr("1 stands twice"), HasSubstr("9500 is no code"),
                                    HasSubstr("3 has no token")));
}

TEST_F(PackageTexts, are_missed_where_there_is_no_package) {
  EXPECT_THAT(checkPackageTexts(m_directory, "q"), ElementsAre(HasSubstr("missing or empty")));
}
