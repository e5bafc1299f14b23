#include <gtest/gtest.h>

#include <string>

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

}  // namespace
}  // namespace TarvexDiags::Watching
