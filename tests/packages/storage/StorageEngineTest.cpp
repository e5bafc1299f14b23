// The engines of the storage package against a file that stands for a disk, sound and with faults.

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <system_error>
#include <thread>

#include "packagekit/TestContext.h"
#include "packages/storage/AnsweredCall.h"
#include "packages/storage/Crc32c.h"
#include "packages/storage/PageBuffer.h"
#include "packages/storage/Places.h"
#include "packages/storage/Ranges.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/TestPattern.h"
#include "packages/storage/TransferQueue.h"
#include "packages/storage/WriteVerify.h"
#include "tests/packages/storage/FaultySource.h"
#include "tests/support/Eventually.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using Common::RecordingJournal;
using PackageKit::UniqueDescriptor;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint64_t kKib = 1024;
constexpr std::uint64_t kMib = 1024 * kKib;
constexpr std::uint64_t kDiskSize = 4 * kMib;
constexpr std::uint64_t kBlock = 4096;
const std::string kDisk = "sdz";

SourceOptions smallSlots(std::uint32_t slotSize = 64 * kKib, unsigned int slots = 4) {
  return {.slots = slots, .slotSize = slotSize, .useUring = true};
}

/// @brief A file of random bytes, with no name.
UniqueDescriptor randomFile(std::uint64_t size = kDiskSize) {
  UniqueDescriptor file = makeTemporaryFile(".", size);
  PageBuffer data(size);
  TestPattern pattern(7, size);
  pattern.fill(data.bytes());
  EXPECT_EQ(pwrite(file.get(), data.bytes().data(), size, 0), static_cast<ssize_t>(size));
  return file;
}

std::unique_ptr<BlockSource> goodDisk(const SourceOptions& options = smallSlots()) {
  return overFile(randomFile(), options);
}

// --- Building blocks

std::uint32_t plainCrc32c(std::span<const std::byte> bytes) {
  std::uint32_t value = ~0U;
  for (const std::byte byte : bytes) {
    value ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      value = (value >> 1) ^ ((value & 1) != 0 ? 0x82F63B78U : 0);
    }
  }
  return ~value;
}

TEST(StorageChecksum, is_that_of_the_published_vectors) {
  const auto sumOf = [](const std::vector<unsigned char>& bytes) {
    return crc32c(std::as_bytes(std::span(bytes)));
  };
  std::vector<unsigned char> rising(32);
  std::iota(rising.begin(), rising.end(), static_cast<unsigned char>(0));
  EXPECT_EQ(sumOf({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xE3069283U);
  EXPECT_EQ(sumOf(std::vector<unsigned char>(32, 0x00)), 0x8A9136AAU);
  EXPECT_EQ(sumOf(std::vector<unsigned char>(32, 0xFF)), 0x62A8AB43U);
  EXPECT_EQ(sumOf(rising), 0x46DD794EU);
  EXPECT_EQ(sumOf({}), 0U);
}

TEST(StorageChecksum, agrees_with_the_plain_algorithm_at_every_length_and_alignment) {
  std::vector<std::byte> bytes(600);
  std::mt19937 random(1);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(random()); });
  for (std::size_t start = 0; start < 17; ++start) {
    for (std::size_t length = 0; length + start <= bytes.size(); length += 7) {
      const auto part = std::span(bytes).subspan(start, length);
      ASSERT_EQ(crc32c(part), plainCrc32c(part)) << start << " " << length;
    }
  }
}

TEST(StorageBuffers, begin_at_a_page_and_are_zero) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{4096}, std::size_t{5} << 20}) {
    const PageBuffer buffer(size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.bytes().data()) % 4096, 0U);
    ASSERT_EQ(buffer.bytes().size(), size);
    EXPECT_EQ(buffer.bytes().front(), std::byte{0});
    EXPECT_EQ(buffer.bytes().back(), std::byte{0});
  }
}

TEST(StorageZones, cover_the_whole_disk_when_nothing_is_left_out) {
  for (const std::uint64_t wanted : {std::uint64_t{0}, kDiskSize, 2 * kDiskSize}) {
    const std::vector<Zone> zones = spreadZones(kDiskSize + 100, wanted, kMib, 512);
    ASSERT_THAT(zones, SizeIs(1));
    EXPECT_EQ(zones.front().offset, 0U);
    EXPECT_EQ(zones.front().length, kDiskSize);
  }
  EXPECT_THAT(spreadZones(100, 0, kMib, 512), IsEmpty());
}

TEST(StorageZones, reach_from_the_first_to_the_last_block_without_overlap) {
  const std::uint64_t size = 1000 * kMib;
  const std::vector<Zone> zones = spreadZones(size, 100 * kMib, 7 * kMib, 4096);
  ASSERT_THAT(zones, SizeIs(14));
  EXPECT_EQ(zones.front().offset, 0U);
  EXPECT_EQ(zones.back().offset + zones.back().length, size);
  for (std::size_t index = 1; index < zones.size(); ++index) {
    EXPECT_GE(zones[index].offset, zones[index - 1].offset + zones[index - 1].length);
    EXPECT_EQ(zones[index].offset % 4096, 0U);
  }
}

TEST(StorageZones, are_walked_in_pieces) {
  ZoneWalk walk({{0, 10}, {100, 4}}, 4);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> pieces;
  for (Zone piece = walk.next(); piece.length > 0; piece = walk.next()) {
    pieces.emplace_back(piece.offset, piece.length);
  }
  using Piece = std::pair<std::uint64_t, std::uint64_t>;
  EXPECT_THAT(pieces, ElementsAre(Piece{0, 4}, Piece{4, 4}, Piece{8, 2}, Piece{100, 4}));
  EXPECT_EQ(walk.total(), 14U);
}

TEST(StorageFigures, are_written_as_people_read_them) {
  Latencies latencies;
  EXPECT_EQ(latencies.quantile(0.5), Nanoseconds{0});
  for (int value = 1; value <= 101; ++value) {
    latencies.add(Nanoseconds{value});
  }
  EXPECT_EQ(latencies.quantile(0), Nanoseconds{1});
  EXPECT_EQ(latencies.quantile(0.5), Nanoseconds{51});
  EXPECT_EQ(latencies.quantile(1), Nanoseconds{101});
  EXPECT_EQ(latencyText(std::chrono::microseconds(85)), "85 us");
  EXPECT_EQ(latencyText(std::chrono::microseconds(12340)), "12.3 ms");
  EXPECT_EQ(sizeText(999), "999 B");
  EXPECT_EQ(sizeText(1'000'204'886'016), "1.00 TB");
  EXPECT_EQ(rateText(rateOf(3'000'000, std::chrono::seconds(2))), "1.5 MB/s");
  EXPECT_EQ(rateOf(1, Nanoseconds{0}), 0);
}

TEST(StoragePattern, names_the_place_of_its_own_sectors_only) {
  const TestPattern pattern(1, 4096);
  std::vector<std::byte> data(4096);
  pattern.fill(data);
  EXPECT_EQ(pattern.placeOf(data), std::nullopt);
  pattern.stamp(data, 1 << 20);
  const auto second = std::span(data).subspan(TestPattern::kSector);
  EXPECT_EQ(pattern.placeOf(second), (1U << 20) + TestPattern::kSector);
  EXPECT_EQ(TestPattern(2, 4096).placeOf(second), std::nullopt);
}

TEST(StorageTemporaryFile, has_the_size_and_no_name) {
  const UniqueDescriptor file = makeTemporaryFile(".", kMib);
  struct stat status {};
  ASSERT_EQ(fstat(file.get(), &status), 0);
  EXPECT_EQ(status.st_size, static_cast<off_t>(kMib));
  EXPECT_EQ(status.st_nlink, 0U);
}

TEST(StorageTemporaryFile, says_why_it_cannot_be_made) {
  try {
    makeTemporaryFile("/proc", kMib);
    FAIL() << "made a file in /proc";
  } catch (const std::system_error& error) {
    EXPECT_NE(error.code().value(), 0);
  }
}

TEST(StorageSource, refuses_to_write_to_anything_but_a_file) {
  EXPECT_THROW(overFile(UniqueDescriptor(open("/dev/null", O_RDWR | O_CLOEXEC)), smallSlots()),
               std::invalid_argument);
}

TEST(StorageSource, reads_from_a_descriptor_that_waits) {
  const std::string path = std::filesystem::absolute("waits").string();
  std::ofstream(path) << std::string(kBlock, 'x');
  const auto source = openForReading(path, smallSlots());
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) == path) {
      ++found;
      EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFL) & O_NONBLOCK, 0);
    }
  }
  EXPECT_EQ(found, 1);
}

TEST(StorageSource, is_not_possible_without_memory_for_its_buffers) {
  const std::string path = "any-file";
  std::ofstream(path) << std::string(kBlock, 'x');
  // More than any process can address.
  const SourceOptions huge = {.slots = 1U << 17, .slotSize = 1U << 31};
  EXPECT_THROW(openForReading(path, huge), NotSupported);
}

TEST(StorageSource, tells_that_a_disk_is_there_no_more) {
  try {
    openForReading("/dev/no-such-disk", smallSlots());
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENODEV);
    EXPECT_THAT(error.what(), testing::HasSubstr("No such file"));
  }
}

// --- Sources: the same of io_uring and of threads

class StorageSources : public testing::TestWithParam<bool> {
 protected:
  SourceOptions options(std::uint32_t slotSize = 64 * kKib, unsigned int slots = 8) const {
    return {.slots = slots, .slotSize = slotSize, .useUring = GetParam()};
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, StorageSources, testing::Bool(), [](const auto& instance) {
  return instance.param ? "io_uring" : "threads";
});

TEST_P(StorageSources, move_every_byte_of_a_file) {
  const auto source = overFile(makeTemporaryFile(".", kDiskSize), options());
  const TestPattern pattern(3, 64 * kKib);
  ZoneWalk writes({{0, kDiskSize}}, 64 * kKib);
  const auto nothing = [](const Transfer&, const Completion&) {};
  RecordingJournal journal;
  transferAll(
      *source, {journal, kDisk},
      [&](unsigned int slot) -> std::optional<Transfer> {
        const Zone piece = writes.next();
        pattern.fill(source->buffer(slot));
        pattern.stamp(source->buffer(slot), piece.offset);
        return piece.length == 0
                   ? std::nullopt
                   : std::optional(Transfer{Direction::Write, slot, piece.offset, 64 * kKib});
      },
      nothing);
  EXPECT_EQ(transferOne(*source, {journal, kDisk}, {Direction::Flush, 0, 0, 0}).error, 0);

  std::uint64_t right = 0;
  ZoneWalk reads({{0, kDiskSize}}, 64 * kKib);
  std::vector<std::byte> expected(64 * kKib);
  pattern.fill(expected);
  transferAll(
      *source, {journal, kDisk},
      [&](unsigned int slot) -> std::optional<Transfer> {
        const Zone piece = reads.next();
        return piece.length == 0
                   ? std::nullopt
                   : std::optional(Transfer{Direction::Read, slot, piece.offset, 64 * kKib});
      },
      [&](const Transfer& transfer, const Completion& completion) {
        ASSERT_TRUE(succeeded(transfer, completion));
        EXPECT_GT(completion.latency.count(), 0);
        pattern.stamp(expected, transfer.offset);
        right += std::memcmp(source->buffer(transfer.slot).data(), expected.data(), 64 * kKib) == 0;
      });
  EXPECT_EQ(right, kDiskSize / (64 * kKib));
}

TEST_P(StorageSources, tell_the_errno_of_a_failed_transfer) {
  const UniqueDescriptor file = randomFile();
  // Open for reading alone: the kernel refuses the write, not the source.
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  const auto source =
      overFile(UniqueDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), options());
  RecordingJournal journal;
  const Completion completion =
      transferOne(*source, {journal, kDisk}, {Direction::Write, 3, 0, 4096});
  EXPECT_EQ(completion.error, EBADF);
  EXPECT_EQ(completion.slot, 3U);
}

TEST_P(StorageSources, end_with_transfers_in_flight_unharmed) {
  const auto source = overFile(randomFile(), options());
  for (unsigned int slot = 0; slot < source->slots(); ++slot) {
    source->start({Direction::Read, slot, slot * 64 * kKib, 64 * kKib});
  }
}

TEST_P(StorageSources, are_left_at_once_when_they_were_abandoned) {
  const auto source = overFile(randomFile(), options());
  source->start({Direction::Read, 0, 0, 64 * kKib});
  source->abandon();
}

TEST_P(StorageSources, wait_no_longer_than_asked_to) {
  const auto source = overFile(randomFile(), options());
  EXPECT_EQ(source->wait(std::chrono::milliseconds(20)), std::nullopt);
}

TEST_P(StorageSources, read_a_sound_disk_without_complaint) {
  const auto source = overFile(randomFile(), options());
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(*source, {}, kDisk, journal).bytes, kDiskSize);
  EXPECT_EQ(readRandomly(*source, {.reads = 200, .seed = 5}, kDisk, journal).bytes,
            200 * 64 * kKib);
  EXPECT_EQ(checkStability(*source, {.window = kMib}, kDisk, journal).bytes, 2 * kDiskSize);
  const LatencyOptions patient = {.reads = 50, .limit = std::chrono::seconds(5), .factor = 20};
  const double readsBefore = journal.processed().at("reads");
  EXPECT_EQ(findSlowBlocks(*source, patient, kDisk, journal).reads, 50U);
  EXPECT_DOUBLE_EQ(journal.processed().at("reads"), readsBefore + 50);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_P(StorageSources, write_and_verify_a_sound_file_without_complaint) {
  const auto source = overFile(makeTemporaryFile(".", kDiskSize), options());
  RecordingJournal journal;
  const WriteVerifyFigures figures = writeAndVerify(*source, {.seed = 9}, kDisk, journal);
  EXPECT_EQ(figures.bytes, kDiskSize);
  EXPECT_EQ(figures.faultySectors, 0U);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_EQ(journal.count(StorageEvent::WrittenAndVerified), 1);
  EXPECT_EQ(journal.progressSteps().back(), 100U);
  EXPECT_NEAR(journal.processed().at("MB"), 2 * kDiskSize / 1e6, 1e-3) << "written and read";
}

// --- Read scan and random reads

TEST(StorageScan, names_the_unreadable_blocks_and_their_number) {
  FaultySource faulty(goodDisk());
  faulty.failReads(20 * kBlock, 3 * kBlock).failReads(500 * kBlock, 1);
  RecordingJournal journal;
  const ReadFigures figures = scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_EQ(figures.unreadableBlocks, 4U);
  EXPECT_EQ(journal.count(StorageEvent::Unreadable), 2);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "20", "3", "4096", "Input/output error"));
  EXPECT_EQ(journal.count(StorageEvent::UnreadableTotal), 0) << "each place was told by itself";
  EXPECT_EQ(faulty.inFlight(), 0);
}

TEST(StorageScan, joins_a_bad_stretch_across_reads) {
  FaultySource faulty(goodDisk());
  faulty.failReads(64 * kKib - kBlock, 2 * kBlock);
  RecordingJournal journal;
  scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "15", "2", "4096", "Input/output error"));
}

TEST(StorageScan, warns_of_a_read_that_succeeds_the_second_time) {
  FaultySource faulty(goodDisk());
  faulty.failReads(0, 1, EIO, 1);
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 0U);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::RecoveredRead)));
  EXPECT_THAT(journal.parametersOf(StorageEvent::RecoveredRead),
              ElementsAre("sdz", "0", "16", "4096", "Input/output error"));
}

TEST(StorageScan, takes_a_short_read_for_a_fault) {
  FaultySource faulty(goodDisk());
  faulty.shortenReads(7 * kBlock);
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 1U);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "7", "1", "4096", "FEWER_BYTES"));
}

TEST(StorageScan, ends_when_the_disk_is_gone) {
  FaultySource faulty(goodDisk());
  faulty.failReads(2 * kMib, kDiskSize, ENODEV);
  RecordingJournal journal;
  try {
    scanSequentially(faulty, {}, kDisk, journal);
    FAIL() << "went on without a disk";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENODEV);
  }
  EXPECT_EQ(faulty.inFlight(), 0);
}

TEST(StorageScan, does_not_blame_the_disk_for_what_the_kernel_lacks) {
  for (const int error : {ENOMEM, EAGAIN, EINVAL, EPERM, EOPNOTSUPP, EBUSY}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(2 * kMib, 1, error);
    RecordingJournal journal;
    EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), std::system_error) << error;
    EXPECT_THAT(journal.complaints(), IsEmpty());
    EXPECT_EQ(faulty.inFlight(), 0);
  }
}

TEST(StorageScan, blames_the_disk_for_each_way_to_lose_a_block) {
  for (const int error : {EIO, ENODATA, EREMOTEIO, EILSEQ, ETIMEDOUT, ETIME, ENOLINK, EBADMSG}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(2 * kMib, 1, error);
    RecordingJournal journal;
    EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 1U) << error;
  }
}

TEST(StorageScan, does_not_blame_a_disk_that_leaves_while_its_bad_blocks_are_searched) {
  FaultySource faulty(goodDisk());
  faulty.failReads(2 * kMib, 1, EIO, 1).failReads(2 * kMib, 1, ENODEV);
  RecordingJournal journal;
  EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), std::system_error);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

/// @brief The error with which the disk's leaving is told.
template <class Run>
int errorOf(Run run) {
  try {
    run();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

using Engine = std::function<void(BlockSource&, RecordingJournal&)>;

const std::map<std::string, Engine>& engines() {
  static const std::map<std::string, Engine> kEngines{
      {"scan", [](auto& source, auto& journal) { scanSequentially(source, {}, kDisk, journal); }},
      {"random reads",
       [](auto& source, auto& journal) {
         readRandomly(source, {.reads = 200, .seed = 5}, kDisk, journal);
       }},
      {"stability",
       [](auto& source, auto& journal) {
         checkStability(source, {.window = kMib}, kDisk, journal);
       }},
      {"latency",
       [](auto& source, auto& journal) {
         findSlowBlocks(source, {.reads = 100, .limit = std::chrono::seconds(5)}, kDisk, journal);
       }},
      {"write and verify",
       [](auto& source, auto& journal) { writeAndVerify(source, {.seed = 9}, kDisk, journal); }},
  };
  return kEngines;
}

TEST(StorageLeaving, is_told_in_place_of_unreadable_blocks) {
  for (const auto& [name, engine] : engines()) {
    for (const auto way :
         {FaultySource::Leaving::WithErrors, FaultySource::Leaving::WithoutBytes}) {
      // At once, and after a moment in which every transfer fails.
      for (const int unnoticed : {0, 40}) {
        FaultySource faulty(goodDisk());
        faulty.leaveAfter(20, way, unnoticed);
        RecordingJournal journal;
        EXPECT_EQ(errorOf([&, &run = engine] { run(faulty, journal); }), ENODEV)
            << name << " " << unnoticed;
        EXPECT_THAT(journal.complaints(), IsEmpty()) << name << " " << unnoticed;
        EXPECT_EQ(faulty.inFlight(), 0) << name;
      }
    }
  }
}

TEST(StorageLeaving, of_a_file_system_is_told_by_its_errors) {
  for (const int error : {ENODEV, ENXIO, ENOMEDIUM, ENOTCONN, ESTALE, ECONNABORTED, ESHUTDOWN}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(2 * kMib, 1, error);
    RecordingJournal journal;
    EXPECT_EQ(errorOf([&] { scanSequentially(faulty, {}, kDisk, journal); }), ENODEV) << error;
  }
}

TEST(StorageLeaving, of_a_disk_is_seen_at_its_size_and_its_place_in_the_system) {
  RecordingJournal journal;
  const Waiter waiter{journal, kDisk};
  const auto source = goodDisk();
  EXPECT_FALSE(source->hasVanished(waiter));
  const auto elsewhere = makeSource(lookAt(randomFile(), "no-such-disk"), smallSlots());
  EXPECT_FALSE(elsewhere->hasVanished(waiter)) << "what was never there cannot leave";
}

TEST(StorageSilence, ends_a_test_and_names_the_block) {
  FaultySource faulty(goodDisk());
  faulty.hangReads(500 * kBlock).losePatienceAfter(std::chrono::seconds(1));
  RecordingJournal journal;
  EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), SilentDisk);
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoAnswer)));
  EXPECT_THAT(journal.parametersOf(StorageEvent::NoAnswer),
              ElementsAre("sdz", "496", "4096", "1"));  // the read of 64 KiB with the block in it
  EXPECT_TRUE(faulty.isAbandoned());
}

TEST(StorageSilence, ends_every_test) {
  for (const auto& [name, engine] : engines()) {
    FaultySource faulty(goodDisk());
    for (std::uint64_t offset = 0; offset < kDiskSize; offset += 64 * kKib) {
      faulty.hangReads(offset);
    }
    faulty.losePatienceAfter(std::chrono::milliseconds(200));
    RecordingJournal journal;
    EXPECT_THROW(engine(faulty, journal), SilentDisk) << name;
    EXPECT_EQ(journal.count(StorageEvent::NoAnswer), 1) << name;
  }
}

TEST(StorageSilence, of_a_flush_ends_the_test_too) {
  FaultySource faulty(goodDisk());
  faulty.hangFlush().losePatienceAfter(std::chrono::seconds(1));
  RecordingJournal journal;
  EXPECT_THROW(writeAndVerify(faulty, {.seed = 1}, kDisk, journal), SilentDisk);
  EXPECT_THAT(journal.parametersOf(StorageEvent::NoAnswer), ElementsAre("sdz", "?", "4096", "1"));
}

TEST(StorageSilence, does_not_keep_a_test_that_shall_stop) {
  FaultySource faulty(goodDisk());
  faulty.hangReads(500 * kBlock);
  RecordingJournal journal;
  journal.stopAfter(80);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), PackageKit::Stopped);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_TRUE(faulty.isAbandoned());
}

/// @brief What this thread has worked so far, whatever else the machine does.
std::chrono::nanoseconds workOfThread() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// @brief Asks for a stop from a question on, and knows since when.
class StoppingJournal : public RecordingJournal {
 public:
  explicit StoppingJournal(int questions) : m_left(questions) {}

  bool stopRequested() override {
    ++m_asked;
    if (m_left-- > 0) {
      return false;
    }
    if (!m_hasStopped) {
      m_hasStopped = true;
      m_since = std::chrono::steady_clock::now();
      m_workBefore = workOfThread();
    }
    return true;
  }

  int asked() const { return m_asked; }
  bool hasStopped() const { return m_hasStopped; }
  auto sinceStop() const { return std::chrono::steady_clock::now() - m_since; }
  auto workSinceStop() const { return workOfThread() - m_workBefore; }

 private:
  int m_left;
  int m_asked = 0;
  bool m_hasStopped = false;
  std::chrono::steady_clock::time_point m_since;
  std::chrono::nanoseconds m_workBefore{0};
};

/// @brief A run that was stopped after so many tenths of its questions. How many it asks follows
/// the disk's latency, so one that ended before its moment is done again by its own number.
std::unique_ptr<StoppingJournal> stoppedRun(const Engine& engine, int questions, int tenths) {
  constexpr int attempts = 20;
  std::unique_ptr<StoppingJournal> journal;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    journal = std::make_unique<StoppingJournal>(questions * tenths / 10);
    const auto source = goodDisk();  // what a stop has left behind may still be in flight
    try {
      engine(*source, *journal);
    } catch (const PackageKit::Stopped&) {
    }
    if (journal->hasStopped()) {
      break;
    }
    questions = journal->asked();
  }
  return journal;
}

TEST(StorageStop, is_answered_at_ten_moments_of_every_test) {
  for (const auto& [name, engine] : engines()) {
    StoppingJournal whole(std::numeric_limits<int>::max());
    engine(*goodDisk(), whole);
    for (int tenth = 0; tenth < 10; ++tenth) {
      const auto journal = stoppedRun(engine, whole.asked(), tenth);
      ASSERT_TRUE(journal->hasStopped()) << name << " " << tenth;
      EXPECT_LT(journal->workSinceStop(), std::chrono::milliseconds(500)) << name << " " << tenth;
      EXPECT_LT(journal->sinceStop(), std::chrono::seconds(20)) << name << " " << tenth;
      EXPECT_THAT(journal->complaints(), IsEmpty()) << name << " " << tenth;
    }
  }
}

/// @brief A busy disk: transfers end one by one, each after a while.
class TricklingSource : public FaultySource {
 public:
  using FaultySource::FaultySource;

  std::optional<Completion> wait(std::chrono::milliseconds atMost) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    return FaultySource::wait(atMost);
  }
};

TEST(StorageStop, is_not_put_off_by_each_transfer_that_ends) {
  constexpr unsigned int slots = 32;
  TricklingSource source(goodDisk(smallSlots(4 * kKib, slots)));
  RecordingJournal journal;
  journal.stopAfter(0);
  unsigned int started = 0;
  unsigned int ended = 0;
  EXPECT_THROW(transferAll(
                   source, {journal, kDisk},
                   [&](unsigned int slot) {
                     return started++ < slots
                                ? std::optional(Transfer{Direction::Read, slot, 0, 4 * kKib})
                                : std::nullopt;
                   },
                   [&](const Transfer&, const Completion&) { ++ended; }),
               PackageKit::Stopped);
  EXPECT_LT(ended, slots / 2);
  EXPECT_TRUE(source.isAbandoned());
}

/// @brief A disk that does one transfer after the other, each in the same time, which passes only
/// here.
class LabouringSource : public FaultySource {
 public:
  explicit LabouringSource(std::unique_ptr<BlockSource> good)
      : FaultySource(std::move(good)), m_begun(slots()) {}

  void takes(std::chrono::milliseconds each) { m_each = each; }
  void takesForEachKib(std::chrono::microseconds each) { m_eachKib = each; }
  std::chrono::nanoseconds longest() const { return m_longest; }

  void start(const Transfer& transfer) override {
    m_begun[transfer.slot] = m_now;
    if (inFlight() == 0) {
      m_longest = std::max(m_longest, timeFor(transfer.length));
    }
    FaultySource::start(transfer);
  }
  std::optional<Completion> wait(std::chrono::milliseconds atMost) override {
    std::optional<Completion> completion = FaultySource::wait(atMost);
    if (completion) {
      m_now += timeFor(completion->length);
      completion->latency = m_now - m_begun[completion->slot];
    }
    return completion;
  }

 private:
  std::chrono::nanoseconds timeFor(std::uint32_t length) const {
    return m_each + m_eachKib * static_cast<std::int64_t>(length / kKib);
  }

  std::chrono::nanoseconds m_now{0};
  std::chrono::nanoseconds m_each{0};
  std::chrono::nanoseconds m_eachKib{0};
  std::chrono::nanoseconds m_longest{0};  ///< of those that were alone in flight
  std::vector<std::chrono::nanoseconds> m_begun;
};

/// @brief Reads so often. @return how many reads were in flight at most in the second half
int mostInFlight(LabouringSource& source, int reads) {
  RecordingJournal journal;
  int started = 0;
  int most = 0;
  transferAll(
      source, {journal, kDisk},
      [&](unsigned int slot) {
        return started++ < reads ? std::optional(Transfer{Direction::Read, slot, 0, 4 * kKib})
                                 : std::nullopt;
      },
      [&](const Transfer&, const Completion&) {
        most = std::max(most, started > reads / 2 ? source.inFlight() + 1 : 0);
      });
  return most;
}

TEST(StorageStop, finds_no_more_in_flight_than_a_slow_disk_can_end) {
  LabouringSource source(goodDisk(smallSlots(4 * kKib, 32)));
  source.takes(std::chrono::milliseconds(50));
  EXPECT_LE(mostInFlight(source, 400), 6);  // 0.3 s
  source.takes(std::chrono::seconds(2));
  EXPECT_LE(mostInFlight(source, 400), 2);
}

TEST(StorageStop, finds_no_longer_read_in_flight_than_a_slow_disk_can_end) {
  LabouringSource slow(goodDisk(smallSlots(kMib, 4)));
  slow.takesForEachKib(std::chrono::milliseconds(1));  // 1 MB/s
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(slow, {}, kDisk, journal).bytes, kDiskSize);
  EXPECT_GT(slow.longest(), std::chrono::milliseconds(50));
  EXPECT_LE(slow.longest(), std::chrono::milliseconds(200));
}

TEST(StorageStop, costs_a_quick_disk_none_of_the_length_of_its_reads) {
  LabouringSource quick(goodDisk(smallSlots(kMib, 1)));
  quick.takes(std::chrono::milliseconds(1));
  RecordingJournal journal;
  // 64, 128, 256 and 512 KiB, and the rest in pieces of 1 MiB.
  EXPECT_EQ(scanSequentially(quick, {}, kDisk, journal).reads, 4U + 4U);
}

TEST(StorageStop, costs_a_quick_disk_none_of_its_depth) {
  LabouringSource source(goodDisk(smallSlots(4 * kKib, 32)));
  source.takes(std::chrono::milliseconds(1));
  EXPECT_EQ(mostInFlight(source, 400), 32);
}

TEST(StorageStop, finds_less_in_flight_when_the_disk_gets_slow_and_more_when_it_is_quick_again) {
  LabouringSource source(goodDisk(smallSlots(4 * kKib, 32)));
  RecordingJournal journal;
  constexpr int reads = 900;
  int started = 0;
  std::map<int, int> inFlight;  // by the number of reads started
  transferAll(
      source, {journal, kDisk},
      [&](unsigned int slot) {
        source.takes(std::chrono::milliseconds(started < 300 || started >= 600 ? 1 : 50));
        return started++ < reads ? std::optional(Transfer{Direction::Read, slot, 0, 4 * kKib})
                                 : std::nullopt;
      },
      [&](const Transfer&, const Completion&) { inFlight[started] = source.inFlight() + 1; });
  EXPECT_EQ(inFlight[299], 32);
  EXPECT_LE(inFlight[599], 6);
  EXPECT_EQ(inFlight[899], 32);
}

TEST(StorageStop, is_answered_while_the_space_of_a_file_is_reserved) {
  int steps = 0;
  const auto stopAtTheFourth = [&](const std::function<void()>& step) {
    if (++steps > 3) {
      throw PackageKit::Stopped();
    }
    step();
  };
  EXPECT_THROW(makeTemporaryFile(".", 1024 * kMib, stopAtTheFourth), PackageKit::Stopped);
  EXPECT_EQ(steps, 4);
}

/// @brief Something that the kernel holds until the test lets it go.
class HeldCall {
 public:
  std::function<void()> call() const {
    return [held = m_held] { held->free.wait(); };
  }
  void letGo() { m_held->promise.set_value(); }
  bool isForgotten() const { return m_held.use_count() == 1; }

 private:
  struct Held {
    std::promise<void> promise;
    std::shared_future<void> free = promise.get_future().share();
  };
  std::shared_ptr<Held> m_held = std::make_shared<Held>();
};

TEST(StorageCall, gives_its_result_or_what_it_throws) {
  RecordingJournal journal;
  const Waiter waiter{journal, kDisk};
  EXPECT_EQ(answered(waiter, std::chrono::seconds(60), [] { return std::string("here"); }), "here");
  EXPECT_THROW(awaitCall(waiter, std::chrono::seconds(60),
                         [] { throw NotSupported(Reasons::kCannotBeRead); }),
               NotSupported);
  EXPECT_THAT(journal.events(), IsEmpty());
}

TEST(StorageCall, that_the_kernel_holds_is_told_as_a_silent_disk) {
  HeldCall held;
  RecordingJournal journal;
  EXPECT_THROW(awaitCall({journal, kDisk}, std::chrono::seconds(1), held.call()), SilentDisk);
  EXPECT_THAT(journal.parametersOf(StorageEvent::NoAnswer), ElementsAre("sdz", "?", "?", "1"));
  held.letGo();
  EXPECT_TRUE(TestSupport::eventually([&] { return held.isForgotten(); }));
}

TEST(StorageCall, that_the_kernel_holds_does_not_keep_a_stop_waiting) {
  HeldCall held;
  RecordingJournal journal;
  journal.stopAfter(1);
  EXPECT_THROW(awaitCall({journal, kDisk}, std::chrono::hours(1), held.call()),
               PackageKit::Stopped);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  held.letGo();
  EXPECT_TRUE(TestSupport::eventually([&] { return held.isForgotten(); }));
}

/// @brief A thing whose end the kernel holds.
struct HeldThing {
  HeldThing(const HeldCall& held, std::shared_ptr<std::atomic<bool>> ended)
      : m_held(held.call()), m_ended(std::move(ended)) {}
  HeldThing(HeldThing&& other) noexcept
      : m_held(std::exchange(other.m_held, nullptr)), m_ended(other.m_ended) {}
  ~HeldThing() {
    if (m_held) {
      m_held();
      *m_ended = true;
    }
  }

 private:
  std::function<void()> m_held;
  std::shared_ptr<std::atomic<bool>> m_ended;
};

TEST(StorageCall, that_ends_something_keeps_nobody_waiting) {
  HeldCall held;
  const auto ended = std::make_shared<std::atomic<bool>>(false);
  { const auto thing = endedAside(HeldThing(held, ended)); }
  EXPECT_FALSE(*ended);
  held.letGo();
  EXPECT_TRUE(TestSupport::eventually([&] { return ended->load(); }));
}

TEST(StorageCall, that_ends_something_has_ended_it_soon) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const UniqueDescriptor reader(ends[0]);
  { const auto writer = endedAside(UniqueDescriptor(ends[1])); }
  char byte = 0;
  EXPECT_TRUE(TestSupport::eventually([&] { return read(reader.get(), &byte, 1) == 0; }));
}

TEST(StorageRanges, are_joined_where_they_touch) {
  Ranges ranges;
  EXPECT_EQ(ranges.text(), "");
  ranges.add(4, 1);
  ranges.add(5, 2);
  ranges.add(9, 1);
  EXPECT_EQ(ranges.text(), "4-6, 9");
  EXPECT_EQ(ranges.count(), 2U);
  EXPECT_EQ(ranges.total(), 4U);
}

TEST(StorageRanges, are_counted_where_there_are_too_many) {
  Ranges ranges;
  for (std::uint64_t number = 0; number < 3000; ++number) {
    ranges.add(2 * number, 1);
  }
  EXPECT_THAT(ranges.text(), testing::EndsWith(", 4094, and 952 more"));
}

TEST(StorageScan, names_all_the_bad_places_and_not_only_the_first) {
  FaultySource faulty(goodDisk(smallSlots(4 * kKib)));
  std::string numbers;
  for (std::uint64_t block = 0; block < 100; ++block) {
    faulty.failReads(2 * block * kBlock, 1);
    numbers += (block == 0 ? "" : ", ") + std::to_string(2 * block);
  }
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 100U);
  EXPECT_EQ(journal.count(StorageEvent::Unreadable), 32);
  EXPECT_THAT(journal.parametersOf(StorageEvent::UnreadableTotal),
              ElementsAre("sdz", "100", "4096", "100", numbers));
}

TEST(StorageScan, tells_a_mismatch_of_protection_information_as_such) {
  FaultySource faulty(goodDisk());
  faulty.failReads(2 * kMib, 1, EILSEQ);
  RecordingJournal journal;
  scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable).at(4), "PROTECTION_MISMATCH");
}

TEST(StorageScan, gives_up_on_a_disk_that_reads_nothing) {
  FaultySource faulty(goodDisk(smallSlots(4 * kKib)));
  faulty.failReads(0, kDiskSize);
  RecordingJournal journal;
  const ReadFigures figures = scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_LT(figures.reads, kDiskSize / (4 * kKib) / 2);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable).at(1), "0");
}

TEST(StorageScan, ends_at_the_first_error_when_asked_to) {
  FaultySource faulty(goodDisk(smallSlots(4 * kKib)));
  faulty.failReads(20 * kBlock, 1).failReads(700 * kBlock, 1);
  RecordingJournal journal;
  journal.halts = true;
  EXPECT_LT(scanSequentially(faulty, {}, kDisk, journal).reads, 50U);
  EXPECT_EQ(journal.parametersOf(StorageEvent::Unreadable).at(1), "20");
}

TEST(StorageScan, does_not_pass_a_disk_without_blocks) {
  const auto empty = overFile(makeTemporaryFile(".", 512), smallSlots(4 * kKib));
  RecordingJournal journal;
  EXPECT_THROW(scanSequentially(*empty, {}, kDisk, journal), NotSupported);
  EXPECT_THROW(readRandomly(*empty, {.reads = 1}, kDisk, journal), NotSupported);
  EXPECT_THROW(checkStability(*empty, {}, kDisk, journal), NotSupported);
  EXPECT_THROW(findSlowBlocks(*empty, {.reads = 1}, kDisk, journal), NotSupported);
  EXPECT_THROW(writeAndVerify(*empty, {}, kDisk, journal), NotSupported);
}

TEST(StorageScan, stops_within_a_few_reads) {
  const auto source = goodDisk(smallSlots(4 * kKib));
  RecordingJournal journal;
  journal.stopAfter(10);
  try {
    EXPECT_LE(scanSequentially(*source, {}, kDisk, journal).reads, 10U);
  } catch (const PackageKit::Stopped&) {
    // On a busy machine those in flight took too long.
  }
}

TEST(StorageScan, reads_only_the_zones_asked_for_and_tells_its_progress) {
  const auto source = goodDisk(smallSlots(16 * kKib));
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(*source, {.bytes = kMib, .zone = 64 * kKib}, kDisk, journal).bytes,
            kMib);
  EXPECT_NEAR(journal.processed().at("MB"), kMib / 1e6, 1e-6);
  EXPECT_TRUE(std::is_sorted(journal.progressSteps().begin(), journal.progressSteps().end()));
  EXPECT_EQ(journal.progressSteps().back(), 100U);
}

TEST(StorageRandomRead, finds_an_unreadable_block) {
  FaultySource faulty(goodDisk(smallSlots(4 * kKib)));
  faulty.failReads(0, kDiskSize / 8);
  RecordingJournal journal;
  const ReadFigures figures = readRandomly(faulty, {.reads = 100, .seed = 1}, kDisk, journal);
  EXPECT_EQ(figures.reads, 100U);
  EXPECT_GT(figures.unreadableBlocks, 0U);
  EXPECT_GT(journal.count(StorageEvent::Unreadable), 0);
}

TEST(StorageRandomRead, goes_to_the_same_places_for_the_same_seed) {
  RandomPlaces one(kDiskSize, 4096, 1);
  RandomPlaces again(kDiskSize, 4096, 1);
  RandomPlaces other(kDiskSize, 4096, 2);
  int same = 0;
  for (int count = 0; count < 100; ++count) {
    const std::uint64_t place = one.next();
    EXPECT_EQ(place, again.next());
    EXPECT_LE(place + 4096, kDiskSize);
    same += place == other.next() ? 1 : 0;
  }
  EXPECT_LT(same, 10);
}

// --- Stability

TEST(StorageStability, finds_a_block_that_reads_differently) {
  FaultySource faulty(goodDisk());
  faulty.flicker(77 * kBlock + 5);
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  ASSERT_EQ(journal.count(StorageEvent::Unstable), 1);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unstable),
              ElementsAre("sdz", "77", "4096", "2", "12"));
}

TEST(StorageStability, finds_a_single_wrong_read) {
  FaultySource faulty(goodDisk());
  faulty.flipReads(3 * kBlock, 1, 1);
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::Unstable)));
}

TEST(StorageStability, does_not_blame_the_disk_for_anothers_write) {
  FaultySource faulty(goodDisk());
  std::uint64_t writes = 0;
  faulty.flipReads(3 * kBlock, 1);  // from the second read on the content is another one
  faulty.others([&] { return WriteActivity{writes++, false}; });
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(StorageEvent::ChangedByOthers), ElementsAre("sdz", "3", "4096"));
}

TEST(StorageStability, gives_no_verdict_on_a_block_that_others_keep_writing) {
  FaultySource faulty(goodDisk());
  faulty.flicker(3 * kBlock).others([] { return WriteActivity{0, true}; });
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::Unsettled)));
}

TEST(StorageStability, blames_the_disk_when_its_contents_change_while_nobody_writes) {
  FaultySource faulty(goodDisk());
  int looks = 0;
  // Written to during the two rounds, at rest when the block is looked at closely.
  faulty.flicker(3 * kBlock).others([&] { return WriteActivity{looks++ < 2 ? 1U : 2U, false}; });
  RecordingJournal journal;
  checkStability(faulty, {.bytes = 0, .window = kDiskSize}, kDisk, journal);
  EXPECT_EQ(journal.count(StorageEvent::Unstable), 1);
}

TEST(StorageStability, gives_no_verdict_where_nobody_knows_what_others_write) {
  for (const int times : {1, FaultySource::kAlways}) {
    FaultySource faulty(goodDisk());
    faulty.flipReads(3 * kBlock, 1, times).others([] { return std::nullopt; });
    RecordingJournal journal;
    checkStability(faulty, {.window = kMib}, kDisk, journal);
    EXPECT_THAT(journal.complaints(),
                ElementsAre(static_cast<unsigned int>(StorageEvent::Unsettled)));
  }
}

TEST(StorageStability, knows_whether_a_file_was_written_to) {
  const std::string path = "written-to";
  std::ofstream(path) << std::string(kBlock, 'x');
  RecordingJournal journal;
  const Waiter waiter{journal, kDisk};
  const auto source = openForReading(path, smallSlots());
  const auto before = source->writeActivity(waiter);
  ASSERT_TRUE(before);
  EXPECT_EQ(source->writeActivity(waiter), before);
  // The kernel's clock for files moves in steps of some milliseconds.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::fstream(path) << 'y';
  EXPECT_NE(source->writeActivity(waiter), before);
}

TEST(StorageStability, tells_an_unreadable_block_as_such_and_not_as_unstable) {
  for (const int times : {1, 2, FaultySource::kAlways}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(9 * kBlock, 1, EIO, times);
    RecordingJournal journal;
    checkStability(faulty, {.window = kMib}, kDisk, journal);
    EXPECT_EQ(journal.count(StorageEvent::Unstable), 0) << times;
    EXPECT_EQ(journal.count(StorageEvent::Unreadable) + journal.count(StorageEvent::RecoveredRead),
              1)
        << times;
  }
}

// --- Latency

/// @brief A clock that runs only when it is asked. Some of the transfers take long: by the disk's
/// doing, or because no processor was to be had.
class RecordedClock : public TransferClock {
 public:
  RecordedClock(std::chrono::milliseconds taken, std::chrono::milliseconds starved)
      : m_taken(taken), m_starved(starved) {}

  Moment begin() override { return m_now; }
  Moment end() override {
    const bool isLate = ++m_transfers % 50 == 0;
    m_now.time += isLate ? m_taken : std::chrono::milliseconds(1);
    m_now.starved += isLate ? m_starved : std::chrono::milliseconds(0);
    return m_now;
  }

 private:
  std::chrono::milliseconds m_taken;
  std::chrono::milliseconds m_starved;
  Moment m_now;
  int m_transfers = 0;
};

/// @brief A disk whose transfers take a millisecond each, however busy the real one is.
std::unique_ptr<BlockSource> steadyDisk() {
  SourceOptions options = smallSlots(4 * kKib, 1);
  constexpr std::chrono::milliseconds each{1};
  options.clock = std::make_shared<RecordedClock>(each, std::chrono::milliseconds(0));
  return goodDisk(options);
}

LatencyOptions eagerLatency() {
  return {.reads = 300,
          .seed = 4,
          .limit = std::chrono::milliseconds(1000),
          .factor = 20,
          .allowedStalls = 1};
}

TEST(StorageLatency, finds_a_place_that_is_slow_each_time) {
  FaultySource faulty(steadyDisk());
  RandomPlaces places(kDiskSize, 4 * kKib, 4);
  const std::uint64_t slow = places.next();
  faulty.slowReads(slow, 1, std::chrono::milliseconds(3000));
  RecordingJournal journal;
  findSlowBlocks(faulty, eagerLatency(), kDisk, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::SlowBlock)));
  const auto parameters = journal.parametersOf(StorageEvent::SlowBlock);
  EXPECT_EQ(parameters.at(1), std::to_string(slow / kBlock));
  EXPECT_EQ(parameters.at(3), "3000.0 ms");
}

TEST(StorageLatency, warns_of_stalls_only_when_there_are_more_than_allowed) {
  for (const int stalls : {1, 2}) {
    FaultySource faulty(steadyDisk());
    faulty.slowReads(0, kDiskSize, std::chrono::milliseconds(1500), stalls);
    RecordingJournal journal;
    findSlowBlocks(faulty, eagerLatency(), kDisk, journal);
    EXPECT_EQ(journal.count(StorageEvent::Stalls), stalls > 1 ? 1 : 0);
    EXPECT_EQ(journal.count(StorageEvent::SlowBlock), 0);
    EXPECT_EQ(journal.count(StorageEvent::Latency), 1);
  }
}

TEST_P(StorageSources, do_not_count_the_wait_for_a_processor_as_the_disks) {
  struct Case {
    std::chrono::milliseconds starved;
    std::string slowest;
    int stalls;
  };
  const std::chrono::milliseconds taken(3000);
  for (const Case& item :
       {Case{taken - std::chrono::milliseconds(2), "2.0 ms", 0}, Case{taken, "1.0 ms", 0},
        Case{2 * taken, "1.0 ms", 0}, Case{std::chrono::milliseconds(0), "3000.0 ms", 1}}) {
    SourceOptions withClock = options(4 * kKib, 1);
    withClock.clock = std::make_shared<RecordedClock>(taken, item.starved);
    const auto source = overFile(randomFile(), withClock);
    RecordingJournal journal;
    findSlowBlocks(*source, eagerLatency(), kDisk, journal);
    EXPECT_EQ(journal.count(StorageEvent::Stalls), item.stalls) << item.starved.count();
    EXPECT_EQ(journal.count(StorageEvent::SlowBlock), 0);
    EXPECT_EQ(journal.parametersOf(StorageEvent::Latency).back(), item.slowest);
  }
}

TEST(StorageClock, hears_from_the_kernel_how_long_its_thread_had_no_processor) {
  if (!std::filesystem::exists("/proc/thread-self/schedstat")) {
    GTEST_SKIP() << "the kernel does not tell";
  }
  std::thread([] {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    std::atomic<bool> isOver{false};
    std::thread rival([&] {  // on the same processor, as it inherits that
      while (!isOver) {
      }
    });
    const auto clock = makeStarvationAwareClock();
    const TransferClock::Moment begin = clock->begin();
    TransferClock::Moment end = begin;
    EXPECT_TRUE(TestSupport::eventually([&] {
      end = clock->end();
      return end.starved - begin.starved > std::chrono::milliseconds(20);
    }));
    isOver = true;
    rival.join();
    EXPECT_LT(TransferClock::between(begin, end), end.time - begin.time);
  }).join();
}

TEST(StorageLatency, tells_unreadable_blocks_too) {
  FaultySource faulty(steadyDisk());
  faulty.failReads(0, kDiskSize / 4);
  RecordingJournal journal;
  EXPECT_GT(findSlowBlocks(faulty, eagerLatency(), kDisk, journal).unreadableBlocks, 0U);
}

// --- Write and verify

class StorageWriteVerify : public testing::Test {
 protected:
  WriteVerifyFigures run() {
    return writeAndVerify(
        faulty,
        {.seed = 11, .placeOnDisk = [](std::uint64_t offset) { return std::optional(offset); }},
        kDisk, journal);
  }

  FaultySource faulty{overFile(makeTemporaryFile(".", kDiskSize), smallSlots())};
  RecordingJournal journal;
};

TEST_F(StorageWriteVerify, finds_a_single_flipped_bit) {
  faulty.flipWrites(kMib + 512 + 100, 0x04);
  EXPECT_EQ(run().faultySectors, 1U);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::Miscompare)));
  const auto parameters = journal.parametersOf(StorageEvent::Miscompare);
  ASSERT_THAT(parameters, SizeIs(8));
  EXPECT_EQ(parameters[1], std::to_string(kMib + 512));
  EXPECT_EQ(parameters[2], std::to_string((kMib + 512) / 512));
  EXPECT_EQ(parameters[3], "100");
  EXPECT_EQ(std::stoul(parameters[4], nullptr, 16) ^ std::stoul(parameters[5], nullptr, 16), 4U);
  EXPECT_EQ(parameters[6], "1");
  EXPECT_EQ(parameters[7], "1");
}

TEST_F(StorageWriteVerify, joins_wrong_sectors_across_transfers) {
  faulty.flipWrites(kMib - 1, 0x04).flipWrites(kMib + 300, 0x01);
  EXPECT_EQ(run().faultySectors, 2U);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::Miscompare)));
  const auto parameters = journal.parametersOf(StorageEvent::Miscompare);
  ASSERT_THAT(parameters, SizeIs(8));
  EXPECT_EQ(parameters[1], std::to_string(kMib - 512));
  EXPECT_EQ(parameters[3], "511");
  EXPECT_EQ(parameters[6], "2");
  EXPECT_EQ(parameters[7], "2");
}

TEST_F(StorageWriteVerify, finds_a_flipped_bit_in_the_stamp) {
  faulty.flipWrites(0, 0x80);
  EXPECT_EQ(run().faultySectors, 1U);
  EXPECT_EQ(journal.count(StorageEvent::Miscompare), 1);
}

TEST_F(StorageWriteVerify, finds_a_write_that_never_arrived) {
  faulty.loseWrites(2 * kMib);
  EXPECT_EQ(run().faultySectors, 64 * kKib / 512);
  EXPECT_THAT(journal.parametersOf(StorageEvent::LostWrite),
              ElementsAre("sdz", std::to_string(2 * kMib), std::to_string(2 * kMib / 512), "128"));
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::LostWrite)));
}

TEST_F(StorageWriteVerify, finds_a_write_that_went_elsewhere) {
  faulty.misdirectWrites(3 * kMib, kMib);
  EXPECT_EQ(run().faultySectors, 64 * kKib / 512);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Misdirected),
              ElementsAre("sdz", std::to_string(kMib), std::to_string(kMib / 512),
                          std::to_string(3 * kMib), "128"));
}

TEST_F(StorageWriteVerify, warns_of_a_wrong_read_that_heals) {
  faulty.flipReads(kMib, 0, 1);
  run();
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::RecoveredVerify)));
}

TEST_F(StorageWriteVerify, warns_of_wrong_reads_that_heal_on_both_sides_of_a_border_of_transfers) {
  faulty.flipReads(kMib - 1, 0, 1).flipReads(kMib, 0, 1);
  run();
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::RecoveredVerify)));
}

TEST_F(StorageWriteVerify, tells_what_lasts_behind_many_that_heal) {
  for (std::uint64_t place = 0; place < 40; ++place) {
    faulty.flipReads(place * 64 * kKib, 0, 1);
  }
  faulty.flipWrites(3 * kMib, 0x04);
  run();
  EXPECT_EQ(journal.count(StorageEvent::RecoveredVerify), 32);
  EXPECT_EQ(journal.count(StorageEvent::Miscompare), 1);
}

TEST_F(StorageWriteVerify, tells_a_failed_write_and_verifies_the_rest) {
  faulty.failWrites(kMib, 1, EIO);
  const WriteVerifyFigures figures = run();
  EXPECT_EQ(figures.bytes, kDiskSize - 64 * kKib);
  EXPECT_THAT(
      journal.parametersOf(StorageEvent::WriteFailed),
      ElementsAre("sdz", std::to_string(kMib), std::to_string(64 * kKib), "Input/output error"));
}

TEST_F(StorageWriteVerify, tells_an_unreadable_block_of_the_file) {
  faulty.failReads(kMib, 1);
  run();
  EXPECT_EQ(journal.parametersOf(StorageEvent::Unreadable).at(1), std::to_string(kMib / kBlock));
}

TEST_F(StorageWriteVerify, tells_a_failed_flush) {
  faulty.failFlush(EIO);
  run();
  EXPECT_EQ(journal.count(StorageEvent::WriteFailed), 1);
}

TEST_F(StorageWriteVerify, does_not_blame_the_disk_for_a_full_file_system) {
  faulty.failWrites(kMib, 1, ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, is_not_possible_where_nothing_can_be_written) {
  faulty.failWrites(0, kDiskSize, EDQUOT);
  try {
    run();
    FAIL() << "verified nothing without a word";
  } catch (const NotSupported& reason) {
    EXPECT_EQ(reason.reason(), Reasons::kNothingWritten);
    EXPECT_THAT(reason.detail(), testing::HasSubstr("quota"));
  }
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_F(StorageWriteVerify, does_not_blame_the_disk_for_a_file_system_that_is_full_at_the_flush) {
  faulty.failFlush(ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, writes_again_what_was_cut_short) {
  faulty.shortenWrites(kMib, 1);
  EXPECT_EQ(run().bytes, kDiskSize);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_F(StorageWriteVerify, takes_a_write_that_is_cut_short_by_a_full_file_system_for_no_fault) {
  faulty.shortenWrites(kMib, 1).failWrites(kMib, 1, ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, tells_a_write_that_is_cut_short_again_and_again) {
  faulty.shortenWrites(kMib, FaultySource::kAlways);
  run();
  EXPECT_EQ(journal.parametersOf(StorageEvent::WriteFailed).at(3), "FEWER_BYTES");
}

TEST_F(StorageWriteVerify, does_not_blame_the_disk_for_a_file_system_set_read_only) {
  faulty.failWrites(kMib, 1, EROFS);
  EXPECT_THROW(run(), std::system_error);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_F(StorageWriteVerify, ends_when_the_disk_is_gone) {
  faulty.failWrites(kMib, 1, ENXIO);
  EXPECT_THROW(run(), std::system_error);
  EXPECT_EQ(faulty.inFlight(), 0);
}

TEST_F(StorageWriteVerify, names_the_faults_beyond_those_that_it_describes) {
  std::string numbers;
  for (std::uint64_t offset = 0; offset < kDiskSize; offset += 64 * kKib) {
    faulty.flipWrites(offset + 1000, 0xFF);
    numbers += (offset == 0 ? "" : ", ") + std::to_string(offset / 512 + 1);
  }
  EXPECT_EQ(run().faultySectors, 64U);
  EXPECT_EQ(journal.count(StorageEvent::Miscompare), 32);
  EXPECT_THAT(journal.parametersOf(StorageEvent::FaultySectors),
              ElementsAre("sdz", "64", "64", numbers));
}

TEST_F(StorageWriteVerify, joins_failed_writes_that_follow_each_other) {
  faulty.failWrites(kMib, 128 * kKib, EIO);
  run();
  EXPECT_EQ(journal.count(StorageEvent::WriteFailed), 1);
  EXPECT_EQ(journal.parametersOf(StorageEvent::WriteFailed).at(2), std::to_string(128 * kKib));
}

TEST_F(StorageWriteVerify, stops_in_the_middle_without_a_verdict) {
  journal.stopAfter(20);
  try {
    run();
  } catch (const PackageKit::Stopped&) {
    // On a busy machine what was in flight took too long.
  }
  EXPECT_EQ(journal.count(StorageEvent::WrittenAndVerified), 0);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Storage
