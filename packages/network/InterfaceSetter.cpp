#include "packages/network/InterfaceSetter.h"

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace TarvexDiags::Network {

InterfaceSetter::InterfaceSetter(const std::string& interface)
    : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_interface(interface) {}

void InterfaceSetter::setAddress(unsigned long request, const char* text) {
  ifreq envelope = named();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, text, &address.sin_addr);
  std::memcpy(&envelope.ifr_addr, &address, sizeof address);
  call(request, envelope);
}

void InterfaceSetter::switchOn() {
  changeFlags(IFF_UP, 0);
}

void InterfaceSetter::switchOff() {
  changeFlags(0, IFF_UP);
}

void InterfaceSetter::changeFlags(short set, short cleared) {
  ifreq envelope = named();
  call(SIOCGIFFLAGS, envelope);
  envelope.ifr_flags = static_cast<short>((envelope.ifr_flags | set) & ~cleared);
  call(SIOCSIFFLAGS, envelope);
}

ifreq InterfaceSetter::named() const {
  ifreq envelope{};
  m_interface.copy(envelope.ifr_name, IFNAMSIZ - 1);
  return envelope;
}

void InterfaceSetter::call(unsigned long request, ifreq& envelope) {
  if (ioctl(m_socket.get(), request, &envelope) != 0) {
    throw std::system_error(errno, std::generic_category(), m_interface);
  }
}

}  // namespace TarvexDiags::Network
