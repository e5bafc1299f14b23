#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <string>

#include "watch/KernelLog.h"

namespace TarvexDiags::Watching {
namespace {

struct Line {
  const char* text;
  const char* finding;  ///< "KIND DEVICE PART COUNT PLACE"; empty: none
  const char* device = "";
};

void PrintTo(const Line& line, std::ostream* stream) {
  *stream << line.text;
}

std::string summaryOf(const std::optional<Finding>& finding) {
  const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
  return finding ? std::string(nameOf(finding->kind)) + " " + finding->device + " " +
                       orDash(finding->part) + " " + std::to_string(finding->count) + " " +
                       orDash(finding->place)
                 : "";
}

class KernelLinesTest : public ::testing::TestWithParam<Line> {};

TEST_P(KernelLinesTest, tell_what_was_found_where) {
  const KernelRecord record{0, 1, GetParam().text, GetParam().device};
  EXPECT_EQ(summaryOf(findingFrom(record, Moment())), GetParam().finding);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, KernelLinesTest,
    ::testing::Values(
        Line{"EDAC MC0: 1 CE memory read error on CPU_SrcID#0_MC#0_Chan#0_DIMM#0 (channel:0 slot:0 "
             "page:0x12345 offset:0x0 grain:32 syndrome:0x0)",
             "memory-corrected mc:0 CPU_SrcID#0_MC#0_Chan#0_DIMM#0 1 12345"},
        Line{"EDAC MC1: 3 UE memory scrubbing error on DIMM_B2 (channel:1 slot:0)",
             "memory-uncorrected mc:1 DIMM_B2 3 -"},
        Line{"EDAC MC0: 2 CE error without a label", "memory-corrected mc:0 - 2 -"},
        Line{"EDAC MC0: 1 CE memory read error on CPU 0 DIMM A1 (channel:0 slot:0 page:0x12345 "
             "offset:0x0 grain:32)",
             "memory-corrected mc:0 CPU 0 DIMM A1 1 12345"},
        Line{"mce: [Hardware Error]: CPU 3: Machine Check: 0 Bank 4: 8c00004000010091",
             "machine-check-corrected cpu:3 bank 4 1 -"},
        Line{"mce: [Hardware Error]: CPU 1: Machine Check Exception: 5 Bank 7: bd80000000100134",
             "machine-check-uncorrected cpu:1 bank 7 1 -"},
        Line{"mce: [Hardware Error]: Machine check events logged",
             "machine-check-corrected machine - 1 -"},
        Line{"{1}[Hardware Error]: event severity: corrected",
             "machine-check-corrected machine - 1 -"},
        Line{"{1}[Hardware Error]: event severity: fatal",
             "machine-check-uncorrected machine - 1 -"},
        Line{"{1}[Hardware Error]: event severity: info", ""},
        Line{"e1000e 0000:02:00.0: PCIe Bus Error: severity=Corrected, type=Physical Layer",
             "pcie-correctable pci:0000:02:00.0 - 1 -"},
        Line{"e1000e 0000:02:00.0: PCIe Bus Error: severity=Uncorrected (Non-Fatal), type=X",
             "pcie-nonfatal pci:0000:02:00.0 - 1 -"},
        Line{"e1000e 0000:02:00.0: PCIe Bus Error: severity=Uncorrected (Fatal), type=X",
             "pcie-fatal pci:0000:02:00.0 - 1 -"},
        Line{"PCIe Bus Error: severity=Corrected, type=X",
             "pcie-correctable pci:0000:03:00.0 - 1 -", "+pci:0000:03:00.0"},
        Line{"pcieport 0000:00:1c.0: AER: Corrected error received: 0000:02:00.0", ""},
        Line{"Memory failure: 0x10000: recovery action for dirty LRU page: Recovered",
             "memory-failure memory - 1 10000"},
        Line{"Memory failure: 0x10000: already hardware poisoned", ""},
        Line{"pcieport 0000:00:1c.0: AER: PCIe Bus Error: severity=Corrected, type=Physical Layer",
             "pcie-correctable pci:0000:00:1c.0 - 1 -"},
        Line{"blk_update_request: critical medium error, dev sdb, sector 4660 op 0x0:(READ)",
             "disk-medium block:sdb sdb 1 4660"},
        Line{"critical medium error, dev sdb, sector 4660 op 0x0:(READ) flags 0x0",
             "disk-medium block:sdb sdb 1 4660"},
        Line{"I/O error, dev nvme0n1, sector 8 op 0x1:(WRITE) flags 0x800",
             "disk-input-output block:nvme0n1 nvme0n1 1 8"},
        Line{"critical target error, dev sda, sector 0 op 0x3:(DISCARD) flags 0x800", ""},
        Line{"Buffer I/O error on dev sdb, logical block 582, async page read", ""},
        Line{"nvme nvme0: I/O 123 QID 4 timeout, aborting", "disk-timeout nvme:nvme0 - 1 -"},
        Line{"nvme nvme1: controller is down; will reset: CSTS=0xffffffff",
             "disk-timeout nvme:nvme1 - 1 -"},
        Line{"ata3: SATA link down (SStatus 0 SControl 300)", "link-lost ata:ata3 - 1 -"},
        Line{"ata3.00: exception Emask 0x0 SAct 0x0 SErr 0x0 action 0x6 frozen",
             "disk-command-failed ata:ata3 - 1 -"},
        Line{"ata3: hard resetting link", "disk-timeout ata:ata3 - 1 -"},
        Line{"NVRM: Xid (PCI:0000:3b:00): 79, pid=0, GPU has fallen off the bus.",
             "accelerator-error pci:0000:3b:00.0 79 1 -"},
        Line{"NETDEV WATCHDOG: eth0 (e1000e): transmit queue 0 timed out",
             "network-errors net:eth0 eth0 1 -"},
        Line{
            "e1000e 0000:00:19.0 eth0: NETDEV WATCHDOG: CPU: 0: transmit queue 0 timed out 5000 ms",
            "network-errors net:eth0 eth0 1 -"},
        Line{"virtio_net virtio0 ens3: NETDEV WATCHDOG: CPU: 1: transmit queue 0 timed out 5000 ms",
             "network-errors net:ens3 ens3 1 -"},
        Line{"mce: CPU4: Package temperature above threshold, cpu clock throttled",
             "throttled cpu:4 - 1 -"},
        Line{"CPU4: Core temperature above threshold, cpu clock throttled (total events = 1)",
             "throttled cpu:4 - 1 -"},
        Line{"watchdog: BUG: soft lockup - CPU#1 stuck for 26s! [stress:42]", "lockup cpu:1 - 1 -"},
        Line{"rcu: INFO: rcu_preempt detected stalls on CPUs/tasks:", "lockup machine - 1 -"},
        Line{"INFO: task kworker/0:1:7 blocked for more than 120 seconds.",
             "hung-task machine kworker/0:1:7 1 -"},
        Line{"pcieport 0000:00:1c.0: pciehp: Slot(0): Link Down",
             "link-lost pci:0000:00:1c.0 0 1 -"},
        Line{"EXT4-fs error (device sda1): ext4_lookup:1: inode #2: comm ls",
             "file-system-error block:sda1 sda1 1 -"},
        Line{"XFS (sdb1): Corruption of in-memory data detected.  Shutting down filesystem",
             "file-system-error block:sdb1 sdb1 1 -"},
        Line{"Out of memory: Killed process 77 (stress) total-vm:1kB",
             "out-of-memory machine stress 1 -"},
        Line{"Memory cgroup out of memory: Killed process 77 (x) total-vm:1kB",
             "out-of-memory machine x 1 -"},
        Line{"usb 1-1: new high-speed USB device number 2 using xhci_hcd", ""}));

TEST(KernelRecordTest, is_taken_apart) {
  const auto record = parseKernelRecord(
      "4,1234,5678901,-;something happened\n SUBSYSTEM=pci\n DEVICE=+pci:0000:00:02.0");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->facility, 0U);
  EXPECT_EQ(record->sequence, 1234U);
  EXPECT_EQ(record->text, "something happened");
  EXPECT_EQ(record->device, "+pci:0000:00:02.0");
}

TEST(KernelRecordTest, is_none_when_it_is_malformed) {
  for (const char* const text : {"", ";", "4;text", "4,5;text", "x,5,6,-;text", "4,,6,-;text",
                                 "4,5,6,- no semicolon", "-4,5,6,-;text"}) {
    EXPECT_EQ(parseKernelRecord(text), std::nullopt) << text;
  }
}

TEST(KernelRecordTest, of_a_program_says_nothing_about_the_hardware) {
  const auto record =
      parseKernelRecord("12,7,1,-;mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: b0");
  ASSERT_TRUE(record);
  EXPECT_EQ(findingFrom(*record, Moment()), std::nullopt);
}

/// Words that users put into what the kernel says of their programs. A thread's name has 15 bytes,
/// a file's and a library's many more.
class UsersWordsTest : public ::testing::TestWithParam<const char*> {};

TEST_P(UsersWordsTest, say_nothing_about_the_hardware) {
  const std::string words = GetParam();
  const std::string name = words.substr(0, 15);
  for (const std::string& text :
       {name + "[77]: segfault at 0 ip 0 sp 0 error 6 in " + words + "[55d5+1000] likely on CPU 0",
        "traps: " + name + "[77] general protection fault ip:0 sp:0 error:0 in " + words + "[1+2]",
        name + " invoked oom-killer: gfp_mask=0xcc0(GFP_KERNEL), order=0, oom_score_adj=0",
        name + ": page allocation failure: order:0, mode:0xcc0(GFP_KERNEL), nodemask=(null)",
        name + " (77): drop_caches: 1", "process '" + words + "' started with executable stack"}) {
    const KernelRecord record{0, 1, text, ""};
    EXPECT_EQ(summaryOf(findingFrom(record, Moment())), "") << text;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, UsersWordsTest,
    ::testing::Values("critical medium error, dev sda, sector 5",
                      "[Hardware Error]: CPU 0: Machine Check: 0 Bank 4: b200000000000000",
                      "mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: b200000000000000",
                      "EDAC MC0: 1 UE", "EDAC MC0: 1 UE ", "EDAC MC0: 1 UE error on A1 (page:0x1",
                      "a 0:0:0.0: EDAC MC0: 1 UE error on A1 (page:0x1", "{1}{2}[Hardware Error]:",
                      "Memory failure: 0x10: recovery action", "NVRM: Xid (PCI:0000:01:00): 79, x",
                      "mce: mce: CPU0:", "BUG: BUG: BUG: soft lockup - CPU#1 stuck",
                      "XFS (a): Shutting down", "nvme nvme0: I/O 1 QID 1 timeout",
                      "INFO: task a b blocked for more than 1 seconds", "ata1: SATA link down"));

TEST(KernelRecordTest, of_a_machine_check_says_when_it_was) {
  const auto timeIn = [](const char* text, unsigned int facility = 0) {
    return timeOfMachineCheck(KernelRecord{facility, 1, text, ""});
  };
  const char* const text =
      "mce: [Hardware Error]: PROCESSOR 0:906ea TIME 1500000000 SOCKET 0 APIC 0 microcode ea";
  EXPECT_EQ(timeIn(text), std::chrono::system_clock::from_time_t(1'500'000'000));
  EXPECT_EQ(timeIn(text, 1), std::nullopt);
  EXPECT_EQ(timeIn("mce: [Hardware Error]: TSC 0 ADDR 1 MISC 2"), std::nullopt);
  EXPECT_EQ(timeIn("mce: [Hardware Error]: PROCESSOR 0:1 TIME 99999999999999999999 SOCKET 0"),
            std::nullopt);
}

TEST(PciAddressTest, is_found_in_a_text) {
  EXPECT_EQ(pciAddressIn("pcieport 0000:00:1c.0: AER"), "0000:00:1c.0");
  EXPECT_EQ(pciAddressIn("at 12:34:56.7"), "");
  EXPECT_EQ(pciAddressIn(""), "");
}

}  // namespace
}  // namespace TarvexDiags::Watching
