#include "diagctl/report/JsonlReporter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <utility>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Json = nlohmann::ordered_json;

const char* toText(Severity severity) {
  switch (severity) {
    case Severity::debug:
      return "DEBUG";
    case Severity::information:
      return "INFO";
    case Severity::warning:
      return "WARNING";
    case Severity::error:
      break;
  }
  return "ERROR";
}

const char* toText(RunStatus status) {
  switch (status) {
    case RunStatus::complete:
      return "COMPLETE";
    case RunStatus::error:
      return "ERROR";
    case RunStatus::skip:
      break;
  }
  return "SKIP";
}

const char* toText(RunResult result) {
  switch (result) {
    case RunResult::pass:
      return "PASS";
    case RunResult::fail:
      return "FAIL";
    case RunResult::notApplicable:
      break;
  }
  return "NOT_APPLICABLE";
}

const char* toText(Verdict verdict) {
  switch (verdict) {
    case Verdict::pass:
      return "PASS";
    case Verdict::fail:
      return "FAIL";
    case Verdict::unknown:
      break;
  }
  return "UNKNOWN";
}

// Its own line, by which a reader of the log finds it again.
constexpr const char* actionMark = "\n-> ";

std::string withAction(const std::string& message, const std::string& action) {
  return action.empty() ? message : message + actionMark + action;
}

// Optional fields are left out and never null.
void addUnlessEmpty(Json& object, const char* key, const std::string& text) {
  if (!text.empty()) {
    object[key] = text;
  }
}

Json step(const std::string& stepId, const char* kind, Json content) {
  return {{"testStepId", stepId}, {kind, std::move(content)}};
}

Json describeMachine(const RunStarted& start) {
  Json machine{{"dutInfoId", start.machineId}};
  addUnlessEmpty(machine, "name", start.machineName);
  for (const std::string& platform : start.platforms) {
    machine["platformInfos"].push_back({{"info", platform}});
  }
  for (const SoftwareItem& item : start.software) {
    Json software{{"softwareInfoId", item.id}, {"name", item.name}};
    addUnlessEmpty(software, "version", item.version);
    software["softwareType"] = "APPLICATION";
    machine["softwareInfos"].push_back(std::move(software));
  }
  for (const HardwareItem& item : start.hardware) {
    Json hardware{{"hardwareInfoId", item.id}, {"name", item.name}};
    addUnlessEmpty(hardware, "location", item.location);
    machine["hardwareInfos"].push_back(std::move(hardware));
  }
  return machine;
}

/// What an event is in the format: the artifact's kind and content; an empty content for none.
struct Artifact {
  const char* kind = "testRunArtifact";
  Json content;
};

constexpr const char* runArtifact = "testRunArtifact";
constexpr const char* stepArtifact = "testStepArtifact";

struct ToArtifact {
  Artifact operator()(const RunStarted& start) const {
    Json parameters = Json::object();
    for (const auto& [key, value] : start.parameters) {
      parameters[key] = value;
    }
    return {runArtifact,
            {{"testRunStart",
              {{"name", start.name},
               {"version", start.version},
               {"commandLine", start.commandLine},
               {"parameters", std::move(parameters)},
               {"dutInfo", describeMachine(start)}}}}};
  }
  Artifact operator()(const StepStarted& started) const {
    return {stepArtifact, step(started.stepId, "testStepStart",
                               {{"name", fmt::format("{}: {} on {}", started.package, started.test,
                                                     started.device)}})};
  }
  Artifact operator()(const StepProgress& /*progress*/) const { return {}; }
  Artifact operator()(const StepMessage& message) const {
    return {stepArtifact, step(message.stepId, "log",
                               {{"severity", toText(message.severity)},
                                {"message", withAction(message.text, message.action)}})};
  }
  Artifact operator()(const StepMeasurement& figure) const {
    Json content{{"name", figure.name}};
    std::visit([&](const auto& value) { content["value"] = value; }, figure.value);
    addUnlessEmpty(content, "unit", figure.unit);
    addUnlessEmpty(content, "hardwareInfoId", figure.hardwareId);
    return {stepArtifact, step(figure.stepId, "measurement", std::move(content))};
  }
  Artifact operator()(const StepDiagnosis& diagnosis) const {
    Json content{{"verdict", diagnosis.symptom}, {"type", toText(diagnosis.verdict)}};
    addUnlessEmpty(content, "message", withAction(diagnosis.message, diagnosis.action));
    addUnlessEmpty(content, "hardwareInfoId", diagnosis.hardwareId);
    return {stepArtifact, step(diagnosis.stepId, "diagnosis", std::move(content))};
  }
  Artifact operator()(const StepTrouble& trouble) const {
    Json content{{"symptom", trouble.symptom}};
    addUnlessEmpty(content, "message", withAction(trouble.message, trouble.action));
    return {stepArtifact, step(trouble.stepId, "error", std::move(content))};
  }
  Artifact operator()(const StepEnded& ended) const {
    return {stepArtifact, step(ended.stepId, "testStepEnd", {{"status", toText(ended.status)}})};
  }
  Artifact operator()(const RunMessage& message) const {
    return {runArtifact,
            {{"log", {{"severity", toText(message.severity)}, {"message", message.text}}}}};
  }
  Artifact operator()(const RunTrouble& trouble) const {
    Json content{{"symptom", trouble.symptom}};
    addUnlessEmpty(content, "message", trouble.message);
    return {runArtifact, {{"error", std::move(content)}}};
  }
  Artifact operator()(const RunEnded& ended) const {
    return {runArtifact,
            {{"testRunEnd", {{"status", toText(ended.status)}, {"result", toText(ended.result)}}}}};
  }
};

// The pass that the diagnosis behind it judges, for which the format has no field.
Json passOf(const StepDiagnosis& diagnosis) {
  return step(diagnosis.stepId, "extension",
              {{"name", "pass"}, {"content", {{"number", diagnosis.pass}}}});
}

// The format has one status for what was aborted and for what could not run.
Json abortOf(const StepEnded& ended) {
  return step(ended.stepId, "extension", {{"name", "aborted"}, {"content", Json::object()}});
}

}  // namespace

std::string toTimestamp(std::chrono::system_clock::time_point time) {
  using std::chrono::duration_cast;
  const auto milliseconds =
      duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(seconds), milliseconds % 1000);
}

JsonlReporter::JsonlReporter(Printer& out) : m_out(out) {}

void JsonlReporter::handle(const RunEvent& event) {
  const std::string timestamp = toTimestamp(event.time);
  if (!m_hasSchema || std::holds_alternative<RunStarted>(event.body)) {
    m_hasSchema = true;
    m_sequenceNumber = 0;
    write(timestamp, "schemaVersion", {{"major", 2}, {"minor", 0}});
  }
  if (const auto* diagnosis = std::get_if<StepDiagnosis>(&event.body)) {
    write(timestamp, stepArtifact, passOf(*diagnosis));
  }
  if (const auto* ended = std::get_if<StepEnded>(&event.body);
      ended != nullptr && ended->isAborted) {
    write(timestamp, stepArtifact, abortOf(*ended));
  }
  Artifact artifact = std::visit(ToArtifact(), event.body);
  if (!artifact.content.is_null()) {
    write(timestamp, artifact.kind, std::move(artifact.content));
  }
}

// Whatever a package wrote, a line stays UTF-8: what is none is replaced.
void JsonlReporter::write(const std::string& timestamp, const char* kind, Json content) {
  const Json line{
      {kind, std::move(content)}, {"sequenceNumber", m_sequenceNumber++}, {"timestamp", timestamp}};
  m_out.write(line.dump(-1, ' ', false, Json::error_handler_t::replace));
  m_out.write("\n");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
