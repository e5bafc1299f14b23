#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "diagctl/session/Explanation.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::vector<std::string> found(const std::string& asked) {
  std::vector<std::string> names;
  for (const Explanation& each : explanationsOf(asked, {}, "en")) {
    names.push_back(each.family + ":" + each.name);
  }
  return names;
}

TEST(Explanation, of_a_word_is_found_whatever_its_case) {
  EXPECT_THAT(found("failed"), ElementsAre("word:FAILED", "word:failed"));
  EXPECT_THAT(found("Device-Missing"), ElementsAre("word:device-missing"));
}

TEST(Explanation, of_a_code_is_found_by_name_symptom_and_wildcard) {
  for (const char* asked : {"LOAD_LIBRARY_FAILED", "load-library-failed", "load_lib*_failed"}) {
    EXPECT_THAT(found(asked), ElementsAre("controller:LOAD_LIBRARY_FAILED")) << asked;
  }
}

TEST(Explanation, of_a_number_is_told_for_each_family_unless_one_is_named) {
  EXPECT_THAT(found("exit:2"), ElementsAre("exit:exit status 2"));
  EXPECT_THAT(found("exit:143"), ElementsAre("exit:exit status 143"));
  const auto all = found("2");
  EXPECT_EQ(std::count(all.begin(), all.end(), "exit:exit status 2"), 1);
  EXPECT_GT(all.size(), 1U);
  EXPECT_THAT(found("controller:2"), SizeIs(all.size() - 1));
}

TEST(Explanation, of_what_nobody_knows_is_none) {
  for (const char* asked : {"", ":", "exit:", "nonsense", "memory:3", "99999999999999999999"}) {
    EXPECT_THAT(found(asked), IsEmpty()) << asked;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
