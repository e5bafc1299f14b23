// A machine held against what it should be: what is reported, and how the program ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::json;
namespace fs = std::filesystem;

class DiagctlConformance : public Diagctl {
 protected:
  DiagctlConformance() {
    record("sys/class/dmi/id/sys_vendor", "Maker");
    record("sys/class/dmi/id/product_name", "Box");
    record("proc/sys/kernel/hostname", "node017");
    record("proc/sys/kernel/osrelease", "6.1.0-28");
    record(kDisk + "/device/model", "Disk of 4 TB");
    record(kDisk + "/device/serial", "S5X");
    record(kDisk + "/device/firmware_rev", "F1");
    record(kDisk + "/size", "7501476528");
    EXPECT_EQ(run({"inventory", "--root", m_root.string(), "-o", golden}).exitCode, kPassed);
  }

  void record(const std::string& path, const std::string& text) const {
    fs::create_directories((m_root / path).parent_path());
    std::ofstream(m_root / path) << text << "\n";
  }

  Outcome check(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"inventory", "check",  "--against",
                                      golden,      "--root", m_root.string()};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  }

  /// What is expected, with one fact changed.
  void expect(const std::string& pointer, const Json& value) const {
    Json document = Json::parse(contentsOf(golden));
    document[Json::json_pointer(pointer)] = value;
    std::ofstream(golden) << document;
  }

  const std::string kDisk = "sys/block/nvme0n1";
  const fs::path m_root = place.path("recorded");
  const std::string golden = place.path("golden.json");
};

TEST_F(DiagctlConformance, of_a_machine_with_its_own_inventory_passes) {
  const Outcome outcome = check();
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("on node017"), HasSubstr("Verdict: PASSED")));
  EXPECT_EQ(check({"--strict"}).exitCode, kPassed);
}

TEST_F(DiagctlConformance, names_facts_in_the_language_of_the_rest) {
  expect("/disks/nvme0n1/firmware", "F2");
  expect("/disks/nvme0n1/model", "Disk of 8 TB");
  expect("/kernel/release", "6.1.0-29");
  EXPECT_THAT(check({"--lang", "de", "-v"}).out,
              AllOf(HasSubstr("Modell: \"Disk of 4 TB\" statt"), Not(HasSubstr("model:"))));
  EXPECT_THAT(check({"--lang", "fr", "-v"}).out, HasSubstr("micrologiciel"));
  EXPECT_THAT(check({"--lang", "en", "-v"}).out, HasSubstr("model: \"Disk of 4 TB\" instead of"));
}

TEST_F(DiagctlConformance, fails_for_a_part_that_is_missing_in_every_format) {
  record(kDisk + "/removable", "1");  // so it is no part of the machine
  for (const std::string format : {"text", "jsonl", "junit", "tap"}) {
    const Outcome outcome = check({"--format", format});
    EXPECT_EQ(outcome.exitCode, kHardwareFailure) << format;
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("disk nvme0n1 (nvme0n1, Disk of 4 TB, serial number S5X)"),
                      HasSubstr("is missing")))
        << format;
  }
  EXPECT_EQ(check({"--exit-style", "nagios"}).exitCode, 2);
}

TEST_F(DiagctlConformance, warns_of_other_firmware_and_is_strict_when_it_is_told_to_be) {
  record(kDisk + "/device/firmware_rev", "F2");
  const Outcome outcome = check();
  EXPECT_EQ(outcome.exitCode, kPassed);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("WARNING"),
                    HasSubstr(R"(serial number S5X): firmware: "F2" instead of "F1")")))
      << outcome.out;
  EXPECT_EQ(check({"--strict"}).exitCode, kNoVerdict);
  EXPECT_EQ(check({"--exit-style", "nagios"}).exitCode, 1);
}

TEST_F(DiagctlConformance, tells_another_serial_number_and_goes_on) {
  record(kDisk + "/device/serial", "S6Y");
  const Outcome outcome = check({"--strict", "-v"});
  EXPECT_EQ(outcome.exitCode, kPassed);
  EXPECT_THAT(outcome.out, HasSubstr(R"(serial number: "S6Y" instead of "S5X")")) << outcome.out;
}

TEST_F(DiagctlConformance, cannot_tell_what_one_side_does_not_know) {
  expect("/disks/nvme0n1/firmware", "unknown");
  const Outcome outcome = check();
  EXPECT_EQ(outcome.exitCode, kPassed);
  EXPECT_THAT(outcome.out, HasSubstr("firmware: unknown in what is expected")) << outcome.out;
  EXPECT_EQ(check({"--strict"}).exitCode, kNoVerdict);
}

TEST_F(DiagctlConformance, names_the_part_of_each_finding_in_the_log) {
  record(kDisk + "/device/firmware_rev", "F2");
  const std::string log = place.path("check.jsonl");
  EXPECT_EQ(check({"-o", "jsonl=" + log}).exitCode, kPassed);
  const std::string text = contentsOf(log);
  EXPECT_THAT(text, AllOf(HasSubstr(R"("location":"/disks/nvme0n1")"),
                          HasSubstr(R"("verdict":"part-differs","type":"UNKNOWN")"),
                          HasSubstr(R"("hardwareInfoId":"part1")")));
  EXPECT_EQ(run({"report", log, "--strict"}).exitCode, kNoVerdict);
}

TEST_F(DiagctlConformance, follows_rules_that_come_before_those_that_come_along) {
  const std::string rules = place.path("rules.json");
  std::ofstream(rules) << R"([{"path": "/disks/*/firmware", "compare": "equal",
                               "severity": "failure"}])";
  record(kDisk + "/device/firmware_rev", "F2");
  EXPECT_EQ(check({"--rules", rules}).exitCode, kHardwareFailure);
  std::ofstream(rules) << R"([{"path": "/disks/*/firmware", "compare": "same"}])";
  const Outcome outcome = check({"--rules", rules});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, StartsWith("diagctl: " + rules + ": /0/compare: \"same\" is none of"));
  EXPECT_THAT(outcome.out, IsEmpty());
}

TEST_F(DiagctlConformance, is_refused_by_name_and_reason_for_what_is_no_inventory) {
  struct Wrong {
    std::string text;
    std::string told;
  };
  for (const Wrong& wrong : {Wrong{"{", "line 1: is no JSON"},
                             {"{}", "/document: it is no inventory"},
                             {std::string(100, '['), "it is more than 32 levels deep"}}) {
    std::ofstream(golden) << wrong.text;
    for (const Outcome& outcome : {check(), run({"inventory", "diff", golden, golden}),
                                   run({"inventory", "golden", golden, golden, golden, golden})}) {
      EXPECT_EQ(outcome.exitCode, kNoVerdict);
      EXPECT_THAT(outcome.err, StartsWith("diagctl: " + golden + ": " + wrong.told));
    }
  }
  fs::remove(golden);
  EXPECT_THAT(check().err, HasSubstr(golden + ": No such file or directory"));
  EXPECT_THAT(check({"--exit-style", "nagios"}).out, StartsWith("DIAGCTL UNKNOWN: "));
}

TEST_F(DiagctlConformance, takes_of_a_folder_the_file_for_machines_of_its_kind) {
  const fs::path folder = place.path("fleet");
  fs::create_directories(folder);
  const auto checkFolder = [&] {
    return run({"inventory", "check", "--against", folder.string(), "--root", m_root.string()});
  };
  fs::copy_file(golden, folder / "box.json");
  expect("/system/product", "Another");
  fs::copy_file(golden, folder / "another.json");
  EXPECT_EQ(checkFolder().exitCode, kPassed) << checkFolder().err;
  fs::copy_file(folder / "box.json", folder / "twin.json");
  EXPECT_THAT(checkFolder().err, HasSubstr(R"(both box.json and twin.json are for "Maker Box")"));
  fs::remove(folder / "twin.json");
  fs::remove(folder / "box.json");
  EXPECT_EQ(checkFolder().exitCode, kNoVerdict);
  EXPECT_THAT(checkFolder().err, HasSubstr(R"(holds no file for "Maker Box")"));
}

TEST_F(DiagctlConformance, derives_what_most_machines_are_and_names_the_odd_one) {
  std::vector<std::string> words = {"inventory", "golden"};
  for (int number = 0; number < 8; ++number) {
    const std::string file = place.path("node" + std::to_string(number) + ".json");
    record(kDisk + "/device/serial", "S" + std::to_string(number));
    record(kDisk + "/device/firmware_rev", number == 5 ? "F0" : "F1");
    EXPECT_EQ(run({"inventory", "--root", m_root.string(), "-o", file}).exitCode, kPassed);
    words.push_back(file);
  }
  words.insert(words.end(), {"-o", golden});
  const Outcome outcome = run(words);
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("node5.json: WARNING: disk nvme0n1"),
                                 HasSubstr(R"(firmware: "F0" instead of "F1")"),
                                 HasSubstr("machines: 8, of which differ: 1; facts on which they "
                                           "do not agree: 1\n"),
                                 Not(HasSubstr("node4.json"))))
      << outcome.out;
  record(kDisk + "/device/firmware_rev", "F1");
  EXPECT_EQ(check({"--strict"}).exitCode, kPassed) << check().out;
  words.resize(words.size() - 2);
  const Outcome piped = run(words);
  EXPECT_EQ(Json::parse(piped.out), Json::parse(contentsOf(golden)));
  EXPECT_THAT(piped.err, HasSubstr("node5.json: WARNING"));
}

TEST_F(DiagctlConformance, tells_each_fact_in_which_two_inventories_differ) {
  const std::string before = place.path("before.json");
  fs::copy_file(golden, before);
  EXPECT_THAT(run({"inventory", "diff", before, golden}).out, IsEmpty());
  expect("/system/hostName", "node018");
  expect("/disks", Json::object());
  const Outcome outcome = run({"inventory", "diff", before, golden});
  EXPECT_EQ(outcome.exitCode, kPassed);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("/system/hostName: \"node017\" -> \"node018\"\n"),
                                 HasSubstr("/disks/nvme0n1: "), HasSubstr(" -> nothing\n")));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
