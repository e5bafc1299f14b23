#include "diagctl/session/Reasons.h"

#include <cstdint>
#include <map>
#include <tuple>

#include "packagekit/contract/ReasonKind.h"
#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::FrontEnd {

namespace Contract = PackageKit::Contract;

namespace {

using LinesByPair =
    std::map<std::tuple<std::string, int, std::string>, const Contract::SupportLine*>;

std::uint64_t bytesIn(const LinesByPair& lines, const PackageItem& package,
                      const DeviceItem& device) {
  const auto line =
      lines.find({package.baseName, Contract::kNoTest, Contract::toSupportField(device.tag)});
  const bool isSize = line != lines.end() && line->second->reason == Contract::kBytesOfDevice;
  return isSize ? PackageKit::valueFrom<std::uint64_t>(line->second->detail).value_or(0) : 0;
}

}  // namespace

SkipKind skipKindOf(const std::string& reason) {
  switch (Contract::kindOf(reason)) {
    case Contract::ReasonKind::NeedsPrivilege:
      return SkipKind::NeedsPrivilege;
    case Contract::ReasonKind::NotInThisMode:
      return SkipKind::NotInThisMode;
    case Contract::ReasonKind::NotPossible:
      break;
  }
  return SkipKind::NotPossible;
}

void addReasons(Catalogue& catalogue, const std::vector<Contract::SupportLine>& lines,
                const Texts& texts) {
  // By package, test and tag; the last line counts, as an enumeration may be repeated.
  LinesByPair reasons;
  for (const Contract::SupportLine& line : lines) {
    reasons[{line.package, line.testId, line.resourceTag}] = &line;
  }
  for (PackageItem& package : catalogue.packages) {
    for (DeviceItem& device : package.devices) {
      device.bytes = bytesIn(reasons, package, device);
      for (const TestItem& test : package.tests) {
        const auto reason =
            reasons.find({package.baseName, test.id, Contract::toSupportField(device.tag)});
        if (reason == reasons.end()) {
          continue;
        }
        if (reason->second->reason == Contract::kNotForThisKind) {
          package.pairs[{device.id, test.id}] = PairState::Impossible;
        } else {
          package.skipKinds[{device.id, test.id}] = skipKindOf(reason->second->reason);
          package.reasons[{device.id, test.id}] =
              texts.reason(package.index, reason->second->reason) +
              Contract::inBrackets(reason->second->detail);
        }
      }
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
