#include "packages/network/Custodian.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

#include "packagekit/Caretaker.h"

namespace TarvexDiags::Network {
namespace {

using PackageKit::UniqueDescriptor;

std::pair<UniqueDescriptor, UniqueDescriptor> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  return {UniqueDescriptor(ends[0]), UniqueDescriptor(ends[1])};
}

/// @brief Closes all descriptors but these; rising.
void closeAllBut(std::array<int, 4> kept) {
  std::sort(kept.begin(), kept.end());
  unsigned int from = 0;
  for (const int descriptor : kept) {
    const auto number = static_cast<unsigned int>(descriptor);
    if (from < number) {
      close_range(from, number - 1, 0);
    }
    from = number + 1;
  }
  close_range(from, ~0U, 0);
}

/// @brief The kernel's request to move an interface into another namespace.
struct MoveRequest {
  nlmsghdr header;
  ifinfomsg interface;
  rtattr attribute;
  int target;
};

}  // namespace

// What follows runs in a process that was forked from one with threads: system calls alone.

void Custodian::moveHome(const Order& order) {
  if (setns(order.away, CLONE_NEWNET) != 0) {
    return;
  }
  ifreq envelope = order.interface;
  const int plain = socket(AF_INET, SOCK_DGRAM, 0);
  const int routing = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
  if (ioctl(plain, SIOCGIFINDEX, &envelope) == 0) {
    MoveRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_SETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request.interface.ifi_index = envelope.ifr_ifindex;
    request.attribute.rta_type = IFLA_NET_NS_FD;
    request.attribute.rta_len = RTA_LENGTH(sizeof request.target);
    request.target = order.home;
    std::array<char, 1024> answer{};
    if (send(routing, &request, sizeof request, 0) > 0) {
      const ssize_t ignored = recv(routing, answer.data(), answer.size(), 0);
      (void)ignored;
    }
  }
  close(plain);
  close(routing);
}

bool Custodian::switchOn(const Order& order) {
  if (setns(order.home, CLONE_NEWNET) != 0) {
    return false;
  }
  ifreq envelope = order.interface;
  const int plain = socket(AF_INET, SOCK_DGRAM, 0);
  bool isBack = ioctl(plain, SIOCGIFFLAGS, &envelope) == 0;
  if (isBack && order.wasUp) {
    envelope.ifr_flags = static_cast<short>(envelope.ifr_flags | IFF_UP);
    isBack = ioctl(plain, SIOCSIFFLAGS, &envelope) == 0;
  }
  close(plain);
  return isBack;
}

/// @brief Changes the calling thread's namespace.
bool Custodian::putBack(const Order& order) {
  moveHome(order);
  const bool isBack = switchOn(order);
  if (isBack) {
    unlink(order.record.c_str());
  }
  return isBack;
}

void Custodian::serve(const Order& order) {
  setsid();
  // Whoever ends all of a service's processes ends the test with it; then there is work to do.
  for (const int ignored : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
    signal(ignored, SIG_IGN);
  }
  prctl(PR_SET_NAME, "interface-keep");
  closeAllBut({order.home, order.away, order.pipe, order.ready});
  char byte = 0;
  ssize_t result = write(order.ready, &byte, 1);
  do {
    result = read(order.pipe, &byte, 1);
  } while (result < 0 && errno == EINTR);
  _exit(putBack(order) ? EXIT_SUCCESS : EXIT_FAILURE);
}

Custodian::Custodian(const Charge& charge) {
  auto [theirs, ours] = makePipe();
  auto [hear, ready] = makePipe();
  m_order = {charge.home, charge.away, theirs.get(), ready.get(), charge.wasUp, {}, charge.record};
  charge.interface.copy(m_order.interface.ifr_name, IFNAMSIZ - 1);
  m_process = fork();
  if (m_process == 0) {
    serve(m_order);
  }
  if (m_process < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  PackageKit::announceCaretaker(m_process);
  m_pipe = std::move(ours);
  ready.close();
  // Until it is in a session of its own, it would die with this process.
  char byte = 0;
  ssize_t result = 0;
  do {
    result = read(hear.get(), &byte, 1);
  } while (result < 0 && errno == EINTR);
}

Custodian::~Custodian() {
  m_pipe.close();
  int status = 0;
  while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0) {
    // It was killed, or something was in its way that may be gone by now.
    std::thread([this] { putBack(m_order); }).join();
  }
}

}  // namespace TarvexDiags::Network
