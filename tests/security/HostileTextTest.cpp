// Names and texts that others chose are data: whatever bytes they hold, none of those reaches a
// terminal that would steer it, and none begins a line of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <unistd.h>

#include <clocale>
#include <cwchar>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/Formats.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/FakeMachine.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::contentsOf;
using DiagctlTest::diagctl;
using DiagctlTest::linesOf;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Tests::FakeMachine;
using Arguments = std::vector<std::string>;
namespace fs = std::filesystem;

// Escape sequences, a bell, a carriage return, C1 as a character and as a byte, what turns the
// direction, ends of lines, and bytes that are no UTF-8.
const std::string kHostile =
    "\x1b[2J\a\r\b\t\x7f\xc2\x9b\x9b\xe2\x80\xae\xe2\x81\xa6\xe2\x80\x8f\xd8\x9c\xe2\x80\xa8"
    "\xe2\x80\xa9\xff\xc0\xaf\xed\xa0\x80.";

// The package makes a line break of it, which no configuration file can hold.
const std::string kForgedLine = "\\nforged";

bool isHarmful(wchar_t character) {
  static const std::set<wchar_t> kHarmful = {0x61c,  0x200e, 0x200f, 0x2028, 0x2029,
                                             0x202a, 0x202b, 0x202c, 0x202d, 0x202e,
                                             0x2066, 0x2067, 0x2068, 0x2069};
  return (character < ' ' && character != '\n') || (character >= 0x7f && character <= 0x9f) ||
         kHarmful.contains(character);
}

/// What is wrong with an output, byte by byte, as the C library reads it.
std::vector<std::string> harmsIn(const std::string& output) {
  std::vector<std::string> harms;
  std::mbstate_t state{};
  for (std::size_t position = 0; position < output.size();) {
    wchar_t character = 0;
    const std::size_t length =
        std::mbrtowc(&character, output.data() + position, output.size() - position, &state);
    const bool isBroken = length == 0 || length > output.size();
    if (isBroken || isHarmful(character)) {
      std::ostringstream harm;
      harm << "byte " << position << " is 0x" << std::hex
           << static_cast<unsigned int>(static_cast<unsigned char>(output[position]))
           << " behind \""
           << ::testing::PrintToString(output.substr(position < 40 ? 0 : position - 40, 40)) << '"';
      harms.push_back(harm.str());
    }
    state = isBroken ? std::mbstate_t{} : state;
    position += isBroken ? 1 : length;
  }
  for (const std::string& line : linesOf(output)) {
    if (line.starts_with("forged")) {
      harms.push_back("a name begins a line");
    }
  }
  return harms;
}

/// What the program itself sends to a terminal: colours, and the lines of a display that are drawn
/// and taken back.
std::string withoutOwnSequences(const std::string& output) {
  static const std::regex kOwn(
      "\x1b\\[(0|3[123])m|\x1b\\[K|\x1b\\[J(\x1b\\[\\d+A)?\r|\r\x1b\\[J|\r(?=[\r\n]|\x1b\\[K)");
  return std::regex_replace(output, kOwn, "");
}

class HostileText : public DiagctlTest::Diagctl {
 protected:
  HostileText() {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::string name = "Evil" + kHostile;
    place.addPackage(
        "BAD",
        {{.name = name + " stuck", .behaviour = "fail", .more = "Event=7"},
         {.name = name + " weak", .behaviour = "warn", .more = "Event=8\nUnsupportedOn=Left"},
         {.name = name + " silent", .behaviour = "nothing"},
         {.name = name + " good", .more = "Estimate=9\nTestOpenMode=" + name}},
        {{name + kForgedLine, "bus/" + name + kForgedLine}, {"Left", "bus/left"}});
    const std::string file = place.packageFile("BAD");
    place.replaceIn(file, "PackageName=Package BAD", "PackageName=" + name);
    place.replaceIn(file, "Mnemonic=BAD", "Mnemonic=" + name);
    place.replaceIn(file, "PackageVersion=2.1", "PackageVersion=" + name);
    place.replaceIn(file, "PackageDescription=For tests", "PackageDescription=" + name);
    place.replaceIn(file, "TestDescription=Test", "TestDescription=" + name);
    for (const char* text : {"=$1$ is stuck.", "=Replace", "=$1$ is weak.", "=Watch"}) {
      place.replaceIn(place.path("packages/en/BAD.cfg"), text, "=" + name + (text + 1));
    }
  }

  /// Each byte that a run of the program writes.
  void expectHarmless(const Arguments& arguments, const std::string& shown = "Evil") {
    for (const bool isOnTerminal : {false, true}) {
      Program::Options options;
      options.onTerminal = isOnTerminal;
      const Outcome outcome = diagctl(arguments, options);
      const std::string output = outcome.out + outcome.err;
      EXPECT_THAT(harmsIn(isOnTerminal ? withoutOwnSequences(output) : output), IsEmpty())
          << ::testing::PrintToString(arguments) << '\n'
          << ::testing::PrintToString(output);
      EXPECT_THAT(output, HasSubstr(shown)) << ::testing::PrintToString(arguments);
    }
  }

  /// The ways to tell a run: each format, and each style of exit codes.
  static std::vector<Arguments> waysOfReporting() {
    std::vector<Arguments> ways = {{"--exit-style", "nagios"}, {"--exit-style", "npd"}};
    for (const std::string& format : FrontEnd::choosableFormats()) {
      ways.push_back({"--format", format});
    }
    return ways;
  }

  std::string writeLog() {
    const std::string log = place.path("run.jsonl");
    run({"run", "-q", "-o", "jsonl=" + log});
    return log;
  }
};

Arguments operator+(Arguments left, const Arguments& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(HostileText, of_packages_is_written_out_by_each_verb_that_looks_at_them) {
  for (const Arguments& verb : std::vector<Arguments>{{"list"},
                                                      {"list", "devices"},
                                                      {"list", "tests"},
                                                      {"show", "*"},
                                                      {"estimate"},
                                                      {"run", "--dry-run"}}) {
    expectHarmless(withControlFile(verb));
  }
}

TEST_F(HostileText, of_packages_is_written_out_by_a_run_in_each_format) {
  for (const Arguments& way : waysOfReporting()) {
    expectHarmless(withControlFile(Arguments{"run"} + way));
  }
}

TEST_F(HostileText, of_a_log_is_written_out_by_a_report_in_each_format) {
  const std::string log = writeLog();
  for (const Arguments& way : waysOfReporting()) {
    expectHarmless(Arguments{"report", log} + way);
  }
}

TEST_F(HostileText, of_a_log_of_any_hand_is_written_out_too) {
  // As a line may hold it: escaped, or byte by byte.
  const std::string log = writeLog();
  std::string escaped;
  for (const nlohmann::json& line : DiagctlTest::parseLines(contentsOf(log))) {
    escaped += line.dump(-1, ' ', true) + "\n";
  }
  place.write(log, escaped);
  expectHarmless({"report", log});
  place.write(log, std::regex_replace(escaped, std::regex("Evil"), "Evil\x7f\xc2\x9b\xe2\x80\xae"));
  expectHarmless({"report", log});
  place.write(log, escaped + "{\"Evil" + kHostile + "\n" + escaped);
  expectHarmless({"report", log});
}

TEST_F(HostileText, of_logs_and_reports_stays_what_it_was) {
  const std::string log = writeLog();
  EXPECT_THAT(harmsIn(contentsOf(log)), IsEmpty());
  const auto steps =
      DiagctlTest::artifacts(DiagctlTest::parseLines(contentsOf(log)), "testStepStart");
  EXPECT_THAT(steps.at(0)["name"],
              HasSubstr("\x1b[2J\a\r\b\t\x7f\xc2\x9b\xef\xbf\xbd\xe2\x80\xae"));
  const std::string xml = diagctl({"report", log, "--format", "junit"}).out;
  const std::string suite = DiagctlTest::parseXml(xml)["children"].at(0)["attributes"]["name"];
  EXPECT_THAT(suite, HasSubstr("Evil[2J\r\t\x7f\xc2\x9b\xef\xbf\xbd\xe2\x80\xae"))
      << "what XML has a form for";
}

TEST_F(HostileText, of_arguments_and_paths_is_written_out_in_errors) {
  const std::string evil = "Evil" + kHostile + "\nforged";
  const std::string path = place.path(evil);
  for (const Arguments& arguments :
       std::vector<Arguments>{{"run", "--" + evil},
                              {"run", evil},
                              {"run", "--format", evil},
                              {"run", "--passes", evil},
                              {"run", "-o", evil},
                              {"run", "-o", "tap=" + evil, "-o", "text=" + evil},
                              {"list", evil},
                              {"explain", evil},
                              {"watch", "--for", evil},
                              {"watch", "--watch", evil},
                              {"inventory", "--root", path},
                              {"inventory", "-o", path + "/document"},
                              {"inventory", "--redact-key", path},
                              {"inventory", "check", "--against", path},
                              {"inventory", "check", "--against", path, "--rules", path},
                              {"inventory", "golden", path, path, path, path},
                              {"inventory", "diff", path, path},
                              {"help", evil},
                              {evil},
                              {"--config", path, "list"},
                              {"--config", path, "run"},
                              {"--config", path, "check"},
                              {"--config", path, "run", "--exit-style", "nagios"},
                              {"report", path},
                              {"report", path, "--exit-style", "nagios"},
                              {"report", path, evil},
                              {"report", path, evil, "--exit-style", "nagios"},
                              {"merge", path},
                              {"merge", path, "-o", path + "/log"}}) {
    expectHarmless(arguments);
  }
  expectHarmless({"selftest", "--packages", path, "--allow-insecure"}, "PackDirPath");
  for (const Arguments& arguments :
       std::vector<Arguments>{{"show", evil},
                              {"run", "-t", evil},
                              {"run", "-q", "-o", "tap=" + path + "/report"},
                              {"estimate", "-d", evil},
                              {"--lang", evil, "show", "Left"}}) {
    expectHarmless(withControlFile(arguments));
  }
}

TEST_F(HostileText, of_the_machine_is_written_out_by_its_inventory) {
  FakeMachine machine;
  machine.has("sys/class/dmi/id/product_name", "Evil" + kHostile + "\nforged\n");
  expectHarmless({"inventory", "--root", machine.path()});
}

TEST_F(HostileText, is_written_out_by_a_check_of_health_and_by_its_last_result) {
  for (const char* const style : {"plain", "nagios", "npd"}) {
    const Arguments check = {"health", "--state", place.path("state"), "--style", style};
    expectHarmless(withControlFile(check));
    expectHarmless(withControlFile(check + Arguments{"--cached", "1h"}));
  }
}

TEST_F(HostileText, of_inventories_is_written_out_by_what_compares_them) {
  const std::string golden = place.path("golden.json");
  FakeMachine machine;
  machine.has("sys/class/dmi/id/product_name", "Box\n");
  ASSERT_EQ(diagctl({"inventory", "--root", machine.path(), "-o", golden}).exitCode,
            DiagctlTest::kPassed);
  auto document = nlohmann::json::parse(contentsOf(golden));
  const std::string evil = "Evil" + kHostile;
  document["system"]["product"] = evil;
  document["disks"][evil] = {{"model", evil}, {"serialNumber", evil}, {"name", evil}};
  document["pci"]["0000:00/" + evil] = {{"vendor", evil}, {"slot", evil}};
  document["kernel"] = {{evil, evil}, {"taints", {evil, 1}}, {"release", {{evil, evil}}}};
  place.write(golden, document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  for (const char* const format : {"text", "jsonl", "junit", "tap"}) {
    expectHarmless({"inventory", "check", "--against", golden, "--root", machine.path(), "-v",
                    "--format", format});
  }
  const std::string other = place.path("other.json");
  ASSERT_EQ(diagctl({"inventory", "--root", machine.path(), "-o", other}).exitCode,
            DiagctlTest::kPassed);
  expectHarmless({"inventory", "diff", golden, other});
  expectHarmless({"inventory", "golden", golden, other, other, other});
  place.write(other, R"([{"path": ")" + std::string("/a") + R"(", "compare": "\u001b[31mEvil"}])");
  expectHarmless({"inventory", "check", "--against", golden, "--rules", other});
}

TEST_F(HostileText, of_the_machine_is_written_out_by_a_watch) {
  FakeMachine machine;
  const std::string module = "sys/devices/system/edac/mc/mc0/dimm0/";
  machine.has(module + "dimm_label", "Evil" + kHostile + "\n");
  machine.has(module + "dimm_ue_count", "0\n").has(module + "dimm_ce_count", "0\n");
  place.write(place.controlFile(), contentsOf(place.controlFile()) +
                                       "\n[Watch]\nInterval=10ms\nRoot=" + machine.path() + "\n");
  for (const char* const format : {"text", "jsonl"}) {
    Program watch(withControlFile({"watch", "--format", format}));
    ASSERT_TRUE(watch.waitFor("Not watched"));
    machine.has(module + "dimm_ue_count", format == std::string("text") ? "1\n" : "2\n");
    watch.signal(SIGTERM);
    const Outcome outcome = watch.finish();
    EXPECT_THAT(harmsIn(outcome.out + outcome.err), IsEmpty())
        << ::testing::PrintToString(outcome.out);
    EXPECT_THAT(outcome.out, HasSubstr("Evil")) << format;
  }
}

TEST_F(HostileText, of_files_is_written_out_by_a_check) {
  const std::string evil = "Evil" + kHostile;
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=" + evil + "\n" + evil + "=1");
  place.replaceIn(place.packageFile("BAD"), "SystemLock=FALSE", "SystemLock=" + evil);
  place.write(place.path("packages/" + evil + "\nforged.cfg"), "[Package]\nno key\n");
  place.write(place.path("packages/en/BAD.cfg"), "[en\n" + evil + "\n");
  expectHarmless(withControlFile({"check"}));
}

TEST_F(HostileText, of_a_place_that_others_may_write_to_is_written_out_when_root_refuses_it) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root refuses";
  }
  const std::string folder = place.path("Evil" + kHostile);
  fs::rename(place.path("packages"), folder);
  place.usePackages(folder);
  fs::permissions(folder, fs::perms::all);
  expectHarmless(withControlFile({"check"}));
  const std::string file = place.path("Evil" + kHostile + "\nforged.cfg");
  fs::rename(place.controlFile(), file);
  fs::permissions(file, fs::perms::all);
  expectHarmless({"--config", file, "list"});
}

TEST_F(HostileText, is_tried_with_every_verb_that_there_is) {
  static const std::set<std::string> kTried = {
      "list",  "show",    "run",    "watch", "health",   "inventory", "estimate",
      "check", "explain", "report", "merge", "selftest", "help",      "version"};
  std::set<std::string> verbs;
  const std::string help = diagctl({"--help"}).out;
  static const std::regex kVerb("\n  ([a-z]+) +[A-Z]");
  const std::string listed = help.substr(help.find("Verbs:"));
  for (std::sregex_iterator match(listed.begin(), listed.end(), kVerb), end; match != end;
       ++match) {
    verbs.insert((*match)[1]);
  }
  EXPECT_EQ(verbs, kTried) << "version takes nothing and tells nothing of anybody's";
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
