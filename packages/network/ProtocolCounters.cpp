#include "packages/network/ProtocolCounters.h"

#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace TarvexDiags::Network {
namespace {

/// @brief The counters by protocol and name, such as "UdpRcvbufErrors".
std::map<std::string, std::uint64_t> readAll() {
  std::map<std::string, std::uint64_t> counters;
  std::ifstream file("/proc/thread-self/net/snmp");
  // For each protocol a line with the names and one with the values, each after the protocol's own.
  for (std::string names, values; std::getline(file, names) && std::getline(file, values);) {
    std::istringstream nameWords(names);
    std::istringstream valueWords(values);
    std::string protocol;
    std::string ignored;
    nameWords >> protocol;
    valueWords >> ignored;
    protocol = protocol.substr(0, protocol.find(':'));
    std::string name;
    for (std::int64_t value = 0; nameWords >> name && valueWords >> value;) {
      counters[protocol + name] = static_cast<std::uint64_t>(value);
    }
  }
  return counters;
}

}  // namespace

ProtocolCounters readProtocolCounters() {
  auto counters = readAll();
  return {.udpOverruns = counters["UdpRcvbufErrors"] + counters["UdpMemErrors"],
          .damaged = counters["IpInHdrErrors"] + counters["TcpInCsumErrors"] +
                     counters["UdpInCsumErrors"]};
}

}  // namespace TarvexDiags::Network
