#include "diagctl/report/JsonlReader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Json = nlohmann::json;

/// A line that is JSON and yet no artifact.
class FormatFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string textOf(const Json& object, const char* key) {
  return object.value(key, std::string());
}

template <class Value>
Value lookUp(const std::map<std::string, Value>& values, const std::string& text) {
  const auto entry = values.find(text);
  if (entry == values.end()) {
    throw FormatFailure(tr("'{}' is none of the known values", text));
  }
  return entry->second;
}

Severity severityOf(const Json& object) {
  return lookUp<Severity>({{"DEBUG", Severity::Debug},
                           {"INFO", Severity::Information},
                           {"WARNING", Severity::Warning},
                           {"ERROR", Severity::Error},
                           {"FATAL", Severity::Error}},
                          object.at("severity"));
}

RunStatus statusOf(const Json& object) {
  return lookUp<RunStatus>(
      {{"COMPLETE", RunStatus::Complete}, {"ERROR", RunStatus::Error}, {"SKIP", RunStatus::Skip}},
      object.at("status"));
}

RunResult resultOf(const Json& object) {
  return lookUp<RunResult>({{"PASS", RunResult::Pass},
                            {"FAIL", RunResult::Fail},
                            {"NOT_APPLICABLE", RunResult::NotApplicable}},
                           object.at("result"));
}

Verdict verdictOf(const Json& object) {
  return lookUp<Verdict>(
      {{"PASS", Verdict::Pass}, {"FAIL", Verdict::Fail}, {"UNKNOWN", Verdict::Unknown}},
      object.at("type"));
}

std::chrono::system_clock::time_point timeOf(const std::string& text) {
  std::tm parts{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  if (rest == nullptr) {
    throw FormatFailure(tr("'{}' is no time stamp", text));
  }
  const double fraction = *rest == '.' ? std::strtod(rest, nullptr) : 0.0;
  return std::chrono::system_clock::from_time_t(timegm(&parts)) +
         std::chrono::milliseconds(std::lround(fraction * 1000));
}

RunStarted toRunStarted(const Json& content) {
  RunStarted start;
  start.name = textOf(content, "name");
  start.version = textOf(content, "version");
  start.commandLine = textOf(content, "commandLine");
  for (const auto& [key, value] : content.at("parameters").items()) {
    start.parameters[key] = value.is_string() ? value.get<std::string>() : value.dump();
  }
  const Json& machine = content.at("dutInfo");
  start.machineId = textOf(machine, "dutInfoId");
  start.machineName = textOf(machine, "name");
  for (const Json& item : machine.value("platformInfos", Json::array())) {
    start.platforms.push_back(textOf(item, "info"));
  }
  for (const Json& item : machine.value("softwareInfos", Json::array())) {
    start.software.push_back(
        {textOf(item, "softwareInfoId"), textOf(item, "name"), textOf(item, "version")});
  }
  for (const Json& item : machine.value("hardwareInfos", Json::array())) {
    start.hardware.push_back(
        {textOf(item, "hardwareInfoId"), textOf(item, "name"), textOf(item, "location")});
  }
  return start;
}

/// A message and what to do about it, which the log writes on a line of its own.
struct Advice {
  std::string message;
  std::string action;
};

Advice adviceOf(const std::string& text) {
  const std::string mark = "\n-> ";
  const std::size_t position = text.rfind(mark);
  if (position == std::string::npos) {
    return {text, ""};
  }
  return {text.substr(0, position), text.substr(position + mark.size())};
}

// "package: test on device", as the log writes it.
StepStarted toStepStarted(const std::string& stepId, const std::string& name, int passes) {
  StepStarted started;
  started.stepId = stepId;
  started.passes = passes;
  const std::size_t colon = name.find(": ");
  const std::size_t on = name.rfind(" on ");
  if (colon == std::string::npos || on == std::string::npos || on < colon + 2) {
    started.test = name;
    return started;
  }
  started.package = name.substr(0, colon);
  started.test = name.substr(colon + 2, on - colon - 2);
  started.device = name.substr(on + 4);
  return started;
}

StepDiagnosis toStepDiagnosis(const std::string& stepId, const Json& content, int pass) {
  StepDiagnosis diagnosis;
  diagnosis.stepId = stepId;
  diagnosis.pass = pass;
  diagnosis.verdict = verdictOf(content);
  diagnosis.symptom = textOf(content, "verdict");
  diagnosis.hardwareId = textOf(content, "hardwareInfoId");
  const auto [message, action] = adviceOf(textOf(content, "message"));
  diagnosis.message = message;
  diagnosis.action = action;
  return diagnosis;
}

StepMeasurement toStepMeasurement(const std::string& stepId, const Json& content) {
  StepMeasurement figure;
  figure.stepId = stepId;
  figure.name = textOf(content, "name");
  figure.unit = textOf(content, "unit");
  figure.hardwareId = textOf(content, "hardwareInfoId");
  const Json& value = content.at("value");
  if (value.is_number()) {
    figure.value = value.get<double>();
  } else {
    figure.value = value.is_string() ? value.get<std::string>() : value.dump();
  }
  return figure;
}

/// Turns the lines of one run into its stream, and keeps what an artifact says of those behind it.
class RunParser {
 public:
  std::optional<RunEventBody> toEvent(const Json& line) {
    if (line.contains("testStepArtifact")) {
      return toStepEvent(line["testStepArtifact"]);
    }
    if (line.contains("testRunArtifact")) {
      return toRunEvent(line["testRunArtifact"]);
    }
    return std::nullopt;
  }

 private:
  std::optional<RunEventBody> toStepEvent(const Json& artifact) {
    const std::string stepId = artifact.at("testStepId");
    if (artifact.contains("testStepStart")) {
      return toStepStarted(stepId, artifact["testStepStart"].at("name"), m_passes);
    }
    if (artifact.contains("testStepEnd")) {
      return StepEnded{stepId, statusOf(artifact["testStepEnd"]), m_aborted.contains(stepId)};
    }
    if (artifact.contains("extension")) {
      takeExtension(stepId, artifact["extension"]);
      return std::nullopt;
    }
    if (artifact.contains("diagnosis")) {
      return toStepDiagnosis(stepId, artifact["diagnosis"], m_pass);
    }
    if (artifact.contains("error")) {
      const Json& content = artifact["error"];
      const Advice advice = adviceOf(textOf(content, "message"));
      return StepTrouble{stepId, content.at("symptom"), advice.message, advice.action};
    }
    if (artifact.contains("log")) {
      const Json& content = artifact["log"];
      const Advice advice = adviceOf(content.at("message"));
      return StepMessage{stepId, severityOf(content), advice.message, advice.action};
    }
    if (artifact.contains("measurement")) {
      return toStepMeasurement(stepId, artifact["measurement"]);
    }
    return std::nullopt;
  }

  std::optional<RunEventBody> toRunEvent(const Json& artifact) {
    if (artifact.contains("testRunStart")) {
      RunStarted start = toRunStarted(artifact["testRunStart"]);
      if (const auto passes = start.parameters.find("passes"); passes != start.parameters.end()) {
        m_passes = std::max(std::atoi(passes->second.c_str()), 1);
      }
      return start;
    }
    if (artifact.contains("testRunEnd")) {
      const Json& content = artifact["testRunEnd"];
      return RunEnded{statusOf(content), resultOf(content)};
    }
    if (artifact.contains("error")) {
      const Json& content = artifact["error"];
      return RunTrouble{content.at("symptom"), textOf(content, "message")};
    }
    if (artifact.contains("log")) {
      const Json& content = artifact["log"];
      return RunMessage{severityOf(content), content.at("message")};
    }
    return std::nullopt;
  }

  void takeExtension(const std::string& stepId, const Json& extension) {
    const std::string name = textOf(extension, "name");
    if (name == "pass") {
      m_pass = extension.at("content").value("number", 1);
    } else if (name == "aborted") {
      m_aborted.insert(stepId);
    }
  }

  int m_passes = 1;  ///< of each test of the run
  int m_pass = 1;    ///< of the next diagnosis
  std::set<std::string> m_aborted;
};

}  // namespace

JsonlReader::JsonlReader(std::istream& in, std::string name) : m_in(in), m_name(std::move(name)) {}

// Goes on to the next line that is not blank, unless the present one was put back.
bool JsonlReader::nextLine() {
  if (std::exchange(m_isPending, false)) {
    return true;
  }
  while (std::getline(m_in, m_text)) {
    ++m_line;
    if (m_text.find_first_not_of(" \t\r") != std::string::npos) {
      return true;
    }
  }
  return false;
}

// A process that is killed leaves half a line; a later one appends its run on a line of its own.
bool JsonlReader::endsHere() {
  if (m_in.eof()) {
    return true;
  }
  m_isPending = nextLine() && Json::parse(m_text, nullptr, false).contains("schemaVersion");
  return m_isPending;
}

bool JsonlReader::readRun(const Sink& sink) {
  RunParser parser;
  bool hasBegun = false;
  while (nextLine()) {
    const unsigned long number = m_line;
    const auto fail = [&](const std::exception& failure) {
      throw std::runtime_error(fmt::format("{}:{}: {}", m_name, number, failure.what()));
    };
    try {
      const Json line = Json::parse(m_text);
      if (line.contains("schemaVersion") && std::exchange(hasBegun, true)) {
        m_isPending = true;
        return true;
      }
      hasBegun = true;
      if (auto body = parser.toEvent(line)) {
        sink({timeOf(line.at("timestamp")), std::move(*body)});
      }
    } catch (const Json::parse_error& failure) {
      if (!endsHere()) {
        fail(failure);
      }
      if (hasBegun) {
        return true;
      }
    } catch (const Json::exception& failure) {
      fail(failure);
    } catch (const FormatFailure& failure) {
      fail(failure);
    }
  }
  return hasBegun;
}

}  // namespace TarvexDiags::FrontEnd
