#include "tests/inject/network/LoopbackFilter.h"

#include <linux/bpf.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/route/qdisc.h>
#include <netlink/route/qdisc/tbf.h>
#include <netlink/route/tc.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <system_error>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/Netlink.h"

namespace TarvexDiags::Network {
namespace {

using PackageKit::UniqueDescriptor;

UniqueDescriptor checked(long descriptor, const char* what) {
  if (descriptor < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return UniqueDescriptor(static_cast<int>(descriptor));
}

/// @brief A program of the kernel's that drops every packet.
UniqueDescriptor loadDropper() {
  std::array<bpf_insn, 2> instructions{};
  instructions[0].code = BPF_ALU64 | BPF_MOV | BPF_K;  // the result
  instructions[0].imm = XDP_DROP;
  instructions[1].code = BPF_JMP | BPF_EXIT;
  constexpr const char* kLicense = "GPL";
  bpf_attr attributes;
  std::memset(&attributes, 0, sizeof attributes);
  attributes.prog_type = BPF_PROG_TYPE_XDP;
  attributes.insns = reinterpret_cast<std::uint64_t>(instructions.data());
  attributes.insn_cnt = instructions.size();
  attributes.license = reinterpret_cast<std::uint64_t>(kLicense);
  return checked(syscall(SYS_bpf, BPF_PROG_LOAD, &attributes, sizeof attributes), "bpf");
}

struct Attribute {
  rtattr head;
  std::uint32_t value;
};

Attribute attribute(unsigned short type, std::uint32_t value) {
  return {{RTA_LENGTH(sizeof value), type}, value};
}

/// @brief The kernel's request to put a program at an interface's entrance.
struct AttachRequest {
  nlmsghdr header;
  ifinfomsg interface;
  rtattr nest;
  Attribute program;
  Attribute flags;
};

}  // namespace

void filterLoopback() {
  const UniqueDescriptor program = loadDropper();
  AttachRequest request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_SETLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  request.interface.ifi_index = static_cast<int>(if_nametoindex("lo"));
  request.nest.rta_len = sizeof request - offsetof(AttachRequest, nest);
  request.nest.rta_type = IFLA_XDP | NLA_F_NESTED;
  request.program = attribute(IFLA_XDP_FD, static_cast<std::uint32_t>(program.get()));
  request.flags = attribute(IFLA_XDP_FLAGS, XDP_FLAGS_SKB_MODE);
  const UniqueDescriptor routing =
      checked(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE), "netlink");
  struct {
    nlmsghdr header;
    nlmsgerr result;
    std::array<char, 512> more;
  } answer{};
  if (send(routing.get(), &request, sizeof request, 0) < 0 ||
      recv(routing.get(), &answer, sizeof answer, 0) < 0) {
    throw std::system_error(errno, std::generic_category(), "netlink");
  }
  if (answer.result.error != 0) {
    throw std::system_error(-answer.result.error, std::generic_category(), "filter");
  }
}

void slowLoopback(int bytesPerSecond) {
  constexpr int kBucket = 1600;      // what may pass at once
  constexpr int kHeldBack = 30'000;  // beyond that it is thrown away
  const std::unique_ptr<rtnl_qdisc, decltype(&rtnl_qdisc_put)> bucket(rtnl_qdisc_alloc(),
                                                                      rtnl_qdisc_put);
  rtnl_tc* const control = TC_CAST(bucket.get());
  rtnl_tc_set_ifindex(control, static_cast<int>(if_nametoindex("lo")));
  rtnl_tc_set_parent(control, TC_H_ROOT);
  rtnl_tc_set_kind(control, "tbf");
  rtnl_qdisc_tbf_set_limit(bucket.get(), kHeldBack);
  rtnl_qdisc_tbf_set_rate(bucket.get(), bytesPerSecond, kBucket, 0);
  const NetlinkSocket socket;
  if (const int result = rtnl_qdisc_add(socket.get(), bucket.get(), NLM_F_CREATE); result < 0) {
    throw std::system_error(EINVAL, std::generic_category(), nl_geterror(result));
  }
}

}  // namespace TarvexDiags::Network
