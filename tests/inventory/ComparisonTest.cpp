// What is found when a machine is held against what it should be.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "inventory/Comparison.h"
#include "tests/inventory/Documents.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

Lines findingsFor(const Json& actual, const Json& expected = smallMachine()) {
  return linesOf(compare(expected, actual, Rules::shipped()).findings);
}

Lines findingsWith(const std::string& pointer, const Json& value) {
  return findingsFor(changed(smallMachine(), pointer, value));
}

constexpr const char* kDevice = "/pci/0000:16~102.0~100.0";
constexpr const char* kDisk = "/disks/0000:16~102.0~100.0~1n1";

TEST(Comparison, of_a_machine_with_itself_finds_nothing) {
  const Comparison comparison = compare(smallMachine(), smallMachine(), Rules::shipped());
  EXPECT_THAT(comparison.findings, IsEmpty());
  EXPECT_THAT(comparison.unknownOnBothSides, IsEmpty());
}

TEST(Comparison, takes_a_module_that_is_gone_for_one_failure) {
  Json odd = changed(smallMachine(), "/memory/modules/A2", {{"populated", false}, {"bank", "B"}});
  odd = changed(changed(odd, "/memory/bytes", 1000), "/memory/nodes/0/bytes", 1000);
  EXPECT_THAT(findingsFor(odd), ElementsAre("failure missing /memory/modules/A2"));
  EXPECT_THAT(findingsWith("/memory/modules/A2", nullptr),
              ElementsAre("failure missing /memory/modules/A2"));
  EXPECT_THAT(findingsFor(smallMachine(), odd), ElementsAre("warning added /memory/modules/A2"));
  EXPECT_THAT(findingsWith("/memory/bytes", 1000), ElementsAre("failure degraded /memory /bytes"))
      << "nothing else tells it";
  EXPECT_THAT(findingsWith("/memory/bytes", 1970), IsEmpty());
}

TEST(Comparison, takes_an_empty_place_for_none_and_one_nobody_knows_for_unknown) {
  EXPECT_THAT(findingsWith("/memory/modules/A3", {{"populated", false}, {"bank", "B"}}), IsEmpty());
  EXPECT_THAT(findingsWith("/memory/modules/A2", {{"populated", kUnknown}}),
              ElementsAre("warning not comparable /memory/modules/A2 "));
}

TEST(Comparison, tells_a_link_of_half_its_width_once_at_the_device) {
  const std::string device = kDevice;
  Json odd = changed(smallMachine(), device + "/link/device/width", 2);
  odd = changed(odd, device + "/link/port/width", 2);
  odd = changed(odd, "/pci/0000:16~102.0/link/device/width", 2);
  const Lines once = {"failure degraded " + device + " /link/device/width"};
  EXPECT_EQ(findingsFor(odd), once);
  Json twoFunctions = smallMachine();
  twoFunctions["pci"]["0000:16/02.0/00.1"] = twoFunctions["pci"]["0000:16/02.0/00.0"];
  odd["pci"]["0000:16/02.0/00.1"] = odd["pci"]["0000:16/02.0/00.0"];
  EXPECT_EQ(findingsFor(odd, twoFunctions), once);
  EXPECT_THAT(findingsWith("/pci/0000:16~102.0/link/device/width", 2),
              ElementsAre("failure degraded /pci/0000:16~102.0 /link/device/width"))
      << "the port alone";
}

TEST(Comparison, takes_more_than_is_expected_for_information) {
  EXPECT_THAT(findingsWith("/processors/cores", 16),
              ElementsAre("information differs /processors /cores"));
  EXPECT_THAT(findingsWith("/processors/cores", 7),
              ElementsAre("failure degraded /processors /cores"));
}

TEST(Comparison, warns_of_other_firmware_and_tells_another_serial_number) {
  EXPECT_THAT(findingsWith(std::string(kDisk) + "/firmware", "F2"),
              ElementsAre("warning differs " + std::string(kDisk) + " /firmware"));
  EXPECT_THAT(findingsWith(std::string(kDisk) + "/serialNumber", "D2"),
              ElementsAre("information differs " + std::string(kDisk) + " /serialNumber"));
  EXPECT_THAT(findingsWith("/processors/microcode", {{"0x2b", "0-6"}, {"0x2c", "7"}}),
              ElementsAre("warning differs /processors /microcode"));
  EXPECT_THAT(findingsWith("/system/hostName", "node018"), IsEmpty());
  EXPECT_THAT(findingsWith("/processors/flags", {"fpu", "avx2"}), IsEmpty());
  EXPECT_THAT(findingsWith("/processors/flags", {"fpu"}),
              ElementsAre("warning differs /processors /flags"));
}

TEST(Comparison, tells_a_part_once_with_all_that_differs) {
  Json odd = changed(smallMachine(), std::string(kDisk) + "/firmware", "F2");
  odd = changed(odd, std::string(kDisk) + "/bytes", 256);
  const auto findings = compare(smallMachine(), odd, Rules::shipped()).findings;
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_EQ(findings[0].gravity, Gravity::Failure);
  ASSERT_THAT(findings[0].differences, SizeIs(2));
  EXPECT_EQ(findings[0].differences[0].expected, Json(512));
  EXPECT_EQ(findings[0].differences[0].actual, Json(256));
  EXPECT_EQ(findings[0].facts["name"], "nvme0n1");
}

TEST(Comparison, tells_what_is_behind_a_bridge_with_what_is_missing) {
  Json odd = smallMachine();
  odd["pci"].erase("0000:16/02.0/00.0");
  odd["disks"].clear();
  EXPECT_THAT(findingsFor(odd),
              ElementsAre("failure missing " + std::string(kDevice) + " +" + std::string(kDisk)));
  odd["pci"].erase("0000:16/02.0");
  const std::string both = " +" + std::string(kDisk) + " +" + kDevice;
  EXPECT_THAT(findingsFor(odd), ElementsAre("failure missing /pci/0000:16~102.0" + both));
  EXPECT_THAT(findingsFor(smallMachine(), odd),
              ElementsAre("warning added /pci/0000:16~102.0" + both));
  odd = smallMachine();
  odd["disks"].clear();
  EXPECT_THAT(findingsFor(odd), ElementsAre("failure missing " + std::string(kDisk)));
}

TEST(Comparison, cannot_be_made_of_what_one_side_does_not_know) {
  EXPECT_THAT(findingsWith("/memory/modules", kUnknown),
              ElementsAre("warning not comparable /memory/modules "));
  const Json unknown = changed(smallMachine(), std::string(kDisk) + "/firmware", kUnknown);
  EXPECT_THAT(findingsFor(unknown),
              ElementsAre("warning not comparable " + std::string(kDisk) + " /firmware"));
  EXPECT_THAT(findingsFor(smallMachine(), unknown),
              ElementsAre("warning not comparable " + std::string(kDisk) + " /firmware"));
  const Comparison both = compare(unknown, unknown, Rules::shipped());
  EXPECT_THAT(both.findings, IsEmpty());
  EXPECT_THAT(both.unknownOnBothSides, SizeIs(1));
}

Json withRoots(const std::vector<std::pair<std::string, std::string>>& names) {
  Json machine = smallMachine();
  machine["pci"].clear();
  machine["disks"].clear();
  for (const auto& [root, device] : names) {
    machine["pci"][root + "/01.0"] = {{"vendor", "0x1"}, {"device", device}};
    machine["disks"][root + "/01.0/n1"] = {{"serialNumber", device}};
  }
  return machine;
}

TEST(Comparison, matches_roots_whose_buses_were_renumbered) {
  const Json before = withRoots({{"0000:16", "a"}, {"0000:30", "b"}, {"0000:4a", "c"}});
  EXPECT_THAT(
      findingsFor(withRoots({{"0000:15", "a"}, {"0000:16", "b"}, {"0000:30", "c"}}), before),
      IsEmpty());
  const Json alike = withRoots({{"0000:16", "a"}, {"0000:30", "a"}});
  EXPECT_THAT(findingsFor(withRoots({{"0000:30", "a"}}), alike),
              ElementsAre("failure missing /pci/0000:16~101.0 +/disks/0000:16~101.0~1n1"))
      << "of one name first";
  EXPECT_THAT(findingsFor(withRoots({{"0000:30", "a"}, {"0000:16", "a"}, {"0000:50", "z"}}), alike),
              ElementsAre("warning added /pci/0000:50~101.0 +/disks/0000:50~101.0~1n1"));
}

TEST(Comparison, leaves_a_root_its_name_where_nothing_below_it_is_alike) {
  const Json before = withRoots({{"0000:16", "a"}, {"0000:30", "b"}});
  EXPECT_THAT(findingsFor(withRoots({{"0000:30", "b"}, {"0000:5a", "z"}}), before),
              UnorderedElementsAre("failure missing /pci/0000:16~101.0 +/disks/0000:16~101.0~1n1",
                                   "warning added /pci/0000:5a~101.0 +/disks/0000:5a~101.0~1n1"));
  EXPECT_THAT(
      findingsFor(withRoots({{"0000:16", "z"}, {"0000:30", "b"}, {"0000:4a", "a"}}), before),
      ElementsAre("warning added /pci/0000:16 (another)~101.0 "
                  "+/disks/0000:16 (another)~101.0~1n1"))
      << "but where another one has it now";
}

TEST(Comparison, follows_the_rules_it_is_given) {
  Rules rules = Rules::parse(Json::parse(R"([
      {"path": "/disks/*", "compare": "ignore"},
      {"path": "/kernel/release", "compare": "present"},
      {"path": "/memory/modules", "compare": "count", "severity": "warning"},
      {"path": "/processors/vulnerabilities", "compare": "equal", "severity": "failure"}])"),
                             "rules.json");
  rules.append(Rules::shipped());
  Json odd = smallMachine();
  odd["disks"].clear();
  odd["kernel"]["release"] = "5";
  odd["memory"]["modules"]["A1"]["bytes"] = 1;
  EXPECT_THAT(compare(smallMachine(), odd, rules).findings, IsEmpty());
  odd["processors"]["vulnerabilities"]["meltdown"] = "Vulnerable";
  odd["memory"]["modules"].erase("A2");
  odd["kernel"].erase("release");
  EXPECT_THAT(linesOf(compare(smallMachine(), odd, rules).findings),
              ElementsAre("failure degraded /processors /vulnerabilities",
                          "warning differs /kernel /release", "warning differs /memory/modules "));
}

TEST(Comparison, of_anything_ends_with_findings) {
  for (const char* const text : {"1", "[]", "{}", R"({"pci": 1, "memory": {"modules": [1]}})",
                                 R"({"disks": {"a": 1}, "pci": {"a": [], "b/c": {"link": 7}}})"}) {
    const Json other = Json::parse(text);
    EXPECT_THAT(compare(other, other, Rules::shipped()).findings, IsEmpty()) << text;
    EXPECT_NO_THROW(static_cast<void>(compare(smallMachine(), other, Rules::shipped())));
    EXPECT_NO_THROW(static_cast<void>(compare(other, smallMachine(), Rules::shipped())));
  }
}

TEST(Comparison, without_rules_tells_each_fact_that_differs) {
  Json odd = changed(smallMachine(), "/system/hostName", "node018");
  odd = changed(changed(odd, "/disks", Json::object()), "/memory/bytes", kUnknown);
  Lines paths;
  for (const Difference& difference : differencesOf(smallMachine(), odd)) {
    paths.push_back(toText(difference.path));
  }
  EXPECT_THAT(paths, ElementsAre(kDisk, "/memory/bytes", "/system/hostName"));
  EXPECT_THAT(differencesOf(smallMachine(), smallMachine()), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Inventory
