#include "packagekit/internal/ProcessTexts.h"

#include <string.h>

namespace TarvexDiags::PackageKit {

std::string signalName(int signal) {
  const char* const name = sigabbrev_np(signal);
  return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

std::string exitStatusOf(const ProcessEnd& end) {
  return end.kind == ProcessEnd::Kind::Exited ? std::to_string(end.number) : "?";
}

std::string howItEnded(const ProcessEnd& end) {
  return end.kind == ProcessEnd::Kind::Signalled ? signalName(end.number)
                                                 : "exit status " + exitStatusOf(end);
}

std::string secondsText(double seconds) {
  std::string text = std::to_string(seconds);
  text.erase(text.find_last_not_of('0') + 1);
  if (!text.empty() && text.back() == '.') {
    text.pop_back();
  }
  return text;
}

}  // namespace TarvexDiags::PackageKit
