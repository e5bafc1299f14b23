#include "diagctl/check/OverlayCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "diagctl/check/CheckRules.h"
#include "diagctl/check/PackageCheck.h"
#include "diagctl/session/ComposedPackages.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> allOverlays() {
  std::vector<std::string> files;
  for (const std::string& directory : overlayDirectories()) {
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      if (entry->path().extension() == ".cfg") {
        files.push_back(entry->path().string());
      }
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// What the overlay is laid over: the first description of its name.
fs::path descriptionUnder(const fs::path& overlay, const Configuration& configuration) {
  for (const std::string& directory : configuration.packageDirectories()) {
    std::error_code ignored;
    if (fs::path file = directory / overlay.filename(); fs::exists(file, ignored)) {
      return file;
    }
  }
  return {};
}

bool holds(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Of each value what the description that was put together is told of it.
void checkValues(const std::string& overlay, const ConfigurationText& text,
                 const Configuration& configuration, std::vector<Problem>& problems) {
  std::vector<Problem> found;
  const fs::path composed = packageDirectoryOf(configuration.path());
  checkPackage((composed / fs::path(overlay).filename()).string(), true, found);
  for (Problem& problem : found) {
    if (text.keys(problem.section).contains(problem.key) &&
        configuration.sourceOf(problem.file, problem.section, problem.key) == overlay) {
      problem.file = overlay;
      problems.push_back(std::move(problem));
    }
  }
}

void checkOverlay(const std::string& overlay, const Configuration& configuration,
                  std::vector<Problem>& problems) {
  std::string reason;
  const auto text = ConfigurationText::read(overlay, reason);
  if (!text) {
    problems.push_back({overlay, "", "", tr("the file cannot be read: {}", reason)});
    return;
  }
  checkRemarks(*text, overlay, problems);
  const fs::path description = descriptionUnder(overlay, configuration);
  const auto described =
      description.empty() ? std::nullopt : ConfigurationText::read(description.string());
  if (!described) {
    problems.push_back(
        {overlay, "", "",
         tr("there is no package '{}' to set anything of", fs::path(overlay).stem().string())});
    return;
  }
  for (const std::string& section : text->sections()) {
    if (!holds(described->sections(), section)) {
      problems.push_back({overlay, section, "", tr("the package has no such section")});
    }
  }
  checkValues(overlay, *text, configuration, problems);
}

// What is written and never read has no key to find its line by.
std::string withLineOfRemark(const std::string& file, const Problem& problem) {
  const auto text = ConfigurationText::read(file);
  if (!text) {
    return file;
  }
  const auto& remarks = text->remarks();
  const auto remark = std::find_if(remarks.begin(), remarks.end(), [&](const auto& each) {
    return each.section == problem.section && each.key == problem.key &&
           each.text == problem.reason;
  });
  return remark == remarks.end() ? file : fmt::format("{}:{}", file, remark->line);
}

}  // namespace

std::vector<Problem> checkOverlays(const Configuration& configuration, OverlaysOf which) {
  std::vector<Problem> problems;
  for (const std::string& overlay :
       which == OverlaysOf::KnownPackages ? configuration.overlays() : allOverlays()) {
    checkOverlay(overlay, configuration, problems);
  }
  return problems;
}

std::vector<Problem> withSources(std::vector<Problem> problems,
                                 const Configuration& configuration) {
  for (Problem& problem : problems) {
    const std::string source = configuration.sourceOf(problem.file, problem.section, problem.key);
    problem.reason = configuration.withSourcesIn(problem.reason);
    if (source != problem.file) {
      problem.file = withLineOfRemark(source, problem);
    }
  }
  return problems;
}

}  // namespace TarvexDiags::FrontEnd
