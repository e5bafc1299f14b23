#include "tests/diagctl/Reports.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tests/diagctl/Workplace.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::DiagctlTest {

namespace {

using Json = nlohmann::json;

constexpr const char* kCoverageStep = "coverage";

enum Need { Required, Optional };

/// A field of an object. Type: "text", "number", "count", "value", "object" (with any fields), the
/// name of a shape, "[]" before the name of a shape, or words with "|" between them.
struct Field {
  const char* name;
  Need need;
  const char* type;
};

const std::map<std::string, std::vector<Field>>& shapes() {
  static const std::map<std::string, std::vector<Field>> kTable = {
      {"schemaVersion", {{"major", Required, "count"}, {"minor", Required, "count"}}},
      {"testRunStart",
       {{"name", Required, "text"},
        {"version", Required, "text"},
        {"commandLine", Required, "text"},
        {"parameters", Required, "object"},
        {"dutInfo", Required, "dutInfo"}}},
      {"testRunEnd",
       {{"status", Required, "COMPLETE|ERROR|SKIP"},
        {"result", Required, "PASS|FAIL|NOT_APPLICABLE"}}},
      {"dutInfo",
       {{"dutInfoId", Required, "text"},
        {"name", Optional, "text"},
        {"platformInfos", Optional, "[]platformInfo"},
        {"softwareInfos", Optional, "[]softwareInfo"},
        {"hardwareInfos", Optional, "[]hardwareInfo"},
        {"metadata", Optional, "object"}}},
      {"platformInfo", {{"info", Required, "text"}}},
      {"softwareInfo",
       {{"name", Required, "text"},
        {"softwareInfoId", Required, "text"},
        {"version", Optional, "text"},
        {"revision", Optional, "text"},
        {"softwareType", Optional, "UNSPECIFIED|FIRMWARE|SYSTEM|APPLICATION"},
        {"computerSystem", Optional, "text"}}},
      {"hardwareInfo",
       {{"name", Required, "text"},
        {"hardwareInfoId", Required, "text"},
        {"version", Optional, "text"},
        {"revision", Optional, "text"},
        {"location", Optional, "text"},
        {"serialNumber", Optional, "text"},
        {"partNumber", Optional, "text"},
        {"manufacturer", Optional, "text"}}},
      {"testStepStart", {{"name", Required, "text"}}},
      {"testStepEnd", {{"status", Required, "COMPLETE|ERROR|SKIP"}}},
      {"log",
       {{"severity", Required, "INFO|DEBUG|WARNING|ERROR|FATAL"}, {"message", Required, "text"}}},
      {"error",
       {{"symptom", Required, "text"},
        {"message", Optional, "text"},
        {"softwareInfoIds", Optional, "value"}}},
      {"diagnosis",
       {{"verdict", Required, "text"},
        {"type", Required, "PASS|FAIL|UNKNOWN"},
        {"message", Optional, "text"},
        {"hardwareInfoId", Optional, "text"}}},
      {"measurement",
       {{"name", Required, "text"},
        {"value", Required, "value"},
        {"unit", Optional, "text"},
        {"hardwareInfoId", Optional, "text"}}},
      {"measurementSeriesStart",
       {{"measurementSeriesId", Required, "text"},
        {"name", Required, "text"},
        {"unit", Optional, "text"},
        {"validators", Optional, "[]validator"}}},
      {"validator",
       {{"name", Optional, "text"},
        {"type", Required, "LESS_THAN_OR_EQUAL"},
        {"value", Required, "value"}}},
      {"measurementSeriesElement",
       {{"index", Required, "count"},
        {"measurementSeriesId", Required, "text"},
        {"value", Required, "value"},
        {"timestamp", Required, "text"}}},
      {"measurementSeriesEnd",
       {{"measurementSeriesId", Required, "text"}, {"totalCount", Required, "count"}}},
      {"extension", {{"name", Required, "text"}, {"content", Required, "object"}}},
  };
  return kTable;
}

const std::set<std::string> kRunArtifacts = {"testRunStart", "testRunEnd", "log", "error"};
const std::set<std::string> kStepArtifacts = {"testStepStart",
                                              "testStepEnd",
                                              "measurement",
                                              "error",
                                              "log",
                                              "diagnosis",
                                              "extension",
                                              "measurementSeriesStart",
                                              "measurementSeriesElement",
                                              "measurementSeriesEnd"};

std::vector<std::string> wordsOf(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, separator);) {
    words.push_back(word);
  }
  return words;
}

/// Looks at one log, whose runs follow each other.
class LogChecker {
 public:
  std::vector<std::string> check(const std::vector<Json>& lines) {
    for (const Json& line : lines) {
      ++m_line;
      checkLine(line);
    }
    endRun();
    return m_faults;
  }

 private:
  void tell(const std::string& fault) {
    m_faults.push_back("line " + std::to_string(m_line) + ": " + fault);
  }

  void checkLine(const Json& line) {
    static const std::regex kTime(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
    if (line.contains("schemaVersion")) {
      endRun();
      m_expected = 0;
      if (line["schemaVersion"] != Json({{"major", 2}, {"minor", 0}})) {
        tell("the version is another one");
      }
    }
    if (line.value("sequenceNumber", Json()) != Json(m_expected)) {
      tell("the number is not " + std::to_string(m_expected));
    }
    ++m_expected;
    if (!std::regex_match(line.value("timestamp", ""), kTime)) {
      tell("no time");
    }
    constexpr std::size_t fields = 3;
    if (line.size() != fields) {
      tell("there is not exactly one artifact");
    }
    if (line.contains("testRunArtifact")) {
      checkRun(line["testRunArtifact"]);
    } else if (line.contains("testStepArtifact")) {
      checkStep(line["testStepArtifact"]);
    } else if (!line.contains("schemaVersion")) {
      tell("no known artifact");
    }
  }

  void checkRun(const Json& artifact) {
    if (artifact.size() != 1 || !kRunArtifacts.contains(artifact.begin().key())) {
      tell("not exactly one artifact of a run");
      return;
    }
    const std::string kind = artifact.begin().key();
    const Json& content = artifact.begin().value();
    checkObject(content, kind);
    if (kind == "testRunStart") {
      for (const Json& item : content["dutInfo"].value("hardwareInfos", Json::array())) {
        if (!m_hardware.insert(item.value("hardwareInfoId", "")).second) {
          tell("hardware of the same id");
        }
      }
    } else if (kind == "testRunEnd") {
      const std::string pair = content.value("status", "") + "/" + content.value("result", "");
      static const std::set<std::string> kPairs = {"COMPLETE/PASS", "COMPLETE/FAIL",
                                                   "ERROR/NOT_APPLICABLE", "SKIP/NOT_APPLICABLE"};
      if (!kPairs.contains(pair)) {
        tell(pair + " is no outcome");
      }
      m_isEnded = true;
    }
  }

  void checkStep(const Json& artifact) {
    const std::string step = artifact.value("testStepId", "");
    Json rest = artifact;
    rest.erase("testStepId");
    if (step.empty() || rest.size() != 1 || !kStepArtifacts.contains(rest.begin().key())) {
      tell("not exactly one artifact of a step");
      return;
    }
    const std::string kind = rest.begin().key();
    const Json& content = rest.begin().value();
    checkObject(content, kind);
    if (kind == "testStepStart" && !m_begun.insert(step).second) {
      tell("the step begins again");
    } else if (!m_begun.contains(step) || m_ended.contains(step)) {
      tell("the step is not open");
    } else if (kind == "testStepEnd") {
      m_ended.insert(step);
    }
    if (kind.starts_with("measurementSeries")) {
      checkSeries(kind, step + " " + content.value("measurementSeriesId", ""), content);
    }
    const std::string hardware = content.value("hardwareInfoId", "");
    if (!hardware.empty() && !m_hardware.contains(hardware)) {
      tell("no such hardware: " + hardware);
    }
  }

  /// A series begins once, counts its elements and ends with their number.
  void checkSeries(const std::string& kind, const std::string& series, const Json& content) {
    const auto open = m_series.find(series);
    if (kind == "measurementSeriesStart") {
      if (!m_series.emplace(series, 0).second) {
        tell("the series begins again");
      }
    } else if (open == m_series.end()) {
      tell("the series is not open");
    } else if (kind == "measurementSeriesElement") {
      if (content.value("index", Json()) != Json(open->second++)) {
        tell("the element has another number");
      }
    } else {
      if (content.value("totalCount", Json()) != Json(open->second)) {
        tell("the series has another number of elements");
      }
      m_series.erase(open);
    }
  }

  void endRun() {
    if (m_isEnded && !m_series.empty()) {
      tell("the run has ended with open series");
    }
    m_series.clear();
    if (m_isEnded && m_begun != m_ended) {
      tell("the run has ended with open steps");
    }
    m_begun.clear();
    m_ended.clear();
    m_hardware.clear();
    m_isEnded = false;
  }

  void checkObject(const Json& object, const std::string& shape) {
    if (!object.is_object()) {
      tell(shape + " is no object");
      return;
    }
    std::set<std::string> known;
    for (const Field& field : shapes().at(shape)) {
      known.insert(field.name);
      if (object.contains(field.name)) {
        checkValue(object[field.name], field.type, shape + "." + field.name);
      } else if (field.need == Required) {
        tell(shape + "." + field.name + " is missing");
      }
    }
    for (const auto& [key, value] : object.items()) {
      if (!known.contains(key)) {
        tell(shape + "." + key + " is unknown");
      }
    }
  }

  void checkValue(const Json& value, const std::string& type, const std::string& name) {
    if (type.rfind("[]", 0) == 0) {
      if (!value.is_array() || value.empty()) {
        tell(name + " is no list, or empty");
      }
      for (const Json& item : value) {
        checkObject(item, type.substr(2));
      }
    } else if (shapes().contains(type)) {
      checkObject(value, type);
    } else if (!isOfType(value, type)) {
      tell(name + " is no " + type + ": " + value.dump());
    }
  }

  static bool isOfType(const Json& value, const std::string& type) {
    if (type == "text") {
      return value.is_string();
    }
    if (type == "count") {
      return value.is_number_unsigned();
    }
    if (type == "object") {
      return value.is_object();
    }
    if (type == "value") {
      return value.is_string() || value.is_boolean() || value.is_number();
    }
    const std::vector<std::string> words = wordsOf(type, '|');
    return value.is_string() && std::set<std::string>(words.begin(), words.end()).contains(value);
  }

  int m_line = 0;
  unsigned long m_expected = 0;
  bool m_isEnded = false;
  std::set<std::string> m_begun;
  std::set<std::string> m_ended;
  std::map<std::string, unsigned long> m_series;  ///< open ones, with the number of elements
  std::set<std::string> m_hardware;
  std::vector<std::string> m_faults;
};

}  // namespace

std::vector<std::string> linesOf(const std::string& text) {
  return wordsOf(text, '\n');
}

std::vector<Json> parseLines(const std::string& text) {
  std::vector<Json> lines;
  for (const std::string& line : linesOf(text)) {
    lines.push_back(Json::parse(line));
  }
  return lines;
}

std::vector<Json> artifacts(const std::vector<Json>& lines, const std::string& kind) {
  std::vector<Json> found;
  for (const Json& line : lines) {
    for (const char* owner : {"testRunArtifact", "testStepArtifact"}) {
      if (line.contains(owner) && line[owner].contains(kind) && !isOfCoverage(line[owner])) {
        found.push_back(line[owner][kind]);
      }
    }
  }
  return found;
}

bool isOfCoverage(const Json& artifact) {
  return artifact.value("testStepId", "") == kCoverageStep;
}

Json coverageOf(const std::vector<Json>& lines) {
  Json coverage;
  for (const Json& line : lines) {
    const Json artifact = line.value("testStepArtifact", Json::object());
    if (isOfCoverage(artifact) && artifact.contains("extension")) {
      coverage = artifact["extension"]["content"];
    }
  }
  return coverage;
}

std::vector<std::string> faultsOf(const std::vector<Json>& lines) {
  std::vector<std::string> faults = LogChecker().check(lines);
  if (lines.empty() || !lines[0].contains("schemaVersion")) {
    faults.emplace_back("the log does not begin with its version");
  }
  return faults;
}

Json parseXml(const std::string& text) {
  const TestSupport::TemporaryDirectory place;
  std::ofstream(place.file("document.xml")) << text;
  std::ofstream(place.file("to_json.py")) << R"(import json, sys, xml.etree.ElementTree
def tree(element):
    return {"tag": element.tag, "attributes": element.attrib, "text": element.text or "",
            "children": [tree(child) for child in element]}
root = xml.etree.ElementTree.parse(sys.argv[1]).getroot()
json.dump(tree(root), open(sys.argv[2], "w"))
)";
  const std::string json = place.file("document.json");
  const std::string command =
      "python3 " + place.file("to_json.py") + " " + place.file("document.xml") + " " + json;
  if (std::system(command.c_str()) != 0) {  // NOLINT(cert-env33-c): an independent parser
    throw std::runtime_error("no XML: " + text);
  }
  return Json::parse(contentsOf(json));
}

namespace {

// Values have the form of JSON or are one word.
std::string yamlValue(const std::string& value) {
  return value.starts_with('"') ? Json::parse(value).get<std::string>() : value;
}

/// Takes a line of the block of a point. @return whether the block goes on.
bool takeYaml(const std::string& line, Point& point, std::string& list) {
  static const std::regex kEntry("  ([a-z_]+): (.+)");
  static const std::regex kList("  ([a-z_]+):");
  static const std::regex kItem("    - (.+)");
  std::smatch match;
  if (line == "  ...") {
    return false;
  }
  if (std::regex_match(line, match, kEntry)) {
    point.words[match[1]] = yamlValue(match[2]);
  } else if (std::regex_match(line, match, kList)) {
    list = match[1];
  } else if (std::regex_match(line, match, kItem) && !list.empty()) {
    point.lists[list].push_back(yamlValue(match[1]));
  } else {
    throw std::runtime_error("no line of the block: " + line);
  }
  return true;
}

}  // namespace

TapReport parseTap(const std::string& text) {
  static const std::regex kVersion("TAP version (\\d+)");
  static const std::regex kPlan("1\\.\\.(\\d+)( # SKIP .*)?");
  static const std::regex kPoint("(not )?ok (\\d+) - ([^#]*[^# ])( # ((TODO|SKIP).*))?");
  TapReport report;
  bool isBlock = false;
  std::string list;
  for (const std::string& line : linesOf(text)) {
    std::smatch match;
    if (report.plan >= 0) {
      throw std::runtime_error("behind the plan: " + line);
    }
    if (isBlock) {
      isBlock = takeYaml(line, report.points.back(), list);
    } else if (std::regex_match(line, match, kVersion) && report.version == 0) {
      report.version = std::stoi(match[1]);
    } else if (std::regex_match(line, match, kPlan)) {
      report.plan = std::stoi(match[1]);
    } else if (std::regex_match(line, match, kPoint)) {
      report.points.push_back({!match[1].matched, std::stoi(match[2]), match[3], match[5]});
    } else if (line == "  ---" && !report.points.empty()) {
      isBlock = true;
      list.clear();
    } else if (line.rfind("# ", 0) == 0) {
      report.comments.push_back(line.substr(2));
      if (!report.points.empty()) {
        report.points.back().remarks.push_back(line.substr(2));
      }
    } else {
      throw std::runtime_error("no line of the protocol: " + line);
    }
  }
  return report;
}

bool isSuccessToHarness(const std::string& tap) {
  const TestSupport::TemporaryDirectory place;
  std::ofstream(place.file("report.tap")) << tap;
  const std::string command =
      "prove --norc --exec cat " + place.file("report.tap") + " >" + place.file("out") + " 2>&1";
  const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): an independent harness
  if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
    throw std::runtime_error("the harness cannot read it: " + contentsOf(place.file("out")));
  }
  return WEXITSTATUS(status) == 0;
}

}  // namespace TarvexDiags::DiagctlTest
