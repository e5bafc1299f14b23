#include "packages/network/Sockets.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

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

class UdpLink final : public DatagramLink {
 public:
  UdpLink(UniqueDescriptor sender, UniqueDescriptor receiver)
      : m_sender(std::move(sender)), m_receiver(std::move(receiver)) {
    neverBlock(m_sender);
    neverBlock(m_receiver);
  }

  std::int64_t send(std::span<const std::byte> datagram) override {
    return moved(::send(m_sender.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL));
  }
  std::int64_t receive(std::span<std::byte> buffer) override {
    return moved(recv(m_receiver.get(), buffer.data(), buffer.size(), 0));
  }
  void wait(std::chrono::milliseconds limit) override {
    waitFor(m_sender, m_receiver, false, limit);
  }

 private:
  UniqueDescriptor m_sender;
  UniqueDescriptor m_receiver;
};

}  // namespace

End loopbackEnd() {
  End end;
  end.address.s_addr = htonl(INADDR_LOOPBACK);
  return end;
}

std::unique_ptr<StreamLink> connectStream(const End& from, const End& to) {
  UniqueDescriptor listener;
  sockaddr_in target{};
  to.inside([&] {
    listener = makeSocket(SOCK_STREAM);
    bindTo(listener, to.address);
    check(listen(listener.get(), 1), "listen");
    target = ownAddress(listener);
  });
  UniqueDescriptor sender;
  from.inside([&] {
    sender = makeSocket(SOCK_STREAM);
    bindTo(sender, from.address);
    const timeval limit{5, 0};  // a link without a partner shall not hold the test for minutes
    setsockopt(sender.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    check(connect(sender.get(), plain(target), sizeof target), "connect");
  });
  UniqueDescriptor receiver(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  check(receiver.get(), "accept");
  return std::make_unique<TcpLink>(std::move(sender), std::move(receiver));
}

std::unique_ptr<StreamLink> connectOverLoopback() {
  return connectStream(loopbackEnd(), loopbackEnd());
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
  return std::make_unique<UdpLink>(std::move(sender), std::move(receiver));
}

}  // namespace TarvexDiags::Network
