#include "packages/network/LinkControl.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Network {
namespace {

/// @brief Memory for the kernel's structures that end in an array.
class Request {
 public:
  explicit Request(std::size_t bytes) : m_words((bytes + 7) / 8) {}

  template <typename Structure>
  Structure* as() {
    return reinterpret_cast<Structure*>(m_words.data());
  }
  void* data() { return m_words.data(); }
  template <typename Element>
  const Element* after(std::size_t bytes) const {
    return reinterpret_cast<const Element*>(reinterpret_cast<const char*>(m_words.data()) + bytes);
  }

 private:
  std::vector<std::uint64_t> m_words;
};

using SpeedBit = std::pair<unsigned int, unsigned int>;

/// @brief The link modes that stand for a speed; those beyond 100 Gb/s are too many to matter.
constexpr std::array<SpeedBit, 30> kSpeedBits{{
    {ETHTOOL_LINK_MODE_10baseT_Half_BIT, 10},
    {ETHTOOL_LINK_MODE_10baseT_Full_BIT, 10},
    {ETHTOOL_LINK_MODE_100baseT_Half_BIT, 100},
    {ETHTOOL_LINK_MODE_100baseT_Full_BIT, 100},
    {ETHTOOL_LINK_MODE_100baseT1_Full_BIT, 100},
    {ETHTOOL_LINK_MODE_1000baseT_Half_BIT, 1000},
    {ETHTOOL_LINK_MODE_1000baseT_Full_BIT, 1000},
    {ETHTOOL_LINK_MODE_1000baseKX_Full_BIT, 1000},
    {ETHTOOL_LINK_MODE_1000baseX_Full_BIT, 1000},
    {ETHTOOL_LINK_MODE_1000baseT1_Full_BIT, 1000},
    {ETHTOOL_LINK_MODE_2500baseX_Full_BIT, 2500},
    {ETHTOOL_LINK_MODE_2500baseT_Full_BIT, 2500},
    {ETHTOOL_LINK_MODE_5000baseT_Full_BIT, 5000},
    {ETHTOOL_LINK_MODE_10000baseT_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_10000baseKX4_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_10000baseKR_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_10000baseCR_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_10000baseSR_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_10000baseLR_Full_BIT, 10000},
    {ETHTOOL_LINK_MODE_25000baseCR_Full_BIT, 25000},
    {ETHTOOL_LINK_MODE_25000baseKR_Full_BIT, 25000},
    {ETHTOOL_LINK_MODE_25000baseSR_Full_BIT, 25000},
    {ETHTOOL_LINK_MODE_40000baseKR4_Full_BIT, 40000},
    {ETHTOOL_LINK_MODE_40000baseCR4_Full_BIT, 40000},
    {ETHTOOL_LINK_MODE_40000baseSR4_Full_BIT, 40000},
    {ETHTOOL_LINK_MODE_50000baseCR2_Full_BIT, 50000},
    {ETHTOOL_LINK_MODE_50000baseKR2_Full_BIT, 50000},
    {ETHTOOL_LINK_MODE_100000baseKR4_Full_BIT, 100000},
    {ETHTOOL_LINK_MODE_100000baseSR4_Full_BIT, 100000},
    {ETHTOOL_LINK_MODE_100000baseCR4_Full_BIT, 100000},
}};

std::optional<unsigned int> bestCommon(const std::uint32_t* ours, const std::uint32_t* theirs,
                                       unsigned int words) {
  unsigned int best = 0;
  for (const auto& [bit, megabits] : kSpeedBits) {
    const unsigned int word = bit / 32;
    if (word < words && (ours[word] & theirs[word] & (std::uint32_t{1} << bit % 32)) != 0) {
      best = std::max(best, megabits);
    }
  }
  return best == 0 ? std::nullopt : std::optional(best);
}

class EthtoolControl final : public LinkControl {
 public:
  explicit EthtoolControl(std::string interface)
      : m_interface(std::move(interface)), m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (!m_socket) {
      throw std::system_error(errno, std::generic_category(), m_interface);
    }
  }

  LinkMode mode() override {
    // Asked with no room for the lists, the kernel answers with minus the words that it needs.
    Request request(sizeof(ethtool_link_settings) + 3 * 127 * sizeof(std::uint32_t));
    auto* settings = request.as<ethtool_link_settings>();
    settings->cmd = ETHTOOL_GLINKSETTINGS;
    call(request, "ETHTOOL_GLINKSETTINGS");
    settings->link_mode_masks_nwords = static_cast<std::int8_t>(-settings->link_mode_masks_nwords);
    settings->cmd = ETHTOOL_GLINKSETTINGS;
    call(request, "ETHTOOL_GLINKSETTINGS");

    LinkMode mode;
    if (settings->speed != 0 && settings->speed != static_cast<std::uint32_t>(SPEED_UNKNOWN)) {
      mode.megabits = settings->speed;
    }
    mode.duplex = settings->duplex == DUPLEX_FULL   ? Duplex::Full
                  : settings->duplex == DUPLEX_HALF ? Duplex::Half
                                                    : Duplex::Unknown;
    const auto words = static_cast<unsigned char>(settings->link_mode_masks_nwords);
    const auto* masks = request.after<std::uint32_t>(sizeof(ethtool_link_settings));
    const std::uint32_t* advertised = masks + words;
    const std::uint32_t* partner = masks + std::size_t{2} * words;
    mode.bestCommonMegabits = bestCommon(advertised, partner, words);
    return mode;
  }

  DriverInfo driver() override {
    Request request(sizeof(ethtool_drvinfo));
    auto* info = request.as<ethtool_drvinfo>();
    info->cmd = ETHTOOL_GDRVINFO;
    call(request, "ETHTOOL_GDRVINFO");
    return {info->driver, info->version, info->fw_version, info->bus_info, info->testinfo_len};
  }

  SelfTestResult selfTest(bool offline) override {
    const unsigned int parts = driver().selfTests;
    if (parts == 0) {
      throw NotSupported(Reasons::kNoSelfTest);
    }
    Request request(sizeof(ethtool_test) + parts * sizeof(std::uint64_t));
    auto* test = request.as<ethtool_test>();
    test->cmd = ETHTOOL_TEST;
    test->flags = offline ? ETH_TEST_FL_OFFLINE : 0;
    test->len = parts;
    call(request, "ETHTOOL_TEST");

    SelfTestResult result;
    result.failed = (test->flags & ETH_TEST_FL_FAILED) != 0;
    const auto* values = request.after<std::uint64_t>(sizeof(ethtool_test));
    const std::vector<std::string> names = selfTestNames(parts);
    for (unsigned int part = 0; part < parts; ++part) {
      result.parts.push_back({names[part], values[part]});
    }
    return result;
  }

 private:
  std::vector<std::string> selfTestNames(unsigned int parts) {
    Request request(sizeof(ethtool_gstrings) + std::size_t{parts} * ETH_GSTRING_LEN);
    auto* strings = request.as<ethtool_gstrings>();
    strings->cmd = ETHTOOL_GSTRINGS;
    strings->string_set = ETH_SS_TEST;
    strings->len = parts;
    call(request, "ETHTOOL_GSTRINGS");
    std::vector<std::string> names;
    const char* text = request.after<char>(sizeof(ethtool_gstrings));
    for (unsigned int part = 0; part < parts; ++part, text += ETH_GSTRING_LEN) {
      names.emplace_back(text, strnlen(text, ETH_GSTRING_LEN));
    }
    return names;
  }

  /// @param command its name among the driver's interfaces
  void call(Request& request, const char* command) {
    ifreq envelope{};
    m_interface.copy(envelope.ifr_name, IFNAMSIZ - 1);
    envelope.ifr_data = static_cast<char*>(request.data());
    if (ioctl(m_socket.get(), SIOCETHTOOL, &envelope) == 0) {
      return;
    }
    if (errno == ENODEV) {
      throw std::system_error(errno, std::generic_category(), m_interface);
    }
    throw NotSupported(Reasons::kDriverRefuses,
                       std::string(command) + ": " + std::generic_category().message(errno));
  }

  std::string m_interface;
  PackageKit::UniqueDescriptor m_socket;
};

}  // namespace

std::unique_ptr<LinkControl> makeLinkControl(const std::string& interface) {
  return std::make_unique<EthtoolControl>(interface);
}

}  // namespace TarvexDiags::Network
