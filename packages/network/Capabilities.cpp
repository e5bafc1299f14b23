#include "packages/network/Capabilities.h"

#include <linux/capability.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace TarvexDiags::Network {
namespace {

bool has(unsigned int capability) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "CapEff:" && status >> word) {
      return (std::stoull(word, nullptr, 16) >> capability & 1U) != 0;
    }
  }
  return false;
}

}  // namespace

bool mayAdministrateNetwork() {
  return has(CAP_NET_ADMIN);
}

bool mayMakeNamespaces() {
  return has(CAP_SYS_ADMIN);
}

}  // namespace TarvexDiags::Network
