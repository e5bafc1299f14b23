// How a run is to be watched, by the lines of a control file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "diagctl/run/RunWatch.h"
#include "diagctl/run/WatchWishes.h"
#include "tests/support/FakeMachine.h"

namespace TarvexDiags::FrontEnd {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using Watching::Kind;
using Watching::SourceKind;

TEST(WatchWishes, are_all_sources_unless_some_or_none_are_asked_for) {
  WatchWishes wishes;
  EXPECT_THAT(wishes.settings.sources, SizeIs(Watching::allSources().size()));
  set(wishes, "Sources", "edac, kmsg");
  EXPECT_THAT(wishes.settings.sources,
              ElementsAre(SourceKind::MemoryControllers, SourceKind::KernelLog));
  set(wishes, "Sources", "off");
  EXPECT_THAT(wishes.settings.sources, IsEmpty());
  set(wishes, "Sources", "all");
  EXPECT_THAT(wishes.settings.sources, SizeIs(Watching::allSources().size()));
}

TEST(WatchWishes, are_times_with_units) {
  EXPECT_EQ(durationFrom("0"), milliseconds(0));
  EXPECT_EQ(durationFrom("250ms"), milliseconds(250));
  EXPECT_EQ(durationFrom("3"), seconds(3));
  EXPECT_EQ(durationFrom("24h"), std::chrono::hours(24));
  EXPECT_EQ(durationFrom("7d"), std::chrono::hours(168));
  for (const char* const text : {"", "s", "-1s", "1w", "1.5s", "9999999999999999999s", "400d"}) {
    EXPECT_THROW(durationFrom(text), std::invalid_argument) << text;
  }
}

TEST(WatchWishes, refuse_what_cannot_be_meant_and_stay_as_they_were) {
  WatchWishes wishes;
  EXPECT_THROW(set(wishes, "Sources", "edac,nonsense"), std::invalid_argument);
  EXPECT_THROW(set(wishes, "Sources", ","), std::invalid_argument);
  EXPECT_THROW(set(wishes, "Interval", "5ms"), std::invalid_argument);
  EXPECT_THROW(set(wishes, "CorrectedErrorInterval", "0"), std::invalid_argument);
  EXPECT_THROW(set(wishes, "Nonsense", "1"), std::invalid_argument);
  EXPECT_THAT(wishes.settings.sources, SizeIs(Watching::allSources().size()));
  EXPECT_EQ(wishes.settings.interval, seconds(1));
}

TEST(WatchWishes, reach_the_policy) {
  WatchWishes wishes;
  set(wishes, "throttled", "failure");
  EXPECT_EQ(wishes.settings.policy[Kind::Throttled].severity, Watching::Severity::Failure);
}

TEST(WatchedResources, are_what_the_last_part_of_a_tag_names_on_this_machine) {
  Tests::FakeMachine machine;
  machine.has("sys/class/block/sda/size", "1").has("sys/class/net/eth0/mtu", "1");
  machine.has("sys/devices/system/node/node1/cpu2/online", "1");
  EXPECT_THAT(resourcesOf("host/sda", machine.files()), ElementsAre("block:sda"));
  EXPECT_THAT(resourcesOf("host/eth0", machine.files()), ElementsAre("net:eth0"));
  EXPECT_THAT(resourcesOf("host/cpu3", machine.files()), ElementsAre("cpu:3"));
  EXPECT_THAT(resourcesOf("host/node1", machine.files()),
              UnorderedElementsAre("cpu:2", "memory:1"));
  EXPECT_THAT(resourcesOf("host/sdb", machine.files()), IsEmpty());
  EXPECT_THAT(resourcesOf("", machine.files()), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
