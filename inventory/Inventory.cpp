#include "inventory/Inventory.h"

namespace TarvexDiags::Inventory {

Json takeInventory(const SystemFiles& files, const AskDriver& ask) {
  Json inventory = {{"document", "diagctl.inventory"}, {"version", 1}};
  inventory["system"] = systemFacts(files);
  inventory["processors"] = processorFacts(files);
  inventory["memory"] = memoryFacts(files);
  inventory["pci"] = pciFacts(files);
  inventory["disks"] = diskFacts(files);
  inventory["interfaces"] = interfaceFacts(files, ask);
  inventory["infiniband"] = infinibandFacts(files);
  inventory["gpus"] = gpuFacts(files);
  inventory["tpm"] = tpmFacts(files);
  inventory["kernel"] = kernelFacts(files);
  return inventory;
}

}  // namespace TarvexDiags::Inventory
