// Metrics of a run, read as an exporter reads them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/RunMetrics.h"
#include "diagctl/terminal/Printable.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// Reads the text format and keeps what is wrong with it.
class Exporter {
 public:
  explicit Exporter(const std::string& text) {
    if (text.empty() || text.back() != '\n') {
      m_faults.push_back("no line break at the end");
    }
    if (toUtf8(text) != text) {
      m_faults.push_back("no UTF-8");
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      take(line);
    }
  }

  const std::vector<std::string>& faults() const { return m_faults; }
  std::size_t series() const { return m_series.size(); }

 private:
  void take(const std::string& line) {
    static const std::regex kHelp("# HELP ([a-z_]+) [^\\\\]+");
    static const std::regex kType("# TYPE ([a-z_]+) gauge");
    static const std::regex kSample(
        R"(([a-z_]+)(\{([a-z]+="([^"\\]|\\[\\"n])*"(,(?=[a-z])|(?=\})))+\}) )"
        R"((-?[0-9]+(\.[0-9]+)?(e[-+]?[0-9]+)?|NaN|[-+]Inf))");
    std::smatch match;
    if (std::regex_match(line, match, kHelp)) {
      require(m_helped.insert(match[1]).second, "two HELP: " + line);
      m_family = match[1];
    } else if (std::regex_match(line, match, kType)) {
      require(m_family == match[1] && m_typed.insert(match[1]).second, "TYPE: " + line);
    } else if (std::regex_match(line, match, kSample)) {
      require(m_family == match[1] && m_typed.contains(match[1]), "not in its family: " + line);
      require(m_series.insert(match[1].str() + match[2].str()).second, "twice: " + line);
    } else {
      m_faults.push_back("no line of the format: " + line);
    }
  }
  void require(bool isSound, const std::string& fault) {
    if (!isSound) {
      m_faults.push_back(fault);
    }
  }

  std::vector<std::string> m_faults;
  std::set<std::string> m_helped;
  std::set<std::string> m_typed;
  std::set<std::string> m_series;
  std::string m_family;
};

RunMetrics metricsOf(const std::vector<RunEvent>& events) {
  RunMetrics metrics("run");
  for (const RunEvent& event : events) {
    metrics.handle(event);
  }
  return metrics;
}

TEST(RunMetricsText, tells_what_a_run_came_to) {
  const std::string text = metricsOf(wholeRun()).text();
  EXPECT_THAT(Exporter(text).faults(), IsEmpty());
  EXPECT_THAT(
      text, AllOf(HasSubstr("tarvexdiags_build_info{verb=\"run\",version=\"1\"} 1\n"),
                  HasSubstr("tarvexdiags_run_exit_code{verb=\"run\"} 1\n"),
                  HasSubstr("tarvexdiags_run_under_way{verb=\"run\"} 0\n"),
                  HasSubstr("tarvexdiags_run_end_timestamp_seconds{verb=\"run\"} 1234567890.123\n"),
                  HasSubstr("tarvexdiags_tests{verb=\"run\",outcome=\"failed\"} 1\n"),
                  HasSubstr("tarvexdiags_test_result{verb=\"run\",package=\"Storage\",test=\"Read: "
                            "fast\",device=\"Disk on a shelf\",location=\"pci0/disk0\"} 4\n"),
                  HasSubstr("location=\"pci0/disk0\",name=\"speed\",unit=\"GB/s\"} 1.5\n")));
}

TEST(RunMetricsText, tells_no_outcome_of_a_run_that_goes_on) {
  std::vector<RunEvent> events = wholeRun();
  events.pop_back();
  EXPECT_THAT(metricsOf(events).text(),
              AllOf(HasSubstr("tarvexdiags_run_under_way{verb=\"run\"} 1\n"),
                    Not(HasSubstr("exit_code")), Not(HasSubstr("timestamp"))));
}

TEST(RunMetricsText, tells_what_the_machine_showed) {
  std::vector<RunEvent> events = wholeRun();
  const auto time = events.front().time;
  const auto finding = [&](Verdict verdict) {
    return RunEvent{time,
                    StepDiagnosis{"1", verdict, "memory-corrected", "Corrected.", "", "1-1", 0}};
  };
  events.insert(events.end() - 1, {finding(Verdict::Unknown),
                                   finding(Verdict::Unknown),
                                   finding(Verdict::Fail),
                                   {time, StepTrouble{kMachineStep, "lockup", "It hung.", ""}},
                                   {time, SeriesStarted{kMachineStep, "s1", "Core 3", "°C", 100}},
                                   {time, SeriesElement{kMachineStep, "s1", 0, 41, time}},
                                   {time, SeriesElement{kMachineStep, "s1", 1, 42.5, time}}});
  const std::string text = metricsOf(events).text();
  EXPECT_THAT(Exporter(text).faults(), IsEmpty());
  EXPECT_THAT(text,
              AllOf(HasSubstr("{verb=\"run\",kind=\"memory-corrected\",verdict=\"warning\"} 2\n"),
                    HasSubstr("{verb=\"run\",kind=\"memory-corrected\",verdict=\"failure\"} 1\n"),
                    HasSubstr("{verb=\"run\",kind=\"lockup\",verdict=\"no-verdict\"} 1\n"),
                    HasSubstr("sensor{verb=\"run\",sensor=\"Core 3\",unit=\"°C\"} 42.5\n"),
                    HasSubstr("limit{verb=\"run\",sensor=\"Core 3\",unit=\"°C\"} 100\n")));
}

TEST(RunMetricsText, takes_a_vanished_device_for_what_it_is_to_the_reader) {
  const auto codeFor = [](VanishedAs vanished) {
    RunMetrics metrics("health", {}, vanished);
    for (RunEvent event : wholeRun()) {
      if (auto* const trouble = std::get_if<StepTrouble>(&event.body)) {
        trouble->symptom = "device-vanished";
      }
      if (!std::holds_alternative<StepDiagnosis>(event.body)) {
        metrics.handle(event);
      }
    }
    return metrics.text();
  };
  EXPECT_THAT(codeFor(VanishedAs::Failure), HasSubstr("exit_code{verb=\"health\"} 1\n"));
  EXPECT_THAT(codeFor(VanishedAs::Trouble), HasSubstr("exit_code{verb=\"health\"} 2\n"));
}

/// Names and figures of any kind, the same for each seed.
class RandomRun {
 public:
  explicit RandomRun(unsigned int seed) : m_random(seed) {}

  std::vector<RunEvent> events() {
    std::vector<RunEvent> events = wholeRun();
    const RunEvent end = events.back();
    events.resize(1);
    const int steps = number(40);
    for (int step = 0; step < steps; ++step) {
      addStep(std::to_string(step), events);
    }
    events.push_back(end);
    return events;
  }

 private:
  int number(int most) { return static_cast<int>(m_random() % static_cast<unsigned int>(most)); }

  std::string name() {
    static const std::vector<std::string> kPieces = {"a",
                                                     "Disk",
                                                     " ",
                                                     "\"",
                                                     "\\",
                                                     "\n",
                                                     "{",
                                                     "}",
                                                     "=",
                                                     ",",
                                                     "\x1b[2J",
                                                     "\xff",
                                                     "\xc3\xa4",
                                                     "#",
                                                     "\\n",
                                                     "\xe2\x80\xae",
                                                     std::string(1, '\0'),
                                                     std::string(300, 'x')};
    std::string text;
    for (int i = number(6); i > 0; --i) {
      text += kPieces[m_random() % kPieces.size()];
    }
    return text;
  }

  void addStep(const std::string& id, std::vector<RunEvent>& events) {
    static const std::vector<double> kValues = {0, -1.5, 1e300, 1e-300, NAN, INFINITY, -INFINITY};
    const auto time = events.front().time;
    events.push_back({time, StepStarted{id, name(), name(), name(), "1-1", 1}});
    for (int i = number(5); i > 0; --i) {
      events.push_back(
          {time, StepMeasurement{id, name(), kValues[m_random() % kValues.size()], name(), ""}});
    }
    const Verdict verdict = number(2) == 0 ? Verdict::Pass : Verdict::Fail;
    events.push_back({time, StepDiagnosis{id, verdict, name(), name(), name(), "", number(2)}});
    events.push_back({time, SeriesStarted{id, "s" + id, name(), name(), 5}});
    events.push_back({time, SeriesElement{id, "s" + id, 0, 1, time}});
    events.push_back(
        {time, StepEnded{id, number(9) == 0 ? RunStatus::Error : RunStatus::Complete}});
  }

  std::mt19937 m_random;
};

// With a directory in the environment they are left there, to be read by the exporter's own tool.
TEST(RunMetricsText, of_any_catalogue_is_what_an_exporter_takes) {
  const char* const left = std::getenv("TARVEX_METRICS_DIRECTORY");
  for (unsigned int seed = 0; seed < 200; ++seed) {
    const std::string text = metricsOf(RandomRun(seed).events()).text();
    EXPECT_THAT(Exporter(text).faults(), IsEmpty()) << "seed " << seed;
    if (left != nullptr) {
      std::ofstream(std::string(left) + "/" + std::to_string(seed) + ".prom") << text;
    }
  }
}

TEST(RunMetricsText, has_no_more_series_than_a_server_bears) {
  std::vector<RunEvent> events = {wholeRun().front()};
  const auto time = events.front().time;
  for (int step = 0; step < 3000; ++step) {
    const std::string id = std::to_string(step);
    events.push_back({time, StepStarted{id, "P", "Disk " + id, "Read", "", 1}});
    events.push_back({time, StepEnded{id}});
  }
  const std::string text = metricsOf(events).text();
  const Exporter exporter(text);
  EXPECT_THAT(exporter.faults(), IsEmpty());
  EXPECT_LE(exporter.series(), RunMetrics::kMostSeries + 1);
  EXPECT_GT(exporter.series(), RunMetrics::kMostSeries - 10);
  EXPECT_THAT(text, Not(HasSubstr("tarvexdiags_series_omitted{verb=\"run\"} 0\n")));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
