#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/ThrottleSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class ThrottleSourceTest : public ::testing::Test {
 protected:
  void cpu(int number, int core, int coreCount, int packageCount) {
    const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(number) + "/";
    m_machine.has(folder + "topology/core_id", std::to_string(core))
        .has(folder + "topology/physical_package_id", "0")
        .has(folder + "thermal_throttle/core_throttle_count", std::to_string(coreCount))
        .has(folder + "thermal_throttle/package_throttle_count", std::to_string(packageCount));
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  ThrottleSource m_source{m_machine.files()};
};

TEST_F(ThrottleSourceTest, says_that_nothing_is_counted) {
  m_machine.has("sys/devices/system/cpu/cpu0/topology/core_id", "0");
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no throttling")));
}

TEST_F(ThrottleSourceTest, tells_a_core_once_for_all_of_its_threads_and_the_processor_once) {
  cpu(0, 0, 1, 5);
  cpu(1, 1, 1, 5);
  cpu(2, 0, 1, 5);
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  cpu(0, 0, 3, 6);
  cpu(1, 1, 1, 6);
  cpu(2, 0, 3, 6);
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("throttled cpu:0 processor 0 core 0 2",
                                                        "throttled processor:0 processor 0 1"));
}

TEST_F(ThrottleSourceTest, waits_for_a_core_that_is_offline) {
  cpu(0, 0, 1, 5);
  ASSERT_EQ(m_source.open(), std::nullopt);
  const std::string file = "sys/devices/system/cpu/cpu0/thermal_throttle/core_throttle_count";
  std::filesystem::remove(m_machine.path() + "/" + file);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  m_machine.has(file, "2");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("throttled cpu:0 processor 0 core 0 1"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
