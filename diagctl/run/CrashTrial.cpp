#include "diagctl/run/CrashTrial.h"

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using PackageKit::Contract::CrashCause;

}  // namespace

void CrashTrial::take(Place place, Repetition repetition) {
  std::optional<Repetition>& known = place == Place::Here ? m_here : m_elsewhere;
  if (!known) {
    known = repetition;
  }
}

void CrashTrial::stop(const std::string& reason) {
  if (isOver()) {
    return;
  }
  m_reason = reason;
  take(Place::Here, Repetition::Unclear);
  take(Place::Elsewhere, Repetition::Unclear);
}

CrashFinding CrashTrial::finding() const {
  const std::string other = m_other.value_or("");
  const CrashCause cause = PackageKit::Contract::causeOfCrash(
      m_here.value_or(Repetition::Unclear), m_elsewhere.value_or(Repetition::Unclear));
  switch (cause) {
    case CrashCause::Device:
      return {
          cause, "crash-on-one-device",
          tr("The test crashes on {} and not on {}: the hardware is at fault.", m_device, other),
          tr("Take {} out of service and have it replaced.", m_device)};
    case CrashCause::Package:
      return {cause, "", tr("The test crashes on {} too: the package is to blame.", other),
              tr("Report it to the maker of the package with the last output.")};
    case CrashCause::Chance:
      return {cause, "crash-not-repeated",
              tr("The test crashed once, and not when it was repeated."),
              tr("Test {} again and for longer. If the test crashes again, suspect the hardware.",
                 m_device)};
    case CrashCause::Unknown:
      break;
  }
  return findingOfUnknown();
}

CrashFinding CrashTrial::findingOfUnknown() const {
  const bool isAlone = m_elsewhere == Repetition::NoPlace;
  if (isAlone && m_here == Repetition::Crashed) {
    return {CrashCause::Unknown, "",
            tr("The test crashes on {} again, and there is no other device to compare it with: the "
               "hardware or the package is to blame.",
               m_device),
            tr("Run the test on a machine of the same kind. If it does not crash there, have {} "
               "replaced; if it does, report it to the maker of the package.",
               m_device)};
  }
  return {CrashCause::Unknown, "",
          m_reason.empty() ? tr("The repetitions do not tell who is to blame for the crash.")
                           : m_reason,
          isAlone ? tr("Run the test again.") : ""};
}

}  // namespace TarvexDiags::FrontEnd
