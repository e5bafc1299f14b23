#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "inventory/Redaction.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

Json machine() {
  return {{"system", {{"serialNumber", "SN-4711"}, {"hostName", "node017"}, {"product", "X1"}}},
          {"disks", {{"0000:00/1c.0", {{"serialNumber", "SN-4711"}, {"bytes", 512}}}}},
          {"memory", {{"modules", {{"A1", {{"serialNumber", kUnknown}}}}}}}};
}

Json redactedWith(const std::string& key) {
  Redactor redactor(key);
  redactor.learn(machine());
  return redactor.redacted(machine());
}

TEST(Redaction, hides_what_identifies_and_leaves_the_rest) {
  const Json document = redactedWith("key");
  EXPECT_THAT(document.dump(), Not(HasSubstr("4711")));
  EXPECT_THAT(document.dump(), Not(HasSubstr("node017")));
  EXPECT_THAT(document["system"]["hostName"].get<std::string>(),
              MatchesRegex("redacted-[0-9a-f]{16}"));
  EXPECT_EQ(document["system"]["product"], "X1");
  EXPECT_EQ(document["disks"]["0000:00/1c.0"]["bytes"], 512);
  EXPECT_EQ(document["memory"]["modules"]["A1"]["serialNumber"], kUnknown);
}

TEST(Redaction, leaves_equal_what_was_equal_for_one_key_alone) {
  const Json document = redactedWith("key");
  EXPECT_EQ(document["system"]["serialNumber"], document["disks"]["0000:00/1c.0"]["serialNumber"]);
  EXPECT_EQ(document, redactedWith("key"));
  EXPECT_NE(document, redactedWith("another"));
  EXPECT_NE(Redactor::drawKey(), Redactor::drawKey());
}

// HMAC-SHA-256 of "Hi There" with twenty bytes 0x0b, the first test case of RFC 4231.
TEST(Redaction, hashes_as_published) {
  Redactor redactor(std::string(20, '\x0b'));
  redactor.learn({{"serialNumber", "Hi There"}});
  EXPECT_EQ(redactor.redactedText("Hi There"), "redacted-b0344c61d8db3853");
}

TEST(Redaction, finds_what_it_knows_within_other_texts_and_in_keys) {
  Redactor redactor("key");
  redactor.learn({{"serialNumber", "SN-47"}, {"uuid", "SN-4711"}, {"hostName", "db"}});
  const std::string text = redactor.redactedText("disk SN-4711 of SN-47: debris in db");
  EXPECT_THAT(text, MatchesRegex("disk redacted-[0-9a-f]{16} of redacted-[0-9a-f]{16}: "
                                 "debris in db"));
  EXPECT_THAT(redactor.redactedText("db"), HasSubstr("redacted-"));
  EXPECT_THAT(redactor.redacted(Json{{"SN-4711", 1}}).dump(), Not(HasSubstr("4711")));
}

}  // namespace
}  // namespace TarvexDiags::Inventory
