#pragma once

#include <netlink/cache.h>
#include <netlink/netlink.h>

#include <memory>
#include <string>

namespace TarvexDiags::Network {

struct NetlinkDeleter {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};
using NetlinkCache = std::unique_ptr<nl_cache, NetlinkDeleter>;

/// @brief A connection to the kernel's routing side, in the namespace of the thread that made it.
class NetlinkSocket {
 public:
  /// @brief Throws std::system_error.
  NetlinkSocket();

  nl_sock* get() const { return m_socket.get(); }

  /// @brief All interfaces, as a cache of rtnl_link.
  NetlinkCache links() const;

  /// @brief Moves an interface into the namespace that the descriptor names.
  void moveToNamespace(const std::string& interface, int namespaceDescriptor) const;

 private:
  std::unique_ptr<nl_sock, NetlinkDeleter> m_socket;
};

/// @brief Throws std::system_error for a library's negative result.
void checkNetlink(int result, const std::string& what);

}  // namespace TarvexDiags::Network
