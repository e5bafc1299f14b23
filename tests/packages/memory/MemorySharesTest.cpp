// What share of the bits that flip once, at any time of a test, the test finds: counted in a
// simulated memory, and held against what its description says in every language. Stuck bits are
// all found.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <regex>
#include <string>

#include "packagekit/Settings.h"
#include "packagekit/contract/Texts.h"
#include "tests/packages/memory/SimulatedMemory.h"

namespace TarvexDiags::Memory {
namespace {

/// The form of a standard run, without the times in which nothing is touched.
TestOptions standardOptions() {
  TestOptions options;
  options.seed = 42;
  return options;
}

const std::map<int, SimulatedMemory::Share>& shares() {
  static const std::map<int, SimulatedMemory::Share> kAll = [] {
    std::map<int, SimulatedMemory::Share> shares;
    SimulatedMemory memory;
    for (const MemoryTest& test : memoryTests()) {
      shares[test.number] = memory.shareOf(test, standardOptions());
    }
    return shares;
  }();
  return kAll;
}

std::string withOneDigit(double percent) {
  char text[16];
  std::snprintf(text, sizeof text, "%.1f", percent);
  return text;
}

/// The first share that a text tells, with a point; empty when it tells none.
std::string toldIn(const std::string& text) {
  std::smatch match;
  return std::regex_search(text, match, std::regex("([0-9]+)[.,]([0-9]) %"))
             ? match[1].str() + "." + match[2].str()
             : "";
}

class MemorySharesTest : public ::testing::TestWithParam<int> {};

TEST_P(MemorySharesTest, share_of_single_flips_is_the_one_that_the_description_tells) {
  const std::string measured = withOneDigit(shares().at(GetParam()).percent());
  const std::string number = std::to_string(GetParam());
  const std::string directory = TARVEX_PACKAGE_DIR;
  const PackageKit::Settings settings(directory + "/memory.cfg");
  EXPECT_EQ(toldIn(settings.read("TestID" + number, "TestDescription").value_or("")), measured);
  for (const std::string language : PackageKit::Contract::kLanguages) {
    const PackageKit::Settings texts(directory + "/" + language + "/memory.cfg");
    EXPECT_EQ(toldIn(texts.read(language, "TEST" + number + "_DESCRIPTION").value_or("")), measured)
        << language;
  }
}

TEST_P(MemorySharesTest, no_stuck_bit_escapes_even_a_quick_test) {
  SimulatedMemory memory;
  for (int bit = 0; bit < 64; ++bit) {
    for (const bool one : {false, true}) {
      EXPECT_EQ(memory.cellsFoundStuck(memoryTest(GetParam()), quickOptions(), bit, one),
                SimulatedMemory::kCells)
          << "bit " << bit << " stuck at " << one;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllTests, MemorySharesTest, ::testing::ValuesIn(testNumbers()));

TEST(MemorySharesOfARunTest, all_tests_together_find_nineteen_of_twenty_flips) {
  SimulatedMemory::Share together;
  for (const auto& [number, share] : shares()) {
    together.found += share.found;
    together.flips += share.flips;
  }
  EXPECT_GE(together.percent(), 95.0);
}

}  // namespace
}  // namespace TarvexDiags::Memory
