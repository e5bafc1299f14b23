#include "packages/network/Links.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <netlink/errno.h>
#include <netlink/route/link.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "packages/network/Netlink.h"

namespace TarvexDiags::Network {
namespace {

using Counter = std::pair<rtnl_link_stat_id_t, const char*>;

// rx_errors and tx_errors sum up the others on most drivers, not on all: so they come last, and
// only when none of the others rose.
constexpr std::array<Counter, 12> kErrorCounters{{
    {RTNL_LINK_RX_CRC_ERR, "rx_crc_errors"},
    {RTNL_LINK_RX_FRAME_ERR, "rx_frame_errors"},
    {RTNL_LINK_RX_LEN_ERR, "rx_length_errors"},
    {RTNL_LINK_RX_OVER_ERR, "rx_over_errors"},
    {RTNL_LINK_RX_FIFO_ERR, "rx_fifo_errors"},
    {RTNL_LINK_TX_FIFO_ERR, "tx_fifo_errors"},
    {RTNL_LINK_TX_ABORT_ERR, "tx_aborted_errors"},
    {RTNL_LINK_TX_CARRIER_ERR, "tx_carrier_errors"},
    {RTNL_LINK_TX_HBEAT_ERR, "tx_heartbeat_errors"},
    {RTNL_LINK_TX_WIN_ERR, "tx_window_errors"},
    {RTNL_LINK_RX_ERRORS, "rx_errors"},
    {RTNL_LINK_TX_ERRORS, "tx_errors"},
}};

constexpr std::array<Counter, 4> kDropCounters{{
    {RTNL_LINK_RX_DROPPED, "rx_dropped"},
    {RTNL_LINK_TX_DROPPED, "tx_dropped"},
    {RTNL_LINK_RX_MISSED_ERR, "rx_missed_errors"},
    {RTNL_LINK_COLLISIONS, "collisions"},
}};

template <std::size_t size>
std::map<std::string, std::uint64_t> read(rtnl_link* link, const std::array<Counter, size>& table) {
  std::map<std::string, std::uint64_t> values;
  for (const auto& [id, name] : table) {
    values[name] = rtnl_link_get_stat(link, id);
  }
  return values;
}

std::string stateOf(rtnl_link* link) {
  std::array<char, 32> text{};
  return rtnl_link_operstate2str(rtnl_link_get_operstate(link), text.data(), text.size());
}

std::string addressOf(rtnl_link* link) {
  std::array<char, 64> text{};
  const nl_addr* const address = rtnl_link_get_addr(link);
  return address == nullptr ? "" : nl_addr2str(address, text.data(), text.size());
}

using Rises = std::vector<std::pair<std::string, std::uint64_t>>;

/// @brief The counters that rose. One that fell was set back meanwhile and tells nothing.
Rises rises(const std::map<std::string, std::uint64_t>& before,
            const std::map<std::string, std::uint64_t>& after) {
  Rises found;
  for (const auto& [name, value] : after) {
    const auto old = before.find(name);
    if (old != before.end() && value > old->second) {
      found.emplace_back(name, value - old->second);
    }
  }
  return found;
}

/// @brief Leaves out the sums where a counter of their own kind says more.
Rises withoutSums(Rises found) {
  const auto isSum = [](const auto& entry) {
    return entry.first == "rx_errors" || entry.first == "tx_errors";
  };
  const bool detailed =
      std::any_of(found.begin(), found.end(), [&](const auto& entry) { return !isSum(entry); });
  if (detailed) {
    found.erase(std::remove_if(found.begin(), found.end(), isSum), found.end());
  }
  return found;
}

}  // namespace

Link linkFrom(rtnl_link* link) {
  Link result;
  const auto flags = rtnl_link_get_flags(link);
  const char* const name = rtnl_link_get_name(link);
  const char* const kind = rtnl_link_get_type(link);
  std::uint32_t carrierChanges = 0;
  rtnl_link_get_carrier_changes(link, &carrierChanges);
  result.name = name == nullptr ? "" : name;
  result.index = rtnl_link_get_ifindex(link);
  result.lower = rtnl_link_get_link(link);
  result.hardwareAddress = addressOf(link);
  result.kind = kind == nullptr ? "" : kind;
  result.loopback = (flags & IFF_LOOPBACK) != 0;
  result.up = (flags & IFF_UP) != 0;
  result.carrier = (flags & IFF_LOWER_UP) != 0;
  result.enslaved = rtnl_link_get_master(link) != 0;
  result.state = stateOf(link);
  result.carrierChanges = carrierChanges;
  result.errors = read(link, kErrorCounters);
  result.drops = read(link, kDropCounters);
  result.packetsReceived = rtnl_link_get_stat(link, RTNL_LINK_RX_PACKETS);
  result.packetsSent = rtnl_link_get_stat(link, RTNL_LINK_TX_PACKETS);
  return result;
}

std::vector<Link> readLinks() {
  const NetlinkSocket socket;
  std::vector<Link> links;
  const NetlinkCache cache = socket.links();
  for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr;
       object = nl_cache_get_next(object)) {
    links.push_back(linkFrom(reinterpret_cast<rtnl_link*>(object)));
  }
  return links;
}

Link readLink(const std::string& name) {
  for (Link& link : readLinks()) {
    if (link.name == name) {
      return std::move(link);
    }
  }
  throw std::system_error(ENODEV, std::generic_category(), name);
}

void requireSameLink(const Link& before, const Link& after) {
  if (before.index != after.index) {
    throw std::system_error(ENODEV, std::generic_category(), before.name);
  }
  if (before.up && !after.up) {
    throw NotSupported(Reasons::kSwitchedOff);
  }
}

std::string whyNoDevice(const Link& link) {
  if (!link.kind.empty()) {
    return "is made of software (" + link.kind + ")";
  }
  return link.up ? "" : "is switched off";
}

void judgeCounters(const Link& before, const Link& after, const CounterLimits& limits,
                   RunJournal& journal) {
  requireSameLink(before, after);
  const Rises errors = withoutSums(rises(before.errors, after.errors));
  const Rises drops = rises(before.drops, after.drops);
  for (const auto& [name, by] : errors) {
    report(journal, NetworkEvent::ErrorsCounted, {after.name, name, std::to_string(by)});
  }
  for (const auto& [name, by] : drops) {
    report(journal, by > limits.allowedDrops ? NetworkEvent::DropsCounted : NetworkEvent::FewDrops,
           {after.name, name, std::to_string(by)});
  }
  if (after.carrierChanges > before.carrierChanges) {
    report(journal, NetworkEvent::LinkFlapped,
           {after.name, std::to_string(after.carrierChanges - before.carrierChanges)});
  }
  if (errors.empty() && drops.empty()) {
    report(journal, NetworkEvent::CountersQuiet,
           {after.name, std::to_string(after.packetsReceived - before.packetsReceived),
            std::to_string(after.packetsSent - before.packetsSent)});
  }
}

}  // namespace TarvexDiags::Network
