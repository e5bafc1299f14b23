// Which pairs of device and test patterns select.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "diagctl/session/Selection.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;

TEST(Selection, no_pattern_means_all) {
  EXPECT_EQ(select(oneDeviceCatalogue(), {}).size(), 2U);
}

TEST(Selection, a_device_matches_by_name_number_tag_and_last_component) {
  const DeviceItem device{.id = 12, .name = "Disk A", .tag = "pci0/disk0"};
  for (const char* pattern : {"12", "disk a", "Disk*", "pci0/disk0", "disk0", "disk[0-3]"}) {
    EXPECT_TRUE(matchesDevice(pattern, device)) << pattern;
  }
  for (const char* pattern : {"1", "Disk", "pci0", "disk1"}) {
    EXPECT_FALSE(matchesDevice(pattern, device)) << pattern;
  }
}

TEST(Selection, exclusion_wins) {
  const Catalogue catalogue = oneDeviceCatalogue();
  SelectionPatterns patterns;
  patterns.tests = {"*read"};
  patterns.excludedTests = {"Random*"};
  const auto pairs = select(catalogue, patterns);
  ASSERT_EQ(pairs.size(), 1U);
  EXPECT_EQ(pairs[0].test->id, 3);
}

TEST(Selection, patterns_without_a_match_are_named) {
  SelectionPatterns patterns;
  patterns.packages = {"storage", "memory"};
  patterns.tests = {"*read", "writing"};
  patterns.excludedDevices = {"disk0", "disk7"};
  patterns.excludedPackages = {"network"};
  std::vector<std::string> unmatched;
  for (const UnmatchedPattern& each : findUnmatched(oneDeviceCatalogue(), patterns)) {
    unmatched.push_back(toText(each));
  }
  EXPECT_THAT(unmatched, ElementsAre("package 'memory'", "package 'network'", "device 'disk7'",
                                     "test 'writing'"));
}

TEST(Selection, a_package_that_was_left_out_is_no_misspelt_one) {
  Catalogue catalogue = oneDeviceCatalogue();
  catalogue.lostPackages.push_back({"network", "no shared object"});
  SelectionPatterns patterns;
  patterns.packages = {"NETWORK", "net?ork", "netwrok"};
  const auto unmatched = findUnmatched(catalogue, patterns);
  ASSERT_EQ(unmatched.size(), 1U);
  EXPECT_EQ(unmatched[0].pattern, "netwrok");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
