#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/MemoryControllerSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class MemoryControllerSourceTest : public ::testing::Test {
 protected:
  void count(const std::string& file, int value) {
    m_machine.has("sys/devices/system/edac/mc/mc0/" + file, std::to_string(value) + "\n");
  }

  FakeMachine m_machine;
  RecordingCollector m_collector;
  MemoryControllerSource m_source{m_machine.files()};
};

TEST_F(MemoryControllerSourceTest, says_that_there_is_no_driver) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no driver")));
}

TEST_F(MemoryControllerSourceTest, names_the_module_by_its_label_and_tells_each_error_once) {
  count("dimm0/dimm_ce_count", 4);
  count("dimm0/dimm_ue_count", 0);
  count("dimm1/dimm_ce_count", 0);
  m_machine.has("sys/devices/system/edac/mc/mc0/dimm0/dimm_label", "DIMM_A1\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  count("dimm0/dimm_ce_count", 7);
  count("dimm1/dimm_ce_count", 1);
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("memory-corrected mc:0 DIMM_A1 3", "memory-corrected mc:0 dimm1 1"));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  count("dimm0/dimm_ue_count", 1);
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("memory-uncorrected mc:0 DIMM_A1 1"));
}

TEST_F(MemoryControllerSourceTest, counts_what_belongs_to_no_module) {
  count("dimm0/dimm_ce_count", 0);
  count("ce_noinfo_count", 0);
  ASSERT_EQ(m_source.open(), std::nullopt);
  count("ce_noinfo_count", 2);
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("memory-corrected mc:0 - 2"));
}

TEST_F(MemoryControllerSourceTest, stands_counters_that_are_set_back_or_malformed_or_gone) {
  count("dimm0/dimm_ce_count", 9);
  count("dimm0/dimm_ue_count", 0);
  ASSERT_EQ(m_source.open(), std::nullopt);
  count("dimm0/dimm_ce_count", 0);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  count("dimm0/dimm_ce_count", 2);
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("memory-corrected mc:0 dimm0 2"));
  m_machine.has("sys/devices/system/edac/mc/mc0/dimm0/dimm_ue_count", "many");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  std::filesystem::remove_all(m_machine.path() + "/sys/devices/system/edac/mc/mc0");
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  count("dimm0/dimm_ce_count", 2);
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("memory-corrected mc:0 dimm0 2"));
}

TEST_F(MemoryControllerSourceTest, names_the_rank_where_the_driver_knows_no_module) {
  count("rank3/dimm_ce_count", 0);
  m_machine.has("sys/devices/system/edac/mc/mc0/rank3/dimm_label", "CPU0 Channel 1 DIMM 1\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  count("rank3/dimm_ce_count", 1);
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("memory-corrected mc:0 CPU0 Channel 1 DIMM 1 1"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
