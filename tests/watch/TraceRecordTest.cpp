#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "watch/TraceRecord.h"

namespace TarvexDiags::Watching {
namespace {

const std::string kHead = "          <idle>-0       [000] d.h1.   123.456789: ";
const std::string kMachineCheck =
    "mce_record: CPU: 2, MCGc/s: 10f/0, MC4: 8c00004000010091, IPID: 0000000000000000, "
    "ADDR/MISC/SYND: 0000000012345000/0000000000000000/0000000000000000, RIP: 00:<0>, TSC: 0, "
    "PROCESSOR: 2:a20f10, TIME: 2000, SOCKET: 0, APIC: 0";

std::optional<Finding> findingIn(const std::string& line, Moment earliest = Moment()) {
  const auto record = parseTraceLine(line);
  return record ? findingFrom(
                      *record,
                      [](const std::string& numbers) {
                        return numbers == "8:16" ? std::string("sdb") : std::string();
                      },
                      earliest, Moment())
                : std::nullopt;
}

std::string summaryOf(const std::optional<Finding>& finding) {
  const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
  return finding ? std::string(nameOf(finding->kind)) + " " + finding->device + " " +
                       orDash(finding->part) + " " + std::to_string(finding->count) + " " +
                       orDash(finding->place)
                 : "";
}

TEST(TraceRecordTest, tells_a_machine_check_by_cpu_and_bank_and_its_address) {
  EXPECT_EQ(summaryOf(findingIn(kHead + kMachineCheck)),
            "machine-check-corrected cpu:2 bank 4 1 0000000012345000");
  std::string uncorrected = kMachineCheck;
  uncorrected.replace(uncorrected.find("8c000040"), 8, "b0000040");
  EXPECT_EQ(summaryOf(findingIn(kHead + uncorrected)),
            "machine-check-uncorrected cpu:2 bank 4 1 -");
}

TEST(TraceRecordTest, knows_a_machine_check_of_before_the_watch) {
  using std::chrono::system_clock;
  const auto isBefore = [](int begin) {
    return findingIn(kHead + kMachineCheck, system_clock::from_time_t(begin)).value().isBefore;
  };
  EXPECT_TRUE(isBefore(2001));
  EXPECT_FALSE(isBefore(2000));
}

TEST(TraceRecordTest, tells_errors_of_memory_by_module_count_and_address) {
  EXPECT_EQ(summaryOf(findingIn(
                kHead + "mc_event: 3 Corrected errors: memory read error on DIMM A1 (mc:0 "
                        "location:0:1:-1 address:0x12345000 grain:32 syndrome:0x00000000)")),
            "memory-corrected mc:0 DIMM A1 3 12345000");
  EXPECT_EQ(summaryOf(findingIn(kHead + "mc_event: 1 Uncorrected error: on DIMM_B1 (mc:1 "
                                        "location:0:1:-1 address:0x0 grain:32)")),
            "memory-uncorrected mc:1 DIMM_B1 1 0");
  EXPECT_EQ(findingIn(kHead + "mc_event: 1 Info error: on DIMM_B1 (mc:1 x)"), std::nullopt);
}

TEST(TraceRecordTest, tells_errors_of_links_memory_and_disks) {
  EXPECT_EQ(summaryOf(findingIn(kHead + "aer_event: 0000:01:00.0 PCIe Bus Error: "
                                        "severity=Corrected, Receiver Error, TLP Header=None")),
            "pcie-correctable pci:0000:01:00.0 - 1 -");
  EXPECT_EQ(
      summaryOf(findingIn(kHead + "aer_event: 0000:01:00.0 PCIe Bus Error: severity=Uncorrected, "
                                  "non-fatal, Poisoned TLP, TLP Header=None")),
      "pcie-nonfatal pci:0000:01:00.0 - 1 -");
  EXPECT_EQ(summaryOf(findingIn(kHead + "memory_failure_event: pfn 0x10000: recovery action for "
                                        "dirty LRU page: Recovered")),
            "memory-failure memory - 1 10000");
  EXPECT_EQ(summaryOf(findingIn(kHead + "block_rq_error: 8,16 RS () 4656 + 8 [-61]")),
            "disk-medium block:sdb sdb 1 4656");
  EXPECT_EQ(summaryOf(findingIn(kHead + "block_rq_error: 8,16 FWS () 8 + 8 [-5]")),
            "disk-input-output block:sdb sdb 1 8");
  EXPECT_EQ(summaryOf(findingIn(kHead + "block_rq_error: 9,9 R () 8 + 8 [-110]")),
            "disk-timeout machine - 1 8");
}

TEST(TraceRecordTest, says_nothing_of_requests_that_a_disk_may_refuse) {
  EXPECT_EQ(findingIn(kHead + "block_rq_error: 8,16 DS () 4656 + 8 [-121]"), std::nullopt);
}

TEST(TraceRecordTest, is_not_misled_by_the_name_of_a_task) {
  // Fifteen bytes are all that a task may be called.
  EXPECT_EQ(findingIn("  ]: mce_record:-7       [000] d.h1.   1.2: sched_switch: x"), std::nullopt);
  EXPECT_NE(findingIn("  [001] x 1.2: y-7       [000] d.h1.   1.2: " + kMachineCheck),
            std::nullopt);
}

TEST(TraceRecordTest, is_none_of_a_malformed_line) {
  for (const std::string& line :
       {std::string(), std::string("short"), kMachineCheck, kHead, kHead + "mce_record",
        kHead + "mce_record: CPU: x", kHead + "mc_event: many errors",
        kHead + "block_rq_error: 8,16 RS () x + 8 [-61]", kHead + "aer_event:"}) {
    EXPECT_EQ(findingIn(line), std::nullopt) << line;
  }
}

TEST(TraceRecordTest, counts_events_that_were_lost) {
  EXPECT_EQ(lostEventsIn("CPU:0 [LOST 12 EVENTS]"), 12U);
  EXPECT_EQ(lostEventsIn(kHead + "x: CPU:0 [LOST 12 EVENTS]"), 0U);
  EXPECT_EQ(lostEventsIn("CPU:0 [LOST EVENTS]"), 0U);
}

}  // namespace
}  // namespace TarvexDiags::Watching
