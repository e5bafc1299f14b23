#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "tests/watch/Samples.h"
#include "watch/NvmeHealthSource.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

class NvmeHealthSourceTest : public ::testing::Test {
 protected:
  FakeMachine m_machine;
  RecordingCollector m_collector;
  std::optional<NvmeHealthLog> m_log = NvmeHealthLog{};
  NvmeHealthSource m_source{m_machine.files(), seconds(60),
                            [this](const std::string&) { return m_log; }};
};

TEST_F(NvmeHealthSourceTest, tells_absence_and_a_want_of_rights_apart) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("no NVMe disk")));
  m_machine.has("sys/class/nvme/nvme0/model", "X");
  m_log.reset();
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("only root")));
}

TEST_F(NvmeHealthSourceTest, tells_warnings_that_come_and_errors_of_the_medium) {
  m_machine.has("sys/class/nvme/nvme0/model", "X");
  (*m_log)[0] = 0x01;
  (*m_log)[160] = 5;
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  (*m_log)[0] = 0x05;
  (*m_log)[160] = 7;
  (*m_log)[1] = 0x3B;  // 315 K
  (*m_log)[2] = 0x01;
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("nvme-warning nvme:nvme0 nvme0 1", "disk-medium nvme:nvme0 nvme0 2"));
  EXPECT_EQ(m_collector.findings.front().detail, "reliability degraded");
  EXPECT_THAT(m_collector.samples, ElementsAre(isSample("nvme/nvme0", 42, "°C")));
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  EXPECT_EQ(m_source.interval(), seconds(60));
}

TEST_F(NvmeHealthSourceTest, stands_a_disk_that_answers_no_more) {
  m_machine.has("sys/class/nvme/nvme0/model", "X");
  ASSERT_EQ(m_source.open(), std::nullopt);
  m_log.reset();
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Watching
