// The engines of the network package: over the loopback address, over links with faults, and over a
// pair of virtual interfaces in namespaces that exist for the test alone.

#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/route/link/macvlan.h>
#include <netlink/route/link/veth.h>
#include <sched.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/InterfaceRecords.h"
#include "packages/network/InterfaceSetter.h"
#include "packages/network/LinkDiagnostics.h"
#include "packages/network/Links.h"
#include "packages/network/NamespacePair.h"
#include "packages/network/Netlink.h"
#include "packages/network/Pace.h"
#include "packages/network/Patience.h"
#include "packages/network/Payload.h"
#include "packages/network/Sockets.h"
#include "packages/network/StreamDiagnostic.h"
#include "tests/packages/network/BrokenListing.h"
#include "tests/packages/network/Callers.h"
#include "tests/packages/network/FaultyLinks.h"
#include "tests/packages/network/TapWire.h"
#include "tests/support/Eventually.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Network {
namespace {

using Common::RecordingJournal;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::eventually;
using TestSupport::TemporaryDirectory;
namespace fs = std::filesystem;

constexpr std::uint64_t kMib = std::uint64_t{1} << 20;
const std::string kLo = "lo";
const Path kLoopback(kLo);  ///< judged as a wire would be

unsigned int codeOf(NetworkEvent event) {
  return static_cast<unsigned int>(event);
}

// --- Payload

TEST(NetworkPayload, repeats_only_after_its_period_and_can_be_found) {
  const Payload payload(5);
  const std::uint64_t far = 10 * Payload::kPeriod + 77;
  EXPECT_EQ(std::memcmp(payload.at(far, 1000).data(), payload.at(77, 1000).data(), 1000), 0);
  EXPECT_EQ(payload.find(payload.at(far + 4096, 64), far), far + 4096);
  EXPECT_EQ(payload.find(payload.at(far - 100, 64), far), far - 100);
  EXPECT_EQ(payload.find(payload.at(3, 64), 1), 3U);
  EXPECT_EQ(payload.find(payload.at(0, 8), 0), std::nullopt);
  const std::vector<std::byte> foreign(64);
  EXPECT_EQ(payload.find(foreign, far), std::nullopt);
}

// --- Pace

using Milliseconds = std::chrono::milliseconds;

TEST(NetworkPace, of_a_path_that_carries_something_now_and_then_is_no_fault) {
  Pace pace({.stall = std::chrono::seconds(10)});
  std::uint64_t carried = 0;
  for (int second = 0; second < 100; ++second) {
    EXPECT_EQ(pace.wait(Milliseconds(100), carried), std::nullopt);
    pace.go();
    carried += 13'000;
  }
}

TEST(NetworkPace, below_that_of_any_wire_is_told_with_what_came) {
  Pace pace({.stall = std::chrono::seconds(10)});
  std::uint64_t carried = 0;
  std::optional<Pace::Fault> fault;
  int waits = 0;
  for (; !fault && waits < 1000; ++waits) {
    fault = pace.wait(Milliseconds(100), carried);
    pace.go();
    carried += 12'000;
  }
  ASSERT_TRUE(fault);
  EXPECT_EQ(waits, 50);
  EXPECT_EQ(fault->kind, Pace::Fault::Kind::Trickled);
  EXPECT_EQ(fault->time, std::chrono::seconds(5));
  EXPECT_EQ(fault->bytes, 49U * 12'000);
}

TEST(NetworkPace, is_watched_anew_after_each_window) {
  Pace pace({.stall = std::chrono::seconds(10)});
  EXPECT_EQ(pace.wait(Milliseconds(100), 0), std::nullopt);
  pace.go();
  for (int wait = 0; wait < 49; ++wait) {
    EXPECT_EQ(pace.wait(Milliseconds(100), 1'000'000'000), std::nullopt);
    pace.go();
  }
  std::optional<Pace::Fault> fault;
  for (int wait = 0; wait < 50; ++wait) {
    fault = pace.wait(Milliseconds(100), 1'000'000'000);  // what came before counts no more
    pace.go();
  }
  EXPECT_TRUE(fault);
}

TEST(NetworkPace, adds_up_pauses_in_which_a_lost_segment_could_have_come_again) {
  for (const auto& [pause, isFault] : {std::pair(199, false), std::pair(200, true)}) {
    Pace pace({.stall = std::chrono::seconds(1)});
    std::optional<Pace::Fault> fault;
    for (int count = 0; count < 5; ++count) {
      fault = pace.wait(Milliseconds(pause), 0);
      pace.go();
    }
    EXPECT_EQ(fault.has_value(), isFault) << pause;
  }
}

TEST(NetworkPace, has_had_its_time_when_it_was_waited_for_so_long_in_all) {
  Pace pace({.stall = std::chrono::seconds(10), .whole = std::chrono::seconds(3)});
  std::uint64_t carried = 0;
  for (int wait = 0; wait < 30; ++wait) {
    EXPECT_FALSE(pace.isOver()) << wait;
    carried += 1'000'000;
    EXPECT_EQ(pace.wait(Milliseconds(100), carried), std::nullopt);
    pace.go();
  }
  EXPECT_TRUE(pace.isOver());
}

TEST(NetworkPace, counts_a_wait_for_no_longer_than_it_was_to_last) {
  const auto counted =
      countedWait(Milliseconds(1), [](auto) { std::this_thread::sleep_for(Milliseconds(30)); });
  EXPECT_EQ(counted, Milliseconds(1));
}

// --- Streams

std::shared_ptr<Patience> patience(Milliseconds total) {
  return std::make_shared<Patience>(total);
}

/// @brief A busy machine is given the time to carry what it has taken.
StreamOptions stream(std::uint64_t bytes = 4 * kMib, unsigned int connections = 1) {
  return {.bytes = bytes,
          .seed = 1,
          .connections = connections,
          .pace = {.stall = std::chrono::seconds(20)}};
}

/// @brief For paths that stand still and never go on.
StreamOptions impatientStream(std::uint64_t bytes = 4 * kMib, unsigned int connections = 1) {
  StreamOptions options = stream(bytes, connections);
  options.pace.stall = std::chrono::milliseconds(300);
  return options;
}

StreamMaker faulty(const FaultyStream::Faults& faults) {
  return [faults](unsigned int) {
    return std::make_unique<FaultyStream>(connectOverLoopback(), faults);
  };
}

StreamMaker sound() {
  return [](unsigned int) { return connectOverLoopback(); };
}

/// @brief What the kernel says when nothing gets through although both ends are alive.
constexpr std::array kFaultsOfPath{EINPROGRESS,  ETIMEDOUT, EHOSTUNREACH, ENETUNREACH,
                                   ECONNREFUSED, EPIPE,     ECONNRESET};

StreamMaker refused(int error) {
  return [error](unsigned int) -> std::unique_ptr<StreamLink> {
    throw std::system_error(error, std::generic_category(), "connect");
  };
}

[[noreturn]] void noDevice() {
  throw std::system_error(ENODEV, std::generic_category(), "eth7");
}

TEST(NetworkStream, arrives_whole_over_the_loopback_address) {
  for (const unsigned int connections : {1U, 3U}) {
    RecordingJournal journal;
    const StreamFigures figures =
        verifyStreams(sound(), stream(4 * kMib, connections), kLoopback, journal);
    EXPECT_EQ(figures.bytes, 4 * kMib * connections);
    EXPECT_THAT(journal.complaints(), IsEmpty());
    EXPECT_EQ(journal.parametersOf(NetworkEvent::StreamVerified).at(1),
              std::to_string(4 * kMib * connections));
    EXPECT_EQ(journal.progressSteps().back(), 100U);
    EXPECT_NEAR(journal.processed().at("MB"), static_cast<double>(figures.bytes) / 1e6, 1e-3);
  }
}

TEST(NetworkStream, with_a_flipped_bit_names_place_and_bytes) {
  RecordingJournal journal;
  verifyStreams(faulty({.flips = {{kMib + 5, 0x10}}}), stream(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Corrupted)));
  const auto parameters = journal.parametersOf(NetworkEvent::Corrupted);
  ASSERT_THAT(parameters, SizeIs(5));
  EXPECT_EQ(parameters[1], std::to_string(kMib + 5));
  EXPECT_EQ(std::stoul(parameters[2], nullptr, 16) ^ std::stoul(parameters[3], nullptr, 16), 0x10U);
  EXPECT_EQ(parameters[4], "1");
}

TEST(NetworkStream, joins_neighbouring_flips_and_tells_distant_ones) {
  RecordingJournal journal;
  verifyStreams(faulty({.flips = {{100, 0xFF}, {103, 0x0F}, {kMib, 1}, {4 * kMib - 1, 1}}}),
                stream(), kLoopback, journal);
  EXPECT_EQ(journal.count(NetworkEvent::Corrupted), 3);
  EXPECT_EQ(journal.parametersOf(NetworkEvent::Corrupted).at(4), "12");
}

TEST(NetworkStream, finds_every_flip_at_the_edges_of_what_is_received) {
  for (const std::uint64_t place : {std::uint64_t{0}, std::uint64_t{9'999}, std::uint64_t{10'000},
                                    Payload::kPeriod - 1, Payload::kPeriod + std::uint64_t{0}}) {
    RecordingJournal journal;
    verifyStreams(faulty({.flips = {{place, 0x80}}}), stream(kMib), kLoopback, journal);
    EXPECT_EQ(journal.count(NetworkEvent::Corrupted), 1) << place;
    EXPECT_EQ(journal.parametersOf(NetworkEvent::Corrupted).at(1), std::to_string(place));
  }
}

TEST(NetworkStream, that_loses_bytes_tells_how_many_and_goes_on) {
  for (const std::uint64_t bytes : {std::uint64_t{1}, std::uint64_t{4096}, std::uint64_t{65536}}) {
    RecordingJournal journal;
    verifyStreams(faulty({.loseAt = kMib, .loseBytes = bytes}), stream(), kLoopback, journal);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::BytesLost))) << bytes;
    EXPECT_EQ(journal.parametersOf(NetworkEvent::BytesLost).at(2), std::to_string(bytes));
    EXPECT_EQ(journal.count(NetworkEvent::StreamVerified), 1);
  }
}

TEST(NetworkStream, that_repeats_bytes_tells_how_many_and_goes_on) {
  RecordingJournal journal;
  verifyStreams(faulty({.repeatAt = kMib, .repeatBytes = 4096}), stream(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::BytesRepeated)));
  EXPECT_EQ(journal.parametersOf(NetworkEvent::BytesRepeated).at(2), "4096");
}

TEST(NetworkStream, that_breaks_tells_the_cause) {
  RecordingJournal journal;
  verifyStreams(faulty({.breakAt = kMib}), stream(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::ConnectionBroken)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::ConnectionBroken).at(1), HasSubstr("reset"));
}

TEST(NetworkStream, that_the_kernel_refuses_is_no_fault_of_the_interface) {
  for (const int error : {ENOMEM, ENOBUFS, EPERM, ENETDOWN}) {
    RecordingJournal journal;
    EXPECT_THROW(
        verifyStreams(faulty({.breakAt = kMib, .breakError = error}), stream(), kLoopback, journal),
        std::system_error)
        << error;
    EXPECT_THAT(journal.complaints(), IsEmpty());
  }
}

TEST(NetworkStream, that_stands_still_is_an_error) {
  RecordingJournal journal;
  verifyStreams(faulty({.stallAt = kMib}), impatientStream(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Stalled)));
  EXPECT_EQ(journal.parametersOf(NetworkEvent::Stalled).at(1), "0.3");
}

TEST(NetworkStream, that_trickles_is_an_error_before_hours_are_over) {
  RecordingJournal journal;
  StreamOptions options = stream();
  options.pace.stall = std::chrono::seconds(1);  // longer than each pause
  const auto begin = std::chrono::steady_clock::now();
  verifyStreams(faulty({.pauseEach = 10'000, .pause = std::chrono::milliseconds(400)}), options,
                kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Stalled)));
  EXPECT_EQ(journal.count(NetworkEvent::StreamVerified), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(NetworkStream, that_flows_too_thinly_is_an_error) {
  RecordingJournal journal;
  StreamOptions options = stream();
  options.pace = {.stall = std::chrono::seconds(60), .window = std::chrono::milliseconds(500)};
  // 65 kB a second, without a pause that would count by itself.
  verifyStreams(faulty({.pauseEach = 10'000, .pause = std::chrono::milliseconds(150)}), options,
                kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Trickled)));
  EXPECT_EQ(journal.count(NetworkEvent::StreamVerified), 0);
}

/// @brief Slow but not dead, so that the time that the path gets is over long before the end.
StreamOptions streamForATime() {
  StreamOptions options = stream(64 * kMib, 2);
  options.pace.whole = std::chrono::milliseconds(300);
  options.pace.poorRate = 0;
  return options;
}

StreamMaker slow() {
  return faulty({.pauseEach = 10'000, .pause = std::chrono::milliseconds(10)});
}

TEST(NetworkStream, that_needs_more_than_its_time_is_verified_as_far_as_it_came) {
  RecordingJournal journal;
  const StreamFigures figures = verifyStreams(slow(), streamForATime(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_TRUE(figures.isWhole);
  EXPECT_GT(figures.bytes, 0U);
  EXPECT_LT(figures.bytes, 128 * kMib);
  EXPECT_EQ(journal.parametersOf(NetworkEvent::StreamVerified).at(1),
            std::to_string(figures.bytes));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::TimeIsOver),
              ElementsAre("lo", "0.3", std::to_string(figures.bytes * 100 / (128 * kMib))));
}

TEST(NetworkStream, that_carries_less_in_its_time_than_the_slowest_wire_is_a_warning) {
  StreamOptions options = streamForATime();
  options.pace.poorRate = 1e12;
  for (const auto& [medium, event] :
       {std::pair(Path::Medium::Wire, NetworkEvent::PoorRate),
        std::pair(Path::Medium::Loopback, NetworkEvent::PathFiltered)}) {
    RecordingJournal journal;
    verifyStreams(slow(), options, Path(kLo, medium), journal);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(event)));
    EXPECT_THAT(journal.parametersOf(event).at(1), HasSubstr("MB/s"));
  }
}

TEST(NetworkStream, that_carries_nothing_in_its_time_is_no_slow_one) {
  RecordingJournal journal;
  verifyStreams(faulty({.stallAt = 0}), streamForATime(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(codeOf(NetworkEvent::Stalled), codeOf(NetworkEvent::Stalled)));
  EXPECT_EQ(journal.count(NetworkEvent::TimeIsOver), 0);
}

TEST(NetworkStream, whose_connection_cannot_be_made_is_an_error) {
  for (const int error : kFaultsOfPath) {
    RecordingJournal journal;
    const StreamFigures figures = verifyStreams(refused(error), stream(), kLoopback, journal);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::NotConnected))) << error;
    EXPECT_FALSE(figures.isWhole);
  }
}

TEST(NetworkStream, over_loopback_that_breaks_stalls_or_never_begins_is_filtered) {
  const Path loopback(kLo, Path::Medium::Loopback);
  constexpr std::uint64_t kEarly = 20'000;
  std::vector<StreamMaker> makers{faulty({.stallAt = kEarly}), refused(EPERM),
                                  faulty({.breakAt = kEarly, .breakError = EPERM})};
  for (const int error : kFaultsOfPath) {
    makers.push_back(refused(error));
    makers.push_back(faulty({.breakAt = kEarly, .breakError = error}));
  }
  for (std::size_t maker = 0; maker < makers.size(); ++maker) {
    RecordingJournal journal;
    verifyStreams(makers[maker], impatientStream(4 * kMib, 3), loopback, journal);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::PathFiltered))) << maker;
    EXPECT_EQ(journal.count(NetworkEvent::StreamVerified), 0);
  }
}

TEST(NetworkStream, of_an_interface_that_has_gone_has_no_verdict) {
  const Path gone(kLo, Path::Medium::Wire, noDevice);
  for (const StreamMaker& make : {refused(ENETUNREACH), faulty({.breakAt = kMib}),
                                  faulty({.stallAt = kMib}), refused(EADDRNOTAVAIL)}) {
    RecordingJournal journal;
    try {
      verifyStreams(make, impatientStream(), gone, journal);
      ADD_FAILURE() << "the interface was not missed";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ENODEV);
    }
    EXPECT_THAT(journal.complaints(), IsEmpty());
  }
}

TEST(NetworkStream, that_waits_for_its_connection_ends_when_stopped) {
  RecordingJournal journal;
  const StreamFigures figures = verifyStreams(
      [](unsigned int) { return std::unique_ptr<StreamLink>(); }, stream(), kLoopback, journal);
  EXPECT_FALSE(figures.isWhole);
  EXPECT_THAT(journal.events(), IsEmpty());
}

// So many that nobody waits for the last one, and that a test which does has an end.
constexpr std::uint64_t kCrowd = 1'000'000;

TEST(NetworkStream, among_endless_strangers_ends_when_stopped) {
  const Callers strangers(kCrowd);
  int questions = 0;
  EXPECT_EQ(connectOverLoopback({.stopRequested = [&] { return ++questions > 100; }}), nullptr);
  EXPECT_GT(Callers::left(), 0U);
}

TEST(NetworkStream, among_endless_strangers_is_waited_for_no_longer_than_patience_lasts) {
  const Callers strangers(kCrowd);
  const ConnectLimits limits{.patience = std::make_shared<Patience>(std::chrono::milliseconds(5))};
  try {
    connectOverLoopback(limits);
    ADD_FAILURE() << "nobody lost patience";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ETIMEDOUT);
  }
  EXPECT_GT(Callers::left(), 0U);
}

TEST(NetworkStream, is_not_broken_by_the_errors_of_others_who_connect) {
  const Callers others(3, {EAGAIN, EINTR, ECONNABORTED, ENETDOWN, EPROTO, ENOPROTOOPT, EHOSTDOWN,
                           ENONET, EHOSTUNREACH, EOPNOTSUPP, ENETUNREACH});
  EXPECT_NE(connectOverLoopback(), nullptr);
  EXPECT_EQ(Callers::left(), 0U);
}

TEST(NetworkStream, that_the_kernel_does_not_accept_is_told_at_once) {
  const Callers others(0, {EMFILE});
  try {
    connectOverLoopback();
    ADD_FAILURE() << "the error was passed over";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EMFILE);
  }
}

TEST(NetworkStream, that_is_slower_than_asked_is_a_warning) {
  RecordingJournal journal;
  StreamOptions options = stream(kMib);
  options.minimumRate = 1e15;
  verifyStreams(sound(), options, kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::SlowerThanAsked)));
}

TEST(NetworkStream, ends_soon_when_stopped) {
  RecordingJournal journal;
  journal.stopAfter(2);
  const StreamFigures figures = verifyStreams(sound(), stream(512 * kMib), kLoopback, journal);
  EXPECT_LT(figures.bytes, 64 * kMib);
  EXPECT_EQ(journal.count(NetworkEvent::StreamVerified), 0);
}

TEST(NetworkStream, tells_no_more_faults_than_anybody_reads) {
  FaultyStream::Faults faults;
  for (std::uint64_t place = 0; place < kMib; place += 1000) {
    faults.flips[place] = 1;
  }
  RecordingJournal journal;
  verifyStreams(faulty(faults), stream(kMib), kLoopback, journal);
  EXPECT_EQ(journal.complaints().size(), 32U);
}

// --- Datagrams

DatagramOptions datagrams(std::uint64_t count = 500) {
  return {
      .datagrams = count, .seed = 3, .longest = 1472, .patience = std::chrono::milliseconds(50)};
}

/// @brief For real paths, on which one that is late is not lost.
DatagramOptions patientDatagrams(std::uint64_t count = 500) {
  DatagramOptions options = datagrams(count);
  options.patience = std::chrono::seconds(20);
  options.pace.stall = std::chrono::seconds(60);
  return options;
}

void runFaulty(const FaultyDatagrams::Faults& faults, RecordingJournal& journal) {
  FaultyDatagrams link(faults);
  verifyDatagrams(link, datagrams(), kLoopback, journal);
}

TEST(NetworkDatagrams, arrive_whole_over_the_loopback_address) {
  const auto link = connectDatagrams(loopbackEnd(), loopbackEnd());
  RecordingJournal journal;
  const DatagramFigures figures =
      verifyDatagrams(*link, patientDatagrams(2000), kLoopback, journal);
  EXPECT_EQ(figures.arrived, 2000U);
  EXPECT_DOUBLE_EQ(journal.processed().at("datagrams"), 1984) << "by 64";
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_EQ(journal.count(NetworkEvent::DatagramsVerified), 1);
}

TEST(NetworkDatagrams, that_are_lost_are_counted_with_the_first) {
  RecordingJournal journal;
  runFaulty({.lose = {17, 300, 499}}, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramsLost)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsLost), ElementsAre("lo", "3", "17"));
}

TEST(NetworkDatagrams, that_come_twice_are_counted) {
  RecordingJournal journal;
  runFaulty({.repeat = {5, 499}}, journal);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsRepeated), ElementsAre("lo", "2", "5"));
}

TEST(NetworkDatagrams, that_come_again_without_end_end_the_run_with_what_was_found) {
  FaultyDatagrams link({.repeat = {5}, .copies = FaultyDatagrams::kEndless});
  RecordingJournal journal;
  verifyDatagrams(link, datagrams(), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramsRepeated)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsRepeated), ElementsAre("lo", "1", "5"));
}

TEST(NetworkDatagrams, that_come_again_without_end_do_not_keep_a_stop_waiting) {
  FaultyDatagrams link({.repeat = {5}, .copies = FaultyDatagrams::kEndless});
  DatagramOptions options = datagrams();
  options.mostExtras = std::numeric_limits<std::uint32_t>::max();
  RecordingJournal journal;
  journal.stopAfter(3);
  verifyDatagrams(link, options, kLoopback, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(NetworkDatagrams, that_all_come_three_times_are_counted_to_the_end) {
  FaultyDatagrams::Faults faults{.copies = 3};
  for (std::uint64_t number = 0; number < 5000; ++number) {
    faults.repeat.insert(number);
  }
  FaultyDatagrams link(faults);
  RecordingJournal journal;
  verifyDatagrams(link, datagrams(5000), kLoopback, journal);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsRepeated),
              ElementsAre("lo", "5000", "0"));
}

TEST(NetworkDatagrams, that_trickle_are_lost_before_hours_are_over) {
  FaultyDatagrams link({.each = std::chrono::milliseconds(40)});
  DatagramOptions options = datagrams(200'000);
  options.patience = std::chrono::seconds(60);
  options.pace = {.stall = std::chrono::seconds(60), .window = std::chrono::milliseconds(500)};
  RecordingJournal journal;
  verifyDatagrams(link, options, kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramsLost)));
  EXPECT_LT(link.sent(), 1000U);
}

TEST(NetworkDatagrams, that_need_more_than_their_time_are_verified_as_far_as_they_came) {
  DatagramOptions options = datagrams(1'000'000);
  options.patience = std::chrono::seconds(60);
  options.pace = {.stall = std::chrono::seconds(60),
                  .window = std::chrono::hours(1),
                  .whole = std::chrono::milliseconds(300),
                  .poorRate = 0};
  for (const bool isPoor : {false, true}) {
    options.pace.poorRate = isPoor ? 1e12 : 0;
    FaultyDatagrams link({.each = std::chrono::milliseconds(2)});
    RecordingJournal journal;
    const DatagramFigures figures = verifyDatagrams(link, options, kLoopback, journal);
    EXPECT_EQ(figures.arrived, link.sent()) << "what was on its way was waited for";
    EXPECT_LT(link.sent(), options.datagrams / 2);
    EXPECT_THAT(journal.parametersOf(NetworkEvent::TimeIsOver).at(1), "0.3");
    EXPECT_EQ(journal.count(NetworkEvent::PoorRate), isPoor ? 1 : 0);
    EXPECT_EQ(journal.complaints().size(), isPoor ? 1U : 0U);
  }
}

/// @brief A path on which all that is sent arrives only when the run has given it up.
FaultyDatagrams lateLink() {
  return FaultyDatagrams({.keepForWaits = 3});
}

TEST(NetworkDatagrams, that_arrive_when_the_path_counts_as_dead_do_not_stand_for_the_rest) {
  DatagramOptions slow = datagrams();
  slow.patience = std::chrono::seconds(60);
  slow.pace.stall = 3 * Patience::kLook;
  DatagramOptions silent = datagrams();
  silent.mostSilences = 3;
  for (const DatagramOptions& options : {slow, silent}) {
    FaultyDatagrams link = lateLink();
    RecordingJournal journal;
    const DatagramFigures figures = verifyDatagrams(link, options, kLoopback, journal);
    EXPECT_EQ(figures.arrived, link.sent());
    EXPECT_LT(link.sent(), options.datagrams);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Stalled)));
    EXPECT_EQ(journal.parametersOf(NetworkEvent::Stalled).at(2), std::to_string(figures.bytes));
  }
}

TEST(NetworkDatagrams, that_were_not_read_because_of_a_stop_are_not_lost) {
  // In the wait with which the path counts as dead, and while the last ones are read.
  for (const int questions : {2, 3}) {
    FaultyDatagrams link = lateLink();
    DatagramOptions options = datagrams();
    options.mostSilences = 3;
    RecordingJournal journal;
    journal.stopAfter(questions);
    verifyDatagrams(link, options, kLoopback, journal);
    EXPECT_EQ(link.sent(), 3 * options.inFlight);
    EXPECT_THAT(journal.events(), IsEmpty());
  }
}

TEST(NetworkDatagrams, in_another_order_are_a_warning) {
  RecordingJournal journal;
  runFaulty({.swapWithNext = {40}}, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Reordered)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::Reordered), ElementsAre("lo", "1", "40"));
}

TEST(NetworkDatagrams, with_a_flipped_bit_are_named) {
  RecordingJournal journal;
  runFaulty({.flip = {{33, 20}}}, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramCorrupted)));
  const auto parameters = journal.parametersOf(NetworkEvent::DatagramCorrupted);
  EXPECT_EQ(parameters.at(1), "33");
  EXPECT_EQ(parameters.at(2), "20");
}

TEST(NetworkDatagrams, with_a_damaged_header_or_cut_short_are_found) {
  RecordingJournal header;
  runFaulty({.flip = {{33, 2}}}, header);
  EXPECT_EQ(header.count(NetworkEvent::DatagramCorrupted), 1);
  RecordingJournal cut;
  runFaulty({.cut = {7}}, cut);
  EXPECT_EQ(cut.count(NetworkEvent::DatagramCorrupted), 1);
}

TEST(NetworkDatagrams, that_the_kernel_refuses_are_no_fault_of_the_interface) {
  for (const int error : {ENOMEM, ENOBUFS, EPERM, ENETDOWN}) {
    RecordingJournal journal;
    EXPECT_THROW(runFaulty({.refuse = {{7, error}}}, journal), std::system_error) << error;
    EXPECT_THAT(journal.complaints(), IsEmpty());
  }
}

TEST(NetworkDatagrams, that_all_vanish_are_lost_and_end_the_run_soon) {
  FaultyDatagrams link({.loseFrom = 0});
  RecordingJournal journal;
  verifyDatagrams(link, datagrams(200'000), kLoopback, journal);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsLost), ElementsAre("lo", "96", "0"));
  EXPECT_EQ(link.sent(), 96U) << "three windows of 32";
  EXPECT_EQ(journal.count(NetworkEvent::DatagramsVerified), 0);
}

TEST(NetworkDatagrams, that_vanish_from_some_point_on_end_the_run_soon) {
  FaultyDatagrams link({.loseFrom = 100});
  RecordingJournal journal;
  EXPECT_EQ(verifyDatagrams(link, datagrams(200'000), kLoopback, journal).arrived, 100U);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsLost), ElementsAre("lo", "96", "100"));
}

TEST(NetworkDatagrams, of_which_hundreds_are_lost_end_the_run_soon) {
  FaultyDatagrams link({.loseOfTen = 6});
  RecordingJournal journal;
  verifyDatagrams(link, datagrams(200'000), kLoopback, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramsLost)));
  EXPECT_LT(link.sent(), 600U);
  EXPECT_GE(std::stoul(journal.parametersOf(NetworkEvent::DatagramsLost).at(1)), 256U);
}

TEST(NetworkDatagrams, that_found_no_room_in_the_receiver_are_not_lost) {
  RecordingJournal journal;
  runFaulty({.lose = {17, 300}, .overruns = 2}, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(NetworkEvent::ReceiverOverran), ElementsAre("lo", "2"));

  RecordingJournal more;
  runFaulty({.lose = {17, 300, 301}, .overruns = 2}, more);
  EXPECT_THAT(more.parametersOf(NetworkEvent::DatagramsLost), ElementsAre("lo", "1", "17"));
}

TEST(NetworkDatagrams, over_loopback_of_which_none_arrives_are_filtered) {
  const Path loopback(kLo, Path::Medium::Loopback);
  for (const FaultyDatagrams::Faults& faults :
       {FaultyDatagrams::Faults{.loseFrom = 0}, FaultyDatagrams::Faults{.refuse = {{0, EPERM}}},
        FaultyDatagrams::Faults{.refuse = {{3, ECONNREFUSED}}, .loseFrom = 0}}) {
    FaultyDatagrams link(faults);
    RecordingJournal journal;
    verifyDatagrams(link, datagrams(), loopback, journal);
    EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::PathFiltered)));
  }
}

// No hardware takes part there: a rule or a limit of this machine has dropped it.
TEST(NetworkDatagrams, over_loopback_of_which_some_are_lost_are_filtered_too) {
  FaultyDatagrams link({.lose = {17}});
  RecordingJournal journal;
  verifyDatagrams(link, datagrams(), Path(kLo, Path::Medium::Loopback), journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::PathFiltered)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::PathFiltered).at(1),
              ::testing::StartsWith("1 / "));
}

TEST(NetworkDatagrams, of_an_interface_that_has_gone_have_no_verdict) {
  FaultyDatagrams link({.loseFrom = 10});
  RecordingJournal journal;
  const Path gone(kLo, Path::Medium::Wire, noDevice);
  EXPECT_THROW(verifyDatagrams(link, datagrams(), gone, journal), std::system_error);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(NetworkDatagrams, that_come_many_times_are_counted_once) {
  RecordingJournal journal;
  runFaulty({.repeat = {5, 9}, .copies = 300}, journal);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsRepeated), ElementsAre("lo", "2", "5"));
}

TEST(NetworkDatagrams, whose_headers_were_damaged_are_not_lost_too) {
  RecordingJournal journal;
  runFaulty({.flip = {{33, 2}, {40, 2}}}, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::DatagramCorrupted),
                                                codeOf(NetworkEvent::DatagramCorrupted)));
}

TEST(NetworkDatagrams, too_many_to_be_named_are_counted_all_the_same) {
  FaultyDatagrams::Faults faults;
  for (std::uint64_t number = 10; number < 50; ++number) {
    faults.flip[number] = 20;
  }
  RecordingJournal journal;
  runFaulty(faults, journal);
  EXPECT_EQ(journal.count(NetworkEvent::DatagramCorrupted), 16);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::DatagramsCorrupted),
              ElementsAre("lo", "40", "10"));
}

/// @brief What comes next: on a busy machine the kernel hands over in its own time what was sent.
std::int64_t receiveSoon(DatagramLink& link, std::span<std::byte> buffer) {
  std::int64_t length = 0;
  eventually([&] { return (length = link.receive(buffer)) != 0; });
  return length;
}

TEST(NetworkDatagrams, never_overrun_the_buffer_of_the_real_receiver) {
  const auto link = connectDatagrams(loopbackEnd(), loopbackEnd());
  constexpr std::size_t kLength = 4096;
  const std::uint64_t capacity = std::min<std::uint64_t>(link->capacity(kLength), 32);
  EXPECT_GE(capacity, 16U);
  const std::vector<std::byte> datagram(kLength);
  for (std::uint64_t number = 0; number < capacity; ++number) {
    ASSERT_EQ(link->send(datagram), static_cast<std::int64_t>(kLength));
  }
  std::vector<std::byte> buffer(kLength);
  for (std::uint64_t number = 0; number < capacity; ++number) {
    ASSERT_EQ(receiveSoon(*link, buffer), static_cast<std::int64_t>(kLength)) << number;
  }
  EXPECT_EQ(link->overruns(), 0U);
}

TEST(NetworkDatagrams, that_overrun_the_real_receiver_are_counted) {
  const auto link = connectDatagrams(loopbackEnd(), loopbackEnd());
  constexpr std::size_t kLength = 60'000;
  const std::vector<std::byte> datagram(kLength);
  constexpr std::uint64_t kSent = 400;
  for (std::uint64_t number = 0; number < kSent; ++number) {
    ASSERT_EQ(link->send(datagram), static_cast<std::int64_t>(kLength));
  }
  std::vector<std::byte> buffer(kLength);
  std::uint64_t arrived = 0;
  EXPECT_TRUE(eventually([&] {
    while (link->receive(buffer) > 0) {
      ++arrived;
    }
    return arrived + link->overruns() == kSent;
  })) << arrived
      << " have arrived, " << link->overruns() << " were counted";
  EXPECT_LT(arrived, kSent);
}

TEST(NetworkDatagrams, that_cannot_be_sent_break_the_connection) {
  RecordingJournal journal;
  runFaulty({.refuse = {{7, EHOSTUNREACH}}}, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::ConnectionBroken)));
}

TEST(NetworkDatagrams, end_when_stopped) {
  const auto link = connectDatagrams(loopbackEnd(), loopbackEnd());
  RecordingJournal journal;
  journal.stopAfter(0);
  EXPECT_LT(verifyDatagrams(*link, datagrams(100'000), kLoopback, journal).arrived, 1000U);
}

// --- Links and drivers

Link etherLink() {
  Link link;
  link.name = "eth7";
  link.up = true;
  link.carrier = true;
  link.state = "up";
  link.errors = {{"rx_errors", 5}, {"rx_crc_errors", 5}};
  link.drops = {{"rx_dropped", 2}};
  return link;
}

class ScriptedControl : public LinkControl {
 public:
  LinkMode mode() override { return linkMode; }
  DriverInfo driver() override { return {"e1000", "1", "2", "0000:00:03.0", 2}; }
  SelfTestResult selfTest(bool offline) override {
    lastOffline = offline;
    return result;
  }

  LinkMode linkMode{1000, Duplex::Full, 1000};
  SelfTestResult result{false, {{"Register test", 0}, {"Link test", 0}}};
  bool lastOffline = false;
};

std::vector<unsigned int> complaintsOf(const Link& link, ScriptedControl& control,
                                       const LinkLimits& limits = {}) {
  RecordingJournal journal;
  judgeLink(link, control, limits, journal);
  EXPECT_EQ(journal.count(NetworkEvent::Link), 1);
  return journal.complaints();
}

TEST(NetworkLink, that_is_well_is_told) {
  ScriptedControl control;
  RecordingJournal journal;
  judgeLink(etherLink(), control, {1000}, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(NetworkEvent::Link),
              ElementsAre("eth7", "up", "1000 Mb/s", "DUPLEX_FULL"));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::Driver),
              ElementsAre("eth7", "e1000", "1", "2", "0000:00:03.0"));
}

TEST(NetworkLink, without_carrier_is_an_error) {
  ScriptedControl control;
  Link link = etherLink();
  link.carrier = false;
  EXPECT_THAT(complaintsOf(link, control), ElementsAre(codeOf(NetworkEvent::NoLink)));
}

TEST(NetworkLink, that_is_switched_off_is_no_fault) {
  ScriptedControl control;
  RecordingJournal journal;
  Link link = etherLink();
  link.up = link.carrier = false;
  EXPECT_THROW(judgeLink(link, control, {}, journal), NotSupported);
  EXPECT_THROW(judgeCounters(etherLink(), link, {}, journal), NotSupported) << "meanwhile";
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(NetworkLink, of_less_than_both_ends_offer_is_a_warning) {
  ScriptedControl control;
  control.linkMode.megabits = 100;
  EXPECT_THAT(complaintsOf(etherLink(), control),
              ElementsAre(codeOf(NetworkEvent::SlowerThanBoth)));
}

TEST(NetworkLink, with_half_duplex_is_a_warning) {
  ScriptedControl control;
  control.linkMode.duplex = Duplex::Half;
  EXPECT_THAT(complaintsOf(etherLink(), control), ElementsAre(codeOf(NetworkEvent::HalfDuplex)));
}

TEST(NetworkLink, below_the_configured_speed_is_an_error) {
  ScriptedControl control;
  EXPECT_THAT(complaintsOf(etherLink(), control, {10000}),
              ElementsAre(codeOf(NetworkEvent::BelowMinimumSpeed)));
}

TEST(NetworkLink, of_unknown_speed_is_no_fault) {
  ScriptedControl control;
  control.linkMode = {};
  EXPECT_THAT(complaintsOf(etherLink(), control, {10000}), IsEmpty());
}

TEST(NetworkSelfTest, names_the_parts_that_failed) {
  ScriptedControl control;
  RecordingJournal good;
  runSelfTest("eth7", control, false, good);
  EXPECT_THAT(good.parametersOf(NetworkEvent::SelfTestPassed), ElementsAre("eth7", "2"));
  EXPECT_FALSE(control.lastOffline);

  control.result = {true, {{"Register test", 13}, {"Link test", 0}}};
  RecordingJournal bad;
  runSelfTest("eth7", control, true, bad);
  EXPECT_TRUE(control.lastOffline);
  EXPECT_THAT(bad.complaints(), ElementsAre(codeOf(NetworkEvent::SelfTestFailed)));
  EXPECT_THAT(bad.parametersOf(NetworkEvent::SelfTestFailed),
              ElementsAre("eth7", "Register test", "13"));
}

TEST(NetworkSelfTest, that_fails_without_saying_where_is_still_an_error) {
  ScriptedControl control;
  control.result.failed = true;
  RecordingJournal journal;
  runSelfTest("eth7", control, false, journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::SelfTestFailed)));
}

TEST(NetworkSelfTest, of_an_interface_without_one_is_not_supported) {
  RecordingJournal journal;
  const auto control = makeLinkControl(kLo);
  EXPECT_THROW(runSelfTest(kLo, *control, false, journal), NotSupported);
}

TEST(NetworkCounters, that_rose_are_named_without_their_sums) {
  Link after = etherLink();
  after.errors["rx_errors"] += 3;
  after.errors["rx_crc_errors"] += 3;
  after.drops["rx_dropped"] += 3;
  after.carrierChanges += 2;
  RecordingJournal journal;
  judgeCounters(etherLink(), after, {2}, journal);
  EXPECT_THAT(journal.complaints(),
              ElementsAre(codeOf(NetworkEvent::ErrorsCounted), codeOf(NetworkEvent::DropsCounted),
                          codeOf(NetworkEvent::LinkFlapped)));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::ErrorsCounted),
              ElementsAre("eth7", "rx_crc_errors", "3"));
  EXPECT_THAT(journal.parametersOf(NetworkEvent::LinkFlapped), ElementsAre("eth7", "2"));
}

TEST(NetworkCounters, of_a_few_drops_are_told_without_complaint) {
  Link after = etherLink();
  after.drops["rx_dropped"] += 2;
  RecordingJournal journal;
  judgeCounters(etherLink(), after, {2}, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_THAT(journal.parametersOf(NetworkEvent::FewDrops), ElementsAre("eth7", "rx_dropped", "2"));
}

TEST(NetworkCounters, that_only_sum_up_are_told_as_they_are) {
  Link after = etherLink();
  after.errors["rx_errors"] += 3;
  RecordingJournal journal;
  judgeCounters(etherLink(), after, {2}, journal);
  EXPECT_THAT(journal.parametersOf(NetworkEvent::ErrorsCounted),
              ElementsAre("eth7", "rx_errors", "3"));
}

TEST(NetworkCounters, that_stood_still_or_were_set_back_are_no_fault) {
  Link after = etherLink();
  after.errors["rx_errors"] = 0;
  RecordingJournal journal;
  judgeCounters(etherLink(), after, {2}, journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_EQ(journal.count(NetworkEvent::CountersQuiet), 1);
}

TEST(NetworkDiscovery, knows_the_loopback_interface) {
  const Link link = readLink(kLo);
  EXPECT_TRUE(link.loopback);
  EXPECT_EQ(link.kind, "");
  EXPECT_EQ(link.errors.size(), 12U);
  EXPECT_THROW(readLink("no-such-one"), std::system_error);
}

TEST(NetworkDiscovery, leaves_out_what_is_switched_off_or_made_of_software) {
  Link link = etherLink();
  EXPECT_EQ(whyNoDevice(link), "");
  link.up = false;
  EXPECT_THAT(whyNoDevice(link), HasSubstr("switched off"));
  link.kind = "bridge";
  EXPECT_THAT(whyNoDevice(link), HasSubstr("bridge"));
}

// --- From one interface to the other

/// @brief In a namespace of its own, where nobody else's interfaces are, with a pair of its own.
class NetworkPair : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) {
      GTEST_SKIP() << "needs CAP_SYS_ADMIN: " << std::strerror(errno);
    }
    const NetlinkSocket socket;
    if (rtnl_link_veth_add(socket.get(), "left", "right", getpid()) < 0) {
      GTEST_SKIP() << "the kernel has no virtual pairs";
    }
  }

  TemporaryDirectory folder;
  InterfaceRecords records{folder.path()};
  RecordingJournal journal;
};

TEST_F(NetworkPair, carries_streams_and_datagrams_between_its_namespaces) {
  {
    const NamespacePair pair("left", "right", records);
    ASSERT_TRUE(pair.waitForCarrier(std::chrono::seconds(20)));
    EXPECT_EQ(if_nametoindex("left"), 0U);
    const Link before = pair.first();
    const StreamFigures figures = verifyStreams(
        [&](unsigned int) { return connectStream(pair.firstEnd(), pair.secondEnd()); }, stream(),
        Path("left"), journal);
    EXPECT_EQ(figures.bytes, 4 * kMib);
    const auto link = connectDatagrams(pair.secondEnd(), pair.firstEnd());
    EXPECT_EQ(verifyDatagrams(*link, patientDatagrams(), Path("right"), journal).arrived, 500U);
    EXPECT_THAT(journal.complaints(), IsEmpty());
    EXPECT_GT(pair.first().packetsSent - before.packetsSent, 4 * kMib / 65536);
  }
  EXPECT_NE(if_nametoindex("left"), 0U) << "was not put back";
  EXPECT_NE(if_nametoindex("right"), 0U) << "was not put back";
}

TEST_F(NetworkPair, is_refused_when_an_interface_is_in_use) {
  {
    const NamespacePair pair("left", "right", records);
    pair.firstEnd().inside([&] {
      try {
        const NamespacePair again("left", "lo", records);
        ADD_FAILURE() << "took an interface with an address";
      } catch (const NotSupported& reason) {
        EXPECT_EQ(reason.reason(), Reasons::kCarriesAddress);
      }
    });
  }
  EXPECT_NE(if_nametoindex("left"), 0U);
}

TEST_F(NetworkPair, is_refused_when_another_interface_lies_on_one_of_its) {
  const NetlinkSocket socket;
  rtnl_link* const upper = rtnl_link_macvlan_alloc();
  rtnl_link_set_name(upper, "upper");
  rtnl_link_set_link(upper, readLink("left").index);
  const int added = rtnl_link_add(socket.get(), upper, NLM_F_CREATE | NLM_F_EXCL);
  rtnl_link_put(upper);
  if (added < 0) {
    GTEST_SKIP() << "the kernel lays no interface on another: " << nl_geterror(added);
  }
  try {
    const NamespacePair pair("left", "right", records);
    ADD_FAILURE() << "took an interface that carries another";
  } catch (const NotSupported& reason) {
    EXPECT_EQ(reason.reason(), Reasons::kCarriesAnother);
    EXPECT_EQ(reason.detail(), "left, upper");
  }
  EXPECT_NE(if_nametoindex("left"), 0U);
}

TEST_F(NetworkPair, puts_the_first_back_when_there_is_no_second) {
  try {
    const NamespacePair pair("left", "nowhere", records);
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENODEV);
  }
  EXPECT_NE(if_nametoindex("left"), 0U);
}

TEST_F(NetworkPair, tells_when_its_partner_is_missing) {
  const NetlinkSocket socket;
  ASSERT_EQ(rtnl_link_veth_add(socket.get(), "other", "alone", getpid()), 0);
  const NamespacePair pair("left", "other", records);
  EXPECT_FALSE(pair.waitForCarrier(std::chrono::milliseconds(50)));
}

// --- What becomes of the interfaces

bool isUp(const std::string& interface) {
  return if_nametoindex(interface.c_str()) != 0 && readLink(interface).up;
}

TEST_F(NetworkPair, is_recorded_as_long_as_it_is_away) {
  InterfaceSetter("left").switchOn();
  {
    const NamespacePair pair("left", "right", records);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2);
    EXPECT_THAT(records.restore(), IsEmpty()) << "its owner is alive";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2);
  }
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_TRUE(isUp("left"));
  EXPECT_FALSE(isUp("right")) << "was off before";
}

TEST_F(NetworkPair, is_not_taken_when_no_record_can_be_kept) {
  const InterfaceRecords nowhere(folder.write("file", "in the way"));
  try {
    const NamespacePair pair("left", "right", nowhere);
    ADD_FAILURE() << "took an interface without a record";
  } catch (const NotSupported& reason) {
    EXPECT_EQ(reason.reason(), Reasons::kNoRecord);
  }
  EXPECT_NE(if_nametoindex("left"), 0U);
}

TEST_F(NetworkPair, comes_back_when_its_process_is_killed) {
  InterfaceSetter("left").switchOn();
  InterfaceSetter("right").switchOn();
  const pid_t child = fork();
  if (child == 0) {
    const NamespacePair pair("left", "right", records);
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(eventually([&] { return isUp("left") && isUp("right"); }));
  EXPECT_TRUE(eventually([&] { return fs::is_empty(folder.path()); }));
}

/// @brief Writes a record as a process does that dies at once, and of which nothing else is left.
void recordAndDie(const InterfaceRecords& records, const Link& link) {
  const pid_t child = fork();
  if (child == 0) {
    records.add(link);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
}

void recordAndDie(const InterfaceRecords& records, const std::string& interface) {
  recordAndDie(records, readLink(interface));
}

TEST_F(NetworkPair, is_switched_on_again_by_the_next_run_when_all_have_died) {
  InterfaceSetter("left").switchOn();
  recordAndDie(records, "left");
  recordAndDie(records, "right");
  InterfaceSetter("left").switchOff();
  EXPECT_THAT(records.restore(), ElementsAre(HasSubstr("left was switched on again")));
  EXPECT_TRUE(isUp("left"));
  EXPECT_FALSE(isUp("right")) << "was off when it was taken";
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_THAT(records.restore(), IsEmpty()) << "once is enough";
}

TEST_F(NetworkPair, that_is_not_the_recorded_one_is_left_alone) {
  InterfaceSetter("left").switchOn();
  recordAndDie(records, "left");
  const NetlinkSocket socket;
  rtnl_link* recorded = nullptr;
  ASSERT_EQ(rtnl_link_get_kernel(socket.get(), 0, "left", &recorded), 0);
  ASSERT_EQ(rtnl_link_delete(socket.get(), recorded), 0);
  rtnl_link_put(recorded);
  ASSERT_EQ(rtnl_link_veth_add(socket.get(), "left", "right", getpid()), 0);
  EXPECT_THAT(records.restore(), IsEmpty());
  EXPECT_FALSE(isUp("left"));
}

TEST_F(NetworkPair, of_another_namespace_is_left_alone) {
  InterfaceSetter("left").switchOn();
  recordAndDie(records, "left");
  InterfaceSetter("left").switchOff();
  NetworkNamespace().inside([&] { EXPECT_THAT(records.restore(), IsEmpty()); });
  EXPECT_FALSE(fs::is_empty(folder.path()));
}

TEST_F(NetworkPair, that_is_missing_keeps_its_record_and_nobody_waiting) {
  for (int number = 0; number < 20; ++number) {
    Link lost;
    lost.name = "lost" + std::to_string(number);
    lost.hardwareAddress = "02:00:00:00:00:01";
    lost.up = true;
    recordAndDie(records, lost);
  }
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(records.restore(), SizeIs(20));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 20);
}

TEST_F(NetworkPair, whose_records_cannot_be_listed_is_told) {
  InterfaceSetter("left").switchOn();
  recordAndDie(records, "left");
  recordAndDie(records, "right");
  InterfaceSetter("left").switchOff();
  BrokenListing::failFrom(4);  // behind the two dots and a record
  const std::vector<std::string> told = records.restore();
  BrokenListing::failFrom(BrokenListing::kNever);
  EXPECT_THAT(told, Contains(HasSubstr("Input/output error")));
}

// --- Over a wire with faults

class NetworkWire : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) {
      GTEST_SKIP() << "needs CAP_SYS_ADMIN: " << std::strerror(errno);
    }
    wire.emplace();
    pair.emplace("left", "right", InterfaceRecords(folder.path()));
    ASSERT_TRUE(pair->waitForCarrier(std::chrono::seconds(20)));
  }
  void TearDown() override {
    pair.reset();
    wire.reset();
  }

  StreamMaker connecting(ConnectLimits limits = {}) {
    return [this, limits](unsigned int) {
      return connectStream(pair->firstEnd(), pair->secondEnd(), limits);
    };
  }

  Path path() {
    return Path("left", Path::Medium::Wire, [this] { pair->requirePresence(); });
  }

  TemporaryDirectory folder;
  std::optional<TapWire> wire;
  std::optional<NamespacePair> pair;
  RecordingJournal journal;
};

TEST_F(NetworkWire, that_is_sound_carries_everything) {
  EXPECT_TRUE(verifyStreams(connecting(), stream(), path(), journal).isWhole);
  const auto link = connectDatagrams(pair->firstEnd(), pair->secondEnd());
  verifyDatagrams(*link, patientDatagrams(), path(), journal);
  EXPECT_THAT(journal.complaints(), IsEmpty());
  EXPECT_GT(wire->dataFrames(), 4 * kMib / 1500);
  EXPECT_EQ(pair->damagedAtFirst() + pair->damagedAtSecond(), 0U);
}

TEST_F(NetworkWire, that_is_dead_makes_no_connection) {
  wire->faults.isDead = true;
  verifyStreams(connecting({.patience = patience(std::chrono::milliseconds(300))}), stream(),
                path(), journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::NotConnected)));
}

TEST_F(NetworkWire, that_is_dead_exhausts_the_patience_for_all_connections) {
  wire->faults.isDead = true;
  const ConnectLimits limits{.patience = patience(std::chrono::milliseconds(300))};
  const auto copy = limits;
  EXPECT_THROW(connectStream(pair->firstEnd(), pair->secondEnd(), limits), std::system_error);
  EXPECT_TRUE(copy.patience->isOver());
  EXPECT_THROW(connectStream(pair->firstEnd(), pair->secondEnd(), copy), std::system_error);
}

TEST_F(NetworkWire, that_is_dead_does_not_keep_a_stop_waiting) {
  wire->faults.isDead = true;
  const ConnectLimits limits{.patience = patience(std::chrono::hours(1)),
                             .stopRequested = [] { return true; }};
  verifyStreams(connecting(limits), stream(), path(), journal);
  EXPECT_THAT(journal.events(), IsEmpty());
}

TEST_F(NetworkWire, that_is_far_too_slow_is_an_error) {
  wire->faults.bytesPerSecond = 50'000;
  StreamOptions options = stream();
  options.pace = {.stall = std::chrono::seconds(60), .window = std::chrono::milliseconds(500)};
  verifyStreams(connecting(), options, path(), journal);
  EXPECT_THAT(journal.complaints(), ElementsAre(codeOf(NetworkEvent::Trickled)));
}

TEST_F(NetworkWire, that_damages_frames_is_told_by_their_checksums) {
  wire->faults.damageEach = 300;
  verifyStreams(connecting(), stream(), path(), journal);
  EXPECT_THAT(journal.complaints(), IsEmpty()) << "the stream repairs itself";
  EXPECT_GT(wire->spoiltFrames(), 0U);
  // Some are sent again behind the end, and are under way still.
  EXPECT_TRUE(eventually(
      [&] { return pair->damagedAtFirst() + pair->damagedAtSecond() == wire->spoiltFrames(); }));
}

TEST_F(NetworkWire, that_loses_its_interface_is_missed) {
  wire->faults.deadFrom = 1000;
  std::thread puller([&] {
    EXPECT_TRUE(eventually([&] { return wire->dataFrames() >= 1000; }));
    wire->unplugRight();
  });
  StreamOptions options = stream();
  options.pace.stall = std::chrono::seconds(30);
  EXPECT_THROW(verifyStreams(connecting(), options, path(), journal), std::system_error);
  puller.join();
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Network
