#include "diagctl/run/FindingText.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Watching::Finding;
using Watching::Kind;

constexpr const char* kMachine = "machine";  ///< where nothing narrower is known

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
      if (!finding.part.empty()) {
        return finding.part;
      }
      return finding.device.starts_with("cpu:") ? "cpu" + device : device;
  }
}

/// The words of the narrowest case that there are any for.
std::string messageOf(const Finding& finding, const std::string& token, const WatchTexts& texts,
                      const std::vector<std::string>& parameters, std::uint64_t count) {
  const bool isOfMachine = finding.device == kMachine && finding.part.empty();
  std::vector<std::string> cases;
  const auto add = [&](const std::string& name) {
    if (isOfMachine) {
      cases.push_back("_OF_MACHINE" + name);
    }
    cases.push_back(name);
  };
  if (finding.isBefore) {
    add("_BEFORE");
  }
  if (count == 1) {
    add("_ONE");
  }
  add("");
  std::string message;
  for (auto name = cases.begin(); name != cases.end() && message.empty(); ++name) {
    message = texts.text(token + *name, parameters);
  }
  return message;
}

}  // namespace

std::string nameOfDevice(const std::string& device, const WatchTexts& texts) {
  if (device == kMachine || device == "memory") {
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
  FindingText text{name, messageOf(finding, token, texts, parameters, count),
                   finding.severity == Watching::Severity::Failure
                       ? texts.text(token + "_ACTION_FAILURE", parameters)
                       : ""};
  if (text.action.empty()) {
    text.action = texts.text(token + "_ACTION", parameters);
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
