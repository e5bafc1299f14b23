#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/NetworkSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class NetworkSourceTest : public ::testing::Test {
 protected:
  NetworkSourceTest() {
    m_machine.has("sys/class/net/eth0/device/uevent", "")
        .has("sys/class/net/eth0/statistics/rx_crc_errors", "5")
        .has("sys/class/net/eth0/carrier_down_count", "1")
        .has("sys/class/net/veth0/carrier_down_count", "1");
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  NetworkSource m_source{m_machine.files()};
};

TEST_F(NetworkSourceTest, tells_faults_and_lost_carriers_of_hardware_alone) {
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  m_machine.has("sys/class/net/eth0/statistics/rx_crc_errors", "7")
      .has("sys/class/net/eth0/statistics/rx_dropped", "9")
      .has("sys/class/net/eth0/carrier_down_count", "2")
      .has("sys/class/net/veth0/carrier_down_count", "2");
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("network-errors net:eth0 eth0 2", "link-lost net:eth0 eth0 1"));
  EXPECT_EQ(m_collector.findings.front().detail, "rx_crc_errors 2");
}

TEST_F(NetworkSourceTest, tells_errors_that_only_the_sum_counts_and_no_error_twice) {
  const std::string statistics = "sys/class/net/eth0/statistics/";
  m_machine.has(statistics + "rx_errors", "5").has(statistics + "tx_errors", "0");
  ASSERT_EQ(m_source.open(), std::nullopt);
  m_machine.has(statistics + "rx_errors", "9").has(statistics + "rx_crc_errors", "7");
  m_machine.has(statistics + "tx_errors", "3");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("network-errors net:eth0 eth0 7"));
  EXPECT_EQ(m_collector.findings.front().detail, "rx_crc_errors 2, rx_errors 2, tx_errors 3");
  // The sum was read before the other had grown.
  m_machine.has(statistics + "rx_crc_errors", "8");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("network-errors net:eth0 eth0 1"));
  m_machine.has(statistics + "rx_errors", "10");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(NetworkSourceTest, counts_an_interface_that_comes_back_from_nothing) {
  ASSERT_EQ(m_source.open(), std::nullopt);
  std::filesystem::rename(m_machine.path() + "/sys/class/net/eth0", m_machine.path() + "/away");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("device-vanished net:eth0 eth0 1"));
  std::filesystem::rename(m_machine.path() + "/away", m_machine.path() + "/sys/class/net/eth0");
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("network-errors net:eth0 eth0 5", "link-lost net:eth0 eth0 1"));
}

TEST_F(NetworkSourceTest, tells_an_interface_that_is_gone_once) {
  ASSERT_EQ(m_source.open(), std::nullopt);
  std::filesystem::remove_all(m_machine.path() + "/sys/class/net/eth0");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("device-vanished net:eth0 eth0 1"));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

TEST_F(NetworkSourceTest, counts_the_ports_of_infiniband) {
  const std::string port = "sys/class/infiniband/mlx5_0/ports/1/counters/";
  m_machine.has(port + "symbol_error", "0").has(port + "link_downed", "0");
  ASSERT_EQ(m_source.open(), std::nullopt);
  m_machine.has(port + "symbol_error", "3").has(port + "link_downed", "1");
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("network-errors infiniband:mlx5_0/1 mlx5_0/1 3",
                          "link-lost infiniband:mlx5_0/1 mlx5_0/1 1"));
}

TEST_F(NetworkSourceTest, says_that_there_is_no_hardware) {
  std::filesystem::remove_all(m_machine.path() + "/sys/class/net/eth0");
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no network interface")));
}

}  // namespace
}  // namespace TarvexDiags::Watching
