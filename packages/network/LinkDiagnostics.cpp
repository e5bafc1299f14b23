#include "packages/network/LinkDiagnostics.h"

#include <optional>

namespace TarvexDiags::Network {
namespace {

std::string speedText(const LinkMode& mode) {
  return mode.megabits ? std::to_string(*mode.megabits) + " Mb/s" : "?";
}

std::string duplexText(Duplex duplex) {
  return duplex == Duplex::Full ? "DUPLEX_FULL" : duplex == Duplex::Half ? "DUPLEX_HALF" : "?";
}

/// @brief What the driver tells; drivers of virtual interfaces often tell nothing.
LinkMode modeOf(LinkControl& control) {
  try {
    return control.mode();
  } catch (const NotSupported&) {
    return {};
  }
}

void tellDriver(const std::string& interface, LinkControl& control, RunJournal& journal) {
  const auto orUnknown = [](const std::string& text) { return text.empty() ? "?" : text; };
  try {
    const DriverInfo info = control.driver();
    report(journal, NetworkEvent::Driver,
           {interface, orUnknown(info.driver), orUnknown(info.version), orUnknown(info.firmware),
            orUnknown(info.bus)});
  } catch (const NotSupported&) {
    // The loopback interface has no driver to speak of.
  }
}

}  // namespace

void judgeLink(const Link& link, LinkControl& control, const LinkLimits& limits,
               RunJournal& journal) {
  if (!link.up) {
    throw NotSupported(Reasons::kInterfaceOff);
  }
  const LinkMode mode = modeOf(control);
  tellDriver(link.name, control, journal);
  report(journal, NetworkEvent::Link,
         {link.name, link.state, speedText(mode), duplexText(mode.duplex)});
  if (!link.carrier) {
    report(journal, NetworkEvent::NoLink, {link.name, link.state});
    return;
  }
  if (mode.duplex == Duplex::Half) {
    report(journal, NetworkEvent::HalfDuplex, {link.name});
  }
  if (!mode.megabits) {
    return;
  }
  if (*mode.megabits < limits.minimumMegabits) {
    report(journal, NetworkEvent::BelowMinimumSpeed,
           {link.name, std::to_string(*mode.megabits), std::to_string(limits.minimumMegabits)});
  }
  if (mode.bestCommonMegabits.value_or(0) > *mode.megabits) {
    report(journal, NetworkEvent::SlowerThanBoth,
           {link.name, std::to_string(*mode.megabits), std::to_string(*mode.bestCommonMegabits)});
  }
}

void runSelfTest(const std::string& interface, LinkControl& control, bool offline,
                 RunJournal& journal) {
  const SelfTestResult result = control.selfTest(offline);
  bool told = false;
  for (const SelfTestPart& part : result.parts) {
    if (part.result != 0) {
      told = true;
      report(journal, NetworkEvent::SelfTestFailed,
             {interface, part.name, std::to_string(part.result)});
    }
  }
  if (result.failed && !told) {
    report(journal, NetworkEvent::SelfTestFailed, {interface, "?", "?"});
  } else if (!told) {
    report(journal, NetworkEvent::SelfTestPassed, {interface, std::to_string(result.parts.size())});
  }
}

}  // namespace TarvexDiags::Network
