#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/report/Forecast.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/Selection.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// How long one test on one device takes.
struct Estimate {
  SelectedPair pair;
  double seconds = -1;  ///< of all passes; below 0: cannot be told
};

/// How long tests take by the descriptions of their packages, in seconds, each of which is read
/// once.
class DescribedTimes {
 public:
  /// @param directory of the packages. @param isQuick of the short forms, where a description tells
  /// of them.
  DescribedTimes(std::string directory, bool isQuick);

  /// Below 0: the description does not tell.
  double of(const PackageItem& package, const TestItem& test) const;

 private:
  std::string m_directory;
  bool m_isQuick;
  mutable std::map<std::string, std::optional<ConfigurationText>> m_texts;  ///< by package
};

/// What the passes of a test take, of which each takes so long: those that begin in its time.
/// @param seconds below 0: unknown, as the answer is then.
double secondsOfPasses(double seconds, const RunOptions& options);

/// Asks the packages: each request is queued in estimation mode, in which a package tells its
/// figure and tests nothing. A package that tells none has the figure of its description.
/// @param directory of the packages.
std::vector<Estimate> estimate(Session& session, const std::vector<SelectedPair>& pairs,
                               const RunOptions& options, const std::string& directory);

TimeNeeded sum(const std::vector<Estimate>& estimates);

/// Whole ones, none too few.
long wholeSeconds(double seconds);

void writeEstimates(Printer& out, const std::vector<Estimate>& estimates);

}  // namespace TarvexDiags::FrontEnd
