// What the verbs that look tell, to people and to programs, and by which names they are asked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/diagctl/Schemas.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Json = nlohmann::json;
namespace fs = std::filesystem;

class DiagctlAnswers : public Diagctl {
 protected:
  DiagctlAnswers() {
    addMixedPackage();
    place.addPackage("OTHER", {{.name = "Good, or nearly"}, {.name = "Goose"}},
                     {{"Far 1 (left)", "bus/far1"}, {"Far 10 (right)", "bus/far10"}});
  }

  std::vector<std::string> plan(std::vector<std::string> words) {
    words.insert(words.begin(), {"run", "--dry-run"});
    return linesOf(run(words).out);
  }

  Json answer(std::vector<std::string> words, const std::string& schema) {
    words.insert(words.end(), {"--format", "json"});
    const Outcome outcome = run(words);
    const Json document = Json::parse(outcome.out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << outcome.out << outcome.err;
    EXPECT_THAT(faultsBySchema(document, schema), IsEmpty()) << outcome.out;
    return document;
  }
};

// ---- Names -----------------------------------------------------------------------------------

TEST_F(DiagctlAnswers, a_word_names_whatever_has_the_name) {
  EXPECT_THAT(plan({"other"}), SizeIs(4));
  EXPECT_THAT(plan({"OTHER", "Goose", "Far 1"}),
              ElementsAre("run   Package OTHER: Goose on Far 1 (left)"));
  EXPECT_THAT(plan({"Picky", "Right"}), ElementsAre("run   Package MIX: Picky on Right"));
}

TEST_F(DiagctlAnswers, the_beginning_of_one_name_alone_is_enough) {
  const std::string goose = "run   Package OTHER: Goose on Far 1 (left)";
  EXPECT_THAT(plan({"-p", "oth", "-t", "goos", "-d", "far 1"}), ElementsAre(goose));
  EXPECT_THAT(plan({"oth", "goos", "far 1"}), ElementsAre(goose));
  EXPECT_THAT(plan({"package o"}), SizeIs(4)) << "a package before a device";
  EXPECT_THAT(plan({"-t", "Goose", "--exclude-device", "Far 10"}), ElementsAre(goose));
}

TEST_F(DiagctlAnswers, a_beginning_of_several_names_tells_them_and_selects_none) {
  const Outcome test = run({"run", "--dry-run", "-t", "Goo"});
  EXPECT_EQ(test.exitCode, kNothingRan);
  EXPECT_THAT(test.err, HasSubstr("nothing matches test 'Goo' alone; it may be 'Good', "
                                  "'Good, or nearly' or 'Goose'"));
  const Outcome word = run({"run", "Far"});
  EXPECT_EQ(word.exitCode, kNothingRan);
  EXPECT_THAT(word.out, Not(HasSubstr("PASSED")));
  EXPECT_THAT(word.err, HasSubstr("nothing matches 'Far' alone; it may be device 'Far 1 (left)'"));
  EXPECT_THAT(run({"run", "1"}).err, HasSubstr("nothing matches '1' alone; it may be package '1'"));
}

TEST_F(DiagctlAnswers, a_slip_in_a_name_is_told_with_what_is_near_and_runs_nothing) {
  const Outcome outcome = run({"run", "Othre"});
  EXPECT_EQ(outcome.exitCode, kNothingRan);
  EXPECT_THAT(outcome.err, HasSubstr("nothing matches 'Othre'; did you mean 'OTHER'?"));
  EXPECT_THAT(run({"run", "-t", "Godo"}).err,
              HasSubstr("nothing matches test 'Godo'; did you mean 'Good'"));
  EXPECT_THAT(run({"show", "Gose"}).err, HasSubstr("matches 'Gose'; did you mean 'Goose'"));
  EXPECT_THAT(run({"run", "-t", "Godo*"}).err, HasSubstr("'Godo*'; did you mean 'Good'"));
  EXPECT_THAT(run({"run", "Othre:*"}).err, HasSubstr("'Othre:*'; did you mean 'OTHER'?"));
}

TEST_F(DiagctlAnswers, sizes_stand_beside_the_names_of_devices) {
  const auto bundled = [](std::vector<std::string> words) {
    words.insert(words.begin(), "--allow-insecure");
    return diagctl(words).out;
  };
  EXPECT_THAT(bundled({"list", "devices"}), ContainsRegex("\nMEMORY[^\n]+ [0-9,]+ MiB +host/"));
  EXPECT_THAT(bundled({"show", "*emory*"}), ContainsRegex("\n  size [0-9,]+ MiB\n"));
  const Json list = Json::parse(bundled({"list", "devices", "--format", "json"}));
  EXPECT_TRUE(std::any_of(list["devices"].begin(), list["devices"].end(),
                          [](const Json& device) { return device["bytes"].is_number(); }));
  const auto log =
      parseLines(bundled({"run", "-q", "--quick", "-t", "Kernel taint", "--format", "jsonl"}));
  const Json machine = artifacts(log, "testRunStart").at(0)["dutInfo"];
  EXPECT_GT(machine["metadata"]["sizes"].at(0)["bytes"], 0);
}

TEST_F(DiagctlAnswers, names_that_have_no_test_in_common_are_told_so) {
  const Outcome outcome = run({"run", "--dry-run", "-p", "MIX", "-t", "Goose"});
  EXPECT_EQ(outcome.exitCode, kNothingRan);
  EXPECT_THAT(outcome.err, HasSubstr("nothing to run: what was named has no test in common"));
}

TEST_F(DiagctlAnswers, lists_have_commas_unless_a_name_holds_them) {
  EXPECT_THAT(plan({"-t", "Good,Bad", "-d", "Left,Right"}), SizeIs(4));
  EXPECT_THAT(plan({"-t", "Good, or nearly"}), SizeIs(2));
  EXPECT_THAT(plan({"--exclude-test", "Good,Bad,Weak,Silent", "MIX"}),
              ElementsAre("skip  Package MIX: Picky on Left (not supported)",
                          "run   Package MIX: Picky on Right"));
  EXPECT_THAT(plan({"Goose,Bad", "-d", "Left"}), ElementsAre("run   Package MIX: Bad on Left"));
}

// ---- For people ------------------------------------------------------------------------------

TEST_F(DiagctlAnswers, lists_have_heads_and_end_with_the_files_in_use) {
  for (const char* what : {"packages", "devices", "tests"}) {
    const std::vector<std::string> lines = linesOf(run({"list", what}).out);
    EXPECT_THAT(lines.front(), HasSubstr("PACKAGE")) << what;
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[lines.size() - 3], "Control file: " + place.controlFile());
    EXPECT_EQ(lines[lines.size() - 2], "Packages:     " + place.path("packages"));
    EXPECT_EQ(lines.back(), "Logs:         " + place.path("logs"));
  }
}

TEST_F(DiagctlAnswers, columns_stand_below_their_heads_in_any_script) {
  place.addPackage("WIDE", {{.name = "Good"}}, {{"Ger\u00e4t", "bus/w1"}, {"内存", "bus/w2"}});
  const std::vector<std::string> lines = linesOf(run({"list", "devices"}).out);
  const std::size_t column = lines.front().find("TAG");
  for (const std::string& line : lines) {
    if (line.find("Ger\u00e4t") != std::string::npos) {
      EXPECT_EQ(line.find("bus/w1"), column + 1) << "one letter of two bytes";
    }
    if (line.find("内存") != std::string::npos) {
      EXPECT_EQ(line.find("bus/w2"), column + 2) << "two letters of three bytes and two columns";
    }
  }
}

TEST_F(DiagctlAnswers, show_tells_what_a_test_needs_writes_and_reads) {
  const Outcome outcome = diagctl({"--allow-insecure", "show", "Walking ones"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(
      outcome.out,
      AllOf(HasSubstr("needs nothing; started by root"), HasSubstr("opens the device READ_ONLY"),
            HasSubstr("writes nothing but memory of its own"), HasSubstr("takes about 120 s")));
  EXPECT_THAT(outcome.out, ::testing::ContainsRegex("MarginMegabytes +512 +MiB +never taken"));
  EXPECT_THAT(outcome.out, ::testing::ContainsRegex("QuickMaximumMegabytes +256 +MiB +the same"));
  EXPECT_THAT(outcome.out, ::testing::ContainsRegex("TestTimeout +86400 +s +a test may take"));
  EXPECT_THAT(diagctl({"--allow-insecure", "show", "Bandwidth stress"}).out,
              ::testing::ContainsRegex("DurationSeconds +[0-9]+ +s +how long the stress lasts"));
}

TEST_F(DiagctlAnswers, a_wrong_control_file_is_told_with_line_and_key_and_where_to_look_further) {
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=SIDEWAYS");
  const Outcome outcome = run({"list"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr(place.controlFile() + ":5 [GlobalSettings] RunMode: 'SIDEWAYS'"),
                    HasSubstr("diagctl check --config " + place.controlFile())));
  const std::string none = place.path("none.cfg");
  EXPECT_THAT(diagctl({"--allow-insecure", "--config", none, "list"}).err,
              HasSubstr(none + ": the file cannot be read: No such file or directory"));
}

// ---- For programs ----------------------------------------------------------------------------

TEST_F(DiagctlAnswers, listings_for_programs_keep_to_their_schemas) {
  const Json packages = answer({"list"}, "packages");
  EXPECT_EQ(packages["packages"].size(), 2U);
  EXPECT_EQ(packages["controlFile"], place.controlFile());
  EXPECT_EQ(answer({"list", "devices"}, "devices")["devices"].size(), 4U);
  const Json tests = answer({"list", "tests"}, "tests")["tests"];
  EXPECT_EQ(tests.size(), 7U);
  EXPECT_EQ(tests[4]["devices"][0]["state"], "unsupported");
  EXPECT_EQ(tests[4]["devices"][0]["reason"], "not supported");
}

TEST_F(DiagctlAnswers, a_package_that_was_left_out_is_in_the_listing_for_programs) {
  place.addPackage("BROKEN", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  const Outcome outcome = run({"list", "--format", "json"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  const Json document = Json::parse(outcome.out);
  EXPECT_THAT(faultsBySchema(document, "packages"), IsEmpty());
  ASSERT_EQ(document["lostPackages"].size(), 1U);
  EXPECT_EQ(document["lostPackages"][0]["baseName"], "BROKEN");
  EXPECT_THAT(document["lostPackages"][0]["reason"].get<std::string>(),
              HasSubstr("file too short"));
  for (const char* word : {"BROKEN", "brok"}) {
    EXPECT_EQ(run({"run", word}).exitCode, kNoVerdict) << "what was asked for is there";
  }
}

TEST_F(DiagctlAnswers, items_and_plans_for_programs_keep_to_their_schemas) {
  const Json items = answer({"show", "Picky"}, "items");
  EXPECT_EQ(items["tests"].size(), 1U);
  EXPECT_EQ(items["devices"].size(), 0U);
  EXPECT_THAT(items["tests"][0]["privileges"], IsEmpty());
  EXPECT_EQ(run({"show", "nothing", "--format", "json"}).exitCode, kNothingRan);
  const Json plan = answer({"run", "--dry-run", "-t", "Picky"}, "plan")["tests"];
  ASSERT_EQ(plan.size(), 2U);
  EXPECT_EQ(plan[0]["runs"], false);
  EXPECT_EQ(plan[1]["runs"], true);
  EXPECT_EQ(run({"run", "--format", "json"}).exitCode, kUsage);
}

TEST_F(DiagctlAnswers, the_settings_of_a_bundled_test_keep_to_the_schema) {
  const Outcome outcome = diagctl({"--allow-insecure", "show", "Walking ones", "--format", "json"});
  const Json document = Json::parse(outcome.out);
  EXPECT_THAT(faultsBySchema(document, "items"), IsEmpty());
  const Json settings = document["tests"][0]["settings"];
  EXPECT_GE(settings.size(), 10U);
  for (const Json& setting : settings) {
    EXPECT_FALSE(setting["meaning"].is_null()) << setting;
  }
  EXPECT_EQ(document["tests"][0]["privileges"], Json::array({"CAP_IPC_LOCK"}));
}

TEST_F(DiagctlAnswers, estimates_problems_and_codes_for_programs_keep_to_their_schemas) {
  const Json estimate = answer({"estimate", "-t", "Picky"}, "estimate");
  EXPECT_EQ(estimate["tests"][0]["seconds"], 90);
  EXPECT_EQ(estimate["parallelSeconds"], 90);
  EXPECT_THAT(answer({"check"}, "problems")["problems"], IsEmpty());
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=SIDEWAYS");
  const Json problems = answer({"check"}, "problems")["problems"];
  ASSERT_FALSE(problems.empty());
  EXPECT_EQ(problems[0]["key"], "RunMode");
  EXPECT_EQ(answer({"explain", "32"}, "codes")["codes"].size(), 2U);
  const Json exit = answer({"explain", "exit:2"}, "codes")["codes"];
  ASSERT_EQ(exit.size(), 1U);
  EXPECT_EQ(exit[0]["family"], "exit");
}

TEST_F(DiagctlAnswers, a_program_gets_a_document_also_where_nothing_matches) {
  Json items = answer({"show", "nosuch"}, "items");
  for (const char* kind : {"packages", "devices", "tests"}) {
    EXPECT_THAT(items[kind], IsEmpty()) << kind;
  }
  EXPECT_THAT(answer({"explain", "nosuch"}, "codes")["codes"], IsEmpty());
  EXPECT_EQ(run({"show", "nosuch", "--format", "json"}).exitCode, kNothingRan);
  const Outcome both = run({"show", "nosuch,Picky", "--format", "json"});
  EXPECT_EQ(both.exitCode, kNothingRan);
  EXPECT_THAT(both.err, HasSubstr("matches 'nosuch'"));
  EXPECT_EQ(Json::parse(both.out)["tests"].size(), 1U);
  items = answer({"show", "Picky,Good"}, "items");
  EXPECT_EQ(items["tests"].size(), 2U) << "one document for several words";
}

TEST_F(DiagctlAnswers, names_in_an_answer_for_programs_steer_no_terminal) {
  place.addPackage("EVIL", {{.name = "Good"}}, {{"\x1b[2J\u202e\x7f", "bus/evil"}});
  const Outcome outcome = run({"list", "devices", "--format", "json"});
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\\u001b[2J\\u202e\\u007f"), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(faultsBySchema(Json::parse(outcome.out), "devices"), IsEmpty());
}

TEST(Schemas, tell_what_a_document_lacks_has_beside_and_has_wrong) {
  const Json wrong = {{"document", "diagctl.problems"},
                      {"version", 2},
                      {"problems", {{{"file", 7}, {"section", nullptr}, {"reason", "r"}}}},
                      {"more", 1}};
  EXPECT_THAT(faultsBySchema(wrong, "problems"),
              ::testing::UnorderedElementsAre("/version is not 1", "/problems/0 lacks key",
                                              "/problems/0/file is no \"string\"",
                                              " has more, which is not described"));
}

// ---- Logs ------------------------------------------------------------------------------------

TEST_F(DiagctlAnswers, report_reads_standard_input) {
  const std::string log = place.path("run.jsonl");
  ASSERT_EQ(run({"run", "-q", "-t", "Good", "-o", "jsonl=" + log}).exitCode, kPassed);
  Program::Options options;
  options.standardInput = log;
  const Outcome piped = diagctl({"report", "-"}, options);
  EXPECT_EQ(piped.exitCode, kPassed) << piped.err;
  EXPECT_EQ(piped.out, diagctl({"report", log}).out);
  options.standardInput = place.controlFile();
  EXPECT_THAT(diagctl({"report", "-"}, options).err, HasSubstr("standard input: is no log"));
}

TEST_F(DiagctlAnswers, a_file_that_is_no_log_is_named_so) {
  const Outcome outcome = diagctl({"report", place.controlFile()});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err,
              HasSubstr(place.controlFile() + ": is no log; run writes one with -o jsonl=FILE"));
}

TEST_F(Diagctl, explains_codes_of_the_packages_of_a_directory) {
  addMixedPackage();
  const Outcome known = diagctl({"explain", "line-stuck", "--packages", place.path("packages")});
  EXPECT_EQ(known.exitCode, kPassed) << known.err;
  EXPECT_THAT(known.out, HasSubstr("MIX: LINE_STUCK (error)\n"));
  const Outcome missing = diagctl({"explain", "line-stuck", "--packages", place.path("none")});
  EXPECT_EQ(missing.exitCode, kUsage);
  EXPECT_THAT(missing.err, HasSubstr("'" + place.path("none") + "' is no directory"));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
