#include "diagctl/session/NamedPlans.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "diagctl/session/Configuration.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPlans = "tarvexdiags/plans";
constexpr const char* kPlan = "Plan";
constexpr const char* kSettings = "Settings";

/// The strongest first.
std::vector<fs::path> planDirectories() {
  std::vector<fs::path> directories;
  if (const fs::path user = userConfigurationDirectory(); !user.empty()) {
    directories.push_back(user / kPlans);
  }
  directories.push_back(fs::path("/etc") / kPlans);
  return directories;
}

// What nobody reads was meant to be read.
void requireSound(const std::string& file, const ConfigurationText& text) {
  if (!text.remarks().empty()) {
    const ConfigurationText::Remark& remark = text.remarks().front();
    throw std::runtime_error(fmt::format("{}:{}: {}", file, remark.line, remark.text));
  }
  for (const std::string& section : text.sections()) {
    if (section != kPlan && section != kSettings) {
      throw std::runtime_error(tr("{} [{}]: a plan has no such section", file, section));
    }
  }
}

}  // namespace

std::vector<std::string> namesOfPlans() {
  std::set<std::string> names;
  for (const fs::path& directory : planDirectories()) {
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      if (entry->path().extension() == ".cfg") {
        names.insert(entry->path().stem().string());
      }
    }
  }
  return {names.begin(), names.end()};
}

NamedPlan planNamed(const std::string& name, bool isSecure) {
  NamedPlan plan;
  for (const fs::path& directory : planDirectories()) {
    std::error_code ignored;
    const fs::path file = directory / (name + ".cfg");
    if (plan.file.empty() && fs::exists(file, ignored)) {
      plan.file = file.string();
    }
  }
  if (isSecure) {
    requireSecurePath(plan.file);
  }
  std::string reason;
  const auto text = ConfigurationText::read(plan.file, reason);
  if (!text) {
    throw std::runtime_error(fmt::format("{}: {}", plan.file, reason));
  }
  requireSound(plan.file, *text);
  for (const auto& [key, value] : text->keys(kPlan)) {
    plan.options.emplace_back(key, value);
  }
  for (const auto& [key, value] : text->keys(kSettings)) {
    plan.settings.push_back(fmt::format("{}={}", key, value));
  }
  return plan;
}

}  // namespace TarvexDiags::FrontEnd
