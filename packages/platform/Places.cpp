#include "packages/platform/Places.h"

namespace TarvexDiags::Platform {

std::string slotOf(const Json& pci, std::string place) {
  while (!place.empty()) {
    if (const auto found = pci.find(place); found != pci.end()) {
      if (std::string slot = textOf(*found, "slot"); !slot.empty()) {
        return slot;
      }
    }
    const std::size_t step = place.rfind('/');
    place.resize(step == std::string::npos ? 0 : step);
  }
  return kSlotNotNamed;
}

std::string joined(const std::vector<std::string>& texts, const char* between) {
  std::string all;
  for (const std::string& text : texts) {
    all += (all.empty() ? "" : between) + text;
  }
  return all;
}

std::string textOf(const Json& facts, const char* key) {
  const auto found = facts.find(key);
  const bool isTold = found != facts.end() && found->is_string() && *found != Inventory::kUnknown;
  return isTold ? found->get<std::string>() : std::string();
}

}  // namespace TarvexDiags::Platform
