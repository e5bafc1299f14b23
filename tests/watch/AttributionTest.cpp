#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "watch/Attribution.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Tests::FakeMachine;

Moment at(int second) {
  return Moment(seconds(second));
}

class AttributionTest : public ::testing::Test {
 protected:
  AttributionTest() {
    place("sys/devices/pci0000:00/0000:00:1c.0/0000:01:00.0/nvme/nvme0/nvme0n1",
          {"sys/block/nvme0n1", "sys/class/block/nvme0n1"});
    place("sys/devices/pci0000:00/0000:00:1c.0/0000:02:00.0/net/eth0", {"sys/class/net/eth0"});
    place("sys/devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/block/sda",
          {"sys/block/sda", "sys/class/block/sda"});
    m_machine.has("sys/devices/system/cpu/cpu3/topology/physical_package_id", "1")
        .has("sys/devices/system/edac/mc/mc1/ce_count", "0");
  }

  void place(const std::string& device, std::initializer_list<const char*> links) {
    m_machine.has(device + "/uevent", "");
    for (const char* const link : links) {
      const std::filesystem::path path = std::filesystem::path(m_machine.path()) / link;
      std::filesystem::create_directories(path.parent_path());
      std::filesystem::create_directory_symlink(m_machine.path() + "/" + device, path);
    }
  }
  static Finding about(const std::string& device, int second) {
    Finding finding;
    finding.time = at(second);
    finding.device = device;
    return finding;
  }

  FakeMachine m_machine;
  Attribution m_attribution{Topology(m_machine.files()), seconds(3)};
};

TEST_F(AttributionTest, knows_what_a_device_hangs_on) {
  const Topology topology(m_machine.files());
  EXPECT_THAT(
      topology.lineage("block:nvme0n1"),
      UnorderedElementsAre("block:nvme0n1", "nvme:nvme0", "pci:0000:01:00.0", "pci:0000:00:1c.0"));
  EXPECT_THAT(topology.lineage("block:sda"),
              UnorderedElementsAre("block:sda", "ata:ata3", "pci:0000:00:1f.2"));
  EXPECT_THAT(topology.lineage("cpu:3"), UnorderedElementsAre("cpu:3", "processor:1"));
  EXPECT_THAT(topology.lineage("memory:0"), UnorderedElementsAre("memory:0", "memory", "mc:1"));
  EXPECT_THAT(topology.lineage("anything"), UnorderedElementsAre("anything"));
}

TEST_F(AttributionTest, gives_a_finding_to_the_test_on_the_device_or_on_what_hangs_on_it) {
  m_attribution.begin("scan", {"block:nvme0n1"}, at(10));
  m_attribution.begin("stream", {"net:eth0"}, at(10));
  EXPECT_THAT(m_attribution.testsOf(about("block:nvme0n1", 11)), ElementsAre("scan"));
  EXPECT_THAT(m_attribution.testsOf(about("pci:0000:01:00.0", 11)), ElementsAre("scan"));
  EXPECT_THAT(m_attribution.testsOf(about("pci:0000:00:1c.0", 11)), ElementsAre("scan", "stream"));
  EXPECT_THAT(m_attribution.testsOf(about("block:sda", 11)), IsEmpty());
  EXPECT_THAT(m_attribution.testsOf(about("machine", 11)), IsEmpty());
}

TEST_F(AttributionTest, ends_a_while_after_the_test) {
  m_attribution.begin("scan", {"block:sda"}, at(10));
  m_attribution.end("scan", at(20));
  EXPECT_THAT(m_attribution.testsOf(about("block:sda", 9)), IsEmpty());
  EXPECT_THAT(m_attribution.testsOf(about("block:sda", 10)), ElementsAre("scan"));
  EXPECT_THAT(m_attribution.testsOf(about("block:sda", 23)), ElementsAre("scan"));
  EXPECT_THAT(m_attribution.testsOf(about("block:sda", 24)), IsEmpty());
}

TEST_F(AttributionTest, blames_no_test_before_for_what_the_kernel_tells_of_a_disk_at_once) {
  m_attribution.begin("scan", {"block:nvme0n1"}, at(10));
  m_attribution.end("scan", at(20));
  m_attribution.begin("stability", {"block:nvme0n1"}, at(21));
  EXPECT_THAT(m_attribution.testsOf(about("block:nvme0n1", 22)), ElementsAre("stability"));
  EXPECT_THAT(m_attribution.testsOf(about("nvme:nvme0", 22)), ElementsAre("scan", "stability"));
}

TEST_F(AttributionTest, still_knows_the_place_of_a_device_that_has_vanished) {
  m_attribution.begin("scan", {"block:nvme0n1"}, at(10));
  std::filesystem::remove(m_machine.path() + "/sys/block/nvme0n1");
  std::filesystem::remove(m_machine.path() + "/sys/class/block/nvme0n1");
  EXPECT_THAT(m_attribution.testsOf(about("pci:0000:01:00.0", 11)), ElementsAre("scan"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
