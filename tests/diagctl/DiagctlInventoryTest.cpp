// What the program tells of the machine, as a document.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/diagctl/Schemas.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Json = nlohmann::json;
namespace fs = std::filesystem;

class DiagctlInventory : public Diagctl {
 protected:
  DiagctlInventory() {
    record("sys/class/dmi/id/product_name", "Box \x1b[31m");
    record("sys/class/dmi/id/product_serial", "SN-4711");
    record("proc/sys/kernel/hostname", "node017");
  }

  void record(const std::string& path, const std::string& text) {
    fs::create_directories((m_root / path).parent_path());
    std::ofstream(m_root / path) << text << "\n";
  }

  Json inventory(std::vector<std::string> words = {}) {
    words.insert(words.begin(), {"inventory", "--root", m_root.string()});
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
    return Json::parse(outcome.out, nullptr, false);
  }

  const fs::path m_root = place.path("recorded");
};

TEST_F(DiagctlInventory, waits_for_nobody_who_might_write_to_a_pipe) {
  const std::string pipe = place.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"inventory", "check", "--against", pipe},
        {"inventory", "check", "--against", pipe, "--rules", pipe},
        {"inventory", "diff", pipe, pipe},
        {"inventory", "--redact-key", pipe}}) {
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitCode, kNoVerdict) << words.back();
    EXPECT_THAT(outcome.err, HasSubstr(pipe)) << outcome.err;
  }
}

TEST_F(DiagctlInventory, of_this_machine_keeps_to_its_schema_and_stays) {
  const Outcome outcome = run({"inventory"});
  EXPECT_EQ(outcome.exitCode, kPassed);
  const Json document = Json::parse(outcome.out);
  EXPECT_THAT(faultsBySchema(document, "inventory"), IsEmpty()) << outcome.out;
  EXPECT_GE(document["processors"]["threads"], 1);
  EXPECT_EQ(run({"inventory"}).out, outcome.out);
}

TEST_F(DiagctlInventory, of_a_recorded_machine_steers_no_terminal) {
  EXPECT_EQ(inventory()["system"]["product"], "Box ?[31m");
  EXPECT_EQ(inventory()["system"]["serialNumber"], "SN-4711");
}

TEST_F(DiagctlInventory, goes_into_a_file) {
  const std::string file = place.path("machine.json");
  const Outcome outcome = run({"inventory", "--root", m_root.string(), "-o", file});
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_EQ(Json::parse(contentsOf(file)), inventory());
  const Outcome failed = run({"inventory", "-o", place.path("no/such/machine.json")});
  EXPECT_EQ(failed.exitCode, kNoVerdict);
  EXPECT_THAT(failed.err, HasSubstr("/no/such/machine.json: No such file or directory"));
}

TEST_F(DiagctlInventory, hides_what_identifies_the_machine) {
  const std::string key = place.path("fleet.key");
  std::ofstream(key) << "a key of the fleet";
  const Json one = inventory({"--redact-key", key});
  EXPECT_THAT(one.dump(), AllOf(Not(HasSubstr("4711")), Not(HasSubstr("node017"))));
  EXPECT_EQ(one, inventory({"--redact-key", key}));
  EXPECT_THAT(inventory({"--redact"}).dump(), Not(HasSubstr("4711")));
  EXPECT_NE(inventory({"--redact"}), inventory({"--redact"})) << "another key each time";
  std::ofstream(key, std::ios::trunc).close();
  for (const std::string& wrong : {key, place.path("nosuch")}) {
    const Outcome outcome = run({"inventory", "--redact-key", wrong});
    EXPECT_EQ(outcome.exitCode, kNoVerdict);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr(wrong));
  }
}

/// Inventories of four machines that differ in what their rules are to say.
class DiagctlGolden : public DiagctlInventory {
 protected:
  std::string golden() {
    std::vector<std::string> words = {"inventory", "golden", "-o", place.path("golden.json")};
    for (const std::string machine : {"n1", "n2", "n3", "n4"}) {
      record("sys/class/dmi/id/bios_version", "of " + machine);
      words.push_back(place.path(machine + ".json"));
      place.write(words.back(), inventory().dump());
    }
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
    return place.path("golden.json");
  }
};

TEST_F(DiagctlGolden, keeps_to_its_schema_with_the_facts_of_an_inventory) {
  const Json document = Json::parse(contentsOf(golden()));
  EXPECT_THAT(faultsBySchema(document, "golden"), IsEmpty());
  EXPECT_THAT(document["rules"], SizeIs(1)) << "the version of the firmware";
  EXPECT_THAT(faultsBySchema(document["inventory"], "inventory"), Each(HasSubstr(" lacks ")));
}

TEST(DiagctlRules, that_come_along_keep_to_their_schema) {
  const std::string file = TestSupport::sourcePath("inventory/data/rules.json");
  EXPECT_THAT(faultsBySchema(Json::parse(contentsOf(file)), "rules"), IsEmpty());
}

TEST_F(DiagctlGolden, takes_the_rules_that_the_schema_allows_and_no_others) {
  const std::string against = golden();
  const std::string file = place.path("rules.json");
  for (const auto& [isAllowed, rules] : std::vector<std::pair<bool, std::string>>{
           {true, R"([])"},
           {true, R"([{"path": "/a~1b/**", "compare": "set", "note": "n", "follows": "/c"}])"},
           {true, R"([{"path": "/a", "compare": "tolerance", "percent": 0.5}])"},
           {true, R"([{"path": "/a", "compare": "equal", "severity": "information"}])"},
           {false, R"({})"},
           {false, R"([1])"},
           {false, R"([{"path": "/a"}])"},
           {false, R"([{"compare": "equal"}])"},
           {false, R"([{"path": "a", "compare": "equal"}])"},
           {false, R"([{"path": "/a~2", "compare": "equal"}])"},
           {false, R"([{"path": "/a", "compare": "alike"}])"},
           {false, R"([{"path": "/a", "compare": "equal", "severity": "grave"}])"},
           {false, R"([{"path": "/a", "compare": "equal", "colour": "red"}])"},
           {false, R"([{"path": "/a", "compare": "equal", "percent": 1}])"},
           {false, R"([{"path": "/a", "compare": "equal", "follows": "b"}])"},
           {false, R"([{"path": "/a", "compare": "equal", "note": 1}])"},
           {false, R"([{"path": "/a", "compare": "tolerance"}])"},
           {false, R"([{"path": "/a", "compare": "tolerance", "percent": 101}])"},
           {false, R"([{"path": "/a", "compare": "tolerance", "percent": -1}])"},
           {false, R"([{"path": "/a", "compare": "tolerance", "percent": "1"}])"},
           {false, R"([{"path": "/a", "compare": "ignore", "severity": "failure"}])"}}) {
    place.write(file, rules);
    EXPECT_EQ(faultsBySchema(Json::parse(rules), "rules").empty(), isAllowed) << rules;
    const Outcome outcome = run(
        {"inventory", "check", "--root", m_root.string(), "--against", against, "--rules", file});
    EXPECT_EQ(outcome.err.find(file) == std::string::npos, isAllowed) << rules << outcome.err;
    EXPECT_EQ(outcome.exitCode == kPassed, isAllowed) << rules;
  }
}

TEST_F(DiagctlInventory, is_refused_of_a_folder_that_is_none) {
  fs::create_directories(m_root / "empty");
  const std::string file = (m_root / "proc/sys/kernel/hostname").string();
  const std::string empty = (m_root / "empty").string();
  for (const auto& [root, reason] :
       {std::pair<std::string, std::string>("/no/such", "/no/such: No such file or directory"),
        {file, file + ": Not a directory"},
        {empty, empty + "/sys: No such file or directory"}}) {
    const Outcome outcome = run({"inventory", "--root", root});
    EXPECT_EQ(outcome.exitCode, kNoVerdict);
    EXPECT_THAT(outcome.err, HasSubstr(reason));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
