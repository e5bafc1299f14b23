// What a session hears of packages that look for their devices, and tells of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <map>
#include <string>

#include "diagctl/session/DiscoveryWatch.h"
#include "diagctl/session/Interruption.h"

namespace TarvexDiags::FrontEnd {
namespace {

using PackageKit::Contract::discoveryDescriptor;
using PackageKit::Contract::DiscoveryLine;
using PackageKit::Contract::sendDiscoveryLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// What a person reads while packages tell a line.
std::string toldOf(const DiscoveryLine& line) {
  DiscoveryWatch watch;
  ::testing::internal::CaptureStderr();
  watch.follow([&line] { sendDiscoveryLine(line); });
  return ::testing::internal::GetCapturedStderr();
}

TEST(DiscoveryWatch, tells_which_package_takes_long_and_how_long_it_may) {
  EXPECT_EQ(toldOf({DiscoveryLine::Kind::Slow, "storage", "20"}),
            "diagctl: package storage is still looking for its devices, for 20 s at most\n");
  EXPECT_EQ(toldOf({DiscoveryLine::Kind::Slow, "storage", "0"}),
            "diagctl: package storage is still looking for its devices\n");
}

TEST(DiscoveryWatch, keeps_why_packages_were_left_out_and_gives_it_once) {
  DiscoveryWatch watch;
  watch.follow([] {
    sendDiscoveryLine({DiscoveryLine::Kind::Failed, "storage", "no bus"});
    sendDiscoveryLine({DiscoveryLine::Kind::Failed, "network", "it crashed", "the end"});
  });
  EXPECT_THAT(watch.takeFailures(),
              ElementsAre(Pair("network",
                               "looking for its devices failed: it crashed; last output: the end"),
                          Pair("storage", "looking for its devices failed: no bus")));
  EXPECT_THAT(watch.takeFailures(), IsEmpty());
}

TEST(DiscoveryWatch, has_all_packages_end_when_the_program_is_to) {
  DiscoveryWatch watch;
  bool areAskedToEnd = false;
  watch.follow([&areAskedToEnd] {
    pollfd line{discoveryDescriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&line, 1, 0), 0) << "nobody has asked yet";
    Interruption::requests().abortAll = true;
    areAskedToEnd = poll(&line, 1, 120'000) == 1;
  });
  Interruption::requests().abortAll = false;
  EXPECT_TRUE(areAskedToEnd);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
