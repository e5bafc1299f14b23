#include "packages/network/Sockets.h"

#include <fcntl.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <system_error>
#include <utility>

#include "packages/network/ProtocolCounters.h"

namespace TarvexDiags::Network {
namespace {

using PackageKit::UniqueDescriptor;

void check(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

UniqueDescriptor makeSocket(int type) {
  UniqueDescriptor made(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  check(made.get(), "socket");
  return made;
}

sockaddr_in addressOf(in_addr address, in_port_t port = 0) {
  sockaddr_in full{};
  full.sin_family = AF_INET;
  full.sin_port = port;
  full.sin_addr = address;
  return full;
}

const sockaddr* plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

void bindTo(const UniqueDescriptor& socket, in_addr address) {
  const sockaddr_in full = addressOf(address);
  check(bind(socket.get(), plain(full), sizeof full), "bind");
}

bool isSame(const sockaddr_in& left, const sockaddr_in& right) {
  return left.sin_port == right.sin_port && left.sin_addr.s_addr == right.sin_addr.s_addr;
}

sockaddr_in ownAddress(const UniqueDescriptor& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  check(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
  return address;
}

void neverBlock(const UniqueDescriptor& socket) {
  check(fcntl(socket.get(), F_SETFL, O_NONBLOCK), "fcntl");
}

/// @brief A result of send or recv as the links give it.
std::int64_t moved(ssize_t result) {
  if (result >= 0) {
    return result;
  }
  return errno == EAGAIN || errno == EINTR ? 0 : -errno;
}

void waitFor(const UniqueDescriptor& sender, const UniqueDescriptor& receiver, bool forRoom,
             std::chrono::milliseconds limit) {
  std::array<pollfd, 2> ends{
      {{receiver.get(), POLLIN, 0}, {sender.get(), static_cast<short>(forRoom ? POLLOUT : 0), 0}}};
  poll(ends.data(), ends.size(), static_cast<int>(limit.count()));
}

class TcpLink final : public StreamLink {
 public:
  TcpLink(UniqueDescriptor sender, UniqueDescriptor receiver)
      : m_sender(std::move(sender)), m_receiver(std::move(receiver)) {
    neverBlock(m_sender);
    neverBlock(m_receiver);
    const int on = 1;
    setsockopt(m_sender.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }

  std::int64_t send(std::span<const std::byte> bytes) override {
    return moved(::send(m_sender.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }

  std::int64_t receive(std::span<std::byte> buffer) override {
    const ssize_t result = recv(m_receiver.get(), buffer.data(), buffer.size(), 0);
    return result == 0 ? -ECONNRESET : moved(result);  // nobody closes before all has arrived
  }

  void wait(bool forRoom, std::chrono::milliseconds limit) override {
    waitFor(m_sender, m_receiver, forRoom, limit);
  }

 private:
  UniqueDescriptor m_sender;
  UniqueDescriptor m_receiver;
};

/// @brief Makes room for all that may be on its way; without the privilege, as much as is allowed.
void enlargeBuffer(const UniqueDescriptor& socket) {
  const int bytes = 4 << 20;
  if (setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  }
}

/// @brief What the socket has thrown away so far, for whatever reason.
std::uint64_t dropsOf(const UniqueDescriptor& socket) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
  socklen_t length = sizeof figures;
  getsockopt(socket.get(), SOL_SOCKET, SO_MEMINFO, figures.data(), &length);
  return figures[SK_MEMINFO_DROPS];
}

class UdpLink final : public DatagramLink {
 public:
  UdpLink(UniqueDescriptor sender, UniqueDescriptor receiver, Inside atReceiver)
      : m_sender(std::move(sender)),
        m_receiver(std::move(receiver)),
        m_source(ownAddress(m_sender)),
        m_atReceiver(std::move(atReceiver)) {
    neverBlock(m_sender);
    neverBlock(m_receiver);
    enlargeBuffer(m_receiver);
    m_overrunsBefore = overrunsAtReceiver();
  }

  std::int64_t send(std::span<const std::byte> datagram) override {
    return moved(::send(m_sender.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL));
  }
  std::int64_t receive(std::span<std::byte> buffer) override {
    // What came before the socket was told its partner may be anybody's.
    sockaddr_in source{};
    std::int64_t length = 0;
    do {
      socklen_t size = sizeof source;
      length = moved(recvfrom(m_receiver.get(), buffer.data(), buffer.size(), 0,
                              reinterpret_cast<sockaddr*>(&source), &size));
    } while (length > 0 && !isSame(source, m_source));
    return length;
  }
  void wait(std::chrono::milliseconds limit) override {
    waitFor(m_sender, m_receiver, false, limit);
  }

  std::uint64_t capacity(std::size_t length) const override {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    getsockopt(m_receiver.get(), SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    // The kernel counts the memory that each takes, headers and all, and gives some back late.
    constexpr std::size_t kHeaders = 512;
    return static_cast<std::uint64_t>(bytes) * 3 / 4 /
           (std::bit_ceil(length + kHeaders) + kHeaders);
  }

  std::uint64_t overruns() const override {
    // The socket counts damaged datagrams too, the kernel those of other sockets.
    return std::min(dropsOf(m_receiver), overrunsAtReceiver() - m_overrunsBefore);
  }

 private:
  std::uint64_t overrunsAtReceiver() const {
    std::uint64_t count = 0;
    m_atReceiver([&count] { count = readProtocolCounters().udpOverruns; });
    return count;
  }

  UniqueDescriptor m_sender;
  UniqueDescriptor m_receiver;
  sockaddr_in m_source;
  Inside m_atReceiver;
  std::uint64_t m_overrunsBefore = 0;
};

/// @brief False when a stop was requested. Throws ETIMEDOUT when the patience is over.
bool mayGoOn(const ConnectLimits& limits) {
  if (limits.stopRequested()) {
    return false;
  }
  if (limits.patience->isOver()) {
    throw std::system_error(ETIMEDOUT, std::generic_category(), "connect");
  }
  return true;
}

/// @brief Waits until the socket is ready. False and throws as mayGoOn.
bool waitUntilReady(const UniqueDescriptor& socket, short events, const ConnectLimits& limits) {
  pollfd ready{socket.get(), events, 0};
  while (poll(&ready, 1, 0) <= 0) {
    if (!mayGoOn(limits)) {
      return false;
    }
    limits.patience->look([&](std::chrono::milliseconds atMost) {
      poll(&ready, 1, static_cast<int>(atMost.count()));
    });
  }
  return true;
}

/// @brief Throws what became of an attempt to connect, unless it worked.
void requireConnected(const UniqueDescriptor& socket) {
  int error = 0;
  socklen_t length = sizeof error;
  check(getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &length), "connect");
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "connect");
  }
}

UniqueDescriptor makeListener(const End& at, sockaddr_in& target) {
  constexpr int kBacklog = 64;  // strangers must not fill it
  UniqueDescriptor listener;
  at.inside([&] {
    listener = makeSocket(SOCK_STREAM);
    bindTo(listener, at.address);
    check(listen(listener.get(), kBacklog), "listen");
    target = ownAddress(listener);
  });
  neverBlock(listener);
  return listener;
}

/// @brief A socket that is about to be connected.
UniqueDescriptor beginConnecting(const End& from, const sockaddr_in& target) {
  UniqueDescriptor sender;
  from.inside([&] {
    sender = makeSocket(SOCK_STREAM);
    bindTo(sender, from.address);
    neverBlock(sender);
    if (connect(sender.get(), plain(target), sizeof target) != 0 && errno != EINPROGRESS) {
      check(-1, "connect");
    }
  });
  return sender;
}

/// @brief Whether accept tells with this errno of one that has left again, or of a network error
/// of a connection that waited; the listener is as well as before.
bool isOfOneThatLeft(int error) {
  constexpr std::array kOfOneThatLeft{EAGAIN,       EINTR,       ECONNABORTED, ENETDOWN,
                                      EPROTO,       ENOPROTOOPT, EHOSTDOWN,    ENONET,
                                      EHOSTUNREACH, EOPNOTSUPP,  ENETUNREACH};
  return std::find(kOfOneThatLeft.begin(), kOfOneThatLeft.end(), error) != kOfOneThatLeft.end();
}

/// @brief The next connection when it is the wanted one; turns away any other.
UniqueDescriptor acceptNext(const UniqueDescriptor& listener, const sockaddr_in& wanted) {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  UniqueDescriptor accepted(
      accept4(listener.get(), reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC));
  if (!accepted && !isOfOneThatLeft(errno)) {
    check(-1, "accept");
  }
  return accepted && isSame(peer, wanted) ? std::move(accepted) : UniqueDescriptor();
}

/// @brief The other end of the connection; strangers are turned away. Nothing when a stop was
/// requested. Throws as mayGoOn.
UniqueDescriptor acceptFrom(const UniqueDescriptor& sender, const UniqueDescriptor& listener,
                            const ConnectLimits& limits) {
  const sockaddr_in wanted = ownAddress(sender);
  UniqueDescriptor accepted;
  // The last step of the handshake may have been lost.
  while (!accepted && waitUntilReady(listener, POLLIN, limits)) {
    // As long as strangers come, the listener is always ready: they take their time off too.
    limits.patience->look(
        [&](std::chrono::milliseconds) { accepted = acceptNext(listener, wanted); });
    if (!accepted && !mayGoOn(limits)) {
      return {};
    }
  }
  return accepted;
}

}  // namespace

End loopbackEnd() {
  End end;
  end.address.s_addr = htonl(INADDR_LOOPBACK);
  return end;
}

std::unique_ptr<StreamLink> connectStream(const End& from, const End& to,
                                          const ConnectLimits& limits) {
  sockaddr_in target{};
  const UniqueDescriptor listener = makeListener(to, target);
  UniqueDescriptor sender = beginConnecting(from, target);
  if (!waitUntilReady(sender, POLLOUT, limits)) {
    return nullptr;
  }
  requireConnected(sender);
  UniqueDescriptor receiver = acceptFrom(sender, listener, limits);
  return receiver ? std::make_unique<TcpLink>(std::move(sender), std::move(receiver)) : nullptr;
}

std::unique_ptr<StreamLink> connectOverLoopback(const ConnectLimits& limits) {
  return connectStream(loopbackEnd(), loopbackEnd(), limits);
}

std::unique_ptr<DatagramLink> connectDatagrams(const End& from, const End& to) {
  UniqueDescriptor sender;
  UniqueDescriptor receiver;
  from.inside([&] {
    sender = makeSocket(SOCK_DGRAM);
    bindTo(sender, from.address);
  });
  to.inside([&] {
    receiver = makeSocket(SOCK_DGRAM);
    bindTo(receiver, to.address);
  });
  const sockaddr_in source = ownAddress(sender);
  const sockaddr_in target = ownAddress(receiver);
  check(connect(sender.get(), plain(target), sizeof target), "connect");
  check(connect(receiver.get(), plain(source), sizeof source), "connect");
  return std::make_unique<UdpLink>(std::move(sender), std::move(receiver), to.inside);
}

}  // namespace TarvexDiags::Network
