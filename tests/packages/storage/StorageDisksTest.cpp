// Discovery in trees that look like the kernel's, and health from records as disks write them.

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

#include "packages/storage/CommandChannel.h"
#include "packages/storage/Disks.h"
#include "packages/storage/Health.h"
#include "packages/storage/HealthRecords.h"
#include "packages/storage/NvmeReader.h"
#include "tests/packages/storage/NvmeCommands.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

namespace fs = std::filesystem;
using Common::RecordingJournal;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// @brief A folder of its own, laid out as the kernel lays out /sys, and removed at the end.
class Tree {
 public:
  Tree() {
    std::string name = fs::absolute("sysfs-XXXXXX").string();
    m_root = mkdtemp(name.data());
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;
  ~Tree() { fs::remove_all(m_root); }

  Tree& file(const std::string& path, const std::string& text) {
    fs::create_directories((m_root / path).parent_path());
    std::ofstream(m_root / path) << text << "\n";
    return *this;
  }

  /// @brief A disk, in "block" and in "class/block" as the kernel links it.
  Tree& disk(const std::string& name, const std::string& number, const std::string& sectors) {
    file("block/" + name + "/size", sectors);
    file("block/" + name + "/dev", number);
    fs::create_directories(m_root / "class/block");
    fs::create_directory_symlink(m_root / "block" / name, m_root / "class/block" / name);
    return *this;
  }

  Tree& partition(const std::string& disk, const std::string& name, const std::string& number,
                  const std::string& start) {
    const std::string folder = "block/" + disk + "/" + name;
    file(folder + "/partition", "1").file(folder + "/start", start).file(folder + "/dev", number);
    fs::create_directory_symlink(m_root / folder, m_root / "class/block" / name);
    return *this;
  }

  const fs::path& root() const { return m_root; }

 private:
  fs::path m_root;
};

std::vector<std::string> namesOf(const std::vector<Disk>& disks) {
  std::vector<std::string> names;
  for (const Disk& disk : disks) {
    names.push_back(disk.name);
  }
  return names;
}

TEST(StorageDiscovery, finds_real_disks_and_leaves_out_software_ones) {
  Tree tree;
  tree.disk("sda", "8:0", "1000").disk("nvme0n1", "259:0", "2000").disk("vda", "254:0", "3000");
  tree.disk("loop0", "7:0", "8").disk("zram0", "253:0", "8").disk("dm-0", "252:0", "8");
  tree.disk("sr0", "11:0", "8").disk("md0", "9:0", "8").disk("sdb", "8:16", "0");
  tree.disk("mmcblk0", "179:0", "8").disk("mmcblk0boot0", "179:8", "8");
  tree.disk("nvme1c0n1", "0:0", "8").file("block/nvme1c0n1/hidden", "1");
  EXPECT_THAT(namesOf(findDisks(tree.root())), ElementsAre("mmcblk0", "nvme0n1", "sda", "vda"));
}

TEST(StorageDiscovery, has_no_disks_without_sysfs) {
  EXPECT_THAT(findDisks("/no/such/folder"), IsEmpty());
}

TEST(StorageDiscovery, describes_a_disk) {
  Tree tree;
  tree.disk("nvme0n1", "259:0", "2000409264");
  tree.file("block/nvme0n1/device/model", "  Fine Disk 990  ")
      .file("block/nvme0n1/device/serial", "S123")
      .file("block/nvme0n1/device/firmware_rev", "1B2Q")
      .file("block/nvme0n1/queue/logical_block_size", "4096")
      .file("block/nvme0n1/queue/rotational", "0");
  const Disk disk = findDisks(tree.root()).at(0);
  EXPECT_EQ(disk.path, "/dev/nvme0n1");
  EXPECT_EQ(disk.attachment, Attachment::Nvme);
  EXPECT_EQ(disk.model, "Fine Disk 990");
  EXPECT_EQ(disk.serial, "S123");
  EXPECT_EQ(disk.firmware, "1B2Q");
  EXPECT_EQ(disk.bytes, std::uint64_t{2000409264} * 512);
  EXPECT_EQ(disk.logicalBlock, 4096U);
  EXPECT_FALSE(disk.readOnly);
}

TEST(StorageDiscovery, tells_real_ata_disks_from_imitated_ones) {
  Tree tree;
  tree.disk("sda", "8:0", "8").file("block/sda/device/vendor", "ATA");
  tree.file("block/sda/device/model", "WDC WD40");
  tree.disk("sdb", "8:16", "8").file("block/sdb/device/vendor", "QEMU");
  tree.disk("sdc", "8:32", "8").file("block/sdc/device/vendor", "ATA");
  tree.file("block/sdc/device/model", "QEMU HARDDISK");
  tree.disk("sdd", "8:48", "8").file("block/sdd/device/vendor", "SEAGATE");
  tree.disk("sde", "8:64", "8").file("block/sde/device/vendor", "JMicron");
  tree.file("block/sde/device/vpd_pg89", "page");  // a bridge that passes ATA commands through
  tree.disk("vda", "254:0", "8");
  std::vector<std::string> kinds;
  for (const Disk& disk : findDisks(tree.root())) {
    kinds.push_back(attachmentText(disk.attachment));
    EXPECT_EQ(attachmentFrom(attachmentText(disk.attachment)), disk.attachment);
  }
  EXPECT_THAT(kinds, ElementsAre("ata", "virtual", "virtual", "scsi", "ata", "virtual"));
}

TEST(StorageDiscovery, virtual_disks_count_as_their_bus_where_asked_for) {
  Tree tree;
  tree.disk("sda", "8:0", "8").file("block/sda/device/vendor", "ATA");
  tree.file("block/sda/device/model", "QEMU HARDDISK");
  tree.disk("sdb", "8:16", "8").file("block/sdb/device/vendor", "QEMU");
  tree.disk("vda", "254:0", "8");
  std::vector<std::string> kinds;
  for (const Disk& disk : findDisks(tree.root(), VirtualDisks::AsTheirBus)) {
    kinds.push_back(attachmentText(disk.attachment));
  }
  EXPECT_THAT(kinds, ElementsAre("ata", "scsi", "virtual"));
}

TEST(StorageDiscovery, takes_a_file_for_a_disk) {
  std::ofstream("image") << std::string(8192, 'x');
  const std::optional<Disk> disk = fileAsDisk("image");
  ASSERT_TRUE(disk);
  EXPECT_EQ(disk->bytes, 8192U);
  EXPECT_EQ(disk->attachment, Attachment::File);
  EXPECT_EQ(fileAsDisk("/dev/null"), std::nullopt);
  EXPECT_EQ(fileAsDisk("no such file"), std::nullopt);
}

TEST(StorageMounts, are_found_through_partitions_and_layers) {
  Tree tree;
  tree.disk("sda", "8:0", "8").partition("sda", "sda1", "8:1", "2048");
  tree.partition("sda", "sda2", "8:2", "4096").disk("sdb", "8:16", "8").disk("dm-0", "252:0", "8");
  tree.file("block/sda/sda2/holders/dm-0", "");
  tree.file("mounts",
            "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
            "23 1 252:0 / /home\\040of\\040all rw - xfs /dev/mapper/home rw\n"
            "24 1 8:1 / /mnt/frozen ro,relatime - ext4 /dev/sda1 rw\n"
            "25 1 8:16 / /other rw - ext4 /dev/sdb rw\n"
            "26 1 0:40 / /pool rw master:1 propagate_from:2 - btrfs /dev/pool rw\n"
            "28 1 0:41 / /memory rw - tmpfs /dev/sda1 rw\n"
            "29 1 0:42 / /served rw - fuse.anything /dev/sda rw\n"
            "30 1 0:43 / /layers rw - overlay overlay rw,lowerdir=/a,upperdir=/b\\040c,workdir=/d\n"
            "31 1 0:44 / /frozen rw - overlay /dev/sda1 rw,lowerdir=/a:/b\n"
            "32 1 0:45 / /elsewhere rw - overlay overlay rw,upperdir=/e\n"
            "33 1 0:46 / /otherpool rw - btrfs /dev/sdb rw\n"
            "27 1 8:1 / /after\\040an\\040error rw - ext4 /dev/sda1 ro,errors=remount-ro");
  const std::map<std::string, std::string> blockDevices{
      {"/dev/pool", "8:2"}, {"/dev/sda", "8:0"}, {"/dev/sda1", "8:1"}, {"/dev/sdb", "8:16"}};
  const std::map<std::string, std::string> fileSystems{{"/b c", "8:1"}, {"/e", "8:16"}};
  const auto lookUp = [](const auto& known) {
    return [&known](const std::string& path) {
      const auto entry = known.find(path);
      return entry == known.end() ? std::string() : entry->second;
    };
  };
  const DeviceNumbers numbers{lookUp(blockDevices), lookUp(fileSystems)};
  std::vector<std::string> found;
  for (const Mount& mount : mountsOn("sda", tree.root(), tree.root() / "mounts", numbers)) {
    found.push_back(mount.directory + " on " + mount.device + (mount.readOnly ? ", frozen" : ""));
  }
  EXPECT_THAT(found,
              ElementsAre("/ on sda1", "/home of all on dm-0", "/mnt/frozen on sda1, frozen",
                          "/pool on sda2", "/layers on sda1", "/after an error on sda1, frozen"));
  EXPECT_EQ(startOnDisk("sda", "sda1", tree.root()), 2048U * 512);
  EXPECT_EQ(startOnDisk("sda", "sda", tree.root()), 0U);
  EXPECT_EQ(startOnDisk("sda", "dm-0", tree.root()), std::nullopt);
}

TEST(StorageMounts, are_read_whatever_stands_in_their_names) {
  std::istringstream list(
      "22 1 8:1 / /a\fb\v-\r ro - ext4 /dev/sda1 rw\n"
      "23 1 8:1 / /8\\999\\400\\08 rw - ext4 /dev/sda1 rw\n"
      "24 1 0:40 / /x rw - tmpfs /x\f-\fbtrfs\f/dev/sda1 rw\n"
      "25 1 0:41 / /y\vrw\v-\vbtrfs\v/dev/sda1 rw - tmpfs none rw\n"
      "26 1 8:1 / /z\\1");
  const auto onSda1 = [](const std::string& /*path*/) { return std::string("8:1"); };
  std::vector<std::string> found;
  for (const Mount& mount : mountsAmong(list, {{"8:1", "sda1"}}, {onSda1, onSda1})) {
    found.push_back(mount.directory + (mount.readOnly ? ", frozen" : ""));
  }
  EXPECT_THAT(found, ElementsAre("/a\fb\v-\r, frozen", "/8\\999\\400\\08", "/z\\1"));
}

// --- Identity

TEST(StorageIdentity, is_told) {
  RecordingJournal journal;
  Disk disk;
  disk.name = "sda";
  disk.model = "Fine Disk";
  disk.bytes = 4096;
  identify(disk, 4096, journal);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Identity),
              ElementsAre("sda", "Fine Disk", "?", "?", "4096", "512", "512"));
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(StorageIdentity, warns_of_a_disk_of_another_size_and_of_one_set_read_only) {
  RecordingJournal journal;
  Disk disk;
  disk.name = "sda";
  disk.bytes = 4096;
  disk.readOnly = true;
  identify(disk, 8192, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::MarkedReadOnly),
                          static_cast<unsigned int>(StorageEvent::SizeChanged)));
}

// --- Health

TEST(StorageHealth, of_virtual_disks_is_not_supported_and_says_why) {
  for (const Attachment attachment :
       {Attachment::VirtualDisk, Attachment::File, Attachment::MemoryCard}) {
    Disk disk;
    disk.attachment = attachment;
    EXPECT_TRUE(whyNoHealth(disk));
    EXPECT_THROW(makeHealthReader(disk), NotSupported);
  }
}

TEST(StorageHealth, of_a_disk_that_is_there_no_more_is_not_asked_for) {
  for (const Attachment attachment : {Attachment::Nvme, Attachment::Ata}) {
    Disk disk;
    disk.name = "none";
    disk.path = "/dev/none";
    disk.attachment = attachment;
    EXPECT_FALSE(whyNoHealth(disk));
    try {
      makeHealthReader(disk);
      FAIL();
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ENODEV);
      EXPECT_THAT(error.what(), HasSubstr("none: "));
    }
  }
}

/// @brief A clock on which each command takes so long.
auto clockWithCommandsOf(std::chrono::milliseconds each) {
  return [each, time = std::chrono::steady_clock::time_point()]() mutable { return time += each; };
}

/// @brief An NVMe disk that can be opened, in a tree of its own that shows it, or another one.
class NvmeBehindFile : public ::testing::Test {
 protected:
  NvmeBehindFile() {
    tree.disk("nvme0n1", "259:0", "2000");
    std::ofstream(file) << "no disk, but it can be opened";
    disk.name = "nvme0n1";
    disk.path = file;
    disk.attachment = Attachment::Nvme;
  }

  std::unique_ptr<HealthReader> readerWithCommandsOf(std::chrono::milliseconds each) {
    return makeNvmeReader(disk, clockWithCommandsOf(each), tree.root());
  }

  Tree tree;
  const std::string file = tree.root() / "nvme";
  Disk disk;
};

constexpr std::array kNvmeQuestions{+[](HealthReader& reader) { reader.health(); },
                                    +[](HealthReader& reader) { reader.errorLog(); }};

TEST_F(NvmeBehindFile, is_asked_for_its_health_with_a_time_limit) {
  for (const auto question : kNvmeQuestions) {
    const NvmeCommands commands(EINTR);  // as the kernel tells that the time is over
    const auto reader = readerWithCommandsOf(std::chrono::seconds(5));
    EXPECT_THROW(question(*reader), SilentCommand);
    ASSERT_THAT(NvmeCommands::seen(), SizeIs(1));
    EXPECT_EQ(NvmeCommands::seen().front().timeLimit, 5000U);
    EXPECT_EQ(NvmeCommands::seen().front().nameSpace, 0xFFFFFFFFU);
  }
}

TEST_F(NvmeBehindFile, whose_command_was_cancelled_at_once_blames_nobody) {
  for (const auto question : kNvmeQuestions) {
    const NvmeCommands commands(EINTR);  // as the kernel tells that the controller was reset
    const auto reader = readerWithCommandsOf(std::chrono::milliseconds(3));
    EXPECT_THROW(question(*reader), NotSupported);
  }
}

TEST_F(NvmeBehindFile, that_is_pulled_out_during_a_command_says_so) {
  disk.name = "nvme1n1";
  for (const auto taken : {std::chrono::milliseconds(3), std::chrono::milliseconds(5000)}) {
    const NvmeCommands commands(EINTR);
    const auto reader = readerWithCommandsOf(taken);
    try {
      reader->health();
      ADD_FAILURE() << "the disk was read";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ENODEV);
    }
  }
}

TEST_F(NvmeBehindFile, that_refuses_the_command_has_no_health_to_tell) {
  const NvmeCommands commands(EACCES);
  const auto reader = readerWithCommandsOf(std::chrono::milliseconds(3));
  try {
    reader->health();
    ADD_FAILURE() << "the disk was read";
  } catch (const NotSupported& refusal) {
    EXPECT_EQ(refusal.reason(), Reasons::kCommandRefused);
    EXPECT_EQ(refusal.detail(), "NVMe Get Log Page 02h: Permission denied");
  }
}

nvme_smart_log soundNvme() {
  nvme_smart_log log{};
  log.temperature[0] = 0x3B;  // 315 K
  log.temperature[1] = 0x01;
  log.avail_spare = 100;
  log.spare_thresh = 10;
  log.percent_used = 3;
  log.power_on_hours[0] = 0x10;
  log.power_on_hours[1] = 0x27;
  return log;
}

std::unique_ptr<RecordingJournal> judged(const HealthReport& health) {
  auto journal = std::make_unique<RecordingJournal>();
  judgeHealth(health, {.percentUsed = 100, .celsius = 70}, "nvme0n1", *journal);
  return journal;
}

TEST(StorageHealth, of_a_sound_nvme_disk_is_told_without_complaint) {
  const auto journal = judged(healthFrom(soundNvme()));
  EXPECT_THAT(journal->complaints(), IsEmpty());
  EXPECT_THAT(journal->parametersOf(StorageEvent::Health),
              ElementsAre("nvme0n1", "10000", "42", "3", "0"));
}

TEST(StorageHealth, names_each_fault_of_an_nvme_disk) {
  struct Case {
    std::function<void(nvme_smart_log&)> spoil;
    StorageEvent event;
    std::string parameter;
  };
  const std::vector<Case> cases{
      {[](auto& log) { log.critical_warning = 1; }, StorageEvent::CriticalWarning,
       "SPARE_BELOW_THRESHOLD"},
      {[](auto& log) { log.critical_warning = 4; }, StorageEvent::CriticalWarning,
       "RELIABILITY_DEGRADED"},
      {[](auto& log) { log.critical_warning = 8; }, StorageEvent::CriticalWarning,
       "MEDIA_READ_ONLY"},
      {[](auto& log) { log.critical_warning = 16; }, StorageEvent::CriticalWarning,
       "VOLATILE_BACKUP_FAILED"},
      {[](auto& log) { log.media_errors[0] = 7; }, StorageEvent::MediaErrors, "7"},
      {[](auto& log) { log.media_errors[15] = 1; }, StorageEvent::MediaErrors,
       "18446744073709551615"},
      {[](auto& log) { log.percent_used = 104; }, StorageEvent::Worn, "104"},
      {[](auto& log) { log.avail_spare = 9; }, StorageEvent::LowSpare, "9"},
      {[](auto& log) { log.temperature[0] = 0x5D; }, StorageEvent::Temperature, "76"},
  };
  for (const Case& item : cases) {
    nvme_smart_log log = soundNvme();
    item.spoil(log);
    const auto journal = judged(healthFrom(log));
    EXPECT_THAT(journal->complaints(), ElementsAre(static_cast<unsigned int>(item.event)));
    ASSERT_GT(journal->parametersOf(item.event).size(), 1U);
    EXPECT_THAT(journal->parametersOf(item.event).at(1), HasSubstr(item.parameter));
  }
}

TEST(StorageErrorLog, of_an_nvme_disk_names_the_latest_error) {
  std::array<nvme_error_log_page, 4> pages{};
  pages[0].error_count = 1;
  pages[0].status_field = 0x02 << 1;  // a program asked for what the disk does not know
  RecordingJournal clean;
  judgeErrorLog(errorLogFrom(pages), {}, "nvme0n1", clean);
  EXPECT_THAT(clean.complaints(), IsEmpty());
  EXPECT_THAT(clean.parametersOf(StorageEvent::ErrorLogRead),
              ElementsAre("nvme0n1", "NVME_ERROR_LOG", "1"));

  pages[0].error_count = 12;
  pages[0].lba = 4711;
  pages[0].status_field = 0x281 << 1;  // unrecovered read error
  pages[1].error_count = 11;
  pages[1].status_field = 0x06 << 1;  // internal error
  pages[2].error_count = 10;
  pages[2].status_field = 0x02 << 1;  // a program asked for what the disk does not know
  RecordingJournal journal;
  judgeErrorLog(errorLogFrom(pages), {}, "nvme0n1", journal);
  const auto parameters = journal.parametersOf(StorageEvent::ErrorLogEntries);
  ASSERT_THAT(parameters, SizeIs(3));
  EXPECT_EQ(parameters[1], "2");
  EXPECT_THAT(parameters[2], HasSubstr("LBA 4711"));
  EXPECT_THAT(parameters[2], HasSubstr("Unrecovered Read Error"));
}

TEST(StorageErrorLog, of_the_kernel_warns_of_commands_that_timed_out) {
  Tree tree;
  EXPECT_THROW(kernelErrorLog("sda", tree.root()), NotSupported);
  tree.file("block/sda/device/ioerr_cnt", "0x0").file("block/sda/device/iotmo_cnt", "0x2");
  RecordingJournal journal;
  judgeErrorLog(kernelErrorLog("sda", tree.root()), {}, "sda", journal);
  EXPECT_THAT(journal.parametersOf(StorageEvent::ErrorLogEntries),
              ElementsAre("sda", "2", "COMMANDS_TIMED_OUT"));
}

TEST(StorageErrorLog, of_a_sound_disk_may_count_what_it_refused) {
  Tree tree;
  tree.file("block/sda/device/ioerr_cnt", "0x1f").file("block/sda/device/iotmo_cnt", "0x0");
  RecordingJournal journal;
  judgeErrorLog(kernelErrorLog("sda", tree.root()), {}, "sda", journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(StorageEvent::SenseData), ElementsAre("sda", "31"));
}

TEST(StorageErrorLog, tells_how_the_last_self_test_ended) {
  ErrorLog log;
  log.selfTest = SelfTestEnd::Failed;
  log.selfTestStatus = 7;
  RecordingJournal failed;
  judgeErrorLog(log, {}, "sda", failed);
  EXPECT_THAT(failed.parametersOf(StorageEvent::SelfTestFailed),
              ElementsAre("sda", "7h", "?", "?"));
  log.selfTest = SelfTestEnd::Interrupted;
  RecordingJournal interrupted;
  judgeErrorLog(log, {}, "sda", interrupted);
  EXPECT_THAT(interrupted.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::SelfTestInterrupted)));
}

}  // namespace
}  // namespace TarvexDiags::Storage
