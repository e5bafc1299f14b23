#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "tests/watch/Samples.h"
#include "watch/SensorSource.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class SensorSourceTest : public ::testing::Test {
 protected:
  void file(const std::string& name, const std::string& text) {
    m_machine.has("sys/class/hwmon/hwmon0/" + name, text + "\n");
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  std::chrono::steady_clock::time_point m_time;
  std::chrono::steady_clock::duration m_step{0};
  SensorSource m_source{m_machine.files(), [this] { return m_time += m_step; }};
};

TEST_F(SensorSourceTest, says_that_there_is_none) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no sensor")));
}

TEST_F(SensorSourceTest, tells_values_in_the_units_of_people_and_their_limits) {
  file("name", "coretemp");
  file("temp1_input", "45500");
  file("temp1_label", "Package id 0");
  file("temp1_max", "80000");
  file("temp1_crit", "100000");
  file("temp2_input", "-5000");
  file("fan1_input", "1200");
  file("in0_input", "12040");
  file("power1_average", "35000000");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  EXPECT_THAT(m_collector.samples, ElementsAre(isSample("coretemp/fan1", 1200, "RPM"),
                                               isSample("coretemp/in0", 12.04, "V"),
                                               isSample("coretemp/power1", 35, "W"),
                                               isSample("coretemp/Package id 0", 45.5, "°C", 100),
                                               isSample("coretemp/temp2", -5, "°C")));
}

TEST_F(SensorSourceTest, tells_once_that_a_temperature_is_critical_and_again_when_it_comes_back) {
  file("name", "coretemp");
  file("temp1_input", "45000");
  file("temp1_crit", "100000");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  file("temp1_input", "100000");
  const std::string finding = "temperature-critical sensor:coretemp/temp1 coretemp/temp1 1";
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre(finding));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  file("temp1_input", "90000");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  file("temp1_input", "101000");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre(finding));
}

TEST_F(SensorSourceTest, tells_alarms_that_come_and_none_that_was_there_before) {
  file("name", "board");
  file("fan1_input", "1200");
  file("fan1_fault", "0");
  file("in0_input", "900");
  file("in0_alarm", "1");
  file("temp1_input", "40000");
  file("temp1_crit_alarm", "0");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  file("fan1_fault", "1");
  file("temp1_crit_alarm", "1");
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("fan-failed sensor:board/fan1 board/fan1 1",
                          "temperature-critical sensor:board/temp1 board/temp1 1"));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(SensorSourceTest, asks_a_slow_sensor_every_thirty_seconds_alone) {
  file("name", "bmc");
  file("temp1_input", "40000");
  ASSERT_EQ(m_source.open(), std::nullopt);
  m_step = std::chrono::milliseconds(25);
  m_collector.lookAt(m_source);
  EXPECT_EQ(m_collector.samples.size(), 1U);
  m_time += seconds(29);
  m_collector.lookAt(m_source);
  EXPECT_THAT(m_collector.samples, IsEmpty());
  m_time += seconds(1);
  m_collector.lookAt(m_source);
  EXPECT_EQ(m_collector.samples.size(), 1U);
}

TEST_F(SensorSourceTest, stands_values_that_are_malformed_or_gone) {
  file("name", "board");
  file("temp1_input", "warm");
  file("temp2_input", "40000");
  file("tempx_input", "1");
  file("temp_input", "1");
  file("temp3_crit", "1");
  ASSERT_EQ(m_source.open(), std::nullopt);
  std::filesystem::remove(m_machine.path() + "/sys/class/hwmon/hwmon0/temp2_input");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  EXPECT_THAT(m_collector.samples, IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Watching
