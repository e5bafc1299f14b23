#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/FakeMachine.h"
#include "watch/CpuFiles.h"

namespace TarvexDiags::Watching {
namespace {

TEST(CpuFiles, tell_where_a_processor_lies_as_far_as_the_kernel_knows) {
  Tests::FakeMachine machine;
  const std::string topology = "sys/devices/system/cpu/cpu12/topology/";
  machine.has(topology + "physical_package_id", "1\n").has(topology + "core_id", "7\n");
  const auto place = placeOfCpu(machine.files(), 12);
  ASSERT_TRUE(place);
  EXPECT_EQ(place->socket, 1);
  EXPECT_EQ(place->die, -1) << "which it does not tell";
  EXPECT_EQ(place->core, 7);
  machine.has(topology + "physical_package_id", "-1\n");
  EXPECT_EQ(placeOfCpu(machine.files(), 12)->socket, -1) << "which it says that it does not know";
  EXPECT_FALSE(placeOfCpu(machine.files(), 3)) << "as it is offline";
}

TEST(CpuFiles, understand_lists_of_the_kernel_and_skip_nonsense) {
  EXPECT_EQ(parseCpuList("0-3,8\n"), (std::vector<int>{0, 1, 2, 3, 8}));
  EXPECT_EQ(parseCpuList("5,1,1-2"), (std::vector<int>{1, 2, 5}));
  EXPECT_EQ(parseCpuList("x,3,-1,4-,7-6,9999999999"), std::vector<int>{3});
  EXPECT_TRUE(parseCpuList("\n").empty());
  Tests::FakeMachine machine;
  EXPECT_TRUE(onlineCpus(machine.files()).empty());
  machine.has("sys/devices/system/cpu/online", "0-1,4\n");
  EXPECT_EQ(onlineCpus(machine.files()), (std::vector<int>{0, 1, 4}));
}

TEST(CpuFiles, tell_of_each_processor_and_not_of_the_machine) {
  Tests::FakeMachine machine;
  EXPECT_TRUE(readCpuRows(machine.files()).empty());
  machine.has("proc/cpuinfo",
              "processor\t: 0\nmodel name\t: Some CPU: fast \npower management:\n\n"
              "processor\t: x\nmodel name\t: Nobody\n\n"
              "processor\t: 4\nmodel name\t: Other\n\nHardware\t: Board\n");
  const auto rows = readCpuRows(machine.files());
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows.at(0).at("model name"), "Some CPU: fast");
  EXPECT_EQ(rows.at(0).at("power management"), "");
  EXPECT_EQ(rows.at(4).at("model name"), "Other");
  EXPECT_EQ(rows.at(4).count("Hardware"), 0U);
}

}  // namespace
}  // namespace TarvexDiags::Watching
