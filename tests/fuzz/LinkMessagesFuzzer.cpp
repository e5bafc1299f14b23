// Reads interfaces from any messages of the kernel, and compares the counters of each with those of
// the one before. What is told is whole, and stands in the messages.
//
// Input: messages. Each has one byte for the flags and one for the index of the interface, then
// attributes: one byte that says which (255 ends the message), one of length, and so many bytes.
// Those of which the library alone makes something are left out: it trusts what is nested in them.

#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/cache.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "packages/network/Links.h"
#include "tests/fuzz/Input.h"
#include "tests/support/RecordingJournal.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::Network;

struct MessageDeleter {
  void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using Message = std::unique_ptr<nl_msg, MessageDeleter>;

constexpr std::uint8_t kLastAttribute = 255;

/// The attributes that an interface is read from.
constexpr std::array kAttributes{IFLA_IFNAME,    IFLA_ADDRESS, IFLA_LINK,    IFLA_MASTER,
                                 IFLA_OPERSTATE, IFLA_STATS,   IFLA_STATS64, IFLA_CARRIER_CHANGES,
                                 IFLA_MTU,       IFLA_QDISC,   IFLA_IFALIAS, IFLA_LINKINFO};

ifinfomsg takeInterface(std::string& rest) {
  constexpr std::array<unsigned int, 8> flags{
      IFF_UP, IFF_LOWER_UP, IFF_LOOPBACK, IFF_RUNNING, IFF_BROADCAST, IFF_SLAVE, IFF_DORMANT, 0};
  ifinfomsg interface {};
  const std::uint8_t bits = takeByte(rest);
  for (std::size_t bit = 0; bit < flags.size(); ++bit) {
    interface.ifi_flags |= (bits >> bit & 1U) != 0 ? flags[bit] : 0;
  }
  interface.ifi_type = (bits & 128U) != 0 ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
  interface.ifi_index = takeByte(rest);
  return interface;
}

void putAttribute(nl_msg& message, int type, const std::string& value) {
  const auto size = static_cast<int>(value.size());
  if (type != IFLA_LINKINFO) {
    expect(nla_put(&message, type, size, value.data()) == 0);
    return;
  }
  nlattr* const nest = nla_nest_start(&message, type);
  expect(nest != nullptr && nla_put(&message, IFLA_INFO_KIND, size, value.data()) == 0);
  nla_nest_end(&message, nest);
}

Message takeMessage(std::string& rest) {
  constexpr std::size_t most = 12;  // there is room for them in a message
  nlmsghdr header{};
  header.nlmsg_type = RTM_NEWLINK;
  header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(0));
  Message message(nlmsg_inherit(&header));
  nlmsg_set_proto(message.get(), NETLINK_ROUTE);
  ifinfomsg interface = takeInterface(rest);
  expect(nlmsg_append(message.get(), &interface, sizeof interface, NLMSG_ALIGNTO) == 0);
  for (std::size_t count = 0; count < most && !rest.empty(); ++count) {
    const std::uint8_t which = takeByte(rest);
    if (which == kLastAttribute) {
      break;
    }
    const std::size_t length = takeByte(rest);
    putAttribute(*message, kAttributes[which % kAttributes.size()], rest.substr(0, length));
    rest.erase(0, length);
  }
  return message;
}

/// A text of the kernel stands in its message as it is.
bool isIn(const std::string& text, const std::string& payload) {
  return payload.find(text) != std::string::npos;
}

void expectSound(const Link& link, const std::string& payload) {
  expect(isIn(link.name, payload) && isIn(link.kind, payload));
  expect(!link.state.empty());
  expect(link.errors.size() == 12 && link.drops.size() == 4);
  // The address is hexadecimal, however long it is.
  expect(link.hardwareAddress.find_first_of("\n\t\x1b") == std::string::npos);
}

std::vector<Link> linksIn(nl_msg& message) {
  std::vector<Link> links;
  const auto take = [](nl_object* object, void* found) {
    static_cast<std::vector<Link>*>(found)->push_back(
        linkFrom(reinterpret_cast<rtnl_link*>(object)));
  };
  // What is no message of an interface is refused, and tells of none.
  nl_msg_parse(&message, take, &links);
  expect(links.size() <= 1);
  const nlmsghdr& header = *nlmsg_hdr(&message);
  const std::string payload(static_cast<const char*>(nlmsg_data(&header)),
                            static_cast<std::size_t>(nlmsg_datalen(&header)));
  for (const Link& link : links) {
    expectSound(link, payload);
  }
  return links;
}

void compare(const Link& before, const Link& after) {
  constexpr std::size_t mostEvents = 12 + 4 + 1;
  TarvexDiags::Common::RecordingJournal journal;
  try {
    judgeCounters(before, after, {.allowedDrops = 3}, journal);
  } catch (const NotSupported&) {
    expect(before.up && !after.up);
    return;
  } catch (const std::system_error&) {
    expect(before.index != after.index);
    return;
  }
  expect(!journal.events().empty() && journal.events().size() <= mostEvents);
  for (const auto& event : journal.events()) {
    expect(event.parameters.size() >= 2 && event.parameters.front() == after.name);
    expect(std::none_of(event.parameters.begin() + 1, event.parameters.end(),
                        [](const std::string& text) { return text.empty(); }));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t mostMessages = 8;
  std::string rest = textOf(data, size);
  std::vector<Link> links;
  for (std::size_t count = 0; count < mostMessages && !rest.empty(); ++count) {
    for (const Link& link : linksIn(*takeMessage(rest))) {
      links.push_back(link);
    }
  }
  for (std::size_t index = 1; index < links.size(); ++index) {
    compare(links[index - 1], links[index]);
  }
  return 0;
}
