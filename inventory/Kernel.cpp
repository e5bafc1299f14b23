#include "inventory/Inventory.h"

namespace TarvexDiags::Inventory {

namespace {

struct Taint {
  unsigned int bit;
  const char* name;
};

// The kernel's admin-guide/tainted-kernels.rst.
constexpr Taint kTaints[] = {
    {0, "proprietary-module"},
    {1, "forced-module"},
    {2, "out-of-specification"},
    {3, "forced-unload"},
    {4, "machine-check"},
    {5, "bad-page"},
    {6, "user"},
    {7, "died"},
    {8, "overridden-acpi-table"},
    {9, "warning"},
    {10, "staging-driver"},
    {11, "firmware-workaround"},
    {12, "external-module"},
    {13, "unsigned-module"},
    {14, "soft-lockup"},
    {15, "live-patch"},
    {16, "auxiliary"},
    {17, "randomised-layout"},
    {18, "test"},
};

Json taintsOf(std::uint64_t bits) {
  Json names = Json::array();
  for (const Taint& taint : kTaints) {
    if ((bits >> taint.bit & 1U) != 0) {
      names.push_back(taint.name);
    }
  }
  return names;
}

}  // namespace

Json kernelFacts(const SystemFiles& files) {
  Json tree = Json::object();
  addText(tree, "name", files, "proc/sys/kernel/ostype");
  addText(tree, "release", files, "proc/sys/kernel/osrelease");
  addText(tree, "version", files, "proc/sys/kernel/version");
  if (const auto taints = files.number("proc/sys/kernel/tainted")) {
    tree["taints"] = taintsOf(*taints);
  }
  return tree;
}

}  // namespace TarvexDiags::Inventory
