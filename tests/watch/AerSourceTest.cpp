#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/AerSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using Tests::FakeMachine;
using Tests::RecordingCollector;

/// Kernel files change together with what links to them.
void link(const FakeMachine& machine, const std::string& target, const std::string& place) {
  const std::filesystem::path path = std::filesystem::path(machine.path()) / place;
  std::filesystem::create_directories(path.parent_path());
  std::filesystem::create_symlink(std::filesystem::path(machine.path()) / target, path);
}

class AerSourceTest : public ::testing::Test {
 protected:
  void counters(const std::string& address, const std::string& correctable,
                const std::string& nonfatal = "Undefined 0\nTOTAL_ERR_NONFATAL 0\n",
                const std::string& fatal = "Undefined 0\nTOTAL_ERR_FATAL 0\n") {
    const std::string folder = "sys/bus/pci/devices/" + address + "/";
    m_machine.has(folder + "aer_dev_correctable", correctable)
        .has(folder + "aer_dev_nonfatal", nonfatal)
        .has(folder + "aer_dev_fatal", fatal);
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  AerSource m_source{m_machine.files()};
};

TEST_F(AerSourceTest, says_that_no_device_reports) {
  m_machine.has("sys/bus/pci/devices/0000:00:00.0/class", "0x060000");
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no PCI Express device")));
}

TEST_F(AerSourceTest, tells_what_grew_by_the_names_of_old_and_new_kernels) {
  counters("0000:01:00.0", "RxErr 1\nBadTLP 0\nTOTAL_ERR_COR 1\n");
  counters("0000:02:00.0", "Receiver Error 0\nTOTAL_ERR_COR 0\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  counters("0000:01:00.0", "RxErr 3\nBadTLP 1\nTOTAL_ERR_COR 2\n");
  counters("0000:02:00.0", "Receiver Error 4\nTOTAL_ERR_COR 4\n", "Undefined 1\n", "DLP 1\n");
  EXPECT_THAT(
      m_collector.lookAt(m_source),
      ElementsAre("pcie-correctable pci:0000:01:00.0 - 3", "pcie-correctable pci:0000:02:00.0 - 4",
                  "pcie-nonfatal pci:0000:02:00.0 - 1", "pcie-fatal pci:0000:02:00.0 - 1"));
  EXPECT_EQ(m_collector.findings.front().detail, "BadTLP 1, RxErr 2");
}

// A root port, a switch of two ports, and a device below it.
TEST_F(AerSourceTest, names_the_other_end_of_the_link) {
  const std::vector<std::string> addresses = {"0000:00:1c.0", "0000:01:00.0", "0000:02:01.0",
                                              "0000:03:00.0", "0000:00:1f.3"};
  std::string device = "sys/devices/pci0000:00";
  for (const std::string& address : addresses) {
    const bool isAlone = address == addresses.back();
    device = isAlone ? "sys/devices/pci0000:00/" + address : device + "/" + address;
    m_machine.has(device + "/aer_dev_correctable", "RxErr 0\n");
    link(m_machine, device, "sys/bus/pci/devices/" + address);
  }
  ASSERT_EQ(m_source.open(), std::nullopt);
  for (const std::string& address : addresses) {
    m_machine.has("sys/bus/pci/devices/" + address + "/aer_dev_correctable", "RxErr 1\n");
  }
  EXPECT_THAT(m_collector.lookAt(m_source),
              UnorderedElementsAre("pcie-correctable pci:0000:00:1c.0 0000:01:00.0 1",
                                   "pcie-correctable pci:0000:01:00.0 0000:00:1c.0 1",
                                   "pcie-correctable pci:0000:02:01.0 0000:03:00.0 1",
                                   "pcie-correctable pci:0000:03:00.0 0000:02:01.0 1",
                                   "pcie-correctable pci:0000:00:1f.3 - 1"));
}

TEST_F(AerSourceTest, counts_a_total_that_stands_alone_and_takes_no_malformed_row) {
  EXPECT_THAT(parseAerCounters("TOTAL_ERR_COR 3\n"), ElementsAre(Pair("TOTAL_ERR_COR", 3U)));
  EXPECT_THAT(parseAerCounters("RxErr 2\nTOTAL_ERR_COR 3\n"), ElementsAre(Pair("RxErr", 2U)));
  EXPECT_THAT(parseAerCounters("RxErr two\n 5\nlonely\n\nA -1\nB 99999999999999999999\nC 1"),
              ElementsAre(Pair("C", 1U)));
}

TEST_F(AerSourceTest, stands_a_device_that_goes_comes_back_and_begins_anew) {
  counters("0000:01:00.0", "RxErr 9\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  std::filesystem::remove_all(m_machine.path() + "/sys/bus/pci/devices/0000:01:00.0");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  counters("0000:01:00.0", "RxErr 9\n");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("pcie-correctable pci:0000:01:00.0 - 9"));
}

TEST_F(AerSourceTest, stands_a_counter_that_is_set_back) {
  counters("0000:01:00.0", "RxErr 9\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  counters("0000:01:00.0", "RxErr 2\n");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("pcie-correctable pci:0000:01:00.0 - 2"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
