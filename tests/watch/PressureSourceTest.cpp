#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "tests/watch/Samples.h"
#include "watch/PressureSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

TEST(PressureSourceTest, reads_the_share_of_the_last_ten_seconds) {
  FakeMachine machine;
  PressureSource source(machine.files());
  EXPECT_THAT(source.open(), Optional(HasSubstr("pressure")));
  machine.has("proc/pressure/cpu", "some avg10=12.34 avg60=1.00 avg300=0.10 total=5\n")
      .has("proc/pressure/io", "some avg10=x");
  ASSERT_EQ(source.open(), std::nullopt);
  RecordingCollector collector;
  EXPECT_THAT(collector.lookAt(source), IsEmpty());
  EXPECT_THAT(collector.samples, ElementsAre(isSample("pressure/cpu", 12.34, "%")));
}

}  // namespace
}  // namespace TarvexDiags::Watching
