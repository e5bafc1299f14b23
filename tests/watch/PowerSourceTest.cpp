#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "tests/watch/Samples.h"
#include "watch/PowerSource.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class PowerSourceTest : public ::testing::Test {
 protected:
  FakeMachine m_machine;
  RecordingCollector m_collector;
  PowerSource m_source{m_machine.files()};
  const std::string m_zone = "sys/class/powercap/intel-rapl:0/";
};

TEST_F(PowerSourceTest, tells_absence_and_a_want_of_rights_apart) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no energy")));
  m_machine.has(m_zone + "name", "package-0");
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("only root")));
}

TEST_F(PowerSourceTest, makes_power_of_energy_also_over_the_end_of_the_counter) {
  m_machine.has(m_zone + "name", "package-0\n")
      .has(m_zone + "energy_uj", "1000000")
      .has(m_zone + "max_energy_range_uj", "100000000")
      .has(m_zone + "constraint_0_power_limit_uw", "65000000");
  ASSERT_EQ(m_source.open(), std::nullopt);
  m_collector.lookAt(m_source, Moment(seconds(1)));
  EXPECT_THAT(m_collector.samples, IsEmpty());
  m_machine.has(m_zone + "energy_uj", "41000000");
  m_collector.lookAt(m_source, Moment(seconds(3)));
  EXPECT_THAT(m_collector.samples, ElementsAre(isSample("intel-rapl:0/package-0", 20, "W", 65)));
  m_machine.has(m_zone + "energy_uj", "1000000");
  m_collector.lookAt(m_source, Moment(seconds(4)));
  EXPECT_THAT(m_collector.samples, ElementsAre(isSample("intel-rapl:0/package-0", 60, "W", 65)));
}

}  // namespace
}  // namespace TarvexDiags::Watching
