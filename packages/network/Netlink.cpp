#include "packages/network/Netlink.h"

#include <netlink/errno.h>
#include <netlink/route/link.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace TarvexDiags::Network {
namespace {

struct LinkDeleter {
  void operator()(rtnl_link* link) const { rtnl_link_put(link); }
};
using LinkObject = std::unique_ptr<rtnl_link, LinkDeleter>;

/// @brief The errno that a result of the library stands for, as far as there is one.
int errnoOf(int result) {
  switch (-result) {
    case NLE_PERM:
    case NLE_NOACCESS:
      return EPERM;
    case NLE_NODEV:
    case NLE_OBJ_NOTFOUND:
      return ENODEV;
    case NLE_NOMEM:
      return ENOMEM;
    case NLE_EXIST:
      return EEXIST;
    case NLE_BUSY:
      return EBUSY;
    case NLE_OPNOTSUPP:
      return EOPNOTSUPP;
    default:
      return EIO;
  }
}

}  // namespace

void checkNetlink(int result, const std::string& what) {
  if (result < 0) {
    throw std::system_error(errnoOf(result), std::generic_category(),
                            what + " (" + nl_geterror(result) + ")");
  }
}

NetlinkSocket::NetlinkSocket() : m_socket(nl_socket_alloc()) {
  if (!m_socket) {
    throw std::bad_alloc();
  }
  checkNetlink(nl_connect(m_socket.get(), NETLINK_ROUTE), "netlink");
}

NetlinkCache NetlinkSocket::links() const {
  nl_cache* cache = nullptr;
  checkNetlink(rtnl_link_alloc_cache(m_socket.get(), AF_UNSPEC, &cache), "list of interfaces");
  return NetlinkCache(cache);
}

void NetlinkSocket::moveToNamespace(const std::string& interface, int namespaceDescriptor) const {
  rtnl_link* found = nullptr;
  checkNetlink(rtnl_link_get_kernel(m_socket.get(), 0, interface.c_str(), &found), interface);
  const LinkObject original(found);
  const LinkObject change(rtnl_link_alloc());
  if (!change) {
    throw std::bad_alloc();
  }
  rtnl_link_set_ns_fd(change.get(), namespaceDescriptor);
  checkNetlink(rtnl_link_change(m_socket.get(), original.get(), change.get(), 0),
               interface + " into its namespace");
}

}  // namespace TarvexDiags::Network
