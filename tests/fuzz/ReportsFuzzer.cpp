// Tells any log in every format. Nothing in a report steers a terminal; the formats of machines
// stay what they are, whatever a text holds; and none of them is better than the worst that stands
// in the log.
//
// Input: a line of wishes, see settingsFrom; then the lines of a log, each of one letter and its
// words between tabs: see lineOf. The words stand in the JSON as they are, so they may hold its
// escapes, or break it.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "diagctl/command/LogReplay.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/SummaryReporter.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Terminal.h"
#include "tests/report/svg/WellFormed.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::FrontEnd;
using Json = nlohmann::json;
using Words = std::array<std::string, 4>;

constexpr const char* kTime = R"("sequenceNumber":1,"timestamp":"2026-01-02T03:04:05.678Z"})";

std::string inQuotes(const std::string& word) {
  return "\"" + word + "\"";
}

std::string ofRun(const std::string& artifact) {
  return R"({"testRunArtifact":{)" + artifact + "}," + kTime;
}

std::string ofStep(const std::string& id, const std::string& artifact) {
  return R"({"testStepArtifact":{"testStepId":)" + inQuotes(id) + "," + artifact + "}," + kTime;
}

// "f", "k" and nothing stand for words that a log has often.
std::string verdictFrom(const std::string& word) {
  static const std::map<std::string, std::string> kKnown = {
      {"f", "FAIL"}, {"p", "PASS"}, {"u", "UNKNOWN"}, {"n", "NOT_APPLICABLE"}};
  const auto known = kKnown.find(word);
  return inQuotes(known == kKnown.end() ? word : known->second);
}

std::string statusFrom(const std::string& word) {
  static const std::map<std::string, std::string> kKnown = {
      {"c", "COMPLETE"}, {"e", "ERROR"}, {"s", "SKIP"}};
  const auto known = kKnown.find(word);
  return inQuotes(known == kKnown.end() ? word : known->second);
}

std::string severityFrom(const std::string& word) {
  static const std::map<std::string, std::string> kKnown = {
      {"d", "DEBUG"}, {"i", "INFO"}, {"w", "WARNING"}, {"e", "ERROR"}};
  const auto known = kKnown.find(word);
  return inQuotes(known == kKnown.end() ? word : known->second);
}

std::string runStartOf(const Words& words) {
  return ofRun(R"("testRunStart":{"name":)" + inQuotes(words[0]) + R"(,"version":)" +
               inQuotes(words[1]) + R"(,"commandLine":"","parameters":{"user":)" +
               inQuotes(words[2]) + R"(},"dutInfo":{"dutInfoId":"id","name":)" +
               inQuotes(words[3]) + R"(,"hardwareInfos":[{"hardwareInfoId":"h","name":)" +
               inQuotes(words[2]) + R"(,"location":"0/1","serialNumber":)" + inQuotes(words[3]) +
               "}]}}");
}

std::string seriesOf(char letter, const Words& words) {
  const std::string id = R"("measurementSeriesId":)" + inQuotes(words[1]);
  switch (letter) {
    case 'a':
      return ofStep(words[0], R"("measurementSeriesStart":{)" + id + R"(,"name":)" +
                                  inQuotes(words[2]) + R"(,"unit":"C","validators":[{"type":)" +
                                  R"("LESS_THAN_OR_EQUAL","value":)" + words[3] + "}]}");
    case 'b':
      return ofStep(words[0], R"("measurementSeriesElement":{)" + id + R"(,"index":)" + words[2] +
                                  R"(,"timestamp":"2026-01-02T03:04:06Z","value":)" + words[3] +
                                  "}");
    default:
      return ofStep(words[0],
                    R"("measurementSeriesEnd":{)" + id + R"(,"totalCount":)" + words[2] + "}");
  }
}

std::string extensionOf(const Words& words) {
  return ofStep(words[0], R"("extension":{"name":)" + inQuotes(words[1]) + R"(,"content":)" +
                              (words[2].empty() ? "{}" : words[2]) + "}");
}

// S schema, R and F begin and end of a run, B and Z of a step, T and E trouble of one and of the
// other, G and L messages, D a diagnosis, M a figure, a b c a series, X an extension. What begins
// with another letter stands for itself.
std::string lineOf(const std::string& line) {
  std::string rest = line;
  const char letter = static_cast<char>(takeByte(rest));
  Words words;
  std::generate(words.begin(), words.end(), [&rest] { return takeUntil(rest, '\t'); });
  switch (letter) {
    case 'S':
      return std::string(R"({"schemaVersion":{"major":2,"minor":0},)") + kTime;
    case 'R':
      return runStartOf(words);
    case 'F':
      return ofRun(R"("testRunEnd":{"status":)" + statusFrom(words[0]) + R"(,"result":)" +
                   verdictFrom(words[1]) + "}");
    case 'T':
      return ofRun(R"("error":{"symptom":)" + inQuotes(words[0]) + R"(,"message":)" +
                   inQuotes(words[1]) + "}");
    case 'G':
      return ofRun(R"("log":{"severity":)" + severityFrom(words[0]) + R"(,"message":)" +
                   inQuotes(words[1]) + "}");
    case 'B':
      return ofStep(words[0], R"("testStepStart":{"name":)" + inQuotes(words[1]) + "}");
    case 'Z':
      return ofStep(words[0], R"("testStepEnd":{"status":)" + statusFrom(words[1]) + "}");
    case 'E':
      return ofStep(words[0], R"("error":{"symptom":)" + inQuotes(words[1]) + R"(,"message":)" +
                                  inQuotes(words[2]) + "}");
    case 'L':
      return ofStep(words[0], R"("log":{"severity":)" + severityFrom(words[1]) + R"(,"message":)" +
                                  inQuotes(words[2]) + "}");
    case 'D':
      return ofStep(words[0], R"("diagnosis":{"type":)" + verdictFrom(words[1]) + R"(,"verdict":)" +
                                  inQuotes(words[2]) + R"(,"message":)" + inQuotes(words[3]) + "}");
    case 'M':
      return ofStep(words[0], R"("measurement":{"name":)" + inQuotes(words[1]) + R"(,"value":)" +
                                  words[2] + R"(,"unit":)" + inQuotes(words[3]) + "}");
    case 'a':
    case 'b':
    case 'c':
      return seriesOf(letter, words);
    case 'X':
      return extensionOf(words);
    default:
      return line;
  }
}

std::string logFrom(std::string rest) {
  std::string log;
  while (!rest.empty()) {
    log += lineOf(takeLine(rest)) + "\n";
  }
  return log;
}

// Letters, each for a wish.
ReportSettings settingsFrom(const std::string& wishes) {
  const auto isWished = [&wishes](char letter) { return wishes.find(letter) != std::string::npos; };
  constexpr std::size_t little = 20'000;  // bytes
  constexpr std::size_t much = std::size_t{8} << 20U;
  ReportSettings settings;
  settings.conditions.isStrict = isWished('s');
  settings.conditions.failOnSkip = isWished('a')   ? FailOnSkip::Everything
                                   : isWished('p') ? FailOnSkip::Privilege
                                                   : FailOnSkip::Nothing;
  settings.mostHeld = isWished('l') ? little : much;
  settings.lineWidth = isWished('n') ? 40 : isWished('w') ? 100 : 0;
  settings.onlyProblems = isWished('o');
  settings.verbosity = isWished('V') ? 2 : isWished('v') ? 1 : 0;
  return settings;
}

/// The worst that stands in the lines of a log, seen without the reports.
class Worst {
 public:
  void beginRun() {
    isTroubled = isTroubled || (m_hasLine && !m_hasEnd);
    m_hasLine = m_hasEnd = false;
  }
  void take(const Json& line) {
    m_hasLine = true;
    const Json& ofStep = line.value("testStepArtifact", Json::object());
    const Json& ofRun = line.value("testRunArtifact", Json::object());
    fails = fails || (ofStep.contains("diagnosis") && ofStep["diagnosis"]["type"] == "FAIL");
    isTroubled = isTroubled || ofStep.contains("error") || ofRun.contains("error");
    takeEnds(ofStep, ofRun);
  }

  bool fails = false;
  bool isTroubled = false;
  bool hasPassed = false;  ///< a diagnosis says so, or some step was complete

 private:
  void takeEnds(const Json& ofStep, const Json& ofRun) {
    if (ofStep.contains("testStepEnd")) {
      isTroubled = isTroubled || ofStep["testStepEnd"]["status"] == "ERROR";
      hasPassed = hasPassed || ofStep["testStepEnd"]["status"] == "COMPLETE";
    } else if (ofRun.contains("testRunEnd")) {
      m_hasEnd = true;
      isTroubled = isTroubled || ofRun["testRunEnd"]["status"] == "ERROR";
      fails = fails || ofRun["testRunEnd"]["result"] == "FAIL";
    }
  }

  bool m_hasLine = false;
  bool m_hasEnd = false;
};

/// A report that is being made.
struct Report {
  explicit Report(const Format& of, const ReportSettings& settings)
      : format(of.name), reporter(of.makeReporter(printer, settings)) {}

  std::string format;
  std::ostringstream text = {};
  Printer printer{text};
  std::unique_ptr<Reporter> reporter;
};

/// A log told in every format.
struct Telling {
  std::map<std::string, std::string> reports = {};  ///< by format
  int code = 0;                                     ///< of all runs
  int lastCode = 0;                                 ///< of the last run
  std::size_t runs = 0;
  bool isUnread = false;
  Worst worst = {};
};

Telling tell(const std::string& log, const ReportSettings& settings, bool inAllFormats) {
  static const MemoryFile kFile("run.jsonl");
  kFile.write(log);
  std::vector<std::unique_ptr<Report>> reports;
  for (const Format& format : formats()) {
    if (!inAllFormats && format.name != kTextFormat) {
      continue;
    }
    reports.push_back(std::make_unique<Report>(format, settings));
  }
  Telling telling;
  const auto follow = [&](const RunEvent& event) {
    for (const auto& report : reports) {
      report->reporter->handle(event);
    }
  };
  Fleet fleet(settings.conditions);
  LogReplay replay({follow, [&](const std::string&, const Json& line) { telling.worst.take(line); },
                    [&] { telling.worst.beginRun(); }, follow},
                   std::nullopt, settings.mostHeld, fleet);
  replay.readAll({kFile.path()});
  for (const auto& report : reports) {
    report->reporter->finish();
    telling.reports[report->format] = report->text.str();
  }
  telling.code = fleet.exitCode();
  telling.lastCode = replay.lastCode();
  telling.runs = fleet.runs();
  telling.isUnread = fleet.hasUnread();
  return telling;
}

bool isBad(int code) {
  return code == ExitCode::kHardwareFailure || code == ExitCode::kNoVerdict;
}

// A failure is a failure, whatever else happened; with trouble nothing is green.
void expectNoBetter(const Telling& telling) {
  const int code = telling.code;
  expect(code == ExitCode::kPassed || code == ExitCode::kNothingRan || isBad(code));
  expect(!telling.worst.fails || code == ExitCode::kHardwareFailure);
  expect(!telling.worst.isTroubled || isBad(code));
  expect(!telling.isUnread || isBad(code));
  expect(code != ExitCode::kPassed || telling.worst.hasPassed);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::string rest = text;
  while (!rest.empty()) {
    lines.push_back(takeLine(rest));
  }
  return lines;
}

void expectText(const Telling& telling) {
  const std::vector<std::string> lines = linesOf(telling.reports.at(kTextFormat));
  expect(!lines.empty() && lines.back().starts_with("Verdict: "));
  const bool isGreen =
      lines.back().starts_with("Verdict: PASSED") || lines.back().starts_with("Verdict: WARNING");
  const bool isRed = lines.back().starts_with("Verdict: FAILED");
  if (!telling.isUnread) {  // else the last run is the one that stands for the log
    expect(isRed == (telling.lastCode == ExitCode::kHardwareFailure));
    expect(isGreen || telling.lastCode != ExitCode::kPassed);
  }
  expect(!isGreen || !telling.isUnread);
}

void expectTap(const Telling& telling) {
  const std::vector<std::string> lines = linesOf(telling.reports.at("tap"));
  std::size_t points = 0;
  std::size_t failed = 0;
  for (const std::string& line : lines) {
    const bool isPoint = line.starts_with("ok ") || line.starts_with("not ok ");
    points += isPoint ? 1U : 0U;
    failed += line.starts_with("not ok ") ? 1U : 0U;
    expect(isPoint || line.starts_with("#") || line.starts_with("  ") || &line == &lines.front() ||
           &line == &lines.back());
  }
  expect(lines.size() >= 2 && lines.front() == "TAP version 13");
  const std::string plan = "1.." + std::to_string(points);
  expect(lines.back() == plan || lines.back().starts_with(plan + " "));
  expect(failed > 0 || !isBad(telling.code));
}

std::size_t numberIn(const std::map<std::string, std::string>& attributes, const char* name) {
  return std::stoul(attributes.at(name));
}

void expectJunit(const Telling& telling) {
  auto parsed = TarvexDiags::Svg::parse(telling.reports.at("junit"));
  expect(parsed.fault.empty());
  const std::set<std::string> known = {"testsuites", "testsuite", "testcase",
                                       "properties", "property",  "failure",
                                       "error",      "skipped",   "system-out"};
  for (const auto& [name, count] : parsed.elements) {
    expect(known.contains(name));
  }
  const std::size_t failures = parsed.elements["failure"];
  const std::size_t errors = parsed.elements["error"];
  const auto& sums = parsed.attributes.front();
  expect((failures > 0) == (numberIn(sums, "failures") > 0));
  expect((errors > 0) == (numberIn(sums, "errors") > 0));
  expect(!telling.worst.fails || failures > 0);
  expect(!telling.worst.isTroubled || failures + errors > 0);
  expect(!telling.isUnread || failures + errors > 0);
}

void expectHtml(const Telling& telling) {
  const auto parsed = TarvexDiags::Svg::parse(telling.reports.at("html"));
  expect(parsed.fault.empty());
  expect(parsed.repeatedIds.empty());
  expect(std::includes(parsed.ids.begin(), parsed.ids.end(), parsed.referred.begin(),
                       parsed.referred.end()));
  for (const char* const active : {"script", "iframe", "object", "embed", "link", "base", "form",
                                   "img", "image", "use", "foreignObject", "audio", "video"}) {
    expect(!parsed.elements.contains(active));
  }
  for (const auto& attributes : parsed.attributes) {
    for (const auto& [name, value] : attributes) {
      expect(!name.starts_with("on") && name != "src");
      expect(name != "href" || value.starts_with("#"));
    }
  }
}

// What the log says as the log of it does.
void expectLog(const Telling& telling, const ReportSettings& settings) {
  const std::string& log = telling.reports.at(kLogFormat);
  if (telling.isUnread || log.empty()) {
    return;
  }
  const Telling again = tell(log, settings, false);
  expect(again.code == telling.code && again.lastCode == telling.lastCode);
  expect(again.runs == telling.runs && !again.isUnread);
}

void expectRest(const Telling& telling) {
  const std::string& line = telling.reports.at(kSummaryFormat);
  expect(std::count(line.begin(), line.end(), '\n') == 1 && line.find('|') == std::string::npos);
  expect(telling.isUnread ||
         line.starts_with("DIAGCTL CRITICAL") == (telling.lastCode == ExitCode::kHardwareFailure));
  expect(!line.starts_with("DIAGCTL OK") ||
         (telling.lastCode == ExitCode::kPassed && !telling.isUnread));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::ostringstream said;
  std::cerr.rdbuf(said.rdbuf());
  said.str("");
  std::string rest = textOf(data, size);
  const ReportSettings settings = settingsFrom(takeLine(rest));
  const Telling telling = tell(logFrom(rest), settings, true);
  expectHarmless(said.str());
  for (const auto& [format, report] : telling.reports) {
    expectHarmless(report);
  }
  expectNoBetter(telling);
  expectText(telling);
  expectTap(telling);
  expectJunit(telling);
  expectHtml(telling);
  expectLog(telling, settings);
  expectRest(telling);
  return 0;
}
