#include "diagctl/command/CheckCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/check/OverlayCheck.h"
#include "diagctl/command/JsonAnswers.h"
#include "diagctl/command/WatchOptions.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

void append(std::vector<Problem>& problems, const std::vector<Problem>& more) {
  problems.insert(problems.end(), more.begin(), more.end());
}

std::set<std::string> filesOf(const std::vector<Problem>& problems) {
  std::set<std::string> files;
  for (const Problem& problem : problems) {
    files.insert(problem.file);
  }
  return files;
}

// The controller believes it, and looks for as many packages.
bool hasWrongCount(const std::vector<Problem>& problems) {
  return std::any_of(problems.begin(), problems.end(),
                     [](const Problem& problem) { return problem.key == "NumPackages"; });
}

// A value was found in the description that was put together already.
void addOverlays(const Configuration& configuration, std::vector<Problem>& problems) {
  const auto isKnown = [known = problems](const Problem& problem) {
    return std::any_of(known.begin(), known.end(),
                       [&](const Problem& each) { return toText(each) == toText(problem); });
  };
  for (const Problem& problem : checkOverlays(configuration, OverlaysOf::AnyPackage)) {
    if (!isKnown(problem)) {
      problems.push_back(problem);
    }
  }
}

// Devices are only known once the packages were asked. What keeps them from being asked may be a
// fault that no file shows.
void checkByRunning(const std::string& controlFile, const std::string& language,
                    std::vector<Problem>& problems) {
  try {
    const Session session(controlFile, language, {});
    append(problems, checkTags(session.catalogue()));
    for (const std::string& warning : session.warnings()) {
      problems.push_back({controlFile, "", "", tr("a package is left out: {}", warning)});
    }
  } catch (const std::exception& failure) {
    problems.push_back({controlFile, "", "", failure.what()});
  }
}

}  // namespace

int carryOutCheck(Printer& out, const Configuration& configuration, const std::string& language,
                  bool checksPermissions, bool isForPrograms) {
  const std::string& controlFile = configuration.path();
  std::vector<Problem> problems = checkControlFile(controlFile);
  append(problems, checkWatch(configuration));
  std::string packages;
  if (const auto text = ConfigurationText::read(controlFile)) {
    packages = text->value("GlobalSettings", "PackDirPath").value_or("");
  }
  const std::vector<Problem> strange =
      packages.empty() ? std::vector<Problem>() : checkKinds(packages);
  append(problems, strange);
  const std::vector<std::string> insecure =
      checksPermissions ? findInsecureFiles(controlFile, packages, filesOf(strange))
                        : std::vector<std::string>();
  for (const std::string& finding : insecure) {
    problems.push_back({"permissions", "", "", finding});
  }
  // Code by way of an insecure file is not loaded, not even to look at it; and what is no file may
  // keep a reader waiting for ever.
  const bool mayLoad = strange.empty() && insecure.empty();
  if (!packages.empty()) {
    append(problems, checkPackages(packages, mayLoad));
  }
  if (!packages.empty() && mayLoad && !hasWrongCount(problems)) {
    checkByRunning(controlFile, language, problems);
  }
  problems = withSources(std::move(problems), configuration);
  if (mayLoad) {
    addOverlays(configuration, problems);
  }
  return tellProblems(out, problems, configuration.origin(), isForPrograms);
}

int tellProblems(Printer& out, const std::vector<Problem>& problems, const std::string& place,
                 bool isForPrograms) {
  if (isForPrograms) {
    writeJson(out, problemsAsJson(problems));
    return problems.empty() ? ExitCode::kPassed : ExitCode::kNoVerdict;
  }
  for (const Problem& problem : problems) {
    out.print("{}\n", toText(problem));
  }
  out.print("{}\n", trn("1 problem in {1} and its packages", "{0} problems in {1} and its packages",
                        problems.size(), place));
  return problems.empty() ? ExitCode::kPassed : ExitCode::kNoVerdict;
}

}  // namespace TarvexDiags::FrontEnd
