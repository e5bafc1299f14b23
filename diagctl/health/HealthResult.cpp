#include "diagctl/health/HealthResult.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Kind = HealthFinding::Kind;
using StateJson = nlohmann::ordered_json;

constexpr int kStateVersion = 1;

std::string lettersOf(const std::string& name) {
  std::string letters;
  for (const char character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) != 0) {
      letters += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
  }
  return letters;
}

// "Memory of node 0" at "host/node0" is no news.
std::string placeOf(const std::string& device, const std::string& tag) {
  const std::string last = tag.substr(tag.rfind('/') + 1);
  return lettersOf(device).find(lettersOf(last)) != std::string::npos ? "" : last;
}

HealthFinding findingOf(const StepRecord& step, Kind kind, const DeviceLocations& locations) {
  const std::string text = withoutDevice(headOf(step), step.start);
  return {kind,
          step.start.package,
          step.start.test,
          step.start.device,
          placeOf(step.start.device, locations.of(step.start)),
          text.empty() ? tr("It came to no end.") : text,
          step.headlineAction()};
}

void keepFinding(HealthAccount& account, HealthFinding finding) {
  if (account.findings.size() < HealthAccount::kMostFindings) {
    account.findings.push_back(std::move(finding));
  } else {
    ++account.further;
  }
}

}  // namespace

HealthAccount accountOf(const RunRecord& record, const DeviceLocations& locations) {
  using Outcome = StepRecord::Outcome;
  HealthAccount account;
  account.code = exitCodeOf(record, {});
  account.summary = summaryOf(record);
  // Tests run in any order, and a fault that stays is to be told in the same words each time.
  std::vector<const StepRecord*> steps = record.steps();
  std::stable_sort(steps.begin(), steps.end(), [](const StepRecord* one, const StepRecord* other) {
    const auto names = [](const StepStarted& start) {
      return std::tie(start.package, start.test, start.device);
    };
    return names(one->start) < names(other->start);
  });
  const auto take = [&](Outcome outcome, Kind kind) {
    for (const StepRecord* const step : steps) {
      if (step->outcome() == outcome) {
        keepFinding(account, findingOf(*step, kind, locations));
      }
    }
  };
  take(Outcome::Failed, Kind::Failure);
  for (const std::string& trouble : record.troubles()) {
    keepFinding(account, {Kind::NoVerdict, "", "", "", "", trouble, ""});
  }
  take(Outcome::Trouble, Kind::NoVerdict);
  take(Outcome::Warning, Kind::Warning);
  return account;
}

namespace {

constexpr std::pair<const char*, Kind> kKinds[] = {
    {"failure", Kind::Failure}, {"no-verdict", Kind::NoVerdict}, {"warning", Kind::Warning}};

constexpr std::pair<const char*, std::size_t RunSummary::*> kCounts[] = {
    {"passed", &RunSummary::passed},   {"failed", &RunSummary::failed},
    {"warned", &RunSummary::warned},   {"troubled", &RunSummary::troubled},
    {"aborted", &RunSummary::aborted}, {"notRun", &RunSummary::notRun},
    {"skipped", &RunSummary::skipped}, {"skippedForPrivilege", &RunSummary::skippedForPrivilege},
};

constexpr std::pair<const char*, std::string HealthFinding::*> kTexts[] = {
    {"package", &HealthFinding::package}, {"test", &HealthFinding::test},
    {"device", &HealthFinding::device},   {"location", &HealthFinding::location},
    {"text", &HealthFinding::text},       {"action", &HealthFinding::action},
};

StateJson jsonOf(const HealthFinding& finding) {
  StateJson json;
  for (const auto& [name, kind] : kKinds) {
    if (kind == finding.kind) {
      json["kind"] = name;
    }
  }
  for (const auto& [name, member] : kTexts) {
    json[name] = finding.*member;
  }
  return json;
}

StateJson jsonOf(const HealthAccount& account) {
  StateJson json{{"code", account.code}};
  for (const auto& [name, member] : kCounts) {
    json["counts"][name] = account.summary.*member;
  }
  json["findings"] = StateJson::array();
  for (const HealthFinding& finding : account.findings) {
    json["findings"].push_back(jsonOf(finding));
  }
  json["further"] = account.further;
  return json;
}

[[noreturn]] void refuseState(const std::string& key) {
  throw std::runtime_error(tr("'{}' is not as it is written", key));
}

/// What stands at a key, of the type that it must have.
template <class Value>
Value valueAt(const StateJson& json, const char* key) {
  const auto entry = json.is_object() ? json.find(key) : json.end();
  bool isFitting = entry != json.end();
  if constexpr (std::is_same_v<Value, std::string>) {
    isFitting = isFitting && entry->is_string();
  } else if constexpr (std::is_same_v<Value, double>) {
    isFitting = isFitting && entry->is_number();
  } else if constexpr (std::is_same_v<Value, StateJson>) {
    isFitting = isFitting && entry->is_structured();
  } else {
    isFitting = isFitting && entry->is_number_integer() &&
                (std::is_signed_v<Value> || entry->is_number_unsigned());
  }
  if (!isFitting) {
    refuseState(key);
  }
  return entry->template get<Value>();
}

HealthFinding findingFrom(const StateJson& json) {
  HealthFinding finding;
  const std::string word = valueAt<std::string>(json, "kind");
  const auto* const known = std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [&](const auto& entry) { return entry.first == word; });
  if (known == std::end(kKinds)) {
    refuseState("kind");
  }
  finding.kind = known->second;
  for (const auto& [name, member] : kTexts) {
    finding.*member = valueAt<std::string>(json, name);
  }
  return finding;
}

HealthAccount accountFrom(const StateJson& json) {
  HealthAccount account;
  const auto code = valueAt<long>(json, "code");
  if (code < ExitCode::kPassed || code > ExitCode::kNothingRan) {
    refuseState("code");
  }
  account.code = static_cast<int>(code);
  const auto counts = valueAt<StateJson>(json, "counts");
  for (const auto& [name, member] : kCounts) {
    account.summary.*member = valueAt<std::size_t>(counts, name);
  }
  for (const StateJson& finding : valueAt<StateJson>(json, "findings")) {
    keepFinding(account, findingFrom(finding));
  }
  account.further += valueAt<std::size_t>(json, "further");
  return account;
}

// The clock counts nanoseconds: a count of milliseconds may be beyond all that it knows.
std::chrono::system_clock::time_point timeFrom(long milliseconds) {
  using Time = std::chrono::system_clock::time_point;
  constexpr long kMost =
      std::chrono::floor<std::chrono::milliseconds>(Time::max()).time_since_epoch().count();
  if (milliseconds < 0 || milliseconds > kMost) {
    refuseState("endedMilliseconds");
  }
  return Time(std::chrono::milliseconds(milliseconds));
}

}  // namespace

std::string toText(const HealthResult& result) {
  const auto ended =
      std::chrono::duration_cast<std::chrono::milliseconds>(result.ended.time_since_epoch());
  const StateJson json{{"version", kStateVersion},
                       {"machine", result.machineId},
                       {"scope", result.scope},
                       {"endedMilliseconds", ended.count()},
                       {"seconds", result.seconds},
                       {"vanishedIsTrouble", jsonOf(result.whereVanishedIsTrouble)},
                       {"vanishedFails", jsonOf(result.whereVanishedFails)}};
  constexpr bool isAscii = true;  // so that nothing of it has to be made printable
  return json.dump(1, ' ', isAscii, StateJson::error_handler_t::replace) + "\n";
}

HealthResult healthResultFrom(const std::string& text) {
  const StateJson json = StateJson::parse(text, nullptr, false);
  if (json.is_discarded()) {
    throw std::runtime_error(tr("it is no whole document"));
  }
  if (valueAt<long>(json, "version") != kStateVersion) {
    throw std::runtime_error(tr("another version of the program has written it"));
  }
  HealthResult result;
  result.machineId = valueAt<std::string>(json, "machine");
  result.scope = valueAt<std::string>(json, "scope");
  result.ended = timeFrom(valueAt<long>(json, "endedMilliseconds"));
  result.seconds = valueAt<double>(json, "seconds");
  result.whereVanishedIsTrouble = accountFrom(valueAt<StateJson>(json, "vanishedIsTrouble"));
  result.whereVanishedFails = accountFrom(valueAt<StateJson>(json, "vanishedFails"));
  return result;
}

}  // namespace TarvexDiags::FrontEnd
