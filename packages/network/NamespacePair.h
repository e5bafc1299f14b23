#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/Custodian.h"
#include "packages/network/InterfaceRecords.h"
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
/// else, so that traffic between them must go over the wire. They are put back at the end, also
/// should the process die: by a custodian of each, and by the next run when that one died as well.
class NamespacePair {
 public:
  /// @brief Throws NotSupported without the privilege, or when an interface is in use: it carries
  /// an address or another interface, such as that of a VLAN, or is part of a bridge or bond.
  /// std::system_error with ENODEV when there is none.
  NamespacePair(const std::string& first, const std::string& second,
                const InterfaceRecords& records);
  NamespacePair(const NamespacePair&) = delete;
  NamespacePair& operator=(const NamespacePair&) = delete;

  /// @brief Waits until both have a carrier. @return false when the time is over or a stop
  /// requested
  bool waitForCarrier(
      std::chrono::milliseconds limit,
      const std::function<bool()>& stopRequested = [] { return false; }) const;

  /// @brief Throws std::system_error with ENODEV when one of them has gone.
  void requirePresence() const;

  /// @brief How many packets have arrived at each whose header or checksum was wrong.
  std::uint64_t damagedAtFirst() const { return m_first.damagedPackets(); }
  std::uint64_t damagedAtSecond() const { return m_second.damagedPackets(); }

  /// @brief The interface as it stands now.
  Link first() const { return m_first.link(); }
  Link second() const { return m_second.link(); }

  End firstEnd() const { return m_first.end(); }
  End secondEnd() const { return m_second.end(); }

 private:
  /// @brief One interface in its namespace.
  class Place {
   public:
    Place(const std::string& interface, const char* address, const InterfaceRecords& records);
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    Link link() const;
    End end() const;
    void requirePresence() const;
    std::uint64_t damagedPackets() const;

   private:
    void setUp() const;

    Link m_before;
    const char* m_address;
    PackageKit::UniqueDescriptor m_home;
    NetworkNamespace m_namespace;
    std::optional<Custodian> m_custodian;  ///< puts the interface back when it ends
  };

  Place m_first;
  Place m_second;
};

}  // namespace TarvexDiags::Network
