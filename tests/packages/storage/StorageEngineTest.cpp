// The engines of the storage package against a file that stands for a disk, sound and with faults.

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <system_error>
#include <thread>

#include "packages/storage/Crc32c.h"
#include "packages/storage/PageBuffer.h"
#include "packages/storage/Places.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/TestPattern.h"
#include "packages/storage/TransferQueue.h"
#include "packages/storage/WriteVerify.h"
#include "tests/packages/storage/FaultySource.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

using Common::RecordingJournal;
using Common::UniqueDescriptor;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint64_t kIb = 1024;
constexpr std::uint64_t kMib = 1024 * kIb;
constexpr std::uint64_t kDiskSize = 4 * kMib;
constexpr std::uint64_t kBlock = 4096;
const std::string kDisk = "sdz";

SourceOptions smallSlots(std::uint32_t slotSize = 64 * kIb, unsigned int slots = 4) {
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

TEST(StorageChecksum, IsThatOfThePublishedVectors) {
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

TEST(StorageChecksum, AgreesWithThePlainAlgorithmAtEveryLengthAndAlignment) {
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

TEST(StorageBuffers, BeginAtAPageAndAreZero) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{4096}, std::size_t{5} << 20}) {
    const PageBuffer buffer(size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.bytes().data()) % 4096, 0U);
    ASSERT_EQ(buffer.bytes().size(), size);
    EXPECT_EQ(buffer.bytes().front(), std::byte{0});
    EXPECT_EQ(buffer.bytes().back(), std::byte{0});
  }
}

TEST(StorageZones, CoverTheWholeDiskWhenNothingIsLeftOut) {
  for (const std::uint64_t wanted : {std::uint64_t{0}, kDiskSize, 2 * kDiskSize}) {
    const std::vector<Zone> zones = spreadZones(kDiskSize + 100, wanted, kMib, 512);
    ASSERT_THAT(zones, SizeIs(1));
    EXPECT_EQ(zones.front().offset, 0U);
    EXPECT_EQ(zones.front().length, kDiskSize);
  }
  EXPECT_THAT(spreadZones(100, 0, kMib, 512), IsEmpty());
}

TEST(StorageZones, ReachFromTheFirstToTheLastBlockWithoutOverlap) {
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

TEST(StorageZones, AreWalkedInPieces) {
  ZoneWalk walk({{0, 10}, {100, 4}}, 4);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> pieces;
  for (Zone piece = walk.next(); piece.length > 0; piece = walk.next()) {
    pieces.emplace_back(piece.offset, piece.length);
  }
  using Piece = std::pair<std::uint64_t, std::uint64_t>;
  EXPECT_THAT(pieces, ElementsAre(Piece{0, 4}, Piece{4, 4}, Piece{8, 2}, Piece{100, 4}));
  EXPECT_EQ(walk.total(), 14U);
}

TEST(StorageFigures, AreWrittenAsPeopleReadThem) {
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

TEST(StoragePattern, NamesThePlaceOfItsOwnSectorsOnly) {
  const TestPattern pattern(1, 4096);
  std::vector<std::byte> data(4096);
  pattern.fill(data);
  EXPECT_EQ(pattern.placeOf(data), std::nullopt);
  pattern.stamp(data, 1 << 20);
  const auto second = std::span(data).subspan(TestPattern::kSector);
  EXPECT_EQ(pattern.placeOf(second), (1U << 20) + TestPattern::kSector);
  EXPECT_EQ(TestPattern(2, 4096).placeOf(second), std::nullopt);
}

TEST(StorageTemporaryFile, HasTheSizeAndNoName) {
  const UniqueDescriptor file = makeTemporaryFile(".", kMib);
  struct stat status {};
  ASSERT_EQ(fstat(file.get(), &status), 0);
  EXPECT_EQ(status.st_size, static_cast<off_t>(kMib));
  EXPECT_EQ(status.st_nlink, 0U);
}

TEST(StorageTemporaryFile, SaysWhyItCannotBeMade) {
  try {
    makeTemporaryFile("/proc", kMib);
    FAIL() << "made a file in /proc";
  } catch (const std::system_error& error) {
    EXPECT_NE(error.code().value(), 0);
  }
}

TEST(StorageSource, RefusesToWriteToAnythingButAFile) {
  EXPECT_THROW(overFile(UniqueDescriptor(open("/dev/null", O_RDWR | O_CLOEXEC)), smallSlots()),
               std::invalid_argument);
}

TEST(StorageSource, ReadsFromADescriptorThatWaits) {
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

TEST(StorageSource, TellsWhyADiskCannotBeRead) {
  try {
    openForReading("/dev/no-such-disk", smallSlots());
    FAIL();
  } catch (const NotSupported& reason) {
    EXPECT_THAT(reason.what(), testing::HasSubstr("No such file"));
  }
}

// --- Sources: the same of io_uring and of threads

class StorageSources : public testing::TestWithParam<bool> {
 protected:
  SourceOptions options(std::uint32_t slotSize = 64 * kIb, unsigned int slots = 8) const {
    return {.slots = slots, .slotSize = slotSize, .useUring = GetParam()};
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, StorageSources, testing::Bool(), [](const auto& instance) {
  return instance.param ? "io_uring" : "threads";
});

TEST_P(StorageSources, MoveEveryByteOfAFile) {
  const auto source = overFile(makeTemporaryFile(".", kDiskSize), options());
  const TestPattern pattern(3, 64 * kIb);
  ZoneWalk writes({{0, kDiskSize}}, 64 * kIb);
  const auto nothing = [](const Transfer&, const Completion&) {};
  transferAll(
      *source,
      [&](unsigned int slot) -> std::optional<Transfer> {
        const Zone piece = writes.next();
        pattern.fill(source->buffer(slot));
        pattern.stamp(source->buffer(slot), piece.offset);
        return piece.length == 0
                   ? std::nullopt
                   : std::optional(Transfer{Direction::Write, slot, piece.offset, 64 * kIb});
      },
      nothing);
  EXPECT_EQ(source->flush(), 0);

  std::uint64_t right = 0;
  ZoneWalk reads({{0, kDiskSize}}, 64 * kIb);
  std::vector<std::byte> expected(64 * kIb);
  pattern.fill(expected);
  transferAll(
      *source,
      [&](unsigned int slot) -> std::optional<Transfer> {
        const Zone piece = reads.next();
        return piece.length == 0
                   ? std::nullopt
                   : std::optional(Transfer{Direction::Read, slot, piece.offset, 64 * kIb});
      },
      [&](const Transfer& transfer, const Completion& completion) {
        ASSERT_TRUE(succeeded(transfer, completion));
        EXPECT_GT(completion.latency.count(), 0);
        pattern.stamp(expected, transfer.offset);
        right += std::memcmp(source->buffer(transfer.slot).data(), expected.data(), 64 * kIb) == 0;
      });
  EXPECT_EQ(right, kDiskSize / (64 * kIb));
}

TEST_P(StorageSources, TellTheErrnoOfAFailedTransfer) {
  const UniqueDescriptor file = randomFile();
  // Open for reading alone: the kernel refuses the write, not the source.
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  const auto source =
      overFile(UniqueDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), options());
  const Completion completion = transferOne(*source, {Direction::Write, 3, 0, 4096});
  EXPECT_EQ(completion.error, EBADF);
  EXPECT_EQ(completion.slot, 3U);
}

TEST_P(StorageSources, EndWithTransfersInFlightUnharmed) {
  const auto source = overFile(randomFile(), options());
  for (unsigned int slot = 0; slot < source->slots(); ++slot) {
    source->start({Direction::Read, slot, slot * 64 * kIb, 64 * kIb});
  }
}

TEST_P(StorageSources, ReadASoundDiskWithoutComplaint) {
  const auto source = overFile(randomFile(), options());
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(*source, {}, kDisk, journal).bytes, kDiskSize);
  EXPECT_EQ(readRandomly(*source, {.reads = 200, .seed = 5}, kDisk, journal).bytes, 200 * 64 * kIb);
  EXPECT_EQ(checkStability(*source, {.window = kMib}, kDisk, journal).bytes, 2 * kDiskSize);
  EXPECT_EQ(findSlowBlocks(*source, {.reads = 50}, kDisk, journal).reads, 50U);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_P(StorageSources, WriteAndVerifyASoundFileWithoutComplaint) {
  const auto source = overFile(makeTemporaryFile(".", kDiskSize), options());
  RecordingJournal journal;
  const WriteVerifyFigures figures = writeAndVerify(*source, {.seed = 9}, kDisk, journal);
  EXPECT_EQ(figures.bytes, kDiskSize);
  EXPECT_EQ(figures.faultySectors, 0U);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_EQ(journal.count(StorageEvent::WrittenAndVerified), 1);
  EXPECT_EQ(journal.progressSteps().back(), 100U);
}

// --- Read scan and random reads

TEST(StorageScan, NamesTheUnreadableBlocksAndTheirNumber) {
  FaultySource faulty(goodDisk());
  faulty.failReads(20 * kBlock, 3 * kBlock).failReads(500 * kBlock, 1);
  RecordingJournal journal;
  const ReadFigures figures = scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_EQ(figures.unreadableBlocks, 4U);
  EXPECT_EQ(journal.count(StorageEvent::Unreadable), 2);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "20", "3", "4096", "Input/output error"));
  EXPECT_THAT(journal.parametersOf(StorageEvent::UnreadableTotal),
              ElementsAre("sdz", "4", "4096", "2"));
  EXPECT_EQ(faulty.inFlight(), 0);
}

TEST(StorageScan, JoinsABadStretchAcrossReads) {
  FaultySource faulty(goodDisk());
  faulty.failReads(64 * kIb - kBlock, 2 * kBlock);
  RecordingJournal journal;
  scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "15", "2", "4096", "Input/output error"));
}

TEST(StorageScan, WarnsOfAReadThatSucceedsTheSecondTime) {
  FaultySource faulty(goodDisk());
  faulty.failReads(0, 1, EIO, 1);
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 0U);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::RecoveredRead)));
  EXPECT_THAT(journal.parametersOf(StorageEvent::RecoveredRead),
              ElementsAre("sdz", "0", "16", "4096", "Input/output error"));
}

TEST(StorageScan, TakesAShortReadForAFault) {
  FaultySource faulty(goodDisk());
  faulty.shortenReads(7 * kBlock);
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 1U);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable),
              ElementsAre("sdz", "7", "1", "4096", "fewer bytes than asked for"));
}

TEST(StorageScan, EndsWhenTheDiskIsGone) {
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

TEST(StorageScan, DoesNotBlameTheDiskForWhatTheKernelLacks) {
  for (const int error : {ENOMEM, EAGAIN, EINVAL, EPERM, EOPNOTSUPP, EBUSY}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(2 * kMib, 1, error);
    RecordingJournal journal;
    EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), std::system_error) << error;
    EXPECT_THAT(journal.complaints(), IsEmpty());
    EXPECT_EQ(faulty.inFlight(), 0);
  }
}

TEST(StorageScan, BlamesTheDiskForEachWayToLoseABlock) {
  for (const int error : {EIO, ENODATA, EREMOTEIO, EILSEQ, ETIMEDOUT, ETIME, ENOLINK, EBADMSG}) {
    FaultySource faulty(goodDisk());
    faulty.failReads(2 * kMib, 1, error);
    RecordingJournal journal;
    EXPECT_EQ(scanSequentially(faulty, {}, kDisk, journal).unreadableBlocks, 1U) << error;
  }
}

TEST(StorageScan, DoesNotBlameADiskThatLeavesWhileItsBadBlocksAreSearched) {
  FaultySource faulty(goodDisk());
  faulty.failReads(2 * kMib, 1, EIO, 1).failReads(2 * kMib, 1, ENODEV);
  RecordingJournal journal;
  EXPECT_THROW(scanSequentially(faulty, {}, kDisk, journal), std::system_error);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(StorageScan, GivesUpOnADiskThatReadsNothing) {
  FaultySource faulty(goodDisk(smallSlots(4 * kIb)));
  faulty.failReads(0, kDiskSize);
  RecordingJournal journal;
  const ReadFigures figures = scanSequentially(faulty, {}, kDisk, journal);
  EXPECT_LT(figures.reads, kDiskSize / (4 * kIb) / 2);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unreadable).at(1), "0");
}

TEST(StorageScan, EndsAtTheFirstErrorWhenAskedTo) {
  FaultySource faulty(goodDisk(smallSlots(4 * kIb)));
  faulty.failReads(20 * kBlock, 1).failReads(700 * kBlock, 1);
  RecordingJournal journal;
  journal.halts = true;
  EXPECT_LT(scanSequentially(faulty, {}, kDisk, journal).reads, 50U);
  EXPECT_EQ(journal.parametersOf(StorageEvent::Unreadable).at(1), "20");
}

TEST(StorageScan, DoesNotPassADiskWithoutBlocks) {
  const auto empty = overFile(makeTemporaryFile(".", 512), smallSlots(4 * kIb));
  RecordingJournal journal;
  EXPECT_THROW(scanSequentially(*empty, {}, kDisk, journal), NotSupported);
  EXPECT_THROW(readRandomly(*empty, {.reads = 1}, kDisk, journal), NotSupported);
  EXPECT_THROW(checkStability(*empty, {}, kDisk, journal), NotSupported);
  EXPECT_THROW(findSlowBlocks(*empty, {.reads = 1}, kDisk, journal), NotSupported);
  EXPECT_THROW(writeAndVerify(*empty, {}, kDisk, journal), NotSupported);
}

TEST(StorageScan, StopsWithinAFewReads) {
  const auto source = goodDisk(smallSlots(4 * kIb));
  RecordingJournal journal;
  journal.stopAfter(10);
  EXPECT_LE(scanSequentially(*source, {}, kDisk, journal).reads, 10U);
}

TEST(StorageScan, ReadsOnlyTheZonesAskedForAndTellsItsProgress) {
  const auto source = goodDisk(smallSlots(16 * kIb));
  RecordingJournal journal;
  EXPECT_EQ(scanSequentially(*source, {.bytes = kMib, .zone = 64 * kIb}, kDisk, journal).bytes,
            kMib);
  EXPECT_TRUE(std::is_sorted(journal.progressSteps().begin(), journal.progressSteps().end()));
  EXPECT_EQ(journal.progressSteps().back(), 100U);
}

TEST(StorageRandomRead, FindsAnUnreadableBlock) {
  FaultySource faulty(goodDisk(smallSlots(4 * kIb)));
  faulty.failReads(0, kDiskSize / 8);
  RecordingJournal journal;
  const ReadFigures figures = readRandomly(faulty, {.reads = 100, .seed = 1}, kDisk, journal);
  EXPECT_EQ(figures.reads, 100U);
  EXPECT_GT(figures.unreadableBlocks, 0U);
  EXPECT_GT(journal.count(StorageEvent::Unreadable), 0);
}

TEST(StorageRandomRead, GoesToTheSamePlacesForTheSameSeed) {
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

TEST(StorageStability, FindsABlockThatReadsDifferently) {
  FaultySource faulty(goodDisk());
  faulty.flicker(77 * kBlock + 5);
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  ASSERT_EQ(journal.count(StorageEvent::Unstable), 1);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Unstable),
              ElementsAre("sdz", "77", "4096", "2", "12"));
}

TEST(StorageStability, FindsASingleWrongRead) {
  FaultySource faulty(goodDisk());
  faulty.flipReads(3 * kBlock, 1, 1);
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::Unstable)));
}

TEST(StorageStability, DoesNotBlameTheDiskForAnothersWrite) {
  FaultySource faulty(goodDisk());
  std::uint64_t writes = 0;
  faulty.flipReads(3 * kBlock, 1);  // from the second read on the content is another one
  faulty.others([&] { return WriteActivity{writes++, false}; });
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(StorageEvent::ChangedByOthers), ElementsAre("sdz", "3", "4096"));
}

TEST(StorageStability, GivesNoVerdictOnABlockThatOthersKeepWriting) {
  FaultySource faulty(goodDisk());
  faulty.flicker(3 * kBlock).others([] { return WriteActivity{0, true}; });
  RecordingJournal journal;
  checkStability(faulty, {.window = kMib}, kDisk, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::Unsettled)));
}

TEST(StorageStability, BlamesTheDiskWhenItsContentsChangeWhileNobodyWrites) {
  FaultySource faulty(goodDisk());
  int looks = 0;
  // Written to during the two rounds, at rest when the block is looked at closely.
  faulty.flicker(3 * kBlock).others([&] { return WriteActivity{looks++ < 2 ? 1U : 2U, false}; });
  RecordingJournal journal;
  checkStability(faulty, {.bytes = 0, .window = kDiskSize}, kDisk, journal);
  EXPECT_EQ(journal.count(StorageEvent::Unstable), 1);
}

TEST(StorageStability, GivesNoVerdictWhereNobodyKnowsWhatOthersWrite) {
  for (const int times : {1, FaultySource::kAlways}) {
    FaultySource faulty(goodDisk());
    faulty.flipReads(3 * kBlock, 1, times).others([] { return std::nullopt; });
    RecordingJournal journal;
    checkStability(faulty, {.window = kMib}, kDisk, journal);
    EXPECT_THAT(journal.complaints(),
                ElementsAre(static_cast<unsigned int>(StorageEvent::Unsettled)));
  }
}

TEST(StorageStability, KnowsWhetherAFileWasWrittenTo) {
  const std::string path = "written-to";
  std::ofstream(path) << std::string(kBlock, 'x');
  const auto source = openForReading(path, smallSlots());
  const auto before = source->writeActivity();
  ASSERT_TRUE(before);
  EXPECT_EQ(source->writeActivity(), before);
  // The kernel's clock for files moves in steps of some milliseconds.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::fstream(path) << 'y';
  EXPECT_NE(source->writeActivity(), before);
}

TEST(StorageStability, TellsAnUnreadableBlockAsSuchAndNotAsUnstable) {
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

LatencyOptions eagerLatency() {
  return {.reads = 300, .seed = 4, .limit = std::chrono::milliseconds(1000), .allowedStalls = 1};
}

TEST(StorageLatency, FindsAPlaceThatIsSlowEachTime) {
  FaultySource faulty(goodDisk(smallSlots(4 * kIb, 1)));
  RandomPlaces places(kDiskSize, 4 * kIb, 4);
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

TEST(StorageLatency, WarnsOfStallsOnlyWhenThereAreMoreThanAllowed) {
  for (const int stalls : {1, 2}) {
    FaultySource faulty(goodDisk(smallSlots(4 * kIb, 1)));
    faulty.slowReads(0, kDiskSize, std::chrono::milliseconds(1500), stalls);
    RecordingJournal journal;
    findSlowBlocks(faulty, eagerLatency(), kDisk, journal);
    EXPECT_EQ(journal.count(StorageEvent::Stalls), stalls > 1 ? 1 : 0);
    EXPECT_EQ(journal.count(StorageEvent::SlowBlock), 0);
    EXPECT_EQ(journal.count(StorageEvent::Latency), 1);
  }
}

TEST(StorageLatency, TellsUnreadableBlocksToo) {
  FaultySource faulty(goodDisk(smallSlots(4 * kIb, 1)));
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

TEST_F(StorageWriteVerify, FindsASingleFlippedBit) {
  faulty.flipWrites(kMib + 512 + 100, 0x04);
  EXPECT_EQ(run().faultySectors, 1U);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::Miscompare)));
  const auto parameters = journal.parametersOf(StorageEvent::Miscompare);
  ASSERT_THAT(parameters, SizeIs(7));
  EXPECT_EQ(parameters[1], std::to_string(kMib + 512));
  EXPECT_EQ(parameters[2], std::to_string((kMib + 512) / 512));
  EXPECT_EQ(parameters[3], "100");
  EXPECT_EQ(std::stoul(parameters[4], nullptr, 16) ^ std::stoul(parameters[5], nullptr, 16), 4U);
  EXPECT_EQ(parameters[6], "1");
}

TEST_F(StorageWriteVerify, FindsAFlippedBitInTheStamp) {
  faulty.flipWrites(0, 0x80);
  EXPECT_EQ(run().faultySectors, 1U);
  EXPECT_EQ(journal.count(StorageEvent::Miscompare), 1);
}

TEST_F(StorageWriteVerify, FindsAWriteThatNeverArrived) {
  faulty.loseWrites(2 * kMib);
  EXPECT_EQ(run().faultySectors, 64 * kIb / 512);
  EXPECT_EQ(journal.parametersOf(StorageEvent::LostWrite).at(1), std::to_string(2 * kMib));
}

TEST_F(StorageWriteVerify, FindsAWriteThatWentElsewhere) {
  faulty.misdirectWrites(3 * kMib, kMib);
  EXPECT_EQ(run().faultySectors, 64 * kIb / 512);
  EXPECT_THAT(journal.parametersOf(StorageEvent::Misdirected),
              ElementsAre("sdz", std::to_string(kMib), std::to_string(kMib / 512),
                          std::to_string(3 * kMib)));
}

TEST_F(StorageWriteVerify, WarnsOfAWrongReadThatHeals) {
  faulty.flipReads(kMib, 0, 1);
  run();
  EXPECT_THAT(journal.complaints(),
              ElementsAre(static_cast<unsigned int>(StorageEvent::RecoveredVerify)));
}

TEST_F(StorageWriteVerify, TellsAFailedWriteAndVerifiesTheRest) {
  faulty.failWrites(kMib, 1, EIO);
  const WriteVerifyFigures figures = run();
  EXPECT_EQ(figures.bytes, kDiskSize - 64 * kIb);
  EXPECT_THAT(
      journal.parametersOf(StorageEvent::WriteFailed),
      ElementsAre("sdz", std::to_string(kMib), std::to_string(64 * kIb), "Input/output error"));
}

TEST_F(StorageWriteVerify, TellsAnUnreadableBlockOfTheFile) {
  faulty.failReads(kMib, 1);
  run();
  EXPECT_EQ(journal.parametersOf(StorageEvent::Unreadable).at(1), std::to_string(kMib / kBlock));
}

TEST_F(StorageWriteVerify, TellsAFailedFlush) {
  faulty.failFlush(EIO);
  run();
  EXPECT_EQ(journal.count(StorageEvent::WriteFailed), 1);
}

TEST_F(StorageWriteVerify, DoesNotBlameTheDiskForAFullFileSystem) {
  faulty.failWrites(kMib, 1, ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, DoesNotBlameTheDiskForAFileSystemThatIsFullAtTheFlush) {
  faulty.failFlush(ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, WritesAgainWhatWasCutShort) {
  faulty.shortenWrites(kMib, 1);
  EXPECT_EQ(run().bytes, kDiskSize);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_F(StorageWriteVerify, TakesAWriteThatIsCutShortByAFullFileSystemForNoFault) {
  faulty.shortenWrites(kMib, 1).failWrites(kMib, 1, ENOSPC);
  run();
  EXPECT_THAT(journal.complaints(), ElementsAre(static_cast<unsigned int>(StorageEvent::NoSpace)));
}

TEST_F(StorageWriteVerify, TellsAWriteThatIsCutShortAgainAndAgain) {
  faulty.shortenWrites(kMib, FaultySource::kAlways);
  run();
  EXPECT_EQ(journal.parametersOf(StorageEvent::WriteFailed).at(3), "fewer bytes than asked for");
}

TEST_F(StorageWriteVerify, DoesNotBlameTheDiskForAFileSystemSetReadOnly) {
  faulty.failWrites(kMib, 1, EROFS);
  EXPECT_THROW(run(), std::system_error);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST_F(StorageWriteVerify, EndsWhenTheDiskIsGone) {
  faulty.failWrites(kMib, 1, ENXIO);
  EXPECT_THROW(run(), std::system_error);
  EXPECT_EQ(faulty.inFlight(), 0);
}

TEST_F(StorageWriteVerify, CountsTheFaultsBeyondThoseThatItDescribes) {
  faulty.loseWrites(0);
  for (std::uint64_t offset = 0; offset < kDiskSize; offset += 64 * kIb) {
    faulty.flipWrites(offset + 1000, 0xFF);
  }
  EXPECT_GE(run().faultySectors, kDiskSize / (64 * kIb));
  EXPECT_LE(journal.complaints().size(), 40U);
}

TEST_F(StorageWriteVerify, StopsInTheMiddleWithoutAVerdict) {
  journal.stopAfter(20);
  run();
  EXPECT_EQ(journal.count(StorageEvent::WrittenAndVerified), 0);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Storage
