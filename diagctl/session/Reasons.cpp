#include "diagctl/session/Reasons.h"

#include <map>
#include <tuple>

#include "packagekit/contract/ReasonKind.h"

namespace TarvexDiags::FrontEnd {

namespace Contract = PackageKit::Contract;

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
  std::map<std::tuple<std::string, int, std::string>, const Contract::SupportLine*> reasons;
  for (const Contract::SupportLine& line : lines) {
    reasons[{line.package, line.testId, line.resourceTag}] = &line;
  }
  for (PackageItem& package : catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
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
