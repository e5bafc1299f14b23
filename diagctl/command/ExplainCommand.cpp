#include "diagctl/command/ExplainCommand.h"

#include <exception>
#include <vector>

#include "diagctl/command/JsonAnswers.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Explanation.h"
#include "diagctl/terminal/Suggestion.h"

namespace TarvexDiags::FrontEnd {

namespace {

// Without packages, what is the program's own can be explained all the same.
std::vector<std::string> directoriesOf(const ExplainedPackages& packages) {
  if (!packages.directories.empty()) {
    return packages.directories;
  }
  try {
    return Configuration::find(packages.config).packageDirectories();
  } catch (const std::exception&) {
    return {};
  }
}

void tell(Printer& out, const Explanation& explanation) {
  out.print("{}: {} ({})\n", explanation.family, explanation.name, explanation.kind);
  if (explanation.resultNumber) {
    out.say("  {} as the result of a call\n", *explanation.resultNumber);
  }
  if (explanation.eventNumber) {
    out.say("  {} as an event\n", *explanation.eventNumber);
  }
  out.print("  {}\n", explanation.meaning);
  if (!explanation.action.empty()) {
    out.print("  -> {}\n", explanation.action);
  }
}

std::vector<std::string> namesOf(const std::vector<Explanation>& explanations) {
  std::vector<std::string> names;
  for (const Explanation& explanation : explanations) {
    names.push_back(explanation.name);
  }
  return names;
}

}  // namespace

int carryOutExplain(Printer& out, const std::string& asked, const ExplainedPackages& packages,
                    const std::string& language, bool isForPrograms) {
  const std::vector<std::string> directories = directoriesOf(packages);
  const std::vector<Explanation> found = explanationsOf(asked, directories, language);
  if (isForPrograms) {
    writeJson(out, codesAsJson(found));
  }
  if (found.empty()) {
    standardError().say("diagctl: no code or word '{}'{}\n", asked,
                        didYouMean(asked, namesOf(explanationsOf("*", directories, language))));
    return ExitCode::kNothingRan;
  }
  for (const Explanation& explanation : found) {
    if (!isForPrograms) {
      tell(out, explanation);
    }
  }
  return ExitCode::kPassed;
}

}  // namespace TarvexDiags::FrontEnd
