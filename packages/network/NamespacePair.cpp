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

#include "packages/network/InterfaceSetter.h"
#include "packages/network/Netlink.h"
#include "packages/network/ProtocolCounters.h"

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
    throw NotSupported(Reasons::kPartOfAnother, interface);
  }
  if (carriesAddress(interface)) {
    throw NotSupported(Reasons::kCarriesAddress, interface);
  }
  for (const Link& other : readLinks()) {
    // Of a virtual pair each is the other's lower one.
    if (other.lower == link.index && other.kind != "veth") {
      throw NotSupported(Reasons::kCarriesAnother, interface + ", " + other.name);
    }
  }
  return link;
}

/// @brief Keeps the kernel's own announcements off the wire, so that the counters are the test's.
void silenceIpv6(const std::string& interface) {
  // The folder is that of the calling thread's namespace. Without IPv6 it is not there.
  std::ofstream("/proc/sys/net/ipv6/conf/" + interface + "/disable_ipv6") << 1;
}

}  // namespace

NetworkNamespace::NetworkNamespace() {
  onOwnThread([this] {
    if (unshare(CLONE_NEWNET) != 0) {
      throw NotSupported(Reasons::kNoNamespace, std::generic_category().message(errno));
    }
    m_descriptor = ownNamespace();
  });
}

void NetworkNamespace::inside(const std::function<void()>& action) const {
  insideOf(m_descriptor.get(), action);
}

NamespacePair::Place::Place(const std::string& interface, const char* address,
                            const InterfaceRecords& records)
    : m_before(unused(interface)), m_address(address), m_home(ownNamespace()) {
  m_custodian.emplace(Custodian::Charge{.home = m_home.get(),
                                        .away = m_namespace.descriptor(),
                                        .interface = interface,
                                        .wasUp = m_before.up,
                                        .record = records.add(m_before)});
  try {
    NetlinkSocket().moveToNamespace(interface, m_namespace.descriptor());
  } catch (const std::system_error& error) {
    if (error.code().value() == EPERM) {
      throw NotSupported(Reasons::kCannotBeMoved, interface);
    }
    throw;
  }
  m_namespace.inside([this] { setUp(); });
}

void NamespacePair::Place::setUp() const {
  silenceIpv6(m_before.name);
  InterfaceSetter setter(m_before.name);
  setter.setAddress(SIOCSIFADDR, m_address);
  setter.setAddress(SIOCSIFNETMASK, kNetMask);
  setter.switchOn();
}

Link NamespacePair::Place::link() const {
  Link link;
  m_namespace.inside([&] { link = readLink(m_before.name); });
  return link;
}

End NamespacePair::Place::end() const {
  End end;
  inet_pton(AF_INET, m_address, &end.address);
  end.inside = [this](const std::function<void()>& action) { m_namespace.inside(action); };
  return end;
}

void NamespacePair::Place::requirePresence() const {
  if (link().hardwareAddress != m_before.hardwareAddress) {
    throw std::system_error(ENODEV, std::generic_category(), m_before.name);
  }
}

std::uint64_t NamespacePair::Place::damagedPackets() const {
  std::uint64_t count = 0;
  m_namespace.inside([&count] { count = readProtocolCounters().damaged; });
  return count;
}

NamespacePair::NamespacePair(const std::string& first, const std::string& second,
                             const InterfaceRecords& records)
    : m_first(first, kFirstAddress, records), m_second(second, kSecondAddress, records) {}

void NamespacePair::requirePresence() const {
  m_first.requirePresence();
  m_second.requirePresence();
}

bool NamespacePair::waitForCarrier(std::chrono::milliseconds limit,
                                   const std::function<bool()>& stopRequested) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!first().carrier || !second().carrier) {
    if (stopRequested() || std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace TarvexDiags::Network
