// The logs of many machines: told together and written into one, whatever is wrong with some.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
namespace fs = std::filesystem;

/// Logs of several machines, by the names of their files.
class ManyLogs : public Diagctl {
 protected:
  ManyLogs() { addMixedPackage(); }

  /// The log of a run of tests, as if a machine of that name had written it.
  std::string logOf(const std::string& machine, const std::vector<std::string>& selection) {
    const std::string log = place.path(machine + ".jsonl");
    std::vector<std::string> arguments = {"run", "-q", "--watch", "off", "-o", "jsonl=" + log};
    arguments.insert(arguments.end(), selection.begin(), selection.end());
    const std::string out = run(arguments).out;
    const std::string text = contentsOf(log);
    const auto start = artifacts(parseLines(text), "testRunStart").at(0);
    const std::string name = R"("name":)" + start["dutInfo"]["name"].dump();
    place.replaceIn(log, name, R"("name":")" + machine + "\"");
    return log;
  }
  std::string good(const std::string& machine) { return logOf(machine, {"-t", "Good"}); }
  std::string bad(const std::string& machine) { return logOf(machine, {"-t", "Bad", "-d", "1"}); }
};

TEST_F(ManyLogs, are_told_by_machine_and_by_test_with_the_worst_first) {
  const std::vector<std::string> logs = {good("n1"), bad("n2"), good("n3")};
  const Outcome outcome = diagctl({"report", logs[0], logs[1], logs[2]});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out, StartsWith("FAILED   n2   1 run, 1 failed"));
  EXPECT_THAT(outcome.out, HasSubstr("         FAILED   Package MIX: Bad on Left\n"
                                     "                  line 3 is stuck.\n"
                                     "                  -> Replace the cable.\n"
                                     "PASSED   2 machines: n[1,3]\n"));
  EXPECT_THAT(outcome.out, HasSubstr("By test:\nFAILED   Package MIX: Bad   1 failed   n2\n"
                                     "PASSED   Package MIX: Good   4 passed\n"));
  EXPECT_THAT(outcome.out, EndsWith("3 runs of 3 machines: 2 passed, 1 failed\n"
                                    "Verdict: FAILED: the hardware is at fault\n"));
  EXPECT_EQ(diagctl({"report", logs[0], logs[2]}).exitCode, kPassed);
}

TEST_F(ManyLogs, become_one_that_is_valid_and_ends_as_they_do) {
  const std::vector<std::string> logs = {good("n1"), bad("n2"), good("n3")};
  const std::string all = place.path("all.jsonl");
  const Outcome outcome = diagctl({"merge", logs[0], logs[1], logs[2], "-o", all});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_EQ(outcome.out, diagctl({"report", logs[0], logs[1], logs[2]}).out);
  EXPECT_EQ(contentsOf(all), contentsOf(logs[0]) + contentsOf(logs[1]) + contentsOf(logs[2]));
  EXPECT_THAT(faultsOf(parseLines(contentsOf(all))), IsEmpty());
  const Outcome report = diagctl({"report", all});
  EXPECT_EQ(report.exitCode, kHardwareFailure) << "though the last run passed";
  EXPECT_THAT(report.out, HasSubstr("3 runs of 3 machines: 2 passed, 1 failed\n"));
  const Outcome piped = diagctl({"merge", logs[0], logs[1], logs[2]});
  EXPECT_EQ(piped.out, contentsOf(all));
  EXPECT_EQ(piped.err, outcome.out);
}

TEST_F(ManyLogs, become_one_that_hides_what_identifies_the_machines) {
  const std::vector<std::string> logs = {good("node017"), bad("node018"), place.path("none")};
  const std::string all = place.path("all.jsonl");
  const std::string key = place.path("fleet.key");
  place.write(key, "a key of the fleet");
  const std::vector<std::string> words = {"merge", logs[0], logs[1], logs[2], "-o", all};
  const auto merged = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = words;
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = diagctl(arguments);
    EXPECT_EQ(outcome.exitCode, kHardwareFailure);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("redacted-"), Not(HasSubstr(place.path("")))))
        << "logs have the names of machines";
    EXPECT_THAT(outcome.err, HasSubstr(place.path("none"))) << "for whoever looks for it";
    return contentsOf(all);
  };
  const std::string hidden = merged({"--redact-key", key});
  EXPECT_THAT(faultsOf(parseLines(hidden)), IsEmpty());
  EXPECT_THAT(hidden, AllOf(Not(HasSubstr("\"name\":\"node01")), Not(HasSubstr(place.path("none"))),
                            HasSubstr("line 3 is stuck.")));
  const auto starts = artifacts(parseLines(hidden), "testRunStart");
  ASSERT_EQ(starts.size(), 3U);
  EXPECT_NE(starts[0]["dutInfo"]["name"], starts[1]["dutInfo"]["name"]);
  EXPECT_THAT(starts[0]["dutInfo"]["name"].get<std::string>(), StartsWith("redacted-"));
  EXPECT_EQ(artifacts(parseLines(merged({"--redact-key", key})), "testRunStart")[0], starts[0]);
  EXPECT_NE(artifacts(parseLines(merged({"--redact"})), "testRunStart")[0], starts[0]);
  EXPECT_EQ(diagctl({"report", all}).exitCode, kHardwareFailure);
  const Outcome failed = diagctl({"merge", logs[0], "-o", all, "--redact-key", place.path("no")});
  EXPECT_EQ(failed.exitCode, kNoVerdict);
  EXPECT_THAT(failed.err, HasSubstr(place.path("no")));
}

TEST_F(ManyLogs, are_one_document_in_each_format_and_one_line_for_a_monitor) {
  const std::vector<std::string> logs = {bad("n1"), good("n2")};
  const Outcome outcome = diagctl({"report", logs[0], logs[1], "--format", "junit", "-o",
                                   "tap=" + place.path("tap"), "-o", "jsonl=" + place.path("log")});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  const auto suites = parseXml(outcome.out)["children"];
  ASSERT_EQ(suites.size(), 2U);
  EXPECT_EQ(suites[0]["attributes"]["hostname"], "n1");
  EXPECT_EQ(suites[1]["attributes"]["hostname"], "n2");
  EXPECT_EQ(parseTap(contentsOf(place.path("tap"))).points.size(), 3U);
  EXPECT_THAT(faultsOf(parseLines(contentsOf(place.path("log")))), IsEmpty());
  const Outcome line = diagctl({"report", logs[0], logs[1], "--exit-style", "nagios"});
  EXPECT_EQ(line.exitCode, 2);
  EXPECT_EQ(line.out,
            "DIAGCTL CRITICAL: 2 machines: 1 passed, 1 failed - n1: Package MIX: Bad on Left: line "
            "3 is stuck.\n");
}

/// Where the links of a page lead.
std::vector<std::string> linksOf(const std::string& page) {
  const std::regex pattern("href=\"([^\"]*)\"");
  std::vector<std::string> links;
  for (std::sregex_iterator link(page.begin(), page.end(), pattern), end; link != end; ++link) {
    links.push_back((*link)[1]);
  }
  return links;
}

std::set<std::string> filesIn(const std::string& directory) {
  std::set<std::string> files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    files.insert(entry.path().filename());
  }
  return files;
}

TEST_F(ManyLogs, are_split_into_a_page_of_all_and_one_for_each_machine) {
  const std::vector<std::string> logs = {good("n1"), bad("n2"), good("n3")};
  const std::string pages = place.path("pages");
  const Outcome outcome = diagctl({"report", logs[0], logs[1], logs[2], "--split", pages});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out, EndsWith("Verdict: FAILED: the hardware is at fault\n"));
  EXPECT_EQ(filesIn(pages), (std::set<std::string>{"index.html", "n1.html", "n2.html", "n3.html"}));
  const std::string all = contentsOf(pages + "/index.html");
  EXPECT_EQ(parseXml(all)["tag"], "html");
  EXPECT_THAT(all, AllOf(HasSubstr("Diagnosis: 3 machines, 3 runs"), HasSubstr("PASSED: 2"),
                         HasSubstr("line 3 is stuck."), HasSubstr("Replace the cable."),
                         HasSubstr("Package MIX: Good"), Not(HasSubstr("<article"))));
  EXPECT_THAT(linksOf(all), ElementsAre("n2.html#r2", "n1.html#r1", "n3.html#r3"));
  for (const char* const machine : {"n1", "n2", "n3"}) {
    const std::string page = contentsOf(pages + "/" + machine + ".html");
    EXPECT_EQ(parseXml(page)["tag"], "html");
    EXPECT_THAT(page, HasSubstr(std::string("Diagnosis of ") + machine));
    EXPECT_EQ(linksOf(page).front(), "index.html");
  }
  EXPECT_THAT(contentsOf(pages + "/n2.html"),
              AllOf(HasSubstr("id=\"r2\""), HasSubstr("FAILED: the hardware is at fault")));
  EXPECT_EQ(diagctl({"report", logs[0], "--format", "html", "--split", pages}).out, "");
}

TEST_F(ManyLogs, of_hostile_or_equal_names_are_split_into_files_of_their_own_within_the_directory) {
  const std::string name = R"("name":"n1")";
  std::vector<std::string> arguments = {"report"};
  int number = 0;
  for (const char* const machine :
       {"../../n1", "/etc/n1", "..", "", "index", "N1", "n1", "n1", "\\u0000<b>", ".ssh"}) {
    const std::string log = good("n1");
    const std::string id =
        artifacts(parseLines(contentsOf(log)), "testRunStart").at(0)["dutInfo"]["dutInfoId"];
    place.replaceIn(log, name, std::string(R"("name":")") + machine + "\"");
    place.replaceIn(log, id, "id" + std::to_string(number));
    arguments.push_back(place.path(std::to_string(number++) + ".jsonl"));
    fs::rename(log, arguments.back());
  }
  const std::string pages = place.path("in/pages");
  fs::create_directory(place.path("in"));
  const auto before = filesIn(place.path(""));
  arguments.insert(arguments.end(), {"--split", pages});
  EXPECT_EQ(diagctl(arguments).exitCode, kPassed);
  EXPECT_EQ(filesIn(place.path("")), before);
  EXPECT_EQ(filesIn(place.path("in")), std::set<std::string>{"pages"});
  EXPECT_EQ(filesIn(pages),
            (std::set<std::string>{"index.html", "index-2.html", "n1.html", "etc_n1.html",
                                   "machine.html", "id3.html", "N1-2.html", "n1-3.html",
                                   "n1-4.html", "x00_b_.html", "ssh.html"}));
  for (const std::string& link : linksOf(contentsOf(pages + "/index.html"))) {
    const std::size_t end = link.find('#');
    EXPECT_THAT(contentsOf(pages + "/" + link.substr(0, end)),
                HasSubstr("id=\"" + link.substr(end + 1) + "\""));
  }
}

TEST_F(ManyLogs, split_where_nothing_can_be_written_are_told_and_the_other_reports_written) {
  const std::string log = good("n1");
  const std::string pages = place.path("pages");
  fs::create_directories(pages + "/n1.html/full");
  const Outcome outcome =
      diagctl({"report", log, "--split", pages, "-o", "tap=" + place.path("tap")});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr(pages + "/n1.html: Is a directory"));
  EXPECT_EQ(filesIn(pages), std::set<std::string>{"n1.html"}) << "no page of all without its parts";
  EXPECT_FALSE(contentsOf(place.path("tap")).empty());
  EXPECT_THAT(diagctl({"report", log, "--split", place.path("none/pages")}).err,
              HasSubstr(place.path("none/pages") + ": No such file or directory"));
}

TEST_F(ManyLogs, verbosely_are_told_run_by_run_before_the_whole) {
  const std::vector<std::string> logs = {good("n1"), good("n2")};
  const Outcome outcome = diagctl({"report", "-v", logs[0], logs[1]});
  EXPECT_THAT(outcome.out, AllOf(HasSubstr(" on n1\n"), HasSubstr(" on n2\n"),
                                 HasSubstr("\n\nPASSED   2 machines: n[1-2]\n")));
}

TEST_F(ManyLogs, that_cannot_be_read_are_told_and_the_others_as_well) {
  const std::string log = good("n1");
  const std::string first = contentsOf(log).substr(0, contentsOf(log).find('\n') + 1);
  const std::string broken = place.path("broken.jsonl");
  const std::string all = place.path("all.jsonl");
  for (const auto& [text, reason] : std::vector<std::pair<std::string, std::string>>{
           {"", ": holds no run"},
           {"hello\n", ": is no log; run writes one with -o jsonl=FILE"},
           {"{\"a\":1}", ": is no log; run writes one with -o jsonl=FILE"},
           {run({"list", "--format", "json"}).out, ": is no log; run writes one with -o"},
           {"\xef\xbb{}", ": is no log; run writes one with -o jsonl=FILE"},
           {first + "nonsense\n{}\n", ":2: it is no JSON from byte 2 on"},
           {contentsOf(log) + "{\"testRunArtifact\":{\"log\":{}}}\n",
            ": the key 'severity' is missing"}}) {
    place.write(broken, text);
    for (const std::vector<std::string>& verb :
         std::vector<std::vector<std::string>>{{"report"}, {"merge", "-o", all}}) {
      std::vector<std::string> arguments = verb;
      arguments.insert(arguments.end(), {broken, log});
      const Outcome outcome = diagctl(arguments);
      EXPECT_EQ(outcome.exitCode, kNoVerdict) << reason;
      EXPECT_THAT(outcome.err, HasSubstr("diagctl: " + broken)) << reason;
      EXPECT_THAT(outcome.out, AllOf(HasSubstr("Not read:\nERROR    " + broken), HasSubstr(reason),
                                     HasSubstr("Good   ")))
          << reason;
    }
    EXPECT_THAT(faultsOf(parseLines(contentsOf(all))), IsEmpty()) << reason;
    EXPECT_EQ(diagctl({"report", all}).exitCode, kNoVerdict) << reason;
    const Outcome tap = diagctl({"report", broken, log, "--format", "tap"});
    EXPECT_FALSE(isSuccessToHarness(tap.out)) << tap.out;
  }
}

TEST_F(ManyLogs, are_not_held_up_by_what_is_no_file) {
  const std::string log = good("n1");
  const std::string pipe = place.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_directory(place.path("folder"));
  const Outcome outcome =
      diagctl({"report", pipe, place.path("folder"), place.path("none"), "/dev/null", log});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr(pipe + ": is a pipe that nobody writes to"),
                    HasSubstr("folder: Is a directory"), HasSubstr("none: No such file"),
                    HasSubstr("/dev/null: holds no run")));
  EXPECT_THAT(outcome.out, HasSubstr("PASSED   1 machine: n1\n"));
}

TEST_F(ManyLogs, may_begin_with_a_byte_order_mark) {
  const std::string log = good("n1");
  const Outcome plain = diagctl({"report", log});
  place.write(log, "\xef\xbb\xbf" + contentsOf(log));
  const Outcome marked = diagctl({"report", log});
  EXPECT_EQ(marked.exitCode, kPassed) << marked.err;
  EXPECT_EQ(marked.out, plain.out);
}

TEST_F(ManyLogs, that_were_cut_off_have_no_verdict_and_what_was_found_in_them_counts) {
  const std::string whole = good("n1");
  const std::string cut = bad("n2");
  place.write(cut, contentsOf(cut).substr(0, contentsOf(cut).rfind("{\"testRunArtifact\"")));
  EXPECT_EQ(diagctl({"report", whole, cut}).exitCode, kHardwareFailure);
  const std::string text = contentsOf(whole);
  place.write(cut, text.substr(0, text.size() - 30));
  const Outcome outcome = diagctl({"report", whole, cut});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out, HasSubstr("ERROR    The run was cut short.\n"));
}

TEST_F(ManyLogs, that_are_one_file_are_read_once_and_copies_are_told) {
  const std::string log = good("n1");
  const std::string link = place.path("link.jsonl");
  const std::string copy = place.path("copy.jsonl");
  fs::create_symlink(log, link);
  fs::copy_file(log, copy);
  const Outcome outcome = diagctl({"report", log, link, copy});
  EXPECT_EQ(outcome.exitCode, kPassed);
  EXPECT_EQ(outcome.err, "diagctl: " + link + " is the same file as " + log +
                             ", and is read once\ndiagctl: " + copy + " holds a run that " + log +
                             " holds as well\n");
  EXPECT_THAT(outcome.out, HasSubstr("2 runs of 1 machine: 1 passed\n"));
}

TEST_F(ManyLogs, may_come_by_standard_input_once) {
  const std::string log = good("n1");
  Program::Options options;
  options.standardInput = log;
  const Outcome outcome = diagctl({"report", "-", bad("n2")}, options);
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out, HasSubstr("PASSED   1 machine: n1\n"));
  EXPECT_EQ(diagctl({"merge", "-", "-"}, options).exitCode, kUsage);
}

TEST_F(ManyLogs, are_never_written_over_by_what_they_become) {
  const std::string log = good("n1");
  const std::string before = contentsOf(log);
  EXPECT_EQ(diagctl({"merge", log, "-o", log}).exitCode, kUsage);
  EXPECT_EQ(diagctl({"report", bad("n2"), log, "-o", "jsonl=" + log}).exitCode, kUsage);
  EXPECT_EQ(contentsOf(log), before);
  const Outcome full = diagctl({"merge", log, "-o", "/dev/full"});
  EXPECT_EQ(full.exitCode, kNoVerdict);
  EXPECT_THAT(full.err, HasSubstr("/dev/full: No space left on device"));
  const Outcome page = diagctl({"report", log, "-o", "html=/dev/full"});
  EXPECT_EQ(page.exitCode, kNoVerdict);
  EXPECT_THAT(page.err, HasSubstr("/dev/full: No space left on device"))
      << "whatever was written last";
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
