#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/run/PollInterval.h"
#include "diagctl/run/WatchWishes.h"
#include "diagctl/session/Configuration.h"

namespace TarvexDiags::FrontEnd {

/// How the machine is to be watched, by the command line.
struct WatchOptions {
  std::optional<std::string> sources;
  std::optional<std::string> interval;
  std::optional<std::string> settle;
  std::optional<std::string> correctedErrorInterval;
};

/// The options of the verbs that watch: what, and how often.
void addWatching(CLI::App& command, WatchOptions& options);
/// The one of a run besides.
void addSettling(CLI::App& command, WatchOptions& options);

/// Changes wishes by the command line.
/// @throws UsageFault that names the option and what it may be.
void apply(const WatchOptions& options, WatchWishes& wishes);

/// Changes the kernel's interval if that is wished, and tells if it cannot be done. To be called
/// before there are threads, and kept until there are none.
std::unique_ptr<PollInterval> changePollInterval(const WatchWishes& watch);

/// What stands in the control file and cannot be meant.
std::vector<Problem> checkWatch(const Configuration& configuration);

/// All that is wished: the options, else the control file, else what holds without it.
/// @throws UsageFault for what was asked for beside the control file; ConfigurationFault for what
///   stands in it.
WatchWishes watchWishesOf(const Configuration& configuration, const WatchOptions& options);

}  // namespace TarvexDiags::FrontEnd
