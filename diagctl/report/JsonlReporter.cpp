#include "diagctl/report/JsonlReporter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <utility>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Json = nlohmann::ordered_json;

const char* toText(Severity severity) {
  switch (severity) {
    case Severity::Debug:
      return "DEBUG";
    case Severity::Information:
      return "INFO";
    case Severity::Warning:
      return "WARNING";
    case Severity::Error:
      break;
  }
  return "ERROR";
}

const char* toText(RunStatus status) {
  switch (status) {
    case RunStatus::Complete:
      return "COMPLETE";
    case RunStatus::Error:
      return "ERROR";
    case RunStatus::Skip:
      break;
  }
  return "SKIP";
}

const char* toText(RunResult result) {
  switch (result) {
    case RunResult::Pass:
      return "PASS";
    case RunResult::Fail:
      return "FAIL";
    case RunResult::NotApplicable:
      break;
  }
  return "NOT_APPLICABLE";
}

const char* toText(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return "PASS";
    case Verdict::Fail:
      return "FAIL";
    case Verdict::Unknown:
      break;
  }
  return "UNKNOWN";
}

// Its own line, by which a reader of the log finds it again.
constexpr const char* kActionMark = "\n-> ";

std::string withAction(const std::string& message, const std::string& action) {
  return action.empty() ? message : message + kActionMark + action;
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
    addUnlessEmpty(hardware, "manufacturer", item.manufacturer);
    addUnlessEmpty(hardware, "partNumber", item.partNumber);
    addUnlessEmpty(hardware, "serialNumber", item.serialNumber);
    addUnlessEmpty(hardware, "version", item.version);
    machine["hardwareInfos"].push_back(std::move(hardware));
    if (item.bytes > 0) {  // the format has no field for it
      machine["metadata"]["sizes"].push_back(
          {{"hardwareInfoId", item.id}, {"bytes", static_cast<std::uint64_t>(item.bytes)}});
    }
  }
  if (!start.localNames.empty()) {
    machine["metadata"][kNamesLanguage] = start.language;
    machine["metadata"][kLocalNames] = start.localNames;
  }
  return machine;
}

/// What an event is in the format: the artifact's kind and content; an empty content for none.
struct Artifact {
  const char* kind = "testRunArtifact";
  Json content;
};

constexpr const char* kRunArtifact = "testRunArtifact";
constexpr const char* kStepArtifact = "testStepArtifact";

struct ToArtifact {
  Artifact operator()(const RunStarted& start) const {
    Json parameters = Json::object();
    for (const auto& [key, value] : start.parameters) {
      parameters[key] = value;
    }
    Json content{{"name", start.name},
                 {"version", start.version},
                 {"commandLine", start.commandLine},
                 {"parameters", std::move(parameters)},
                 {"dutInfo", describeMachine(start)}};
    return {kRunArtifact, {{"testRunStart", std::move(content)}}};
  }
  Artifact operator()(const StepStarted& started) const {
    return {kStepArtifact, step(started.stepId, "testStepStart",
                                {{"name", fmt::format("{}: {} on {}", started.package, started.test,
                                                      started.device)}})};
  }
  Artifact operator()(const StepProgress& /*progress*/) const { return {}; }
  Artifact operator()(const StepThroughput& /*throughput*/) const { return {}; }
  Artifact operator()(const StepMessage& message) const {
    return {kStepArtifact, step(message.stepId, "log",
                                {{"severity", toText(message.severity)},
                                 {"message", withAction(message.text, message.action)}})};
  }
  Artifact operator()(const StepMeasurement& figure) const {
    Json content{{"name", figure.name}};
    std::visit([&](const auto& value) { content["value"] = value; }, figure.value);
    addUnlessEmpty(content, "unit", figure.unit);
    addUnlessEmpty(content, "hardwareInfoId", figure.hardwareId);
    return {kStepArtifact, step(figure.stepId, "measurement", std::move(content))};
  }
  Artifact operator()(const SeriesStarted& series) const {
    Json content{{"measurementSeriesId", series.seriesId}, {"name", series.name}};
    addUnlessEmpty(content, "unit", series.unit);
    if (series.most) {
      content["validators"] = Json::array(
          {{{"name", "limit"}, {"type", "LESS_THAN_OR_EQUAL"}, {"value", *series.most}}});
    }
    return {kStepArtifact, step(series.stepId, "measurementSeriesStart", std::move(content))};
  }
  Artifact operator()(const SeriesElement& element) const {
    return {kStepArtifact, step(element.stepId, "measurementSeriesElement",
                                {{"index", element.index},
                                 {"measurementSeriesId", element.seriesId},
                                 {"value", element.value},
                                 {"timestamp", toTimestamp(element.time)}})};
  }
  Artifact operator()(const SeriesEnded& series) const {
    return {kStepArtifact,
            step(series.stepId, "measurementSeriesEnd",
                 {{"measurementSeriesId", series.seriesId}, {"totalCount", series.count}})};
  }
  Artifact operator()(const StepDiagnosis& diagnosis) const {
    Json content{{"verdict", diagnosis.symptom}, {"type", toText(diagnosis.verdict)}};
    addUnlessEmpty(content, "message", withAction(diagnosis.message, diagnosis.action));
    addUnlessEmpty(content, "hardwareInfoId", diagnosis.hardwareId);
    return {kStepArtifact, step(diagnosis.stepId, "diagnosis", std::move(content))};
  }
  Artifact operator()(const StepTrouble& trouble) const {
    Json content{{"symptom", trouble.symptom}};
    addUnlessEmpty(content, "message", withAction(trouble.message, trouble.action));
    return {kStepArtifact, step(trouble.stepId, "error", std::move(content))};
  }
  Artifact operator()(const StepEnded& ended) const {
    return {kStepArtifact, step(ended.stepId, "testStepEnd", {{"status", toText(ended.status)}})};
  }
  Artifact operator()(const RunCoverage& coverage) const {
    Json devices = Json::array();
    for (const DeviceCoverage& device : coverage.devices) {
      devices.push_back({{"device", device.device},
                         {"coveredBytes", device.coveredBytes},
                         {"totalBytes", device.totalBytes}});
    }
    return {kStepArtifact, step(coverage.stepId, "extension",
                                {{"name", kCoverageExtension},
                                 {"content",
                                  {{"devices", std::move(devices)},
                                   {"furtherDevices", coverage.furtherDevices},
                                   {"cores", coverage.cores},
                                   {"seconds", coverage.seconds}}}})};
  }
  Artifact operator()(const RunMessage& message) const {
    return {kRunArtifact,
            {{"log", {{"severity", toText(message.severity)}, {"message", message.text}}}}};
  }
  Artifact operator()(const RunTrouble& trouble) const {
    Json content{{"symptom", trouble.symptom}};
    addUnlessEmpty(content, "message", trouble.message);
    return {kRunArtifact, {{"error", std::move(content)}}};
  }
  Artifact operator()(const RunEnded& ended) const {
    return {kRunArtifact,
            {{"testRunEnd", {{"status", toText(ended.status)}, {"result", toText(ended.result)}}}}};
  }
};

// The pass that the diagnosis behind it judges, and how much more was found in it: the format has
// no field for either.
Json passOf(const StepDiagnosis& diagnosis) {
  Json content{{"number", diagnosis.pass}};
  if (diagnosis.furtherFindings > 0) {
    content["furtherFindings"] = diagnosis.furtherFindings;
  }
  return step(diagnosis.stepId, "extension", {{"name", "pass"}, {"content", std::move(content)}});
}

// The format has one status for what was aborted and for what could not run.
Json abortOf(const StepEnded& ended) {
  return step(ended.stepId, "extension", {{"name", "aborted"}, {"content", Json::object()}});
}

constexpr const char* nameOf(SkipKind kind) {
  switch (kind) {
    case SkipKind::NeedsPrivilege:
      return "needs-privilege";
    case SkipKind::NotInThisMode:
      return "not-in-this-mode";
    case SkipKind::NotRun:
      return "not-run";
    case SkipKind::NotPossible:
      break;
  }
  return "not-possible";
}

Json skipOf(const StepEnded& ended) {
  return step(ended.stepId, "extension",
              {{"name", "skipped"}, {"content", {{"kind", nameOf(ended.skip)}}}});
}

}  // namespace

// The writer knows the form for the first of them only.
std::string toHarmlessJson(const std::string& line) {
  std::string harmless;
  for (std::string_view rest = line; !rest.empty();) {
    const Character character = firstCharacterOf(rest);
    if (isHarmless(character.code)) {
      harmless += character.bytes;
    } else {
      harmless += fmt::format("\\u{:04x}", static_cast<unsigned int>(character.code));
    }
    rest.remove_prefix(character.bytes.size());
  }
  return harmless;
}

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
    write(timestamp, kStepArtifact, passOf(*diagnosis));
  }
  if (const auto* ended = std::get_if<StepEnded>(&event.body)) {
    if (ended->isAborted) {
      write(timestamp, kStepArtifact, abortOf(*ended));
    } else if (ended->status == RunStatus::Skip) {
      write(timestamp, kStepArtifact, skipOf(*ended));
    }
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
  m_out.write(toHarmlessJson(line.dump(-1, ' ', false, Json::error_handler_t::replace)));
  m_out.write("\n");
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
