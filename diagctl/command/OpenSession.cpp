#include "diagctl/command/OpenSession.h"

#include <fmt/format.h>

#include <cstddef>
#include <stdexcept>

#include "diagctl/check/Check.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/FailureInLines.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostTold = 5;

// With the line where the key stands, as far as it stands anywhere.
std::string describe(const Problem& problem) {
  const auto text = ConfigurationText::read(problem.file);
  const int line = text ? text->lineOf(problem.section, problem.key) : 0;
  Problem placed = problem;
  if (line > 0) {
    placed.file = fmt::format("{}:{}", problem.file, line);
  }
  return toPrintable(toText(placed));
}

std::string reasonsFor(const std::string& controlFile) {
  std::string reasons;
  std::size_t told = 0;
  for (const Problem& problem : checkControlFile(controlFile)) {
    if (++told <= kMostTold) {
      reasons += "\n  " + describe(problem);
    }
  }
  return reasons;
}

}  // namespace

Configuration composeConfiguration(const std::optional<std::string>& controlFile,
                                   const PackageWishes& wishes, bool isSecure) {
  try {
    return Configuration::compose(Configuration::find(controlFile),
                                  {wishes.directories, wishes.settings, isSecure});
  } catch (const std::invalid_argument& fault) {
    throw UsageFault(fault.what());
  }
}

Configuration openConfiguration(const std::optional<std::string>& controlFile,
                                const PackageWishes& wishes, bool isSecure) {
  Configuration configuration = composeConfiguration(controlFile, wishes, isSecure);
  if (isSecure) {
    requireSecureFiles(configuration.path());
  }
  return configuration;
}

std::unique_ptr<Session> openSession(const std::string& controlFile, const std::string& language,
                                     const SessionSettings& settings) {
  try {
    return std::make_unique<Session>(controlFile, language, settings);
  } catch (const ControllerFailure& failure) {
    const std::string reasons =
        failure.code() == DiagCtrl::DiagnosticController::INITIALISATION_FAILED
            ? reasonsFor(controlFile)
            : "";
    if (reasons.empty()) {
      throw;
    }
    throw FailureInLines(failure.what() + reasons +
                         tr("\nAll of it: diagctl check --config {}", toPrintable(controlFile)));
  }
}

}  // namespace TarvexDiags::FrontEnd
