// What the program tells of the machine, as a document.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/diagctl/Schemas.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
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
