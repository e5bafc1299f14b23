#include "diagctl/run/FindingText.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Watching::Finding;
using Watching::Kind;

// Of a processor's own errors and of a link, device and part together are what a technician needs.
std::string subjectOf(const Finding& finding, const std::string& device) {
  switch (finding.kind) {
    case Kind::MachineCheckCorrected:
    case Kind::MachineCheckUncorrected:
      return finding.part.empty() ? device : device + ", " + finding.part;
    case Kind::PcieCorrectable:
    case Kind::PcieNonfatal:
    case Kind::PcieFatal:
      return finding.part.empty() ? device : device + " - " + finding.part;
    default:
      return finding.part.empty() ? device : finding.part;
  }
}

}  // namespace

std::string nameOfDevice(const std::string& device, const WatchTexts& texts) {
  if (device == "machine" || device == "memory") {
    return texts.text("THE_MACHINE");
  }
  return device.starts_with("mc:") ? "mc" + device.substr(3) : device.substr(device.find(':') + 1);
}

FindingText textOf(const Finding& finding, const WatchTexts& texts, const std::string& during,
                   std::uint64_t count) {
  const std::string name = Watching::nameOf(finding.kind);
  const std::string token = WatchTexts::tokenOf(name);
  const std::string device = nameOfDevice(finding.device, texts);
  const std::vector<std::string> parameters = {subjectOf(finding, device), std::to_string(count),
                                               during, device,
                                               finding.place.empty() ? "?" : finding.place};
  FindingText text{name, count == 1 ? texts.text(token + "_ONE", parameters) : "",
                   finding.severity == Watching::Severity::Failure
                       ? texts.text(token + "_ACTION_FAILURE", parameters)
                       : ""};
  if (finding.isBefore) {
    text.message = texts.text(token + "_BEFORE", parameters);
  }
  if (text.message.empty()) {
    text.message = texts.text(token, parameters);
  }
  if (text.action.empty()) {
    text.action = texts.text(token + "_ACTION", parameters);
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
