// The page of a run.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/Formats.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"
#include "tests/report/svg/WellFormed.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;
using ::testing::Not;

constexpr const char* kScript = "</title><script src=\"http://evil/x.js\">'&\x1b[2J\xff";

/// A run that is told event by event, a second between them.
class ToldRun {
 public:
  explicit ToldRun(std::size_t mostHeld = RunRecord::kUnbounded) {
    ReportSettings settings;
    settings.mostHeld = mostHeld;
    m_reporter = formatNamed("html").makeReporter(m_printer, settings);
  }

  ToldRun& begin(const std::string& machine = "node17") {
    RunStarted start;
    start.name = "diagctl";
    start.version = "1.2";
    start.commandLine = "diagctl run --seed 7";
    start.parameters = {{"profile", "standard"}};
    start.machineName = machine;
    start.hardware = {{"1-1", "Disk A", "host/sda", "Maker", "P-17", "S-42", "fw9"}};
    return tell(start);
  }
  ToldRun& tell(const RunEventBody& body) {
    m_reporter->handle({m_time += std::chrono::seconds(1), body});
    return *this;
  }
  ToldRun& step(const std::string& id, const std::string& test, const std::string& device) {
    return tell(StepStarted{id, "Storage", device, test, "1-1", 1});
  }
  ToldRun& passed(const std::string& id) {
    return tell(StepDiagnosis{id, Verdict::Pass, "PASSED", "", "", "", 1}).tell(StepEnded{id});
  }
  ToldRun& failed(const std::string& id, const std::string& finding, const std::string& action) {
    return tell(StepDiagnosis{id, Verdict::Fail, "bit-flip", finding, action, "", 1})
        .tell(StepEnded{id});
  }
  ToldRun& warned(const std::string& id, const std::string& finding) {
    return tell(StepMessage{id, Severity::Warning, finding, ""}).passed(id);
  }
  ToldRun& end(RunResult result = RunResult::Pass) {
    return tell(RunEnded{RunStatus::Complete, result});
  }
  /// The moment of the next event.
  std::chrono::system_clock::time_point now() const { return m_time; }

  std::string page() {
    m_reporter->finish();
    return m_out.str();
  }

 private:
  std::ostringstream m_out;
  Printer m_printer{m_out};
  std::unique_ptr<Reporter> m_reporter;
  std::chrono::system_clock::time_point m_time{std::chrono::hours(24)};
};

// What holds for every page: an independent parser takes it, it leads nowhere but within itself,
// and nothing in it runs or is fetched.
Svg::Parsed sound(const std::string& page) {
  const std::size_t root = page.find("<html");
  EXPECT_EQ(page.find("<!DOCTYPE html>"), 0U);
  Svg::Parsed parsed = Svg::parse(page.substr(root));
  EXPECT_EQ(parsed.fault, "");
  EXPECT_THAT(parsed.repeatedIds, IsEmpty());
  EXPECT_THAT(parsed.referred, IsSubsetOf(parsed.ids));
  for (const char* const element : {"script", "link", "img", "image", "iframe", "object", "use"}) {
    EXPECT_EQ(parsed.elements.count(element), 0U) << element;
  }
  for (const auto& attributes : parsed.attributes) {
    for (const auto& [name, value] : attributes) {
      EXPECT_FALSE(name.starts_with("on") || name == "src" || name == "style") << name;
      EXPECT_TRUE(name != "href" || value.starts_with('#')) << value;
    }
  }
  EXPECT_THAT(page.substr(page.find("<style>"), page.find("</style>") - page.find("<style>")),
              AllOf(Not(HasSubstr("url(")), Not(HasSubstr("@import"))));
  EXPECT_EQ(toUtf8(page), page);
  EXPECT_THAT(page, Not(HasSubstr("\x1b")));
  return parsed;
}

std::size_t placeOf(const std::string& page, const std::string& text) {
  const std::size_t place = page.find(text);
  EXPECT_NE(place, std::string::npos) << text;
  return place;
}

std::string sectionOf(const std::string& page, const std::string& id) {
  const std::size_t begin = page.find("id=\"" + id + "\"");
  return begin == std::string::npos ? ""
                                    : page.substr(begin, page.find("</section>", begin) - begin);
}

TEST(HtmlReport, is_sound_for_a_run_with_every_kind_of_event) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = formatNamed("html").makeReporter(printer, {});
  for (const RunEvent& event : wholeRun()) {
    reporter->handle(event);
  }
  reporter->finish();
  sound(out.str());
  EXPECT_THAT(out.str(), AllOf(HasSubstr("A: b"), HasSubstr("It crashed."), HasSubstr("lost")));
}

TEST(HtmlReport, tells_the_verdict_of_the_run_as_a_word) {
  const auto verdictOf = [](const std::string& page) {
    sound(page);
    return page.substr(placeOf(page, "id=\"r1-verdict\""), 200);
  };
  EXPECT_THAT(verdictOf(ToldRun().begin().step("1", "Read", "A").passed("1").end().page()),
              HasSubstr("PASSED"));
  EXPECT_THAT(verdictOf(ToldRun().begin().step("1", "Read", "A").failed("1", "x", "").page()),
              HasSubstr("FAILED: the hardware is at fault"));
  EXPECT_THAT(verdictOf(ToldRun().begin().step("1", "Read", "A").warned("1", "hot").end().page()),
              HasSubstr("WARNING"));
  EXPECT_THAT(verdictOf(ToldRun().begin().step("1", "Read", "A").passed("1").page()),
              HasSubstr("ERROR: no verdict on all of it"))
      << "cut short";
  EXPECT_THAT(verdictOf(ToldRun().begin().step("1", "Read", "A").page()), HasSubstr("ERROR"));
  EXPECT_THAT(verdictOf(ToldRun().begin().end().page()), HasSubstr("SKIPPED: nothing ran"));
  EXPECT_THAT(ToldRun().page(), HasSubstr("Nothing ran."));
}

TEST(HtmlReport, tells_what_to_do_by_part_with_the_most_urgent_first) {
  const std::string page = ToldRun()
                               .begin()
                               .step("1", "Read", "Disk B")
                               .warned("1", "It is warm.")
                               .step("2", "Read", "Disk A")
                               .failed("2", "Bits differ.", "Replace it.")
                               .step("3", "Write", "Disk A")
                               .failed("3", "Bits differ.", "Replace it.")
                               .end(RunResult::Fail)
                               .page();
  sound(page);
  const std::string todo = sectionOf(page, "r1-todo");
  EXPECT_LT(placeOf(todo, "Disk A"), placeOf(todo, "Disk B"));
  EXPECT_LT(placeOf(todo, "Bits differ."), placeOf(todo, "Replace it."));
  EXPECT_THAT(todo,
              AllOf(HasSubstr("host/sda, serial number S-42"), HasSubstr("Found by: Read, Write")));
  EXPECT_THAT(sectionOf(page, "r1-machine"),
              AllOf(HasSubstr("Maker"), HasSubstr("P-17"), HasSubstr("S-42"), HasSubstr("fw9")));
  EXPECT_EQ(todo.find("Bits differ."), todo.rfind("Bits differ.")) << "once for both tests";
  EXPECT_THAT(todo, Not(HasSubstr("Nothing")));
}

TEST(HtmlReport, has_its_sections_in_one_order_and_leaves_out_those_without_content) {
  ToldRun run;
  run.begin().tell(StepStarted{kMachineStep, "diagctl", "this machine", "Machine watch", "", 1});
  run.tell(SeriesStarted{kMachineStep, "1", "Core 0", "\u00b0C", 95.0});
  run.tell(SeriesElement{kMachineStep, "1", 0, 61, run.now()});
  for (const char* const disk : {"Disk A", "Disk B"}) {
    run.step(disk, "Read", disk)
        .tell(StepMeasurement{disk, "readRate", 500.0, "MB/s", ""})
        .tell(StepMeasurement{disk, "coveredBytes", 1e9, "B", ""})
        .tell(StepMessage{disk, Severity::Information, "looked at it", ""})
        .passed(disk);
  }
  const std::string page = run.tell(StepEnded{kMachineStep}).end().page();
  sound(page);
  std::size_t before = placeOf(page, "id=\"r1-verdict\"");
  for (const char* const section : {"todo", "machine", "coverage", "tests", "timeline", "sensors",
                                    "figures", "messages", "again"}) {
    const std::size_t place = placeOf(page, fmt::format("id=\"r1-{}\"", section));
    EXPECT_LT(before, place) << section;
    EXPECT_THAT(page, HasSubstr(fmt::format("href=\"#r1-{}\"", section)));
    before = place;
  }
  const std::string bare = ToldRun().begin().end().page();
  sound(bare);
  for (const char* const section :
       {"coverage", "tests", "timeline", "sensors", "figures", "messages"}) {
    EXPECT_THAT(bare, Not(HasSubstr(fmt::format("r1-{}\"", section))));
  }
}

TEST(HtmlReport, has_a_table_behind_each_plot) {
  ToldRun run;
  run.begin().tell(StepStarted{kMachineStep, "diagctl", "this machine", "Machine watch", "", 1});
  run.tell(SeriesStarted{kMachineStep, "1", "Fan", "RPM", {}});
  run.tell(SeriesElement{kMachineStep, "1", 0, 3'210, run.now()});
  run.tell(SeriesElement{kMachineStep, "1", 1, 4'321, run.now()});
  for (const char* const disk : {"Disk A", "Disk B"}) {
    run.step(disk, "Read", disk)
        .tell(
            StepMeasurement{disk, "readRate", disk == std::string("Disk A") ? 77.0 : 88.0, "", ""})
        .passed(disk);
  }
  const std::string page = run.end().page();
  sound(page);
  for (const char* const section : {"r1-timeline", "r1-sensors", "r1-figures"}) {
    const std::string text = sectionOf(page, section);
    EXPECT_LT(placeOf(text, "</svg>"), placeOf(text, "<table>")) << section;
  }
  EXPECT_THAT(
      sectionOf(page, "r1-sensors").substr(placeOf(sectionOf(page, "r1-sensors"), "<table>")),
      AllOf(HasSubstr("3210"), HasSubstr("4321")));
  EXPECT_THAT(
      sectionOf(page, "r1-figures").substr(placeOf(sectionOf(page, "r1-figures"), "<table>")),
      AllOf(HasSubstr(">77<"), HasSubstr(">88<"), HasSubstr("Disk B")));
}

TEST(HtmlReport, keeps_the_lowest_and_the_highest_value_of_a_long_series_in_its_table) {
  ToldRun run;
  run.begin().tell(StepStarted{kMachineStep, "diagctl", "this machine", "Machine watch", "", 1});
  run.tell(SeriesStarted{kMachineStep, "1", "Core 0", "\u00b0C", {}});
  for (std::size_t index = 0; index < 5'000; ++index) {
    const double value = index == 1'234 ? 99.5 : index == 4'321 ? 11.5 : 55.5;
    run.tell(SeriesElement{kMachineStep, "1", index, value, run.now()});
  }
  const std::string sensors = sectionOf(run.end().page(), "r1-sensors");
  const std::string table = sensors.substr(placeOf(sensors, "<table>"));
  std::set<std::string> numbers;
  for (const std::string& text :
       sound("<!DOCTYPE html><html><style></style><div>" +
             table.substr(0, placeOf(table, "</table>") + 8) + "</div></html>")
           .texts) {
    if (text.find('.') != std::string::npos && text.find(':') == std::string::npos) {
      numbers.insert(text);
    }
  }
  EXPECT_EQ(numbers, (std::set<std::string>{"11.5", "55.5", "99.5"}));
}

TEST(HtmlReport, shows_what_the_watch_found_on_the_lane_of_its_device) {
  ToldRun run;
  run.begin().step("1", "Read", "Disk A");
  run.tell(StepDiagnosis{"1", Verdict::Fail, "disk-error", "The kernel told of it.", "", "", 0});
  const std::string page = run.tell(StepEnded{"1"}).end(RunResult::Fail).page();
  sound(page);
  EXPECT_THAT(sectionOf(page, "r1-timeline"),
              AllOf(HasSubstr("class=\"findingfailed\""), HasSubstr("The kernel told of it.")));
}

TEST(HtmlReport, bears_the_sign_of_its_verdict_on_each_span_that_did_not_pass) {
  ToldRun run;
  run.begin().step("1", "Read", "Disk A").passed("1").step("2", "Read", "Disk B");
  run.failed("2", "Broken.", "").step("3", "Read", "Disk C");
  run.tell(StepEnded{"3", RunStatus::Skip, true});
  const std::string page = run.end(RunResult::Fail).page();
  const std::string timeline = sectionOf(page, "r1-timeline");
  EXPECT_THAT(timeline, AllOf(ContainsRegex("class=\"sign\"[^>]*>\u2717<"),
                              ContainsRegex("class=\"sign\"[^>]*>\u25a0<"),
                              Not(ContainsRegex("class=\"sign\"[^>]*>\u2713<"))));
}

TEST(HtmlReport, folds_tests_that_passed_alike_and_names_their_devices) {
  ToldRun run;
  run.begin();
  for (int number = 1; number <= 64; ++number) {
    const std::string id = std::to_string(number);
    run.step(id, "Read", "Disk " + id).passed(id);
  }
  const std::string page = run.end().page();
  sound(page);
  const std::string tests = sectionOf(page, "r1-tests");
  EXPECT_THAT(tests,
              AllOf(HasSubstr("64 devices"), HasSubstr("Disk 1, Disk 2"), HasSubstr("Disk 64")));
  EXPECT_EQ(placeOf(tests, "Storage: Read"), tests.rfind("Storage: Read"));
}

TEST(HtmlReport, takes_hostile_names_and_texts_for_what_they_are) {
  ToldRun run;
  run.begin(kScript).tell(StepStarted{"1", kScript, kScript, kScript, kScript, 1});
  run.tell(StepMeasurement{"1", kScript, 1.5, kScript, ""});
  run.tell(StepMeasurement{"1", "seed", std::string(kScript), "", ""});
  run.tell(SeriesStarted{"1", kScript, kScript, kScript, 5.0});
  run.tell(SeriesElement{"1", kScript, 0, 7, run.now()});
  run.tell(StepMessage{"1", Severity::Warning, kScript, kScript});
  run.tell(RunTrouble{kScript, kScript}).failed("1", kScript, kScript);
  const std::string page = run.end(RunResult::Fail).page();
  sound(page);
  EXPECT_THAT(page, HasSubstr("&lt;script src=&quot;http://evil/x.js&quot;&gt;"));
}

TEST(HtmlReport, of_several_runs_tells_them_together_the_worst_first_and_each_folded_below) {
  const std::string page = ToldRun()
                               .begin("one")
                               .step("1", "Read", "A")
                               .passed("1")
                               .step("2", "Write", "A")
                               .passed("2")
                               .end()
                               .begin("two")
                               .step("1", "Write", "A")
                               .failed("1", "Broken.", "")
                               .end(RunResult::Fail)
                               .page();
  sound(page);
  EXPECT_THAT(page,
              AllOf(HasSubstr("Diagnosis: 2 machines, 2 runs"),
                    HasSubstr("FAILED: the hardware is at fault: 1"), HasSubstr("PASSED: 1")));
  const std::string runs = sectionOf(page, "machines");
  EXPECT_THAT(runs, HasSubstr("Storage: Write on A: Broken."));
  EXPECT_LT(placeOf(runs, "href=\"#r2\""), placeOf(runs, "href=\"#r1\""));
  const std::string tests = sectionOf(page, "tests");
  EXPECT_LT(placeOf(tests, "Storage: Write"), placeOf(tests, "Storage: Read"));
  EXPECT_THAT(tests,
              AllOf(HasSubstr("1 passed, 1 failed"), HasSubstr(">two<"), Not(HasSubstr(">one<"))));
  EXPECT_LT(placeOf(page, "id=\"r2\""), placeOf(page, "id=\"r1\"")) << "the worst first";
  EXPECT_LT(placeOf(page, "<details class=\"more\"><summary>\u2713 PASSED: one"),
            placeOf(page, "id=\"r1\""));
  EXPECT_THAT(page.substr(placeOf(page, "id=\"r1\"")), Not(HasSubstr("Broken.")));
}

TEST(HtmlReport, of_several_runs_of_a_machine_tells_them_by_verdict) {
  ToldRun run;
  run.begin().step("1", "Read", "A").passed("1").end();
  run.begin().step("1", "Read", "A").failed("1", "Broken.", "").end(RunResult::Fail);
  const std::string page = run.page();
  sound(page);
  const std::string runs = sectionOf(page, "runs");
  EXPECT_LT(placeOf(runs, "href=\"#r2\""), placeOf(runs, "href=\"#r1\""));
  EXPECT_THAT(page, AllOf(HasSubstr("Diagnosis of node17"), HasSubstr("2 runs"),
                          Not(HasSubstr("id=\"machines\""))));
}

TEST(HtmlReport, of_many_runs_has_the_test_that_failed_most_often_first) {
  ToldRun run;
  for (const char* const machine : {"one", "two"}) {
    run.begin(machine).step("1", "Write", "A").failed("1", "Broken.", "");
    run.step("2", "Read", "A");
    if (machine == std::string("one")) {
      run.failed("2", "Broken.", "");
    } else {
      run.passed("2");
    }
    run.end(RunResult::Fail);
  }
  const std::string tests = sectionOf(run.page(), "tests");
  EXPECT_LT(placeOf(tests, "Storage: Write"), placeOf(tests, "Storage: Read"));
}

TEST(HtmlReport, of_many_runs_lists_all_and_has_parts_of_the_worst_and_as_many_others_as_fit) {
  const std::string words(900, 'w');
  ToldRun run;
  for (int number = 1; number <= 60; ++number) {
    run.begin(fmt::format("node{}", number));
    for (int step = 1; step <= 240; ++step) {
      const std::string id = std::to_string(step);
      run.step(id, "Read", "Disk " + id).warned(id, words + id);
    }
    run.end();
  }
  run.begin("bad").step("1", "Read", "A").failed("1", "Broken.", "").end(RunResult::Fail);
  const std::string page = run.page();
  EXPECT_THAT(page, HasSubstr("</main>")) << "whole; what is in it is looked at elsewhere";
  EXPECT_LT(page.size(), 20'000'000U);
  EXPECT_THAT(page, AllOf(HasSubstr("61 runs"), HasSubstr(">node60<"), HasSubstr("href=\"#r2\""),
                          Not(HasSubstr("href=\"#r60\"")), HasSubstr("14400 with a warning")));
  EXPECT_THAT(page, AllOf(HasSubstr("href=\"#r61\""), HasSubstr("id=\"r61\"")));
}

// The worst there is: every one of them fails in its own words.
std::string pageOfMany(std::size_t mostHeld, bool areFailing) {
  ToldRun run(mostHeld);
  run.begin().tell(StepStarted{kMachineStep, "diagctl", "this machine", "Machine watch", "", 1});
  for (int sensor = 0; sensor < 100; ++sensor) {
    const std::string id = std::to_string(sensor);
    run.tell(SeriesStarted{kMachineStep, id, "Core " + id, "\u00b0C", 95.0});
    for (std::size_t value = 0; value < 200; ++value) {
      run.tell(SeriesElement{kMachineStep, id, value, static_cast<double>(value % 7) + 50.25,
                             run.now()});
    }
  }
  for (int number = 1; number <= 10'000; ++number) {
    const std::string id = std::to_string(number);
    run.step(id, fmt::format("Test {}", number % 10), fmt::format("Disk {}", number / 10));
    run.tell(StepMeasurement{id, "readRate", 500.0 + number, "MB/s", ""});
    run.tell(StepMessage{id, Severity::Information, "Looked at block " + id + " of it all.", ""});
    if (areFailing) {
      run.failed(id, "Block " + id + " holds other bits than were written.", "Replace disk " + id);
    } else {
      run.passed(id);
    }
  }
  return run.end().page();
}

TEST(HtmlReport, of_ten_thousand_steps_stays_below_3_MB_and_tells_what_it_left_out) {
  for (const bool areFailing : {false, true}) {
    const std::string page = pageOfMany(RunRecord::kUnbounded, areFailing);
    sound(page);
    EXPECT_LT(page.size(), 3'000'000U) << areFailing;
    EXPECT_THAT(page, HasSubstr(areFailing ? "10000 failed" : "10000 passed"));
    EXPECT_THAT(page, ContainsRegex("and [0-9]+ more"));
  }
}

TEST(HtmlReport, has_each_of_64_devices_in_the_timeline_and_in_its_table) {
  ToldRun run;
  run.begin();
  for (int number = 0; number < 10'000; ++number) {
    const std::string id = std::to_string(number);
    run.step(id, fmt::format("Test {}", number / 64), fmt::format("Disk <{:02}>", number % 64));
    if (number % 3 == 0) {
      run.failed(id, "Block " + id + " holds other bits than were written.", "Replace it.");
    } else {
      run.passed(id);
    }
  }
  const std::string page = run.end().page();
  sound(page);
  EXPECT_LT(page.size(), 3'000'000U);
  const std::string timeline = sectionOf(page, "r1-timeline");
  const std::string drawn = timeline.substr(0, timeline.find("</svg>"));
  const std::string told = timeline.substr(timeline.find("</svg>"));
  for (int number = 0; number < 64; ++number) {
    const std::string device = fmt::format(">Disk &lt;{:02}&gt;<", number);
    EXPECT_THAT(drawn, HasSubstr(device));
    EXPECT_THAT(told, HasSubstr(device));
  }
  EXPECT_THAT(told, Not(ContainsRegex("and [0-9]+ more device")));
}

TEST(HtmlReport, draws_sensors_of_each_group_however_many_another_has) {
  ToldRun run;
  run.begin().tell(StepStarted{kMachineStep, kOwnPackage, "this machine", "Machine watch", "", 1});
  const auto tell = [&](const std::string& name, const std::string& unit, int count) {
    for (int number = 1; number <= count; ++number) {
      const std::string id = fmt::format("{}{}", name, number);
      run.tell(SeriesStarted{kMachineStep, id, fmt::format("{} {}.", name, number), unit, 90.0});
      run.tell(SeriesElement{kMachineStep, id, 0, 40.0 + number, run.now()});
    }
  };
  tell("Core", "\u00b0C", 100);
  tell("Rail", "V", 1);
  tell("Load", "%", 1);
  tell("Spare rail", "V", 1);
  tell("Fan", "RPM", 8);
  tell("Socket", "W", 2);
  const std::string sensors =
      sectionOf(run.tell(StepEnded{kMachineStep}).end().page(), "r1-sensors");
  for (const std::string drawn : {"Fan 1.", "Fan 8.", "Socket 2.", "Rail 1.", "Spare rail 1.",
                                  "Load 1.", "Core 100.", "Core 80."}) {
    EXPECT_THAT(sensors, HasSubstr("<figcaption>" + drawn));
  }
  for (const std::string group : {"Temperatures", "Fans", "Power", "Voltages", "Shares"}) {
    const std::string head = "<h4>" + group + "</h4>";
    EXPECT_NE(sensors.find(head), std::string::npos) << group;
    EXPECT_EQ(sensors.find(head), sensors.rfind(head)) << group;
  }
  EXPECT_THAT(sensors, AllOf(Not(HasSubstr("<figcaption>Core 1.")), HasSubstr("<td>Core 1.</td>"),
                             HasSubstr("65 more sensors, as a table")));
}

TEST(HtmlReport, tells_the_seeds_of_what_failed_and_of_what_passed) {
  ToldRun run;
  run.begin().step("1", "Well", "Disk A");
  run.tell(StepMeasurement{"1", FigureName::kSeed, std::string("4711"), "", ""}).passed("1");
  run.step("2", "Ill", "Disk B");
  run.tell(StepMeasurement{"2", FigureName::kSeed, std::string("815"), "", ""});
  run.failed("2", "It is lost.", "");
  const std::string again = sectionOf(run.end().page(), "r1-again");
  EXPECT_THAT(again, AllOf(HasSubstr("<td>Storage: Well</td>\n<td>Disk A</td>\n<td>4711</td>"),
                           HasSubstr("<td>Storage: Ill</td>\n<td>Disk B</td>\n<td>815</td>")));
  EXPECT_LT(again.find("815"), again.find("4711"));
}

TEST(HtmlReport, counts_one_thing_as_one) {
  ToldRun run;
  run.begin();
  for (int number = 1; number <= 129; ++number) {
    const std::string id = std::to_string(number);
    run.step(id, "Test", "Disk " + id).passed(id);
  }
  EXPECT_THAT(run.end().page(), HasSubstr("and 1 more device, which the table has"));
}

TEST(HtmlReport, holds_no_more_of_a_run_than_it_may_and_counts_the_rest) {
  const std::string page = pageOfMany(1UL << 20U, true);
  sound(page);
  EXPECT_THAT(page, HasSubstr("10000 failed"));
  EXPECT_THAT(page, ContainsRegex("and [0-9]+ more findings, which the log has"));
  EXPECT_LT(page.size(), 2'000'000U);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
