// Paths with wildcards, rules that anybody may have written, and documents that anybody sends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>

#include "inventory/Document.h"
#include "inventory/Rules.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::HasSubstr;

TEST(FactPath, is_a_json_pointer) {
  EXPECT_EQ(patternOf("/disks/0000:16~102.0~1n1/firm~0ware"),
            FactPath({"disks", "0000:16/02.0/n1", "firm~ware"}));
  EXPECT_EQ(toText({"disks", "0000:16/02.0/n1", "firm~ware"}),
            "/disks/0000:16~102.0~1n1/firm~0ware");
  for (const char* const wrong : {"", "disks", "/a~2", "/a~", "/**/a/**"}) {
    EXPECT_THROW(patternOf(wrong), std::invalid_argument) << wrong;
  }
}

TEST(FactPath, is_meant_by_patterns_with_wildcards) {
  const FactPath path = {"pci", "0000:16/02.0", "link", "device", "width"};
  for (const char* const pattern :
       {"/pci/*/link/*/width", "/**/width", "/pci/**", "/**", "/pci/**/width", "/pci/*:16*02.*/**",
        "/*/*/*/*/*", "/**/pci/*/link/device/width", "/pci/***/link/device/w*d*h"}) {
    EXPECT_TRUE(matches(patternOf(pattern), path)) << pattern;
  }
  for (const char* const pattern :
       {"/pci/*/link/width", "/pci/*", "/**/speed", "/*/*/*/*", "/pci/*/link/device/width/**/x",
        "/pci/*/link/device/wid", "/PCI/**", "/pci/*16/link/device/width"}) {
    EXPECT_FALSE(matches(patternOf(pattern), path)) << pattern;
  }
}

TEST(Rules, give_the_first_that_means_a_fact) {
  const Rules rules =
      Rules::parse(Json::parse(R"([{"path": "/a/b", "compare": "atLeast", "severity": "failure"},
                      {"path": "/a/*", "compare": "tolerance", "percent": 2.5, "note": "why"},
                      {"path": "/**", "compare": "ignore", "follows": "/a"}])"),
                   "rules.json");
  EXPECT_EQ(rules.find({"a", "b"})->compare, Compare::AtLeast);
  EXPECT_EQ(rules.find({"a", "b"})->severity, Gravity::Failure);
  EXPECT_EQ(rules.find({"a", "c"})->percent, 2.5);
  EXPECT_EQ(rules.find({"a", "c"})->severity, Gravity::Warning);
  EXPECT_EQ(rules.find({"x"})->compare, Compare::Ignore);
  EXPECT_EQ(Rules().find({"x"}), nullptr);
}

TEST(Rules, come_first_whether_they_have_a_wildcard_or_not) {
  Rules rules = Rules::parse(Json::parse(R"([{"path": "/a/b", "compare": "set"},
                                             {"path": "/a/*", "compare": "count"},
                                             {"path": "/a/b", "compare": "ignore"},
                                             {"path": "/a/c", "compare": "ignore"}])"),
                             "rules.json");
  rules.append(Rules({{.pattern = {"d"}, .compare = Compare::Present, .follows = {}, .note = ""},
                      {.pattern = {"*"}, .compare = Compare::AtLeast, .follows = {}, .note = ""},
                      {.pattern = {"e"}, .compare = Compare::Present, .follows = {}, .note = ""}}));
  EXPECT_EQ(rules.find({"a", "b"})->compare, Compare::Set);
  EXPECT_EQ(rules.find({"a", "c"})->compare, Compare::Count);
  EXPECT_EQ(rules.find({"d"})->compare, Compare::Present);
  EXPECT_EQ(rules.find({"e"})->compare, Compare::AtLeast);
  EXPECT_EQ(rules.find({"d", "e"}), nullptr);
}

TEST(Rules, that_come_along_are_read_as_they_are_written) {
  EXPECT_EQ(Rules::parse(Rules::shipped().asJson(), "again").asJson(), Rules::shipped().asJson());
  EXPECT_EQ(Rules::shipped().find({"system", "board", "serialNumber"})->compare, Compare::Ignore);
  EXPECT_EQ(Rules::shipped().find({"disks", "a", "serialNumber"})->severity, Gravity::Information);
}

TEST(Rules, that_are_wrong_are_told_with_file_place_and_reason) {
  struct Wrong {
    const char* rules;
    const char* told;
  };
  const std::string good = R"("path": "/a", "compare": "equal")";
  for (const Wrong& wrong : {
           Wrong{"{}", "rules.json: rules are a list"},
           {"[1]", "rules.json: /0: a rule is an object"},
           {R"([{"compare": "equal"}])", "rules.json: /0/path: is missing"},
           {R"([{"path": "a", "compare": "equal"}])", "/0/path: a path begins with a slash"},
           {R"([{"path": "/a"}])", "/0/compare: is missing"},
           {R"([{"path": "/a", "compare": "same"}])",
            R"(/0/compare: "same" is none of equal, atLeast, present, set, count, tolerance, )"},
           {R"([{"path": "/a", "compare": 1}])", "/0/compare: is no text"},
           {R"([{"path": "/a", "compare": "tolerance"}])", "/0/percent: stands with \"tolerance\""},
           {R"([{"path": "/a", "compare": "equal", "percent": 1}])", "/0/percent: stands with"},
           {R"([{"path": "/a", "compare": "tolerance", "percent": 101}])",
            "/0/percent: is no number from 0 to 100"},
           {R"([{"path": "/a", "compare": "equal", "severity": "bad"}])",
            R"(/0/severity: "bad" is none of failure, warning, information)"},
           {R"([{"path": "/a", "compare": "ignore", "severity": "failure"}])", "/0/severity: what"},
           {R"([{"path": "/a", "compare": "equal"}, {"path": "/a", "compare": "equal", "sev": 1}])",
            "/1/sev: is no key of a rule"},
       }) {
    try {
      Rules::parse(parseDocument(wrong.rules, "rules.json"), "rules.json");
      ADD_FAILURE() << wrong.rules;
    } catch (const DocumentFault& fault) {
      EXPECT_THAT(fault.what(), HasSubstr(wrong.told)) << wrong.rules;
    }
  }
  const Json many(10'001, Json::parse("{" + good + "}"));
  EXPECT_THROW(Rules::parse(many, "rules.json"), DocumentFault);
}

std::string faultOf(const std::string& text) {
  try {
    parseDocument(text, "a.json");
  } catch (const DocumentFault& fault) {
    return fault.what();
  }
  return "";
}

TEST(Document, is_refused_with_the_line_of_what_is_wrong) {
  EXPECT_EQ(faultOf("{\"a\": 1}"), "");
  EXPECT_EQ(faultOf("{\"a\": 1,\n\"b\": }"), "a.json: line 2: is no JSON");
  EXPECT_EQ(faultOf(""), "a.json: line 1: is no JSON");
  EXPECT_EQ(faultOf("{\"a\": \"\xff\"}"), "a.json: line 1: is no JSON");
  EXPECT_EQ(faultOf("{\"a\": 1, \"a\": 2}"), "a.json: key \"a\" stands twice");
  EXPECT_EQ(faultOf("[1e999]"), "a.json: has a number that is too large");
}

TEST(Document, is_bounded_in_depth_and_size) {
  const auto nested = [](std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
  };
  EXPECT_EQ(faultOf(nested(32)), "");
  EXPECT_EQ(faultOf(nested(34)), "a.json: it is more than 32 levels deep");
  EXPECT_EQ(faultOf(std::string(1'000'000, '[')), "a.json: it is more than 32 levels deep");
  EXPECT_EQ(faultOf(std::string((16U << 20U) + 1, ' ')), "a.json: it is larger than 16 MiB");
  EXPECT_THROW(readDocument("/dev/zero"), DocumentFault);
}

TEST(Document, that_cannot_be_read_is_told_with_its_reason) {
  for (const auto& [file, error] : {std::pair("/no/such.json", ENOENT), std::pair("/", EISDIR)}) {
    try {
      readDocument(file);
      ADD_FAILURE() << file;
    } catch (const std::system_error& fault) {
      EXPECT_EQ(fault.code().value(), error) << file;
      EXPECT_THAT(fault.what(), HasSubstr(file));
    }
  }
}

}  // namespace
}  // namespace TarvexDiags::Inventory
