#include "diagctl/report/JsonlReader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/LogFile.h"
#include "diagctl/report/Wording.h"
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

// Of a newer program, say: that it was skipped holds.
SkipKind skipOf(const Json& content) {
  static const std::map<std::string, SkipKind> kKinds = {
      {"needs-privilege", SkipKind::NeedsPrivilege},
      {"not-in-this-mode", SkipKind::NotInThisMode},
      {"not-run", SkipKind::NotRun}};
  const auto kind = kKinds.find(textOf(content, "kind"));
  return kind != kKinds.end() ? kind->second : SkipKind::NotPossible;
}

// A log may come from anywhere: what it asks for is bounded before it is had.
constexpr std::size_t kLongestLine = 2UL << 20U;  ///< bytes
constexpr int kMostNesting = 32;
constexpr std::size_t kMostValues = 50'000;  ///< of a line
constexpr int kMostPasses = 1'000'000'000;

// Before it is parsed: what a parser makes of a text takes many times the text's own size.
void requireModest(const std::string& text) {
  int nesting = 0;
  std::size_t values = 1;
  bool isString = false;
  for (std::size_t position = 0; position < text.size(); ++position) {
    const char character = text[position];
    if (isString) {
      position += character == '\\' ? 1 : 0;
      isString = character != '"';
      continue;
    }
    isString = character == '"';
    const bool isOpening = character == '[' || character == '{';
    nesting += isOpening ? 1 : 0;
    nesting -= character == ']' || character == '}' ? 1 : 0;
    values += isOpening || character == ',' ? 1 : 0;
    if (nesting > kMostNesting) {
      throw FormatFailure(tr("more than {} values within each other", kMostNesting));
    }
    if (values > kMostValues) {
      throw FormatFailure(tr("more than {} values in a line", kMostValues));
    }
  }
}

/// @throws Json::parse_error for what is no JSON, FormatFailure for what is more than a line needs.
Json parseLine(const std::string& text) {
  requireModest(text);
  return Json::parse(text);
}

/// The key or the number alone stands nowhere but in the words of the library.
std::string reasonOf(const Json::exception& failure) {
  constexpr int keyNotFound = 403;
  constexpr int numberOverflow = 406;
  const std::string words = failure.what();
  const std::size_t begin = words.find('\'');
  const std::size_t end = words.rfind('\'');
  const std::string quoted = begin < end ? words.substr(begin + 1, end - begin - 1) : "";
  if (failure.id == keyNotFound) {
    return tr("the key '{}' is missing", quoted);
  }
  if (failure.id == numberOverflow) {
    return tr("the number '{}' is out of its range", quoted);
  }
  return tr("a value is of another kind than it should be");
}

int passesOf(const std::string& text, int least = 1) {
  int passes = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, passes);
  if (error != std::errc() || stop != end || passes < least || passes > kMostPasses) {
    throw FormatFailure(tr("'{}' is not between {} and {}", text, least, kMostPasses));
  }
  return passes;
}

/// The digits of a time stamp at a place.
int digitsAt(const std::string& text, std::size_t begin, std::size_t count) {
  int number = -1;
  const char* const first = text.data() + std::min(begin, text.size());
  const char* const last = first + std::min(count, text.size() - std::min(begin, text.size()));
  const auto [stop, error] = std::from_chars(first, last, number);
  const bool isWhole = error == std::errc() && stop == first + count && *first != '-';
  return isWhole ? number : -1;
}

/// Milliseconds, of which the log has as many digits as it likes.
std::optional<int> millisecondsOf(const std::string& fraction) {
  if (fraction.empty()) {
    return 0;
  }
  const bool isNumber =
      fraction.size() > 1 && fraction[0] == '.' &&
      std::all_of(fraction.begin() + 1, fraction.end(),
                  [](unsigned char character) { return std::isdigit(character) != 0; });
  return isNumber ? std::optional(std::atoi((fraction.substr(1, 3) + "00").substr(0, 3).c_str()))
                  : std::nullopt;
}

/// Seconds east of Greenwich; "Z" and nothing are none.
std::optional<int> offsetOf(const std::string& zone) {
  if (zone.empty() || zone == "Z" || zone == "z") {
    return 0;
  }
  const int hours = digitsAt(zone, 1, 2);
  const int minutes = digitsAt(zone, 4, 2);
  const bool isSound = zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':' &&
                       hours >= 0 && hours < 24 && minutes >= 0 && minutes < 60;
  if (!isSound) {
    return std::nullopt;
  }
  return (zone[0] == '-' ? -1 : 1) * (hours * 60 + minutes) * 60;
}

// The clock's own time is a count of nanoseconds, which ends in 2262.
std::chrono::system_clock::time_point timeOf(const std::string& text) {
  using std::chrono::seconds;
  constexpr std::size_t kLength = std::string_view("1970-01-01T00:00:00").size();
  constexpr auto kLatest =
      std::chrono::floor<seconds>(std::chrono::system_clock::time_point::max()) - seconds(1);
  std::tm parts{};
  const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  const std::size_t end = std::min(text.find_first_not_of(".0123456789", kLength), text.size());
  const auto milliseconds =
      text.size() >= kLength ? millisecondsOf(text.substr(kLength, end - kLength)) : std::nullopt;
  const auto offset = offsetOf(text.substr(end));
  if (rest != text.c_str() + kLength || !milliseconds || !offset) {
    throw FormatFailure(tr("'{}' is no time stamp", text));
  }
  const std::time_t time = timegm(&parts) - *offset;
  if (time < 0 || time > kLatest.time_since_epoch().count()) {
    throw FormatFailure(tr("'{}' is not between 1970 and 2262", text));
  }
  return std::chrono::system_clock::from_time_t(time) + std::chrono::milliseconds(*milliseconds);
}

// The metadata of other programs may hold anything.
void takeNames(const Json& metadata, RunStarted& start) {
  const auto language = metadata.find(kNamesLanguage);
  const auto names = metadata.find(kLocalNames);
  if (language == metadata.end() || !language->is_string() || names == metadata.end() ||
      !names->is_object()) {
    return;
  }
  start.language = *language;
  for (const auto& [key, name] : names->items()) {
    if (name.is_string()) {
      start.localNames[key] = name;
    }
  }
}

// A number that is none, or less than nothing, counts as nothing.
double amountOf(const Json& object, const char* key) {
  const auto entry = object.find(key);
  return entry != object.end() && entry->is_number() ? std::max(entry->get<double>(), 0.0) : 0;
}

void takeSizes(const Json& machine, std::vector<HardwareItem>& hardware) {
  constexpr double kMostBytes = 1e18;
  const auto metadata = machine.find("metadata");
  if (metadata == machine.end() || !metadata->is_object() || !metadata->contains("sizes")) {
    return;
  }
  std::map<std::string, double> sizes;
  for (const Json& size : metadata->at("sizes")) {
    if (size.is_object()) {
      sizes[textOf(size, "hardwareInfoId")] = std::min(amountOf(size, "bytes"), kMostBytes);
    }
  }
  for (HardwareItem& item : hardware) {
    const auto size = sizes.find(item.id);
    item.bytes = size != sizes.end() ? size->second : 0;
  }
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
    start.hardware.push_back({textOf(item, "hardwareInfoId"), textOf(item, "name"),
                              textOf(item, "location"), textOf(item, "manufacturer"),
                              textOf(item, "partNumber"), textOf(item, "serialNumber"),
                              textOf(item, "version")});
  }
  takeNames(machine.value("metadata", Json::object()), start);
  takeSizes(machine, start.hardware);
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

constexpr double kMostFurther = 1e9;

RunCoverage toRunCoverage(const Json& content) {
  constexpr double kMostDevices = 1e9;
  RunCoverage coverage{
      kCoverageStep,
      {},
      static_cast<std::size_t>(std::min(amountOf(content, "furtherDevices"), kMostDevices)),
      amountOf(content, "cores"),
      amountOf(content, "seconds")};
  for (const Json& device : content.value("devices", Json::array())) {
    coverage.devices.push_back({textOf(device, "device"), amountOf(device, "coveredBytes"),
                                amountOf(device, "totalBytes")});
  }
  return coverage;
}

/// The limit that a series is held against; nothing where it has none of ours.
std::optional<double> mostOf(const Json& content) {
  for (const Json& validator : content.value("validators", Json::array())) {
    if (textOf(validator, "type") == "LESS_THAN_OR_EQUAL" && validator.at("value").is_number()) {
      return validator["value"].get<double>();
    }
  }
  return std::nullopt;
}

/// What an artifact tells of a series; nothing for any other artifact.
std::optional<RunEventBody> toSeries(const std::string& stepId, const Json& artifact) {
  if (artifact.contains("measurementSeriesStart")) {
    const Json& content = artifact["measurementSeriesStart"];
    return SeriesStarted{stepId, content.at("measurementSeriesId"), textOf(content, "name"),
                         textOf(content, "unit"), mostOf(content)};
  }
  if (artifact.contains("measurementSeriesElement")) {
    const Json& content = artifact["measurementSeriesElement"];
    if (!content.at("value").is_number()) {
      return std::nullopt;  // not of ours
    }
    return SeriesElement{stepId, content.at("measurementSeriesId"),
                         content.at("index").get<std::size_t>(), content["value"].get<double>(),
                         timeOf(content.at("timestamp"))};
  }
  if (artifact.contains("measurementSeriesEnd")) {
    const Json& content = artifact["measurementSeriesEnd"];
    return SeriesEnded{stepId, content.at("measurementSeriesId"),
                       content.at("totalCount").get<std::size_t>()};
  }
  return std::nullopt;
}

bool isOfLog(const Json& line) {
  return line.contains("schemaVersion") || line.contains("testRunArtifact") ||
         line.contains("testStepArtifact");
}

bool isRunStart(const Json& line) {
  return line.contains("testRunArtifact") && line["testRunArtifact"].contains("testRunStart");
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
      m_open.try_emplace(stepId);
      return named(toStepStarted(stepId, artifact["testStepStart"].at("name"), m_passes));
    }
    if (artifact.contains("testStepEnd")) {
      const RunStatus status = statusOf(artifact["testStepEnd"]);
      const auto open = m_open.extract(stepId);
      const OpenStep step = open.empty() ? OpenStep() : open.mapped();
      return StepEnded{stepId, status, step.isAborted, step.skip};
    }
    if (artifact.contains("extension")) {
      const Json& extension = artifact["extension"];
      if (stepId == kCoverageStep && textOf(extension, "name") == kCoverageExtension) {
        return toRunCoverage(extension.at("content"));
      }
      takeExtension(stepId, extension);
      return std::nullopt;
    }
    if (artifact.contains("diagnosis")) {
      StepDiagnosis diagnosis = toStepDiagnosis(stepId, artifact["diagnosis"], m_pass);
      diagnosis.furtherFindings = std::exchange(m_furtherFindings, 0);
      return diagnosis;
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
    return toSeries(stepId, artifact);
  }

  std::optional<RunEventBody> toRunEvent(const Json& artifact) {
    if (artifact.contains("testRunStart")) {
      RunStarted start = toRunStarted(artifact["testRunStart"]);
      if (const auto passes = start.parameters.find("passes"); passes != start.parameters.end()) {
        m_passes = passesOf(passes->second);
      }
      m_names.language = start.language;
      m_names.localNames = start.localNames;
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

  StepStarted named(StepStarted started) const {
    started.localPackage = localNameOf(m_names, started.package);
    started.localTest = localNameOf(m_names, keyOfTest(started.package, started.test));
    return started;
  }

  void takeExtension(const std::string& stepId, const Json& extension) {
    const std::string name = textOf(extension, "name");
    if (name == "pass") {
      const Json& content = extension.at("content");
      m_pass = passesOf(content.value("number", Json(1)).dump(), 0);
      m_furtherFindings =
          static_cast<std::size_t>(std::min(amountOf(content, "furtherFindings"), kMostFurther));
      return;
    }
    const auto open = m_open.find(stepId);
    if (open == m_open.end()) {
      return;
    }
    if (name == "aborted") {
      open->second.isAborted = true;
    } else if (name == "skipped") {
      open->second.skip = skipOf(extension.at("content"));
    }
  }

  /// What was said of a step's end.
  struct OpenStep {
    bool isAborted = false;
    SkipKind skip = SkipKind::NotPossible;
  };

  int m_passes = 1;                        ///< of each test of the run
  RunStarted m_names;                      ///< no more of it than the names
  int m_pass = 1;                          ///< of the next diagnosis
  std::size_t m_furtherFindings = 0;       ///< beside that of the next diagnosis
  std::map<std::string, OpenStep> m_open;  ///< steps that have not ended
};

/// The lines of one run, and where the next begins.
class RunLines {
 public:
  bool hasBegun() const { return m_hasBegun; }
  bool isForeign() const { return m_hasForeign && !m_hasBegun; }
  bool isEndedBy(const Json& line) const {
    return (m_hasBegun && line.contains("schemaVersion")) || (m_hasTold && isRunStart(line));
  }
  /// What is of no log is not looked at: within a run it may be of a newer program.
  void take(const Json& line, const JsonlReader::Sink& sink) {
    m_hasBegun = m_hasBegun || isOfLog(line);
    m_hasForeign = m_hasForeign || !isOfLog(line);
    if (auto body = m_parser.toEvent(line)) {
      m_hasTold = true;
      sink({timeOf(line.at("timestamp")), std::move(*body)});
    }
  }

 private:
  RunParser m_parser;
  bool m_hasBegun = false;
  bool m_hasForeign = false;
  bool m_hasTold = false;  ///< of an event; what precedes the first one tells of nothing yet
};

}  // namespace

JsonlReader::JsonlReader(std::istream& in, std::string name) : m_in(in), m_name(std::move(name)) {}

// Goes on to the next line that is not blank, unless the present one was put back.
bool JsonlReader::nextLine() {
  if (std::exchange(m_isPending, false)) {
    return true;
  }
  while (readLine()) {
    if (m_text.find_first_not_of(" \t\r") != std::string::npos) {
      return true;
    }
  }
  return false;
}

// No more than a line may have is ever held, and a block beside it.
bool JsonlReader::readLine() {
  m_text.clear();
  if (!m_in.good()) {
    return false;
  }
  ++m_line;
  for (;;) {
    if (m_position == m_block.size() && !fillBlock()) {
      m_in.setstate(std::ios::eofbit);
      return !m_text.empty();
    }
    const std::size_t end = m_block.find('\n', m_position);
    const bool isWhole = end != std::string::npos;
    const std::size_t length = (isWhole ? end : m_block.size()) - m_position;
    if (m_text.size() + length > kLongestLine) {
      throw std::runtime_error(fmt::format("{}:{}: {}", m_name, m_line,
                                           tr("the line is longer than {} bytes", kLongestLine)));
    }
    m_text.append(m_block, m_position, length);
    m_position += length + (isWhole ? 1 : 0);
    if (isWhole) {
      return true;
    }
  }
}

// What there is, and no more: whoever writes a pipe may take his time with the rest.
bool JsonlReader::fillBlock() {
  using Traits = std::istream::traits_type;
  constexpr std::streamsize kLargestBlock = 1L << 16U;
  m_position = 0;
  m_block.clear();
  try {
    std::streambuf& source = *m_in.rdbuf();
    if (Traits::eq_int_type(source.sgetc(), Traits::eof())) {
      return false;
    }
    const std::streamsize size = std::clamp<std::streamsize>(source.in_avail(), 1, kLargestBlock);
    m_block.resize(static_cast<std::size_t>(size));
    m_block.resize(static_cast<std::size_t>(source.sgetn(m_block.data(), size)));
    return true;
  } catch (const std::ios_base::failure& failure) {
    throw std::runtime_error(fmt::format("{}: {}", m_name, failure.code().message()));
  }
}

// A process that is killed leaves half a line; a later one appends its run on a line of its own.
bool JsonlReader::endsHere() {
  if (m_in.eof()) {
    return true;
  }
  try {
    m_isPending = nextLine() && parseLine(m_text).contains("schemaVersion");
  } catch (const Json::exception&) {
    return false;
  } catch (const FormatFailure&) {
    return false;
  }
  return m_isPending;
}

void JsonlReader::requireLog(bool isOne) const {
  if (!isOne) {
    throw std::runtime_error(toldAsNoLog(m_name));
  }
}

bool JsonlReader::readRun(const Sink& sink, const LineSink& lines) {
  RunLines run;
  while (nextLine()) {
    const unsigned long number = m_line;
    const auto fail = [&](const std::string& reason) {
      throw std::runtime_error(fmt::format("{}:{}: {}", m_name, number, reason));
    };
    try {
      const Json line = parseLine(m_text);
      if (run.isEndedBy(line)) {
        m_isPending = true;
        return true;
      }
      run.take(line, sink);
      if (lines && run.hasBegun()) {
        lines(m_text, line);
      }
    } catch (const Json::parse_error& failure) {
      if (!endsHere()) {
        requireLog(run.hasBegun());
        fail(tr("it is no JSON from byte {} on", failure.byte));
      }
      if (run.hasBegun()) {
        return true;
      }
    } catch (const Json::exception& failure) {
      fail(reasonOf(failure));
    } catch (const FormatFailure& failure) {
      fail(failure.what());
    }
  }
  requireLog(!run.isForeign());
  return run.hasBegun();
}

}  // namespace TarvexDiags::FrontEnd
