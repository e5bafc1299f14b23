// What most machines of a kind are, and which of them are odd.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "inventory/Document.h"
#include "inventory/Golden.h"
#include "tests/inventory/Documents.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Machines of one kind, each with serial numbers of its own.
std::vector<NamedInventory> fleet(std::size_t count) {
  std::vector<NamedInventory> machines;
  for (std::size_t number = 0; number < count; ++number) {
    Json machine = smallMachine();
    const std::string serial = std::to_string(number);
    machine["system"]["hostName"] = "node" + serial;
    machine["disks"]["0000:16/02.0/00.0/n1"]["serialNumber"] = "D" + serial;
    machine["memory"]["bytes"] = 2000 + number;
    machines.push_back({"node" + serial + ".json", machine});
  }
  return machines;
}

TEST(Golden, is_what_most_machines_are) {
  std::vector<NamedInventory> machines = fleet(8);
  machines[2].inventory["disks"]["0000:16/02.0/00.0/n1"]["firmware"] = "F0";
  machines[2].inventory["memory"]["modules"]["A2"] = {{"populated", false}};
  const Golden golden = goldenOf(machines, Rules::shipped());
  EXPECT_EQ(golden.inventory["disks"]["0000:16/02.0/00.0/n1"]["firmware"], "F1");
  EXPECT_EQ(golden.inventory["memory"]["modules"]["A2"]["bytes"], 1024);
  EXPECT_EQ(golden.inventory["memory"]["bytes"], 2000) << "alike within the tolerance";
  EXPECT_FALSE(golden.inventory["system"].contains("hostName"));
  const auto odd = oddMachines(machines, golden, Rules::shipped());
  ASSERT_THAT(odd, SizeIs(1));
  EXPECT_EQ(odd[0].name, "node2.json");
  EXPECT_THAT(linesOf(odd[0].findings),
              ElementsAre("failure missing /memory/modules/A2",
                          "warning differs /disks/0000:16~102.0~100.0~1n1 /firmware"));
}

// One was taken without the right to read the table of modules.
TEST(Golden, has_from_the_others_what_one_machine_does_not_know) {
  std::vector<NamedInventory> machines = fleet(8);
  const Golden whole = goldenOf(machines, Rules::shipped());
  machines[5].inventory["memory"]["modules"] = "unknown";
  machines[2].inventory["memory"]["modules"].erase("A2");
  const Golden golden = goldenOf(machines, Rules::shipped());
  EXPECT_EQ(golden.inventory["memory"]["modules"], whole.inventory["memory"]["modules"]);
  const auto odd = oddMachines(machines, golden, Rules::shipped());
  ASSERT_THAT(odd, SizeIs(2));
  EXPECT_THAT(linesOf(odd[0].findings), ElementsAre("failure missing /memory/modules/A2"));
  EXPECT_THAT(linesOf(odd[1].findings), ElementsAre("warning not comparable /memory/modules "));
  for (NamedInventory& machine : machines) {
    machine.inventory["memory"]["modules"] = "unknown";
  }
  EXPECT_EQ(goldenOf(machines, Rules::shipped()).inventory["memory"]["modules"], "unknown");
}

TEST(Golden, ignores_with_a_note_what_fewer_than_three_quarters_agree_on) {
  std::vector<NamedInventory> machines = fleet(8);
  for (const std::size_t number : {0, 1, 2}) {
    machines[number].inventory["kernel"]["release"] = "5.10";
    machines[number].inventory["tpm"]["tpm0"] = {{"version", 2}};
  }
  machines[0].inventory["system"]["product"] = "X2";
  machines[1].inventory["system"]["product"] = "X2";
  const Golden golden = goldenOf(machines, Rules::shipped());
  EXPECT_EQ(golden.inventory["system"]["product"], "X1") << "three quarters have it";
  EXPECT_FALSE(golden.inventory["kernel"].contains("release"));
  const Json rules = golden.rules.asJson();
  ASSERT_THAT(rules, SizeIs(3)) << rules;
  EXPECT_EQ(rules[0]["path"], "/disks/0000:16~102.0~100.0~1n1/serialNumber");
  EXPECT_EQ(rules[1]["path"], "/kernel/release");
  EXPECT_EQ(rules[1]["compare"], "ignore");
  EXPECT_EQ(rules[1]["note"], "2 values; the most frequent one has 5 of 8 machines");
  EXPECT_EQ(rules[2]["path"], "/tpm/tpm0");
  EXPECT_EQ(rules[2]["note"], "3 of 8 machines have it");
  EXPECT_THAT(oddMachines(machines, golden, Rules::shipped()), SizeIs(2));
}

TEST(Golden, is_the_same_in_whatever_order_the_machines_come) {
  std::vector<NamedInventory> machines = fleet(5);
  machines[4].inventory["pci"].clear();
  const Json golden = toJson(goldenOf(machines, Rules::shipped()), 5);
  std::swap(machines[0], machines[4]);
  EXPECT_EQ(toJson(goldenOf(machines, Rules::shipped()), 5), golden);
}

TEST(Golden, is_read_as_it_is_written) {
  const Golden golden = goldenOf(fleet(4), Rules::shipped());
  const Json document = toJson(golden, 4);
  const Golden read = parseGolden(document, "golden.json");
  EXPECT_EQ(read.inventory, golden.inventory);
  EXPECT_EQ(read.rules.asJson(), golden.rules.asJson());
  EXPECT_EQ(parseGolden(smallMachine(), "one.json").inventory, smallMachine());
  EXPECT_EQ(parseGolden(smallMachine(), "one.json").rules.size(), 0U);
}

TEST(Golden, has_its_sections_also_when_rules_ignore_them) {
  const Rules rules =
      Rules::parse(Json::parse(R"([{"path": "/kernel", "compare": "ignore"}])"), "rules.json");
  EXPECT_THAT(goldenOf(fleet(4), rules).inventory["kernel"], IsEmpty());
  EXPECT_NO_THROW(parseGolden(toJson(goldenOf(fleet(4), rules), 4), "golden.json"));
}

std::string faultOfGolden(const Json& document) {
  try {
    parseGolden(document, "g.json");
  } catch (const DocumentFault& fault) {
    return fault.what();
  }
  return "";
}

TEST(Golden, that_is_none_is_refused) {
  const Json golden = toJson(goldenOf(fleet(4), Rules::shipped()), 4);
  EXPECT_EQ(faultOfGolden(1), "g.json: /document: it is no inventory");
  EXPECT_THAT(faultOfGolden(changed(golden, "/version", 2)), HasSubstr("g.json: /version: "));
  EXPECT_THAT(faultOfGolden(changed(golden, "/inventory/disks", nullptr)),
              HasSubstr("g.json: /disks: the section is missing"));
  EXPECT_EQ(faultOfGolden(changed(golden, "/rules/0/compare", "x")).substr(0, 25),
            "g.json: /rules/0/compare:");
  EXPECT_THAT(faultOfGolden(changed(smallMachine(), "/version", "1")), HasSubstr("/version: "));
}

}  // namespace
}  // namespace TarvexDiags::Inventory
