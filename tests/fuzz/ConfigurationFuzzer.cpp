// Looks for the problems of any control file, package and plan, and lays any setting over a
// package. What counts is what the library's reader finds in the same file, and a setting that is
// laid over holds.
//
// Input: a control file, the description of a package, its English texts, what the package says
// that it reads, a plan and a setting, each up to a zero byte.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "System/SysUtil.h"
#include "diagctl/check/Check.h"
#include "diagctl/check/PackageCheck.h"
#include "diagctl/check/SettingsCheck.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/NamedPlans.h"
#include "diagctl/session/SettingOverrides.h"
#include "tests/fuzz/Input.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::FrontEnd;
using TarvexDiags::System::SysUtil;
namespace fs = std::filesystem;

/// The files of an input, in memory.
class Place {
 public:
  Place() {
    std::string name = "/dev/shm/configuration-XXXXXX";
    expect(mkdtemp(name.data()) != nullptr);
    m_path = name;
    fs::create_directories(m_path / "packages" / "en");
    fs::create_directories(m_path / "tarvexdiags" / "plans");
    setenv("XDG_CONFIG_HOME", m_path.c_str(), 1);
  }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  ~Place() { fs::remove_all(m_path); }

  std::string write(const std::string& name, const std::string& text) const {
    const std::string path = (m_path / name).string();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    return path;
  }

 private:
  fs::path m_path;
};

void expectTold(const std::vector<Problem>& problems) {
  for (const Problem& problem : problems) {
    expect(!problem.file.empty() && !problem.reason.empty());
    expect(toText(problem).starts_with(problem.file));
  }
}

// No more than some of the keys: each is a walk through the file.
void expectSameAsLibrary(const std::string& file) {
  int left = 12;
  const auto text = ConfigurationText::read(file);
  expect(text.has_value());
  for (const std::string& section : text->sections()) {
    for (const auto& [key, written] : text->keys(section)) {
      std::string value;
      if (left-- == 0) {
        return;
      }
      expect(SysUtil::ReadCfgFile(section, key, value, file) == SysUtil::CFG_READ);
      expect(value == written);
      expect(text->lineOf(section, key) > 0);
    }
  }
}

void checkPlan(const std::string& file) {
  try {
    const NamedPlan plan = planNamed("fuzzed", false);
    expect(plan.file == file);
    for (const auto& [key, value] : plan.options) {
      expect(!key.empty());
    }
    for (const std::string& setting : plan.settings) {
      expect(setting.find('=') != std::string::npos);
    }
  } catch (const std::runtime_error& failure) {
    expect(std::string(failure.what()).starts_with(file));
  }
}

// The setting holds, and no other changes: not where it is set, and not elsewhere.
void layOver(const std::string& description, const std::string& written) {
  SettingOverride setting;
  try {
    setting = parseOverride(written);
  } catch (const std::invalid_argument&) {
    return;
  }
  const std::string section =
      setting.test == 0 ? "Package" : "TestID" + std::to_string(setting.test);
  const auto before = ConfigurationText::parse(description);
  const auto after = ConfigurationText::parse(withOverride(description, setting));
  const auto found = after.keys(section).find(setting.key);
  expect(found != after.keys(section).end() && found->second == setting.value);
  for (const std::string& each : before.sections()) {
    for (const auto& [key, value] : before.keys(each)) {
      expect(key == setting.key || after.keys(each).at(key) == value);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Place kPlace;
  std::string rest = textOf(data, size);
  const std::string control = kPlace.write("control.cfg", takeUntil(rest, '\0'));
  const std::string description = takeUntil(rest, '\0');
  const std::string package = kPlace.write("packages/fuzzed.cfg", description);
  kPlace.write("packages/en/fuzzed.cfg", takeUntil(rest, '\0'));
  const std::string rules = takeUntil(rest, '\0');
  const std::string plan = kPlace.write("tarvexdiags/plans/fuzzed.cfg", takeUntil(rest, '\0'));

  std::vector<Problem> problems = checkControlFile(control);
  checkPackage(package, false, problems);
  constexpr int tests = 3;
  static const std::vector<KeyRule> kNone;
  checkSettings(ConfigurationText::parse(description), package, tests, {kNone, kNone},
                TarvexDiags::PackageKit::settingRulesFrom(rules), problems);
  expectTold(problems);
  expectSameAsLibrary(control);
  checkPlan(plan);
  layOver(description, takeUntil(rest, '\0'));
  return 0;
}
