#include "tests/diagctl/ReportedRun.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <regex>
#include <stdexcept>
#include <thread>

#include "tests/diagctl/Reports.h"
#include "tests/diagctl/Workplace.h"

namespace TarvexDiags::DiagctlTest {

namespace {

using Json = nlohmann::json;

constexpr const char* kFormats[] = {"text", "jsonl", "junit", "tap"};

std::string trimmed(std::string word) {
  word.erase(word.find_last_not_of(' ') + 1);
  return word;
}

// The weightiest of what the log says of a step.
std::string verdictOfLog(const std::set<std::string>& said) {
  static const std::pair<const char*, const char*> kWeights[] = {
      {"FAIL", "FAILED"},  {"error", "ERROR"},     {"ERROR", "ERROR"},    {"aborted", "ABORTED"},
      {"SKIP", "SKIPPED"}, {"UNKNOWN", "WARNING"}, {"warning", "WARNING"}};
  for (const auto& [word, verdict] : kWeights) {
    if (said.contains(word)) {
      return verdict;
    }
  }
  return said.contains("COMPLETE") ? "PASSED" : "ERROR";
}

}  // namespace

ReportedRun::Accounts ReportedRun::readText(const std::string& report) {
  static const std::regex kStep(
      R"((PASSED |FAILED |WARNING|ERROR  |ABORTED|SKIPPED)  (.*: .* on .*?)(, \d+ of \d+ passes)?(   \d+\.\d s(   .*)?)?)");
  Accounts accounts;
  Account* present = nullptr;
  for (const std::string& line : linesOf(report)) {
    std::smatch match;
    if (line.rfind("         ", 0) == 0 && present != nullptr) {
      present->text += line + "\n";
    } else if (std::regex_match(line, match, kStep)) {
      present = &accounts[match[2]];
      present->verdict = trimmed(match[1]);
    } else {
      present = nullptr;
    }
  }
  return accounts;
}

ReportedRun::Accounts ReportedRun::readLog(const std::string& report) {
  std::map<std::string, std::string> names;
  std::map<std::string, std::set<std::string>> said;
  Accounts accounts;
  for (const Json& line : parseLines(report)) {
    const Json artifact = line.value("testStepArtifact", Json());
    if (artifact.is_null() || isOfCoverage(artifact)) {
      continue;
    }
    const std::string id = artifact["testStepId"];
    if (artifact.contains("testStepStart")) {
      names[id] = artifact["testStepStart"]["name"];
    }
    Account& account = accounts[names.at(id)];
    std::set<std::string>& words = said[names.at(id)];
    if (artifact.contains("diagnosis")) {
      words.insert(std::string(artifact["diagnosis"]["type"]));
      if (artifact["diagnosis"]["type"] != "PASS") {
        account.symptoms.insert(std::string(artifact["diagnosis"]["verdict"]));
      }
    } else if (artifact.contains("error")) {
      words.insert("error");
    } else if (artifact.contains("log") && artifact["log"]["severity"] == "WARNING") {
      words.insert("warning");
    } else if (artifact.contains("extension") && artifact["extension"]["name"] == "aborted") {
      words.insert("aborted");
    } else if (artifact.contains("testStepEnd")) {
      words.insert(std::string(artifact["testStepEnd"]["status"]));
    }
    account.text += artifact.dump() + "\n";
  }
  for (auto& [name, account] : accounts) {
    account.verdict = verdictOfLog(said[name]);
  }
  return accounts;
}

ReportedRun::Accounts ReportedRun::readXml(const std::string& report) {
  static const std::map<std::string, std::string> kVerdicts = {
      {"failure", "FAILED"}, {"error", "ERROR"}, {"skipped", "SKIPPED"}, {"system-out", "WARNING"}};
  const Json document = parseXml(report);
  Accounts accounts;
  for (const Json& suite : document["children"]) {
    for (const Json& each : suite["children"]) {
      const Json& attributes = each["attributes"];
      Account& account =
          accounts[std::string(attributes["classname"]) + ": " + std::string(attributes["name"])];
      account.verdict = "PASSED";
      for (const Json& child : each["children"]) {
        if (child["tag"] == "properties") {
          continue;
        }
        const std::string type = child["attributes"].value("type", "");
        account.verdict = type == "aborted" ? "ABORTED" : kVerdicts.at(child["tag"]);
        if (!type.empty() && type != "aborted") {
          account.symptoms.insert(std::string(child["attributes"]["type"]));
        }
        account.text +=
            child["attributes"].value("message", "") + "\n" + std::string(child["text"]) + "\n";
      }
    }
  }
  return accounts;
}

// A warning is told by what is remarked of a point that is well.
ReportedRun::Accounts ReportedRun::readTap(const std::string& report) {
  Accounts accounts;
  for (const Point& point : parseTap(report).points) {
    const bool isSkipped =
        point.directive.starts_with("SKIP") || point.directive.starts_with("TODO");
    const std::string well = point.remarks.empty() ? "PASSED" : "WARNING";
    const auto word = point.words.find("verdict");
    Account& account = accounts[point.name];
    account.verdict = isSkipped                   ? "SKIPPED"
                      : word != point.words.end() ? word->second
                      : point.isOk                ? well
                                                  : "not ok";
    if (const auto symptom = point.words.find("symptom"); symptom != point.words.end()) {
      account.symptoms.insert(symptom->second);
    }
    account.text = point.directive + "\n";
    for (const std::string& remark : point.remarks) {
      account.text += remark + "\n";
    }
    for (const auto& [key, texts] : point.lists) {
      for (const std::string& text : texts) {
        account.text += text + "\n";
      }
    }
  }
  return accounts;
}

std::set<std::string> ReportedRun::steps() const {
  std::set<std::string> names;
  for (const auto& [format, accounts] : m_formats) {
    for (const auto& [name, account] : accounts) {
      names.insert(name);
    }
  }
  return names;
}

std::set<std::string> ReportedRun::verdictsOf(const std::string& step) const {
  std::set<std::string> verdicts;
  for (const auto& [format, accounts] : m_formats) {
    const auto account = accounts.find(step);
    verdicts.insert(account != accounts.end() ? account->second.verdict : "missing in " + format);
  }
  return verdicts;
}

std::set<std::string> ReportedRun::symptomsOf(const std::string& step) const {
  std::set<std::string> symptoms;
  for (const auto& [format, accounts] : m_formats) {
    if (const auto account = accounts.find(step); account != accounts.end()) {
      symptoms.insert(account->second.symptoms.begin(), account->second.symptoms.end());
    }
  }
  return symptoms;
}

std::vector<std::string> ReportedRun::formatsWithout(const std::string& step,
                                                     const std::string& text) const {
  std::vector<std::string> formats;
  for (const char* const format : kFormats) {
    if (accountOf(step, format).find(text) == std::string::npos) {
      formats.emplace_back(format);
    }
  }
  return formats;
}

std::string ReportedRun::accountOf(const std::string& step, const std::string& format) const {
  const Accounts& accounts = m_formats.at(format);
  const auto account = accounts.find(step);
  return account != accounts.end() ? account->second.text : "";
}

ReportedProgram::ReportedProgram(const std::vector<std::string>& arguments,
                                 const Program::Options& options)
    : m_program(withOutputs(arguments), options) {}

std::string ReportedProgram::fileOf(const std::string& format) const {
  return m_place.file("report." + format);
}

std::vector<std::string> ReportedProgram::withOutputs(std::vector<std::string> arguments) const {
  for (const char* const format : kFormats) {
    arguments.insert(arguments.end(), {"-o", format + ("=" + fileOf(format))});
  }
  return arguments;
}

bool ReportedProgram::waitForLog(const std::string& text, std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (contentsOf(fileOf("jsonl")).find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

ReportedRun ReportedProgram::finish() {
  ReportedRun run;
  run.m_outcome = m_program.finish();
  const std::map<std::string, std::function<ReportedRun::Accounts(const std::string&)>> readers = {
      {"text", ReportedRun::readText},
      {"jsonl", ReportedRun::readLog},
      {"junit", ReportedRun::readXml},
      {"tap", ReportedRun::readTap}};
  for (const auto& [format, read] : readers) {
    run.m_formats[format] = read(contentsOf(fileOf(format)));
  }
  run.m_faultsOfLog = faultsOf(parseLines(contentsOf(fileOf("jsonl"))));
  return run;
}

ReportedRun reportedRun(const std::vector<std::string>& arguments,
                        const Program::Options& options) {
  return ReportedProgram(arguments, options).finish();
}

}  // namespace TarvexDiags::DiagctlTest
