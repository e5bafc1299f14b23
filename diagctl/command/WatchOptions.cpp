#include "diagctl/command/WatchOptions.h"

#include <fmt/format.h>

#include <stdexcept>

#include "diagctl/command/OptionGroup.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

void addWatching(CLI::App& command, WatchOptions& options) {
  OptionGroup group(command, english("Watching the machine"));
  group.text("--watch", "SOURCES", options.sources,
             english("What kernel and sensors say: off, all, or a list with commas of edac, mce, "
                     "aer, kmsg, throttle, hwmon, power, disk, nvme, net, psi"),
             "all");
  group.text("--watch-interval", "TIME", options.interval, english("How often it is looked at"),
             "1s");
  group.text(
      "--watch-ce-interval", "TIME", options.correctedErrorInterval,
      english("How often the kernel asks processors for errors that they corrected, while the run "
              "lasts"),
      english("as the machine has it"));
}

void addSettling(CLI::App& command, WatchOptions& options) {
  OptionGroup(command, english("Watching the machine"))
      .text("--settle", "TIME", options.settle,
            english("How long after a test's end what is found still belongs to it"), "3s");
}

void apply(const WatchOptions& options, WatchWishes& wishes) {
  const auto take = [&](const char* option, const char* key,
                        const std::optional<std::string>& value) {
    try {
      if (value) {
        set(wishes, key, *value);
      }
    } catch (const std::invalid_argument& fault) {
      throw UsageFault(fmt::format("{}: {}", option, fault.what()));
    }
  };
  take("--watch", "Sources", options.sources);
  take("--watch-interval", "Interval", options.interval);
  take("--settle", "Settle", options.settle);
  take("--watch-ce-interval", "CorrectedErrorInterval", options.correctedErrorInterval);
}

std::unique_ptr<PollInterval> changePollInterval(const WatchWishes& watch) {
  if (!watch.correctedErrorInterval) {
    return nullptr;
  }
  auto interval = std::make_unique<PollInterval>(Watching::SystemFiles(watch.root),
                                                 *watch.correctedErrorInterval);
  if (!interval->problem().empty()) {
    standardError().print("diagctl: --watch-ce-interval: {}\n", interval->problem());
  }
  return interval;
}

std::vector<Problem> checkWatch(const Configuration& configuration) {
  std::vector<Problem> problems;
  WatchWishes ignored;
  for (const auto& [file, section, key, value] : configuration.watchSettings()) {
    try {
      set(ignored, key, value);
    } catch (const std::invalid_argument& fault) {
      problems.push_back({file, section, key, fault.what()});
    }
  }
  return problems;
}

WatchWishes watchWishesOf(const Configuration& configuration, const WatchOptions& options) {
  WatchWishes wishes;
  for (const auto& [file, section, key, value] : configuration.watchSettings()) {
    try {
      set(wishes, key, value);
    } catch (const std::invalid_argument& fault) {
      if (file.empty()) {
        throw UsageFault(fmt::format("--set: {}", fault.what()));
      }
      throw ConfigurationFault(file, section, key, fault.what());
    }
  }
  apply(options, wishes);
  return wishes;
}

}  // namespace TarvexDiags::FrontEnd
