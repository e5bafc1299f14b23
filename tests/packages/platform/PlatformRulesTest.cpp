// What the rules say of recorded machines: exactly the fault that each of them has.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "packages/platform/Clocks.h"
#include "packages/platform/DiskFirmware.h"
#include "packages/platform/KernelTaint.h"
#include "packages/platform/MemoryPopulation.h"
#include "packages/platform/PcieLinks.h"
#include "packages/platform/UniformProcessors.h"
#include "tests/inventory/RecordedMachine.h"
#include "tests/support/RecordingJournal.h"

namespace TarvexDiags::Platform {
namespace {

using Common::RecordingJournal;
using Inventory::ModuleRecord;
using Inventory::RecordedMachine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Codes = std::vector<unsigned int>;

unsigned int codeOf(PlatformEvent event) {
  return static_cast<unsigned int>(event);
}

/// The token of the reason for which something is not possible; empty when it is.
std::string refusalOf(const std::function<void()>& rule) {
  try {
    rule();
  } catch (const NotSupported& refusal) {
    return refusal.reason().token;
  }
  return "";
}

// --- Links

const std::string kPort = "0000:16:02.0";
const std::string kBelow = "sys/devices/pci0000:16/" + kPort + "/0000:17:00.0/";

/// Two disks of one model below two ports.
struct LinkedMachine : RecordedMachine {
  LinkedMachine() {
    device("0000:16", kPort, "0x060400", "pcieport");
    device("0000:16", "0000:16:03.0", "0x060400", "pcieport");
    device("0000:16", kPort + "/0000:17:00.0", "0x010802", "nvme");
    device("0000:16", "0000:16:03.0/0000:18:00.0", "0x010802", "nvme");
    has("sys/bus/pci/slots/7/address", "0000:17:00\n");
  }
};

struct LinkRun : RecordingJournal {
  explicit LinkRun(const RecordedMachine& machine, unsigned int looks = 3,
                   const std::function<void(int)>& meanwhile = {}) {
    judgeLinks(
        "links", [&] { return readLinks(machine.files()); }, looks,
        [&] {
          ++waits;
          if (meanwhile) {
            meanwhile(waits);
          }
          return true;
        },
        *this);
  }
  int waits = 0;
};

TEST(PcieLinks, that_use_all_their_lanes_pass_at_the_first_look) {
  const LinkRun run{LinkedMachine()};
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinksJudged), ElementsAre("links", "2", "2"));
  EXPECT_EQ(run.waits, 0);
}

TEST(PcieLinks, of_half_their_width_fail_and_name_function_and_slot) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_width", "8\n");
  const LinkRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::LinkNarrow)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinkNarrow),
              ElementsAre("links", "0000:17:00.0", "8086:1234 nvme", "7", kPort, "8", "16"));
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinksJudged), ElementsAre("links", "1", "2"));
}

TEST(PcieLinks, are_as_wide_as_their_narrower_end) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_width", "4\n").has(kBelow + "max_link_width", "4\n");
  EXPECT_THAT(LinkRun(machine).complaints(), IsEmpty());
}

TEST(PcieLinks, that_were_narrow_in_one_of_three_looks_are_unsteady) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_width", "8\n");
  const LinkRun run(machine, 3, [&](int) { machine.has(kBelow + "current_link_width", "16\n"); });
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::LinkUnsteady)});
  EXPECT_EQ(run.waits, 1) << "nothing can become better";
}

TEST(PcieLinks, that_are_slow_only_while_idle_are_not_told) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_speed", "2.5 GT/s PCIe\n");
  const LinkRun run(machine, 3, [&](int wait) {
    machine.has(kBelow + "current_link_speed", wait == 1 ? "2.5 GT/s PCIe\n" : "16.0 GT/s PCIe\n");
  });
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_EQ(run.count(PlatformEvent::LinkSlow), 0);
}

TEST(PcieLinks, that_stay_slower_than_their_sibling_are_unusual) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_speed", "8.0 GT/s PCIe\n");
  const LinkRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::LinkSlowerThanSibling)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinkSlowerThanSibling),
              ElementsAre("links", "0000:17:00.0", "8086:1234 nvme", "7", kPort, "8 GT/s",
                          "0000:18:00.0", "16 GT/s"));
}

TEST(PcieLinks, that_are_slow_without_a_faster_sibling_are_told_and_no_more) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_speed", "8.0 GT/s PCIe\n").has(kBelow + "device", "0x4321\n");
  const LinkRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_EQ(run.count(PlatformEvent::LinkSlow), 1);
}

TEST(PcieLinks, that_tell_nothing_are_never_taken_for_good_or_bad) {
  LinkedMachine machine;
  machine.has(kBelow + "current_link_width", "63\n").has(kBelow + "current_link_speed", "Unknown");
  const LinkRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_EQ(run.count(PlatformEvent::LinkUnknown), 1);
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinksJudged), ElementsAre("links", "1", "2"));
  machine.has("sys/devices/pci0000:16/0000:16:03.0/0000:18:00.0/current_link_width", "0\n");
  EXPECT_EQ(refusalOf([&] { LinkRun(machine).events(); }), Reasons::kLinksUnknown.token);
}

TEST(PcieLinks, of_functions_of_one_device_are_one) {
  LinkedMachine machine;
  machine.device("0000:16", kPort + "/0000:17:00.1", "0x010802", "nvme");
  machine.has(kBelow + "current_link_width", "8\n");
  machine.has("sys/devices/pci0000:16/" + kPort + "/0000:17:00.1/current_link_width", "8\n");
  EXPECT_EQ(LinkRun(machine).complaints(), Codes{codeOf(PlatformEvent::LinkNarrow)});
}

TEST(PcieLinks, do_not_lie_within_a_switch) {
  RecordedMachine machine;
  machine.device("0000:16", kPort, "0x060400", "pcieport");
  const std::string upper = kPort + "/0000:17:00.0";
  machine.device("0000:16", upper, "0x060400", "pcieport");
  // A lower port whose link to an old card has one lane.
  const std::string lower = upper + "/0000:18:01.0";
  machine.device("0000:16", lower, "0x060400", "pcieport", {.width = 1});
  const std::string card = lower + "/0000:19:00.0";
  machine.device("0000:16", card, "0x020000", "e1000e", {.width = 1});
  machine.has("sys/devices/pci0000:16/" + card + "/max_link_width", "1\n");
  const LinkRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::LinksJudged), ElementsAre("links", "2", "2"));
}

TEST(PcieLinks, of_a_virtual_machine_are_not_there) {
  RecordedMachine machine;
  machine.device("0000:00", "0000:00:03.0", "0x020000", "virtio-pci");
  EXPECT_EQ(refusalOf([&] { LinkRun(machine).events(); }), Reasons::kNoLinks.token);
}

// --- Processors

struct ProcessorRun : RecordingJournal {
  explicit ProcessorRun(const RecordedMachine& machine) {
    judgeProcessors("processors", machine.files(), *this);
  }
};

std::string ofCpu(int number, const std::string& file) {
  return "sys/devices/system/cpu/cpu" + std::to_string(number) + "/" + file;
}

TEST(UniformProcessors, that_are_alike_pass) {
  RecordedMachine machine;
  machine.processors(2, 8);
  const ProcessorRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::ProcessorsAlike),
              ElementsAre("processors", "8", "0x2b000590: 0-7"));
}

TEST(UniformProcessors, with_an_odd_microcode_are_told_with_their_socket) {
  RecordedMachine machine;
  machine.processors(2, 7).thread(7, "0x2b000111", "fpu sse2 avx2");
  machine.has(ofCpu(7, "topology/physical_package_id"), "1\n");
  const ProcessorRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::MicrocodeDiffers)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::MicrocodeDiffers),
              ElementsAre("processors", "7", "1", "0x2b000111", "0x2b000590"));
}

TEST(UniformProcessors, take_the_newer_microcode_of_two_halves_for_right) {
  RecordedMachine machine;
  machine.thread(0, "0x12", "fpu").thread(1, "0x11", "fpu");
  EXPECT_THAT(ProcessorRun(machine).parametersOf(PlatformEvent::MicrocodeDiffers),
              ElementsAre("processors", "1", "NOT_TOLD", "0x11", "0x12"));
}

TEST(UniformProcessors, that_lack_a_feature_fail) {
  RecordedMachine machine;
  machine.thread(0, "0x10", "fpu avx2 aes")
      .thread(1, "0x10", "fpu")
      .thread(2, "0x10", "fpu avx2 aes");
  const ProcessorRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::FlagsMissing)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::FlagsMissing),
              ElementsAre("processors", "1", "NOT_TOLD", "aes avx2"));
}

TEST(UniformProcessors, of_strong_and_frugal_cores_differ_by_design) {
  RecordedMachine machine;
  machine.processors(1, 2);
  machine.thread(2, "0x15", "fpu sse2").thread(3, "0x15", "fpu sse2");
  machine.has("sys/devices/cpu_core/cpus", "0-1\n").has("sys/devices/cpu_atom/cpus", "2-3\n");
  machine.has(ofCpu(2, "cpufreq/cpuinfo_max_freq"), "2900000\n");
  const ProcessorRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_EQ(run.count(PlatformEvent::KindsOfProcessors), 1);
}

TEST(UniformProcessors, of_two_models_in_two_sockets_are_unusual) {
  RecordedMachine machine;
  machine.processors(2, 2);
  machine.has("proc/cpuinfo",
              "processor\t: 0\nmodel name\t: Old One\nmicrocode\t: 0x1\nflags\t: fpu\n\n"
              "processor\t: 1\nmodel name\t: New One\nmicrocode\t: 0x2\nflags\t: fpu aes\n\n");
  EXPECT_EQ(ProcessorRun(machine).complaints(), Codes{codeOf(PlatformEvent::MixedProcessors)});
}

TEST(UniformProcessors, with_favoured_cores_are_told_and_those_held_back_are_unusual) {
  RecordedMachine machine;
  machine.processors(1, 4).has(ofCpu(1, "cpufreq/cpuinfo_max_freq"), "4200000\n");
  EXPECT_THAT(ProcessorRun(machine).complaints(), IsEmpty());
  EXPECT_THAT(ProcessorRun(machine).parametersOf(PlatformEvent::FrequenciesDiffer),
              ElementsAre("processors", "3800000 kHz: 0,2-3; 4200000 kHz: 1"));
  for (int number = 0; number < 4; ++number) {
    machine.has(ofCpu(number, "cpufreq/scaling_max_freq"), number == 3 ? "1200000\n" : "3800000\n");
  }
  machine.has(ofCpu(1, "cpufreq/scaling_max_freq"), "4200000\n");
  EXPECT_THAT(ProcessorRun(machine).parametersOf(PlatformEvent::FrequencyHeldBack),
              ElementsAre("processors", "3", "0", "1200000", "3800000"));
}

TEST(UniformProcessors, are_not_possible_to_compare_alone_or_unseen) {
  RecordedMachine machine;
  RecordingJournal journal;
  EXPECT_EQ(refusalOf([&] { judgeProcessors("p", machine.files(), journal); }),
            Reasons::kProcessorsNotTold.token);
  machine.has("proc/cpuinfo", "processor\nmodel name: no number\n\n\xff\n");
  EXPECT_EQ(refusalOf([&] { judgeProcessors("p", machine.files(), journal); }),
            Reasons::kProcessorsNotTold.token);
  machine.processors(1, 1);
  EXPECT_EQ(refusalOf([&] { judgeProcessors("p", machine.files(), journal); }),
            Reasons::kOneProcessor.token);
}

// --- Memory

std::vector<ModuleRecord> eightModules() {
  std::vector<ModuleRecord> modules;
  for (int number = 1; number <= 8; ++number) {
    modules.push_back({.locator = "DIMM_A" + std::to_string(number), .serial = "80AD"});
  }
  return modules;
}

struct MemoryRun : RecordingJournal {
  explicit MemoryRun(const RecordedMachine& machine) {
    judgePopulation("modules", machine.files(), *this);
  }
};

TEST(MemoryPopulation, of_modules_that_are_alike_passes) {
  RecordedMachine machine;
  std::vector<ModuleRecord> modules = eightModules();
  modules[7].megabytes = 0;
  machine.modules(modules).node(0, 131'000'000, "0-3", "10 21").node(1, 0, "", "21 10");
  const MemoryRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::ModulesJudged), ElementsAre("modules", "7", "8"));
}

TEST(MemoryPopulation, names_the_module_that_differs) {
  RecordedMachine machine;
  std::vector<ModuleRecord> modules = eightModules();
  modules[5].megabytes = 8192;
  machine.modules(modules);
  const MemoryRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::ModuleDiffers)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::ModuleDiffers),
              ElementsAre("modules", "DIMM_A6 (NODE 0)", "8192 MiB DDR5 4800 MT/s",
                          "16384 MiB DDR5 4800 MT/s"));
}

TEST(MemoryPopulation, of_two_halves_is_told_unless_firmware_calls_them_a_set) {
  RecordedMachine machine;
  std::vector<ModuleRecord> modules = eightModules();
  modules.resize(2);
  modules[1].megabytes = 8192;
  machine.modules(modules);
  EXPECT_THAT(MemoryRun(machine).complaints(), IsEmpty());
  EXPECT_EQ(MemoryRun(machine).count(PlatformEvent::ModulesMixed), 1);
  modules[0].set = 3;
  modules[1].set = 3;
  machine.modules(modules);
  EXPECT_EQ(MemoryRun(machine).complaints(), Codes{codeOf(PlatformEvent::ModuleDiffers)});
  modules[1].set = 4;
  machine.modules(modules);
  EXPECT_THAT(MemoryRun(machine).complaints(), IsEmpty());
}

TEST(MemoryPopulation, tells_of_modules_below_their_rated_speed) {
  RecordedMachine machine;
  std::vector<ModuleRecord> modules = eightModules();
  modules[0].configuredSpeed = modules[1].configuredSpeed = 4400;
  machine.modules(modules);
  const MemoryRun run(machine);
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::ModulesBelowRated),
              ElementsAre("modules", "DIMM_A1, DIMM_A2", "4400 MT/s", "4800 MT/s"));
}

TEST(MemoryPopulation, warns_of_processors_without_memory_whatever_firmware_tells) {
  RecordedMachine machine;
  machine.node(0, 131'000'000, "0-3", "10 21").node(1, 0, "4-7", "21 10");
  const MemoryRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::NodeWithoutMemory)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::NodeWithoutMemory),
              ElementsAre("modules", "1", "4-7"));
}

TEST(MemoryPopulation, is_not_possible_to_judge_where_firmware_tells_nothing) {
  RecordedMachine machine;
  machine.node(0, 131'000'000, "0-3", "10");
  const auto judge = [&] { MemoryRun(machine).events(); };
  EXPECT_EQ(refusalOf(judge), Reasons::kModulesNotTold.token);
  machine.has("sys/firmware/dmi/tables/DMI", "\x11\x02garbage");
  EXPECT_EQ(refusalOf(judge), Reasons::kModulesNotTold.token);
  std::vector<ModuleRecord> empty = eightModules();
  for (ModuleRecord& module : empty) {
    module.megabytes = 0;
  }
  machine.modules(empty);
  EXPECT_EQ(refusalOf(judge), Reasons::kModulesNotTold.token);
}

TEST(MemoryPopulation, is_withheld_from_whom_may_not_read_the_table) {
  constexpr uid_t kNobody = 65534;
  RecordedMachine machine;
  machine.modules(eightModules());
  ASSERT_EQ(chmod(machine.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((machine.path() + "/sys/firmware/dmi/tables/DMI").c_str(), 0), 0);
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(isRoot ? seteuid(kNobody) : 0, 0);
  const std::string refusal = refusalOf([&] { MemoryRun(machine).events(); });
  ASSERT_EQ(isRoot ? seteuid(0) : 0, 0);
  EXPECT_EQ(refusal, Reasons::kModulesWithheld.token);
}

// --- Disks

/// So many disks of one model, below ports of their own.
struct DiskedMachine : RecordedMachine {
  explicit DiskedMachine(int count) {
    for (int number = 0; number < count; ++number) {
      const std::string digit = std::to_string(number);
      nvme(number, "0000:16", "0000:16:0" + digit + ".0/0000:2" + digit + ":00.0", "S" + digit,
           "GDC5602Q");
    }
  }
};

struct DiskRun : RecordingJournal {
  explicit DiskRun(const RecordedMachine& machine) {
    judgeDiskFirmware("disks", machine.files(), *this);
  }
};

TEST(FirmwareConsistency, of_disks_with_one_firmware_passes) {
  const DiskRun run{DiskedMachine(3)};
  EXPECT_THAT(run.complaints(), IsEmpty());
  EXPECT_THAT(run.parametersOf(PlatformEvent::FirmwareAlike),
              ElementsAre("disks", "Disk of 4 TB", "3", "GDC5602Q"));
}

TEST(FirmwareConsistency, names_the_odd_disk_and_its_slot) {
  DiskedMachine machine(3);
  machine.has("sys/devices/pci0000:16/0000:16:01.0/0000:21:00.0/nvme/nvme1/firmware_rev", "OLD1\n");
  machine.has("sys/bus/pci/slots/12/address", "0000:21:00\n");
  const DiskRun run(machine);
  EXPECT_EQ(run.complaints(), Codes{codeOf(PlatformEvent::FirmwareDiffers)});
  EXPECT_THAT(run.parametersOf(PlatformEvent::FirmwareDiffers),
              ElementsAre("disks", "Disk of 4 TB", "nvme1n1", "12", "OLD1", "GDC5602Q"));
}

TEST(FirmwareConsistency, is_not_possible_without_two_of_a_model_that_tell) {
  const auto refusal = [](const RecordedMachine& machine) {
    return refusalOf([&] { DiskRun(machine).events(); });
  };
  EXPECT_EQ(refusal(RecordedMachine()), Reasons::kNoLikeDisks.token);
  EXPECT_EQ(refusal(DiskedMachine(1)), Reasons::kNoLikeDisks.token);
  DiskedMachine silent(2);
  silent.has("sys/devices/pci0000:16/0000:16:01.0/0000:21:00.0/nvme/nvme1/firmware_rev", "");
  EXPECT_EQ(refusal(silent), Reasons::kNoLikeDisks.token);
}

// --- Kernel

struct TaintRun : RecordingJournal {
  explicit TaintRun(const std::string& taints) {
    RecordedMachine machine;
    machine.has("proc/sys/kernel/tainted", taints);
    judgeTaint("processors", machine.files(), *this);
  }
};

TEST(KernelTaint, of_a_machine_check_fails) {
  EXPECT_EQ(TaintRun("16\n").complaints(), Codes{codeOf(PlatformEvent::MachineCheckTaint)});
  EXPECT_EQ(TaintRun("4112\n").complaints(), Codes{codeOf(PlatformEvent::MachineCheckTaint)});
}

TEST(KernelTaint, of_a_spoilt_page_is_unusual) {
  EXPECT_EQ(TaintRun("32\n").complaints(), Codes{codeOf(PlatformEvent::BadPageTaint)});
}

TEST(KernelTaint, of_software_is_told) {
  EXPECT_THAT(TaintRun("4097\n").complaints(), IsEmpty());
  EXPECT_THAT(TaintRun("4097\n").parametersOf(PlatformEvent::OtherTaints),
              ElementsAre("processors", "proprietary-module, external-module"));
  EXPECT_EQ(TaintRun("0\n").count(PlatformEvent::KernelUntainted), 1);
}

TEST(KernelTaint, that_is_not_told_is_not_possible_to_judge) {
  EXPECT_EQ(refusalOf([] { TaintRun("").events(); }), Reasons::kTaintsNotTold.token);
  EXPECT_EQ(refusalOf([] { TaintRun("none\n").events(); }), Reasons::kTaintsNotTold.token);
}

// --- Clocks

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A machine with a real-time clock, and time that passes when it is waited for.
struct TimedMachine : RecordedMachine {
  TimedMachine() {
    has("sys/devices/system/clocksource/clocksource0/current_clocksource", "tsc\n");
    has("sys/devices/system/clocksource/clocksource0/available_clocksource", "tsc hpet acpi_pm \n");
    show();
  }

  void show() {
    has("sys/class/rtc/rtc0/since_epoch", std::to_string(1'700'000'000 + advanced) + "\n");
  }

  /// @param advances of the clock, one for each time that it is watched
  RecordingJournal& judge(const std::vector<long>& advances, seconds watched = seconds(10)) {
    std::size_t next = 0;
    const Reference reference{[this] {
                                return Uptime{awake, awake + asleep};
                              },
                              [&, this](seconds time) {
                                awake += time + milliseconds(300);
                                asleep += nap;
                                advanced += advances.at(next++);
                                show();
                                return true;
                              }};
    judgeClocks("clocks", files(), watched, reference, journal);
    return journal;
  }

  RecordingJournal journal;
  std::chrono::nanoseconds awake{};
  std::chrono::nanoseconds asleep{};
  milliseconds nap{};
  long advanced = 0;
};

TEST(Clock, that_goes_right_passes) {
  for (const long advance : {9L, 10L, 11L}) {
    TimedMachine machine;
    EXPECT_THAT(machine.judge({advance}).complaints(), IsEmpty());
    EXPECT_THAT(machine.journal.parametersOf(PlatformEvent::ClockAdvanced),
                ElementsAre("clocks", "rtc0", std::to_string(advance), "10.3"));
    EXPECT_EQ(machine.journal.count(PlatformEvent::ClockSourceInUse), 1);
  }
}

TEST(Clock, that_is_not_there_is_told_beside_the_source_of_time) {
  TimedMachine machine;
  machine.lacks("sys/class/rtc");
  EXPECT_THAT(machine.judge({}).complaints(), IsEmpty());
  EXPECT_EQ(machine.journal.count(PlatformEvent::NoRealTimeClock), 1);
}

TEST(Clock, that_goes_wrong_twice_fails) {
  for (const long advance : {0L, 8L, 12L, -3L}) {
    TimedMachine machine;
    EXPECT_EQ(machine.judge({advance, advance}).complaints(),
              Codes{codeOf(PlatformEvent::ClockWrong)});
  }
}

TEST(Clock, that_was_set_meanwhile_is_watched_again) {
  TimedMachine machine;
  EXPECT_THAT(machine.judge({3600, 10}).complaints(), IsEmpty());
  EXPECT_EQ(machine.journal.count(PlatformEvent::ClockWasSet), 1);
}

TEST(Clock, of_a_machine_that_slept_is_not_judged) {
  TimedMachine machine;
  machine.nap = seconds(30);
  EXPECT_EQ(refusalOf([&] { machine.judge({40}); }), Reasons::kMachineSlept.token);
}

TEST(Clock, is_left_alone_in_a_quick_run_which_says_so) {
  TimedMachine machine;
  EXPECT_THAT(machine.judge({}, seconds(0)).complaints(), IsEmpty());
  EXPECT_EQ(machine.journal.count(PlatformEvent::ClockNotWatched), 1);
}

TEST(Clock, that_tells_no_time_is_unusual) {
  TimedMachine machine;
  machine.has("sys/class/rtc/rtc0/since_epoch", "soon\n");
  EXPECT_EQ(machine.judge({}).complaints(), Codes{codeOf(PlatformEvent::ClockUnreadable)});
}

TEST(Clock, that_the_kernel_gave_up_is_unusual_where_it_promises_to_be_steady) {
  TimedMachine machine;
  machine.has("sys/devices/system/clocksource/clocksource0/current_clocksource", "hpet\n");
  machine.has("sys/devices/system/clocksource/clocksource0/available_clocksource",
              "hpet acpi_pm\n");
  machine.thread(0, "0x1", "constant_tsc nonstop_tsc");
  EXPECT_EQ(machine.judge({10}).complaints(), Codes{codeOf(PlatformEvent::ClockSourceGivenUp)});
  TimedMachine old;
  old.has("sys/devices/system/clocksource/clocksource0/available_clocksource", "hpet acpi_pm\n");
  EXPECT_THAT(old.judge({10}).complaints(), IsEmpty());
}

TEST(Clock, is_not_possible_to_judge_where_there_is_none) {
  RecordedMachine machine;
  RecordingJournal journal;
  EXPECT_EQ(refusalOf([&] {
              judgeClocks("clocks", machine.files(), seconds(10), kernelTime({}), journal);
            }),
            Reasons::kNoClock.token);
}

}  // namespace
}  // namespace TarvexDiags::Platform
