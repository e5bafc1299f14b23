// Other processes of the machine that talk to the network tests' sockets.

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/Sockets.h"
#include "packages/network/StreamDiagnostic.h"
#include "tests/support/RecordingJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Network {
namespace {

using Common::RecordingJournal;
using ::testing::IsEmpty;

const Path kPath("lo");  ///< judged as a wire would be

/// @brief The addresses of this process's sockets that wait for whoever comes.
std::vector<sockaddr_in> waitingSockets() {
  std::vector<sockaddr_in> found;
  for (int descriptor = 3; descriptor < 256; ++descriptor) {
    int kind = 0;
    int listens = 0;
    sockaddr_in address{};
    socklen_t size = sizeof kind;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &kind, &size) != 0) {
      continue;
    }
    getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size);
    size = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    if (address.sin_family == AF_INET && (kind == SOCK_DGRAM || listens != 0)) {
      found.push_back(address);
    }
  }
  return found;
}

/// @brief Comes between as soon as a socket of the end is there, and says something.
class Stranger {
 public:
  explicit Stranger(int kind) : m_kind(kind) {}

  End at(End end) {
    end.inside = [this](const std::function<void()>& action) {
      action();
      if (m_sockets.empty()) {
        std::ranges::for_each(waitingSockets(), [this](const auto& target) { speakTo(target); });
      }
    };
    return end;
  }

  std::size_t count() const { return m_sockets.size(); }

 private:
  void speakTo(const sockaddr_in& target) {
    PackageKit::UniqueDescriptor socket(::socket(AF_INET, m_kind | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr*>(&target), sizeof target), 0);
    const std::string words(1000, 'x');
    EXPECT_EQ(send(socket.get(), words.data(), words.size(), 0), 1000);
    m_sockets.push_back(std::move(socket));
  }

  int m_kind;
  std::vector<PackageKit::UniqueDescriptor> m_sockets;
};

TEST(NetworkStrangers, who_connect_first_are_turned_away) {
  Stranger stranger(SOCK_STREAM);
  RecordingJournal journal;
  const StreamFigures figures = verifyStreams(
      [&](unsigned int) { return connectStream(loopbackEnd(), stranger.at(loopbackEnd())); },
      {.bytes = std::uint64_t{1} << 20, .seed = 1, .pace = {.stall = std::chrono::seconds(10)}},
      kPath, journal);
  EXPECT_GT(stranger.count(), 0U);
  EXPECT_TRUE(figures.isWhole);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

TEST(NetworkStrangers, whose_datagrams_come_first_are_not_heard) {
  Stranger stranger(SOCK_DGRAM);
  RecordingJournal journal;
  const auto link = connectDatagrams(loopbackEnd(), stranger.at(loopbackEnd()));
  verifyDatagrams(*link, {.datagrams = 500, .seed = 3, .longest = 1472}, kPath, journal);
  EXPECT_GT(stranger.count(), 0U);
  EXPECT_THAT(journal.complaints(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Network
