// The package of the guide: it is what stands in the guide, it is short, and it runs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "packagekit/KitEvents.h"
#include "packagekit/PackageTexts.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/internal/KitSettings.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/Places.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Testing::PackageDriver;

namespace {

const char* const kFiles[] = {"Clock.cpp", "clock.cfg", "en/clock.cfg"};

std::string textOf(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(TestSupport::sourcePath(file)).rdbuf();
  EXPECT_FALSE(text.str().empty()) << file;
  return text.str();
}

}  // namespace

TEST(PackageGuide, shows_the_example_as_it_is) {
  const std::string guide = textOf("docs/package-guide.md");
  for (const std::string file : kFiles) {
    const std::string block = "\n" + textOf("examples/minimal_package/" + file) + "```\n";
    EXPECT_NE(guide.find(block), std::string::npos) << file << " differs from what the guide shows";
  }
  EXPECT_THAT(
      textOf("examples/minimal_package/CMakeLists.txt"),
      ::testing::HasSubstr("tarvex_add_package(NAME clock GROUP examples SOURCES Clock.cpp)"));
}

TEST(PackageGuide, names_every_language) {
  const std::string guide = textOf("docs/package-guide.md");
  for (const std::string language : Contract::kLanguages) {
    EXPECT_NE(guide.find("`" + language), std::string::npos) << language;
  }
}

TEST(PackageGuide, needs_no_more_than_sixty_lines) {
  long lines = 0;
  for (const std::string file : kFiles) {
    const std::string text = textOf("examples/minimal_package/" + file);
    lines += std::count(text.begin(), text.end(), '\n');
  }
  EXPECT_LE(lines, 60);
}

TEST(PackageGuide, lists_every_key_and_event_of_the_kit_and_the_manual_every_key) {
  const std::string guide = textOf("docs/package-guide.md");
  const std::string manual = textOf("man/tarvexdiags-package.5");
  SettingList keys = kitPackageSettings();
  for (const SettingRule& rule : kitTestSettings()) {
    keys.push_back(rule);
  }
  for (const SettingRule& rule : keys) {
    const std::regex paragraph("\n\\.BR? ([A-Za-z]+ \", \" )*" + rule.key + "[ \n]");
    EXPECT_NE(guide.find("| `" + rule.key + "`"), std::string::npos) << rule.key;
    EXPECT_TRUE(std::regex_search(manual, paragraph)) << rule.key;
  }
  std::istringstream entries(textOf("packagekit/data/kit.cfg"));
  for (std::string line; std::getline(entries, line);) {
    if (line.find("=KIT_") != std::string::npos && line.compare(0, 4, "9091") != 0) {
      EXPECT_THAT(guide, ::testing::HasSubstr(line.substr(0, 4)));
    }
  }
}

TEST(PackageGuide, has_a_package_that_runs) {
  PackageDriver clock(TARVEX_EXAMPLE_DIR, "clock");
  const auto run = clock.run("clocksource0", {1});
  EXPECT_EQ(run.verdict, Diag::DiagnosticResult::PASSED);
  EXPECT_GT(std::stod(run.measurement("reading")), 0);
  EXPECT_THAT(clock.eventsWithoutToken(), ::testing::IsEmpty());
  EXPECT_THAT(checkPackageTexts(TARVEX_EXAMPLE_DIR, "clock"), ::testing::IsEmpty());
}
