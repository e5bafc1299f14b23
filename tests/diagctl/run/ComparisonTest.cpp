// On which devices a test that crashed can be repeated to compare.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagctl/run/Comparison.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Two packages of the same tests; the first one has four cores, of which 0 and 2, and 1 and 3, are
/// each one core with two threads.
class Comparison : public ::testing::Test {
 protected:
  Comparison() {
    for (int package = 1; package <= 2; ++package) {
      PackageItem item;
      item.index = package;
      item.tests = {{.id = 1, .name = "Integers", .capabilities = "quick, computing"},
                    {.id = 2, .name = "Links", .capabilities = "quick"}};
      for (unsigned int core = 0; core < 4; ++core) {
        item.devices.push_back({.id = core + 1,
                                .name = "Core " + std::to_string(core),
                                .tag = "host/cpu" + std::to_string(core)});
        item.pairs[{core + 1, 1}] = item.pairs[{core + 1, 2}] = PairState::Enabled;
      }
      m_catalogue.packages.push_back(std::move(item));
    }
  }

  void haveTwoThreadsACore() const {
    const std::string siblings[] = {"0,2", "1,3", "0,2", "1,3"};
    for (int core = 0; core < 4; ++core) {
      const std::string topology = "devices/system/cpu/cpu" + std::to_string(core) + "/topology";
      m_system.makeDirectory(topology);
      m_system.write(topology + "/thread_siblings_list", siblings[core] + "\n");
    }
  }

  SelectedPair pairOf(std::size_t core, std::size_t test = 0) const {
    const PackageItem& package = m_catalogue.packages[0];
    return {&package, &package.devices[core], &package.tests[test], PairState::Enabled};
  }

  std::vector<unsigned int> others(std::size_t core) const {
    std::vector<unsigned int> ids;
    for (const SelectedPair& pair :
         pairsToCompare(pairOf(core), select(m_catalogue, {}), m_system.path())) {
      EXPECT_EQ(pair.package, &m_catalogue.packages[0]);
      EXPECT_EQ(pair.test, &m_catalogue.packages[0].tests[0]);
      ids.push_back(pair.device->id);
    }
    return ids;
  }

  Catalogue m_catalogue;
  TestSupport::TemporaryDirectory m_system;
};

TEST_F(Comparison, is_with_the_devices_behind_and_then_with_those_before) {
  EXPECT_THAT(others(1), ElementsAre(3, 4, 1));
}

TEST_F(Comparison, is_not_with_a_device_that_the_test_cannot_run_on) {
  m_catalogue.packages[0].pairs[{3, 1}] = PairState::Disabled;
  m_catalogue.packages[0].pairs[{4, 1}] = PairState::Unsupported;
  EXPECT_THAT(others(1), ElementsAre(1));
}

TEST_F(Comparison, is_not_with_a_thread_of_the_same_core) {
  haveTwoThreadsACore();
  EXPECT_THAT(others(0), ElementsAre(2, 4));
  m_catalogue.packages[0].pairs[{2, 1}] = m_catalogue.packages[0].pairs[{4, 1}] =
      PairState::Unsupported;
  EXPECT_THAT(others(0), IsEmpty());
}

TEST_F(Comparison, is_for_tests_that_say_that_they_compute) {
  EXPECT_TRUE(isComputing(pairOf(0, 0)));
  EXPECT_FALSE(isComputing(pairOf(0, 1)));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
