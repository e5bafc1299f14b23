#include "packages/network/NamespacePair.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

#include "packages/network/Netlink.h"

namespace TarvexDiags::Network {
namespace {

using PackageKit::UniqueDescriptor;

// From the block that is set aside for documentation: nobody's own network uses it.
constexpr const char* kFirstAddress = "192.0.2.1";
constexpr const char* kSecondAddress = "192.0.2.2";
constexpr const char* kNetMask = "255.255.255.252";

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

UniqueDescriptor ownNamespace() {
  UniqueDescriptor own(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!own) {
    fail("/proc/thread-self/ns/net");
  }
  return own;
}

/// @brief Runs the action on a new thread, so that the caller's namespace stays as it is.
void onOwnThread(const std::function<void()>& action) {
  std::exception_ptr thrown;
  std::thread([&] {
    try {
      action();
    } catch (...) {
      thrown = std::current_exception();
    }
  }).join();
  if (thrown) {
    std::rethrow_exception(thrown);
  }
}

void insideOf(int namespaceDescriptor, const std::function<void()>& action) {
  onOwnThread([&] {
    if (setns(namespaceDescriptor, CLONE_NEWNET) != 0) {
      fail("setns");
    }
    action();
  });
}

/// @brief Whether others may use the address: one that the kernel gave for the link does not
///  count.
bool isForOthers(const sockaddr& address) {
  if (address.sa_family != AF_INET6) {
    return address.sa_family == AF_INET;
  }
  sockaddr_in6 full{};
  std::memcpy(&full, &address, sizeof full);
  return !IN6_IS_ADDR_LINKLOCAL(&full.sin6_addr);
}

bool carriesAddress(const std::string& interface) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    fail("getifaddrs");
  }
  bool found = false;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    found |=
        entry->ifa_addr != nullptr && interface == entry->ifa_name && isForOthers(*entry->ifa_addr);
  }
  freeifaddrs(list);
  return found;
}

/// @brief The interface, if nobody uses it.
Link unused(const std::string& interface) {
  Link link = readLink(interface);
  if (link.enslaved) {
    throw NotSupported(interface + " is part of another interface");
  }
  if (carriesAddress(interface)) {
    throw NotSupported(interface + " carries an address, so it is in use");
  }
  for (const Link& other : readLinks()) {
    // Of a virtual pair each is the other's lower one.
    if (other.lower == link.index && other.kind != "veth") {
      throw NotSupported(interface + " carries " + other.name + ", so it is in use");
    }
  }
  return link;
}

/// @brief Keeps the kernel's own announcements off the wire, so that the counters are the test's.
void silenceIpv6(const std::string& interface) {
  // The folder is that of the calling thread's namespace. Without IPv6 it is not there.
  std::ofstream("/proc/sys/net/ipv6/conf/" + interface + "/disable_ipv6") << 1;
}

/// @brief Sets an interface's address, mask and flags, in the calling thread's namespace.
class InterfaceSetter {
 public:
  explicit InterfaceSetter(const std::string& interface)
      : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_interface(interface) {}

  void setAddress(unsigned long request, const char* text) {
    ifreq envelope = named();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text, &address.sin_addr);
    std::memcpy(&envelope.ifr_addr, &address, sizeof address);
    call(request, envelope);
  }

  void switchOn() {
    ifreq envelope = named();
    call(SIOCGIFFLAGS, envelope);
    envelope.ifr_flags = static_cast<short>(envelope.ifr_flags | IFF_UP);
    call(SIOCSIFFLAGS, envelope);
  }

 private:
  ifreq named() const {
    ifreq envelope{};
    m_interface.copy(envelope.ifr_name, IFNAMSIZ - 1);
    return envelope;
  }

  void call(unsigned long request, ifreq& envelope) {
    if (ioctl(m_socket.get(), request, &envelope) != 0) {
      fail(m_interface);
    }
  }

  UniqueDescriptor m_socket;
  std::string m_interface;
};

}  // namespace

NetworkNamespace::NetworkNamespace() {
  onOwnThread([this] {
    if (unshare(CLONE_NEWNET) != 0) {
      throw NotSupported("a network namespace needs CAP_SYS_ADMIN: " +
                         std::generic_category().message(errno));
    }
    m_descriptor = ownNamespace();
  });
}

void NetworkNamespace::inside(const std::function<void()>& action) const {
  insideOf(m_descriptor.get(), action);
}

NamespacePair::Place::Place(std::string interface, const char* address)
    : m_interface(std::move(interface)),
      m_address(address),
      m_wasUp(unused(m_interface).up),
      m_home(ownNamespace()) {
  try {
    NetlinkSocket().moveToNamespace(m_interface, m_namespace.descriptor());
  } catch (const std::system_error& error) {
    if (error.code().value() == EPERM) {
      throw NotSupported(m_interface + " cannot be moved: needs CAP_NET_ADMIN");
    }
    throw;
  }
  try {
    m_namespace.inside([this] { setUp(); });
  } catch (...) {
    putBack();
    throw;
  }
}

void NamespacePair::Place::setUp() const {
  silenceIpv6(m_interface);
  InterfaceSetter setter(m_interface);
  setter.setAddress(SIOCSIFADDR, m_address);
  setter.setAddress(SIOCSIFNETMASK, kNetMask);
  setter.switchOn();
}

NamespacePair::Place::~Place() {
  putBack();
}

void NamespacePair::Place::putBack() const {
  try {
    m_namespace.inside([this] { NetlinkSocket().moveToNamespace(m_interface, m_home.get()); });
    if (m_wasUp) {
      insideOf(m_home.get(), [this] { InterfaceSetter(m_interface).switchOn(); });
    }
  } catch (const std::exception&) {
    // The namespace ends with this object, and the kernel then puts a real interface back itself.
  }
}

Link NamespacePair::Place::link() const {
  Link link;
  m_namespace.inside([&] { link = readLink(m_interface); });
  return link;
}

End NamespacePair::Place::end() const {
  End end;
  inet_pton(AF_INET, m_address, &end.address);
  end.inside = [this](const std::function<void()>& action) { m_namespace.inside(action); };
  return end;
}

NamespacePair::NamespacePair(const std::string& first, const std::string& second)
    : m_first(first, kFirstAddress), m_second(second, kSecondAddress) {}

NamespacePair::~NamespacePair() = default;

bool NamespacePair::waitForCarrier(std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!first().carrier || !second().carrier) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace TarvexDiags::Network
