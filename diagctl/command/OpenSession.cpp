#include "diagctl/command/OpenSession.h"

#include <fmt/format.h>

#include <cstddef>
#include <stdexcept>

#include "diagctl/check/Check.h"
#include "diagctl/check/OverlayCheck.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/OpenFiles.h"
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

std::string linesOf(const std::vector<Problem>& problems) {
  std::string lines;
  std::size_t told = 0;
  for (const Problem& problem : problems) {
    if (++told <= kMostTold) {
      lines += "\n  " + describe(problem);
    }
  }
  return lines;
}

// How to be told the rest.
std::string hintFor(const Configuration& configuration) {
  return configuration.isEmbedded()
             ? tr("\nAll of it: diagctl check")
             : tr("\nAll of it: diagctl check --config {}", toPrintable(configuration.source()));
}

}  // namespace

Configuration composeConfiguration(const std::optional<std::string>& controlFile,
                                   const PackageWishes& wishes, bool isSecure) {
  allowOpenFiles(openFilesFor(1));  // else what cannot be opened is taken for the fault
  try {
    return Configuration::compose(
        Configuration::find(controlFile),
        {wishes.directories, wishes.settings, wishes.planFile, wishes.planSettings, isSecure});
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
  const std::vector<Problem> faults = checkOverlays(configuration, OverlaysOf::KnownPackages);
  if (!faults.empty()) {
    throw FailureInLines(tr("settings over a package's description are wrong") + linesOf(faults) +
                         hintFor(configuration));
  }
  return configuration;
}

std::unique_ptr<Session> openSession(const Configuration& configuration,
                                     const std::string& language, const SessionSettings& settings) {
  try {
    return std::make_unique<Session>(configuration.path(), language, settings);
  } catch (const ControllerFailure& failure) {
    const std::string reasons =
        failure.code() == DiagCtrl::DiagnosticController::INITIALISATION_FAILED
            ? linesOf(withSources(checkControlFile(configuration.path()), configuration))
            : "";
    const std::string head = configuration.withSourcesIn(failure.what());
    if (reasons.empty() && head == failure.what()) {
      throw;
    }
    throw FailureInLines(head + reasons + (reasons.empty() ? "" : hintFor(configuration)));
  }
}

}  // namespace TarvexDiags::FrontEnd
