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

TEST(Redaction, finds_what_it_knows_within_other_texts_where_it_is_a_word) {
  Redactor redactor("key");
  redactor.learn({{"serialNumber", "SN-47"}, {"uuid", "SN-4711"}, {"hostName", "db"}});
  const std::string text = redactor.redactedText("disk SN-4711 of SN-47, not SN-471: debris");
  EXPECT_THAT(text, MatchesRegex("disk redacted-[0-9a-f]{16} of redacted-[0-9a-f]{16}, "
                                 "not SN-471: debris"));
  EXPECT_EQ(redactor.redactedText("db"), "db") << "too short to mean the host";
  EXPECT_THAT(redactor.redacted({{"hostName", "db"}}).dump(), HasSubstr("redacted-"));
}

TEST(Redaction, leaves_the_keys_of_a_document_of_a_host_that_is_called_like_one) {
  for (const char* const name : {"node", "memory", "system", "disks", "serialNumber", "pci"}) {
    const Json document = {
        {"system", {{"hostName", name}, {"serialNumber", "SN-4711"}}},
        {"memory", {{"nodes", {{"0", {{"bytes", 1}}}}}}},
        {"disks", {{"0000:00/1c.0", {{"model", std::string("A ") + name + "d"}}}}},
        {"pci", {{"0000:00/1c.0", {{"node", 0}}}}}};
    Redactor redactor("key");
    redactor.learn(document);
    const Json redacted = redactor.redacted(document);
    EXPECT_EQ(redacted["memory"], document["memory"]) << name;
    EXPECT_EQ(redacted["disks"], document["disks"]) << name;
    EXPECT_EQ(redacted["pci"], document["pci"]) << name;
    EXPECT_THAT(redacted["system"]["hostName"].get<std::string>(), HasSubstr("redacted-")) << name;
  }
}

TEST(Redaction, replaces_nothing_within_a_hash_that_is_made) {
  Redactor redactor("key");
  redactor.learn({{"hostName", "redacted"}, {"serialNumber", "SN-4711"}});
  const std::string hash = redactor.redactedText("SN-4711");
  EXPECT_THAT(redactor.redactedText("of SN-4711."), "of " + hash + ".");
  Redactor second("key");
  second.learn({{"hostName", "redacted"}, {"serialNumber", hash}, {"uuid", hash.substr(9)}});
  EXPECT_EQ(second.redactedText("of " + hash), "of " + hash);
  EXPECT_EQ(second.redacted({{"serialNumber", hash}})["serialNumber"], hash);
}

TEST(Redaction, hides_addresses_in_the_names_of_interfaces_and_adapters) {
  const Json document = {
      {"interfaces",
       {{"enx0a1b2c3d4e5f", {{"name", "enx0a1b2c3d4e5f"}, {"macAddress", "0a:1b:2c:3d:4e:5f"}}},
        {"0000:00/14.0/port0", {{"name", "wlx0a1b2c3d4e60"}}}}},
      {"infiniband",
       {{"ibx0c42a103006fd2e8", {{"nodeGuid", "0c42:a103:006f:d2e8"}}},
        {"0000:00/15.0", {{"name", "lan-0c42a103006fd2e8"}}}}}};
  Redactor redactor("key");
  redactor.learn(document);
  const Json redacted = redactor.redacted(document);
  for (const char* const digits : {"0a1b2c", "0c42a1"}) {
    EXPECT_THAT(redacted.dump(), Not(HasSubstr(digits)));
  }
  const std::string mac = redactor.redactedText("0a:1b:2c:3d:4e:5f");
  EXPECT_EQ(redacted["interfaces"]["enx" + mac]["name"], "enx" + mac) << "equality stays visible";
  EXPECT_EQ(redacted["interfaces"]["enx" + mac]["macAddress"], mac);
  const std::string guid = redactor.redactedText("0c42:a103:006f:d2e8");
  EXPECT_EQ(redacted["infiniband"]["ibx" + guid]["nodeGuid"], guid);
  EXPECT_EQ(redacted["infiniband"]["0000:00/15.0"]["name"], "lan-" + guid);
  EXPECT_EQ(redactor.redactedText("ext4 on hexdeadbeefcafe01"), "ext4 on hexdeadbeefcafe01");
}

TEST(Redaction, takes_no_filling_for_a_part) {
  const Json document = {{"serialNumber", "0000"}, {"slot", "0000:00/1c.0"}};
  Redactor redactor("key");
  redactor.learn(document);
  EXPECT_EQ(redactor.redacted(document)["slot"], "0000:00/1c.0");
}

}  // namespace
}  // namespace TarvexDiags::Inventory
