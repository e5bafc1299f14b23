#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "diagctl/terminal/Suggestion.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::vector<std::string> kNames = {"memory", "network", "processor", "storage"};

TEST(Suggestion, is_what_a_slip_of_the_hand_explains) {
  EXPECT_THAT(nearestTo("memry", kNames), ElementsAre("memory"));
  EXPECT_THAT(nearestTo("Netwrok", kNames), ElementsAre("network"));
  EXPECT_THAT(nearestTo("storrage", kNames), ElementsAre("storage"));
  EXPECT_THAT(nearestTo("proc", kNames), ElementsAre("processor"));
}

TEST(Suggestion, is_nothing_for_another_word) {
  EXPECT_THAT(nearestTo("planets", kNames), IsEmpty());
  EXPECT_THAT(nearestTo("", kNames), IsEmpty());
  EXPECT_THAT(nearestTo("xy", {"ab", "cd"}), IsEmpty());
  EXPECT_THAT(nearestTo(std::string(100'000, 'm'), kNames), IsEmpty());
  EXPECT_EQ(didYouMean("planets", kNames), "");
}

TEST(Suggestion, has_the_nearest_first_and_three_at_most) {
  EXPECT_THAT(nearestTo("disk1", {"disk", "disk12", "disk2", "disk3", "disk4"}), SizeIs(3));
  EXPECT_EQ(nearestTo("disk1", {"disk2", "disk12"}).front(), "disk12");
  EXPECT_THAT(nearestTo("disk1", {"disk2", "disk2"}), ElementsAre("disk2"));
}

TEST(Suggestion, ends_a_message) {
  EXPECT_EQ(didYouMean("memry", kNames), "; did you mean 'memory'?");
  EXPECT_EQ(asAlternatives({"a", "b", "c"}), "'a', 'b' or 'c'");
}

TEST(Beginnings, are_found_without_regard_to_case) {
  EXPECT_THAT(beginningWith("MEM", kNames), ElementsAre("memory"));
  EXPECT_THAT(beginningWith("", kNames), SizeIs(4));
  EXPECT_THAT(beginningWith("memory card", kNames), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
