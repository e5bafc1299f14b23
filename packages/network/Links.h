#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "packages/network/NetworkEvents.h"

struct rtnl_link;

namespace TarvexDiags::Network {

/// @brief An interface and its counters, as the kernel tells them over netlink.
struct Link {
  std::string name;
  int index = 0;
  int lower = 0;  ///< index of the interface that it lies on or is paired with; 0: none
  std::string hardwareAddress;
  std::string kind;  ///< "veth", "bridge" and so on for interfaces of software, else empty
  bool loopback = false;
  bool up = false;        ///< switched on by the administrator
  bool carrier = false;   ///< has a partner
  bool enslaved = false;  ///< part of a bridge, bond or the like
  std::string state;      ///< the kernel's operational state, such as "up" or "lowerlayerdown"
  std::uint64_t carrierChanges = 0;
  std::map<std::string, std::uint64_t> errors;  ///< counters of faults, by name
  std::map<std::string, std::uint64_t> drops;   ///< counters of what was thrown away
  std::uint64_t packetsReceived = 0;
  std::uint64_t packetsSent = 0;
};

/// @brief What a message of the kernel says; what it leaves out is empty or 0.
Link linkFrom(rtnl_link* link);

/// @brief The interfaces of the calling thread's network namespace. Throws std::system_error.
std::vector<Link> readLinks();

/// @brief One of them. Throws std::system_error with ENODEV when there is none of that name.
Link readLink(const std::string& name);

/// @brief Throws NotSupported when somebody has switched the interface off meanwhile, and
/// std::system_error with ENODEV when it is another one of the same name.
void requireSameLink(const Link& before, const Link& after);

/// @brief Why there is nothing to test on the interface; empty when there is.
std::string whyNoDevice(const Link& link);

struct CounterLimits {
  /// A machine in service drops a packet now and then, as those of unknown protocols.
  std::uint64_t allowedDrops;
};

/// @brief Compares counters before and after a test: faults are errors, more drops than allowed are
/// warnings, a carrier that came or went is an error. When nothing rose, says so. Throws as
/// requireSameLink.
void judgeCounters(const Link& before, const Link& after, const CounterLimits& limits,
                   RunJournal& journal);

}  // namespace TarvexDiags::Network
