#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "watch/Merger.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Moment at(int count) {
  return Moment(milliseconds(count));
}

class MergerTest : public ::testing::Test {
 protected:
  void take(int time, SourceKind source, Kind kind, const std::string& device,
            const std::string& part = "", std::uint64_t count = 1) {
    Finding finding{.time = at(time), .source = source, .kind = kind};
    finding.device = device;
    finding.part = part;
    finding.count = count;
    m_merger.take(finding);
  }
  /// What a controller's driver logs or traces of one error.
  void takeAt(int time, SourceKind source, const std::string& place, std::uint64_t count = 1) {
    Finding finding{.time = at(time), .source = source, .kind = Kind::MemoryCorrected};
    finding.device = "mc:0";
    finding.part = "DIMM_A1";
    finding.count = count;
    finding.place = place;
    m_merger.take(finding);
  }
  void takeBankOfMemory(int time, SourceKind source, Kind kind = Kind::MachineCheckCorrected) {
    Finding finding{.time = at(time), .source = source, .kind = kind};
    finding.device = "cpu:0";
    finding.part = "bank 7";
    finding.isOfMemory = true;
    m_merger.take(finding);
  }
  std::vector<std::string> placesDueAt(int time) {
    std::vector<std::string> lines;
    for (const Finding& finding : m_merger.due(at(time))) {
      lines.push_back(finding.part + " " + (finding.place.empty() ? "-" : finding.place) + " " +
                      std::to_string(finding.count));
    }
    return lines;
  }
  static std::vector<std::string> linesOf(const std::vector<Finding>& findings) {
    std::vector<std::string> lines;
    for (const Finding& finding : findings) {
      lines.push_back(std::string(nameOf(finding.source)) + " " + finding.device + " " +
                      (finding.part.empty() ? "-" : finding.part) + " " +
                      std::to_string(finding.count));
    }
    return lines;
  }
  std::vector<std::string> dueAt(int time) { return linesOf(m_merger.due(at(time))); }

  Merger m_merger{milliseconds(2000)};
};

TEST_F(MergerTest, holds_a_finding_until_no_other_source_can_tell_of_it) {
  take(0, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0");
  EXPECT_THAT(dueAt(1999), IsEmpty());
  EXPECT_THAT(dueAt(2000), ElementsAre("kmsg mc:0 - 1"));
  EXPECT_THAT(dueAt(9000), IsEmpty());
}

TEST_F(MergerTest, makes_one_of_what_two_sources_show_and_takes_the_one_that_knows_more) {
  take(0, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  take(900, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  EXPECT_THAT(dueAt(2000), ElementsAre("edac mc:0 DIMM_A1 1"));
}

TEST_F(MergerTest, takes_the_one_that_names_the_part_where_both_count_as_much) {
  take(0, SourceKind::MachineChecks, Kind::PcieCorrectable, "pci:0000:03:00.0");
  take(700, SourceKind::PcieErrors, Kind::PcieCorrectable, "pci:0000:03:00.0", "0000:00:05.0");
  EXPECT_THAT(dueAt(2000), ElementsAre("aer pci:0000:03:00.0 0000:00:05.0 1"));
}

TEST_F(MergerTest, believes_the_source_that_counts_most) {
  take(0, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0", "", 1);
  take(10, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0", "", 4);
  take(900, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1", 3);
  EXPECT_THAT(dueAt(2000), ElementsAre("kmsg mc:0 - 5"));
}

TEST_F(MergerTest, has_the_places_from_the_source_that_tells_them) {
  takeAt(0, SourceKind::MemoryControllers, "", 1);
  takeAt(5, SourceKind::KernelLog, "12345");
  EXPECT_THAT(placesDueAt(2000), ElementsAre("DIMM_A1 12345 1"));
  takeAt(10'000, SourceKind::KernelLog, "1");
  takeAt(10'001, SourceKind::KernelLog, "2");
  takeAt(10'500, SourceKind::MemoryControllers, "", 5);
  EXPECT_THAT(placesDueAt(12'000), ElementsAre("DIMM_A1 1 1", "DIMM_A1 2 4"));
}

TEST_F(MergerTest, counts_no_more_places_than_errors) {
  takeAt(0, SourceKind::MemoryControllers, "", 1);
  takeAt(1, SourceKind::MachineChecks, "12345000");
  takeAt(5, SourceKind::KernelLog, "12345");
  EXPECT_THAT(placesDueAt(2000), ElementsAre("DIMM_A1 12345000 1"));
}

TEST_F(MergerTest, takes_a_machine_check_of_the_memory_for_what_its_module_tells) {
  for (const int begin : {0, 10'000}) {
    take(begin, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
    takeBankOfMemory(begin + 1, SourceKind::MachineChecks);
    take(begin + 900, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
    EXPECT_THAT(dueAt(begin + 2900), ElementsAre("edac mc:0 DIMM_A1 1"));
  }
  take(20'000, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  EXPECT_THAT(dueAt(22'000), ElementsAre("edac mc:0 DIMM_A1 1"));
  takeBankOfMemory(22'001, SourceKind::MachineChecks);
  take(22'002, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(24'002), IsEmpty());
}

TEST_F(MergerTest, tells_machine_checks_that_no_module_tells) {
  takeBankOfMemory(0, SourceKind::MachineChecks);
  EXPECT_THAT(dueAt(2000), ElementsAre("mce cpu:0 bank 7 1"));
  take(10'000, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  take(10'001, SourceKind::MachineChecks, Kind::MachineCheckCorrected, "cpu:0", "bank 1");
  takeBankOfMemory(10'002, SourceKind::MachineChecks, Kind::MachineCheckUncorrected);
  EXPECT_THAT(dueAt(12'002),
              ElementsAre("edac mc:0 DIMM_A1 1", "mce cpu:0 bank 1 1", "mce cpu:0 bank 7 1"));
}

TEST_F(MergerTest, takes_the_announcement_of_a_machine_check_for_none_of_its_own) {
  take(0, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  take(1, SourceKind::KernelLog, Kind::MachineCheckUncorrected, "cpu:1", "bank 4");
  EXPECT_THAT(dueAt(2001), ElementsAre("kmsg cpu:1 bank 4 1"));
  take(9000, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(11'000), ElementsAre("kmsg machine - 1"));
}

TEST_F(MergerTest, takes_an_announcement_that_comes_behind_for_none_of_its_own) {
  take(0, SourceKind::MachineChecks, Kind::MachineCheckUncorrected, "cpu:1", "bank 4");
  take(5, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(2000), ElementsAre("mce cpu:1 bank 4 1"));
  take(2001, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(4001), IsEmpty());
  take(9000, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(11'000), ElementsAre("kmsg machine - 1"));
}

TEST_F(MergerTest, tells_a_corrected_machine_check_once_however_it_is_announced) {
  const auto announce = [this](int time) {
    take(time, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  };
  const auto log = [this](int time, const std::string& cpu) {
    take(time, SourceKind::KernelLog, Kind::MachineCheckCorrected, cpu, "bank 5");
  };
  const auto trace = [this](int time, const std::string& cpu) {
    take(time, SourceKind::MachineChecks, Kind::MachineCheckCorrected, cpu, "bank 5");
  };
  announce(0), log(1, "cpu:0"), trace(2, "cpu:0");
  EXPECT_THAT(dueAt(2000), ElementsAre("mce cpu:0 bank 5 1"));
  trace(10'000, "cpu:0"), announce(10'001), log(10'002, "cpu:0");
  EXPECT_THAT(dueAt(12'000), ElementsAre("mce cpu:0 bank 5 1"));
  log(20'000, "cpu:0"), announce(20'001);
  EXPECT_THAT(dueAt(22'001), ElementsAre("kmsg cpu:0 bank 5 1"));
  announce(30'000), trace(30'001, "cpu:0"), trace(30'001, "cpu:1"), log(30'002, "cpu:0"),
      log(30'002, "cpu:1");
  EXPECT_THAT(dueAt(32'001), ElementsAre("mce cpu:0 bank 5 1", "mce cpu:1 bank 5 1"));
}

TEST_F(MergerTest, does_not_count_again_what_a_source_tells_late) {
  take(0, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0", "", 3);
  dueAt(2000);
  take(2500, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1", 5);
  EXPECT_THAT(dueAt(4500), ElementsAre("edac mc:0 DIMM_A1 2"));
}

TEST_F(MergerTest, takes_what_comes_long_after_for_another_event) {
  take(0, SourceKind::KernelLog, Kind::MemoryCorrected, "mc:0");
  dueAt(2000);
  take(4001, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  EXPECT_THAT(dueAt(6001), ElementsAre("edac mc:0 DIMM_A1 1"));
}

TEST_F(MergerTest, keeps_modules_devices_and_kinds_apart) {
  take(0, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  take(0, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:0", "DIMM_A2");
  take(0, SourceKind::MemoryControllers, Kind::MemoryCorrected, "mc:1", "DIMM_B1");
  take(0, SourceKind::MemoryControllers, Kind::MemoryUncorrected, "mc:0", "DIMM_A1");
  EXPECT_THAT(dueAt(2000), ElementsAre("edac mc:0 DIMM_A1 1", "edac mc:0 DIMM_A2 1",
                                       "edac mc:1 DIMM_B1 1", "edac mc:0 DIMM_A1 1"));
}

TEST_F(MergerTest, gives_a_device_to_what_names_none) {
  take(0, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  take(5, SourceKind::MachineChecks, Kind::MachineCheckCorrected, "cpu:0", "bank 4");
  EXPECT_THAT(dueAt(2000), ElementsAre("mce cpu:0 bank 4 1"));
  take(9000, SourceKind::MachineChecks, Kind::MachineCheckCorrected, "cpu:1", "bank 4");
  take(9005, SourceKind::KernelLog, Kind::MachineCheckCorrected, "machine");
  EXPECT_THAT(dueAt(11000), ElementsAre("mce cpu:1 bank 4 1"));
}

TEST_F(MergerTest, tells_what_names_no_device_when_nobody_else_does) {
  take(0, SourceKind::KernelLog, Kind::MachineCheckUncorrected, "machine");
  EXPECT_THAT(dueAt(2000), ElementsAre("kmsg machine - 1"));
}

TEST_F(MergerTest, adds_up_what_different_sources_have_lost) {
  take(0, SourceKind::KernelLog, Kind::RecordsLost, "machine", "", 3);
  take(0, SourceKind::MachineChecks, Kind::RecordsLost, "machine", "", 2);
  EXPECT_THAT(dueAt(2000), ElementsAre("kmsg machine - 3", "mce machine - 2"));
}

TEST_F(MergerTest, gives_all_that_is_left_at_the_end) {
  take(0, SourceKind::KernelLog, Kind::LinkLost, "ata:ata3");
  EXPECT_THAT(linesOf(m_merger.rest()), ElementsAre("kmsg ata:ata3 - 1"));
  EXPECT_THAT(linesOf(m_merger.rest()), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Watching
