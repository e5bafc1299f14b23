// What the engine reads of the machine: nodes, sizes, counters, addresses; and what it takes of it.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <set>
#include <string>
#include <system_error>

#include "packages/memory/MemoryReasons.h"
#include "packages/memory/Nodes.h"
#include "packages/memory/PhysicalAddress.h"
#include "tests/packages/memory/MemoryFixture.h"
#include "tests/support/FakeMachine.h"
#include "tests/support/Sanitized.h"
#include "watch/ErrorCounters.h"

namespace TarvexDiags::Memory {
namespace {

using Watching::ErrorCounters;

constexpr std::uint64_t kMebibyte = 1024 * 1024;

class MachineTest : public ::testing::Test, public Tests::FakeMachine {
 public:
  MachineTest& hasNode(int number, std::uint64_t mebibytes, const std::string& cpus) {
    const std::string prefix = "Node " + std::to_string(number) + " ";
    const std::string kilobytes = std::to_string(mebibytes * 1024) + " kB\n";
    const std::string folder = "sys/devices/system/node/node" + std::to_string(number);
    has(folder + "/meminfo", prefix + "MemTotal:       " + kilobytes + prefix + "MemFree:        " +
                                 kilobytes + prefix + "Inactive(file):  1024 kB\n");
    has(folder + "/cpulist", cpus + "\n");
    return *this;
  }

  MachineTest& hasMemory(std::uint64_t total, std::uint64_t available) {
    has("proc/meminfo",
        "MemTotal:  " + std::to_string(total * 1024) +
            " kB\nMemFree: 1 kB\nMemAvailable:  " + std::to_string(available * 1024) + " kB\n");
    return *this;
  }
};

TEST_F(MachineTest, each_node_with_memory_is_a_device) {
  hasNode(0, 1024, "0-3").hasNode(1, 2048, "4-6,9").hasNode(2, 0, "10").hasNode(10, 512, "");
  has("sys/devices/system/node/online", "0-2,10\n");
  const std::vector<Node> nodes = findNodes(files());
  ASSERT_EQ(nodes.size(), 3U);
  EXPECT_EQ(nodes[0].cpus, (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(nodes[1].cpus, (std::vector<int>{4, 5, 6, 9}));
  EXPECT_EQ(nodes[1].bytes, 2048 * kMebibyte);
  EXPECT_EQ(nodes[2].number, 10);
  EXPECT_TRUE(nodes[2].cpus.empty()) << "a node of memory alone";
  EXPECT_EQ(nodes[2].tagComponent(), "node10");
}

TEST_F(MachineTest, machine_without_nodes_is_one_device) {
  hasMemory(4096, 2048).has("sys/devices/system/cpu/online", "0-1\n");
  const std::vector<Node> nodes = findNodes(files());
  ASSERT_EQ(nodes.size(), 1U);
  EXPECT_EQ(nodes[0].tagComponent(), "memory");
  EXPECT_EQ(nodes[0].cpus, (std::vector<int>{0, 1}));
  EXPECT_EQ(nodes[0].bytes, 4096 * kMebibyte);
}

TEST_F(MachineTest, available_memory_is_what_the_kernel_estimates) {
  hasMemory(4096, 2048).hasNode(0, 4096, "0");
  EXPECT_EQ(availableBytes(files(), findNodes(files())[0]), 2048 * kMebibyte);
}

TEST_F(MachineTest, available_memory_is_unknown_where_the_kernel_does_not_tell) {
  EXPECT_EQ(availableBytes(files(), Node()), std::nullopt);
}

TEST_F(MachineTest, node_takes_its_share_and_no_more_than_it_has_free) {
  hasMemory(4096, 4000).hasNode(0, 1024, "0").hasNode(1, 3072, "1");
  const std::vector<Node> nodes = findNodes(files());
  EXPECT_EQ(availableBytes(files(), nodes[0]), 1000 * kMebibyte);
  EXPECT_EQ(availableBytes(files(), nodes[1]), 3000 * kMebibyte);
  has("sys/devices/system/node/node1/meminfo",
      "Node 1 MemTotal: 3145728 kB\nNode 1 MemFree: 102400 kB\nNode 1 Inactive(file): 1024 kB\n");
  EXPECT_EQ(availableBytes(files(), nodes[1]), 101 * kMebibyte);
}

TEST_F(MachineTest, limits_of_control_groups_count_at_every_level) {
  hasMemory(4096, 4000).has("proc/self/cgroup", "0::/outer/inner\n");
  has("sys/fs/cgroup/outer/inner/memory.max", "max\n");
  has("sys/fs/cgroup/outer/inner/memory.current", "1000\n");
  EXPECT_EQ(availableBytes(files(), Node()), 4000 * kMebibyte);
  has("sys/fs/cgroup/outer/memory.max", std::to_string(300 * kMebibyte) + "\n");
  has("sys/fs/cgroup/outer/memory.current", std::to_string(100 * kMebibyte) + "\n");
  EXPECT_EQ(availableBytes(files(), Node()), 200 * kMebibyte);
  has("sys/fs/cgroup/outer/memory.current", std::to_string(301 * kMebibyte) + "\n");
  EXPECT_EQ(availableBytes(files(), Node()), 0U);
}

TEST_F(MachineTest, limits_of_older_control_groups_count_as_well) {
  hasMemory(4096, 4000).has("proc/self/cgroup", "9:name=systemd:/\n4:memory:/job\n0::/\n");
  has("sys/fs/cgroup/memory/job/memory.limit_in_bytes", std::to_string(64 * kMebibyte));
  has("sys/fs/cgroup/memory/job/memory.usage_in_bytes", std::to_string(kMebibyte));
  EXPECT_EQ(availableBytes(files(), Node()), 63 * kMebibyte);
}

TEST(TestedBytesTest, margin_is_the_larger_of_both_and_the_cap_comes_last) {
  EXPECT_EQ(testedBytes(1000 * kMebibyte, {0, 0, 0}), 1000 * kMebibyte);
  EXPECT_EQ(testedBytes(1000 * kMebibyte, {0, 100 * kMebibyte, 5}), 900 * kMebibyte);
  EXPECT_EQ(testedBytes(1000 * kMebibyte, {0, 10 * kMebibyte, 50}), 500 * kMebibyte);
  EXPECT_EQ(testedBytes(1000 * kMebibyte, {64 * kMebibyte, 10 * kMebibyte, 50}), 64 * kMebibyte);
  EXPECT_EQ(testedBytes(kMebibyte, {0, 2 * kMebibyte, 0}), 0U);
  EXPECT_EQ(testedBytes(1000 * kMebibyte, {0, 0, 400}), 0U);
}

TEST_F(MachineTest, machine_without_a_driver_for_its_memory_controllers_has_no_counters) {
  EXPECT_FALSE(ErrorCounters::read(files()).present());
}

TEST_F(MachineTest, errors_that_controllers_and_modules_count_are_told_by_name) {
  const std::string controller = "sys/devices/system/edac/mc/mc0/";
  has(controller + "ce_noinfo_count", "1\n").has(controller + "ue_noinfo_count", "0\n");
  has(controller + "dimm3/dimm_ce_count", "5\n").has(controller + "dimm3/dimm_ue_count", "0\n");
  has(controller + "dimm3/dimm_label", "CPU0_DIMM_A1\n");
  has("sys/devices/system/edac/mc/mc1/ce_count", "7\n");
  has("sys/devices/system/edac/mc/mc1/ue_count", "7\n");
  const ErrorCounters before = ErrorCounters::read(files());
  ASSERT_TRUE(before.present());
  EXPECT_TRUE(before.since(before).empty());

  has(controller + "dimm3/dimm_ce_count", "8\n");
  has("sys/devices/system/edac/mc/mc1/ue_count", "2\n");
  const auto grown = ErrorCounters::read(files()).since(before);
  ASSERT_EQ(grown.size(), 2U);
  EXPECT_EQ(grown.at("mc0/dimm3 (CPU0_DIMM_A1)").corrected, 3U);
  EXPECT_EQ(grown.at("mc1").uncorrected, 2U) << "a driver loaded anew counts from 0";
}

TEST(PhysicalAddressTest, is_known_only_with_the_privilege_and_keeps_the_offset_in_the_page) {
  static volatile std::uint64_t words[1024] = {1};
  words[513] = 1;
  const auto first = physicalAddressOf(const_cast<const std::uint64_t*>(&words[513]));
  if (first) {
    EXPECT_EQ(*first % 4096, reinterpret_cast<std::uintptr_t>(&words[513]) % 4096);
    EXPECT_NE(*first, 0U);
  } else {
    EXPECT_NE(geteuid(), 0U) << "root may know";
  }
}

TEST(TeamTest, every_thread_works_once_a_round_and_on_the_cpu_that_it_was_given) {
  const std::vector<int> cpus = Common::allowedCpus();
  Team team(cpus);
  EXPECT_TRUE(team.refusedCpus().empty());
  for (int round = 0; round < 50; ++round) {
    std::mutex lock;
    std::set<int> seen;
    team.onAll([&] {
      const std::lock_guard hold(lock);
      seen.insert(sched_getcpu());
    });
    EXPECT_EQ(seen, std::set<int>(cpus.begin(), cpus.end()));
  }
}

TEST(TeamTest, cpu_that_is_not_there_is_told_and_its_thread_works_elsewhere) {
  Team team({Common::allowedCpus().front(), 60000});
  EXPECT_EQ(team.refusedCpus(), std::vector<int>{60000});
  std::atomic<int> calls{0};
  team.onAll([&] { ++calls; });
  EXPECT_EQ(calls, 2);
}

TEST(RegionTest, is_aligned_populated_and_locked_as_far_as_allowed) {
  Team team(twoCpus());
  const auto region = smallRegion(team, 40);
  EXPECT_EQ(region->blocks(), 40U);
  EXPECT_EQ(region->slices(), 2U);
  EXPECT_EQ(region->blocksOfSlice(1), 8U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(region->data()) % (2 * kMebibyte), 0U);
  EXPECT_EQ(region->lockedBytes() < region->bytes(), !region->remarks().empty());
}

TEST(RegionTest, memory_that_may_not_be_locked_is_used_all_the_same_with_a_remark) {
  if (TestSupport::kIsSanitized) {
    GTEST_SKIP() << "a sanitizer's runtime answers mlock itself";
  }
  const rlimit none{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_MEMLOCK, &none), 0);
  if (geteuid() == 0 && seteuid(65534) != 0) {
    GTEST_SKIP() << "the privilege cannot be laid down";
  }
  Team team(twoCpus());
  const auto region = smallRegion(team, 4);
  EXPECT_EQ(region->lockedBytes(), 0U);
  ASSERT_EQ(region->remarks().size(), 1U);
  EXPECT_EQ(region->remarks()[0].what, Reasons::kNotAllLocked);
  EXPECT_EQ(region->remarks()[0].detail.find("0 / 256 KiB: "), 0U);
}

/// Of a region: the huge pages that are there.
std::size_t slicesPresent(const Region& region) {
  std::size_t present = 0;
  for (std::size_t slice = 0; slice < region.slices(); ++slice) {
    unsigned char state = 0;
    std::byte* const page = region.data() + slice * Region::kBlocksInSlice * kBlockBytes;
    present += mincore(page, 1, &state) == 0 && (state & 1) != 0 ? 1 : 0;
  }
  return present;
}

TEST(RegionTest, request_to_give_up_is_heard_before_each_piece_of_the_work) {
  constexpr std::size_t slices = 40;  // more than are locked at once
  Team team({twoCpus().front()});
  for (std::size_t heard = 0; heard <= slices; ++heard) {
    std::size_t asked = 0;
    std::string reason;
    const auto region = Region::map(
        slices * Region::kBlocksInSlice * kBlockBytes, -1, team, [&] { return asked++ >= heard; },
        reason);
    ASSERT_NE(region, nullptr) << reason;
    EXPECT_EQ(slicesPresent(*region), heard);
    EXPECT_EQ(region->lockedBytes(), 0U);
    EXPECT_TRUE(region->remarks().empty());
  }
}

TEST(RegionTest, memory_that_is_not_to_be_had_is_told_with_the_reason) {
  Team team(twoCpus());
  std::string reason;
  EXPECT_EQ(Region::map(
                std::size_t{1} << 60, -1, team, [] { return false; }, reason),
            nullptr);
  EXPECT_EQ(reason, std::generic_category().message(ENOMEM));
}

}  // namespace
}  // namespace TarvexDiags::Memory
