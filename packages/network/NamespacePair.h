#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/Links.h"
#include "packages/network/Sockets.h"

namespace TarvexDiags::Network {

/// @brief A network namespace that exists as long as this object, and what is connected to it.
class NetworkNamespace {
 public:
  /// @brief Makes a new one. Throws NotSupported without the privilege.
  NetworkNamespace();

  /// @brief Does something in it, on a thread of its own. Throws what the action throws.
  void inside(const std::function<void()>& action) const;

  int descriptor() const { return m_descriptor.get(); }

 private:
  PackageKit::UniqueDescriptor m_descriptor;
};

/// @brief Two interfaces, each put into a namespace of its own with an address that is used nowhere
/// else, so that traffic between them must go over the wire. They are put back at the end; should
/// the process die, the kernel puts real ones back itself.
class NamespacePair {
 public:
  /// @brief Throws NotSupported without the privilege, or when an interface is in use: it carries
  /// an address or another interface, such as that of a VLAN, or is part of a bridge or bond.
  /// std::system_error with ENODEV when there is none.
  NamespacePair(const std::string& first, const std::string& second);
  NamespacePair(const NamespacePair&) = delete;
  NamespacePair& operator=(const NamespacePair&) = delete;
  ~NamespacePair();

  /// @brief Waits until both have a carrier.
  bool waitForCarrier(std::chrono::milliseconds limit) const;

  /// @brief The interface as it stands now.
  Link first() const { return m_first.link(); }
  Link second() const { return m_second.link(); }

  End firstEnd() const { return m_first.end(); }
  End secondEnd() const { return m_second.end(); }

 private:
  /// @brief One interface in its namespace.
  class Place {
   public:
    Place(std::string interface, const char* address);
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place();

    Link link() const;
    End end() const;

   private:
    void setUp() const;
    void putBack() const;

    std::string m_interface;
    const char* m_address;
    bool m_wasUp;
    PackageKit::UniqueDescriptor m_home;
    NetworkNamespace m_namespace;
  };

  Place m_first;
  Place m_second;
};

}  // namespace TarvexDiags::Network
