#include "inventory/PciPath.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace TarvexDiags::Inventory {

namespace {

constexpr std::string_view kRoot = "pci";
constexpr std::size_t kDeviceInAddress = sizeof("00.0") - 1;

/// "0000:01:00.0", with a domain of four digits or more.
bool isAddress(std::string_view name) {
  constexpr std::string_view kShape = ":xx:xx.x";
  constexpr std::size_t kDomain = 4;
  if (name.size() < kShape.size() + kDomain) {
    return false;
  }
  const auto isDigit = [](unsigned char sign) { return std::isxdigit(sign) != 0; };
  const std::size_t domain = name.size() - kShape.size();
  const std::string_view rest = name.substr(domain);
  return std::all_of(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(domain), isDigit) &&
         std::equal(rest.begin(), rest.end(), kShape.begin(), [&](char sign, char shape) {
           return shape == 'x' ? isDigit(static_cast<unsigned char>(sign)) : sign == shape;
         });
}

}  // namespace

std::string pciPathOf(const std::filesystem::path& device) {
  std::string path;
  for (const std::filesystem::path& step : device) {
    const std::string name = step.string();
    if (name.starts_with(kRoot) && name.find(':') != std::string::npos) {
      path = name.substr(kRoot.size());
    } else if (isAddress(name)) {
      path += "/" + name.substr(name.size() - kDeviceInAddress);
    }
  }
  return path.find('/') == std::string::npos ? "" : path;
}

std::string pciAddressOf(const std::filesystem::path& device) {
  std::string address;
  for (const std::filesystem::path& step : device) {
    if (isAddress(step.string())) {
      address = step.string();
    }
  }
  return address;
}

std::string keyFor(const Json& tree, const std::string& place) {
  std::string key = place;
  for (int count = 2; tree.contains(key); ++count) {
    key = place + "#" + std::to_string(count);
  }
  return key;
}

}  // namespace TarvexDiags::Inventory
