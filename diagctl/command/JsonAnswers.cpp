#include "diagctl/command/JsonAnswers.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

#include "diagctl/session/PackageSettings.h"
#include "packagekit/contract/Privileges.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

using PackageKit::SettingKind;

constexpr int kVersion = 1;

Json documentOf(const std::string& kind) {
  return {{"document", "diagctl." + kind}, {"version", kVersion}};
}

Json orNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

std::vector<std::string> wordsOf(const std::string& list) {
  std::vector<std::string> words;
  std::istringstream parts(list);
  for (std::string word; std::getline(parts, word, ',');) {
    if (!word.empty()) {
      words.push_back(word);
    }
  }
  return words;
}

const char* nameOf(PairState state) {
  switch (state) {
    case PairState::Enabled:
      return "enabled";
    case PairState::Disabled:
      return "disabled";
    case PairState::Unsupported:
    case PairState::Impossible:
      break;
  }
  return "unsupported";
}

Json toJson(const PackageItem& package) {
  return {{"number", package.index},           {"name", package.name},
          {"mnemonic", package.mnemonic},      {"baseName", package.baseName},
          {"version", package.version},        {"description", package.description},
          {"runsAlone", package.takesMachine}, {"devices", package.devices.size()},
          {"tests", package.tests.size()},     {"withdrawnTests", package.withdrawnTests}};
}

Json toJson(const PackageItem& package, const DeviceItem& device) {
  return {{"package", package.name},
          {"number", device.id},
          {"name", device.name},
          {"bytes", device.bytes > 0 ? Json(device.bytes) : Json()},
          {"tag", device.tag},
          {"status", device.status},
          {"statusText", orNull(device.statusText)}};
}

Json pairOf(const PackageItem& package, const DeviceItem& device, const TestItem& test) {
  const PairState state = package.stateOf(device, test);
  return {{"device", device.name},
          {"tag", device.tag},
          {"state", nameOf(state)},
          {"reason", state == PairState::Enabled ? Json() : Json(package.describe(device, test))}};
}

Json toJson(const PackageItem& package, const TestItem& test) {
  Json devices = Json::array();
  for (const DeviceItem& device : package.devices) {
    if (package.stateOf(device, test) != PairState::Impossible) {
      devices.push_back(pairOf(package, device, test));
    }
  }
  return {{"package", package.name},
          {"number", test.id},
          {"name", test.name},
          {"description", test.description},
          {"capabilities", wordsOf(test.capabilities)},
          {"openMode", orNull(test.openMode)},
          {"estimatedSeconds", test.estimatedTime > 0 ? Json(test.estimatedTime) : Json()},
          {"devices", devices}};
}

const char* nameOf(SettingKind kind) {
  switch (kind) {
    case SettingKind::Flag:
      return "flag";
    case SettingKind::Integer:
      return "integer";
    case SettingKind::Count:
      return "count";
    case SettingKind::Number:
      return "number";
    case SettingKind::Duration:
      return "duration";
    case SettingKind::Text:
      break;
  }
  return "text";
}

Json settingsAsJson(const std::vector<SettingItem>& settings) {
  Json list = Json::array();
  for (const SettingItem& item : settings) {
    list.push_back({{"key", item.key},
                    {"kind", nameOf(item.kind)},
                    {"value", orNull(item.value)},
                    {"unit", orNull(item.unit)},
                    {"meaning", orNull(item.meaning)}});
  }
  return list;
}

Json secondsOrNull(long seconds) {
  return seconds < 0 ? Json() : Json(seconds);
}

}  // namespace

Json packagesAsJson(const Catalogue& catalogue) {
  Json document = documentOf("packages");
  document["packages"] = Json::array();
  for (const PackageItem& package : catalogue.packages) {
    document["packages"].push_back(toJson(package));
  }
  document["disabledPackages"] = catalogue.disabledPackages;
  document["lostPackages"] = Json::array();
  for (const LostPackage& package : catalogue.lostPackages) {
    document["lostPackages"].push_back(
        {{"baseName", package.baseName}, {"reason", package.reason}});
  }
  return document;
}

Json devicesAsJson(const Catalogue& catalogue) {
  Json document = documentOf("devices");
  document["devices"] = Json::array();
  for (const PackageItem& package : catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
      document["devices"].push_back(toJson(package, device));
    }
  }
  return document;
}

Json testsAsJson(const Catalogue& catalogue) {
  Json document = documentOf("tests");
  document["tests"] = Json::array();
  for (const PackageItem& package : catalogue.packages) {
    for (const TestItem& test : package.tests) {
      document["tests"].push_back(toJson(package, test));
    }
  }
  return document;
}

Json itemsAsJson(const Catalogue& catalogue, const std::vector<std::string>& patterns,
                 const std::string& directory) {
  Json document = documentOf("items");
  for (const char* kind : {"packages", "devices", "tests"}) {
    document[kind] = Json::array();
  }
  const auto isMeant = [&](const auto& matches, const auto& item) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return matches(pattern, item); });
  };
  for (const PackageItem& package : catalogue.packages) {
    if (isMeant(matchesPackage, package)) {
      document["packages"].push_back(toJson(package));
    }
    for (const DeviceItem& device : package.devices) {
      if (isMeant(matchesDevice, device)) {
        document["devices"].push_back(toJson(package, device));
      }
    }
    for (const TestItem& test : package.tests) {
      if (isMeant(matchesTest, test)) {
        Json item = toJson(package, test);
        const TestRemarks remarks = remarksOfTest(directory, package.baseName, test.id);
        item["needs"] = orNull(remarks.needs);
        item["writes"] = orNull(remarks.writes);
        item["privileges"] = Contract::privilegeWords(remarks.privileges);
        item["settings"] = settingsAsJson(settingsOfTest(directory, package.baseName, test.id));
        document["tests"].push_back(std::move(item));
      }
    }
  }
  return document;
}

Json withPlaces(Json listing, const Configuration& configuration) {
  listing["controlFile"] = configuration.isEmbedded() ? Json() : Json(configuration.source());
  listing["packageDirectories"] = configuration.packageDirectories();
  listing["overlays"] = configuration.overlays();
  return listing;
}

Json estimatesAsJson(const std::vector<Estimate>& estimates) {
  Json document = documentOf("estimate");
  document["tests"] = Json::array();
  for (const Estimate& each : estimates) {
    document["tests"].push_back(
        {{"package", each.pair.package->name},
         {"test", each.pair.test->name},
         {"device", each.pair.device->name},
         {"tag", each.pair.device->tag},
         {"seconds", secondsOrNull(each.seconds < 0 ? -1 : wholeSeconds(each.seconds))}});
  }
  const TimeNeeded sums = sum(estimates);
  document["serialSeconds"] = wholeSeconds(sums.oneAfterTheOther);
  document["parallelSeconds"] = wholeSeconds(sums.sideBySide);
  document["isComplete"] = sums.isComplete;
  return document;
}

Json problemsAsJson(const std::vector<Problem>& problems) {
  Json document = documentOf("problems");
  document["problems"] = Json::array();
  for (const Problem& problem : problems) {
    document["problems"].push_back({{"file", problem.file},
                                    {"section", orNull(problem.section)},
                                    {"key", orNull(problem.key)},
                                    {"reason", problem.reason}});
  }
  return document;
}

Json codesAsJson(const std::vector<Explanation>& explanations) {
  const auto numberOrNull = [](std::optional<unsigned int> number) {
    return number ? Json(*number) : Json();
  };
  Json document = documentOf("codes");
  document["codes"] = Json::array();
  for (const Explanation& each : explanations) {
    document["codes"].push_back({{"family", each.family},
                                 {"name", each.name},
                                 {"severity", each.kind},
                                 {"resultNumber", numberOrNull(each.resultNumber)},
                                 {"eventNumber", numberOrNull(each.eventNumber)},
                                 {"meaning", each.meaning},
                                 {"nextAction", each.action}});
  }
  return document;
}

Json planAsJson(const std::vector<SelectedPair>& pairs) {
  Json document = documentOf("plan");
  document["tests"] = Json::array();
  for (const SelectedPair& pair : pairs) {
    Json test = {{"package", pair.package->name}, {"test", pair.test->name}};
    test.update(pairOf(*pair.package, *pair.device, *pair.test));
    test["runs"] = pair.state == PairState::Enabled;
    document["tests"].push_back(std::move(test));
  }
  return document;
}

// In plain letters: what is none is written out, so that nothing steers a terminal.
void writeJson(Printer& out, const Json& document) {
  constexpr char deleted = '\x7f';
  std::string harmless;
  for (const char character : document.dump(2, ' ', true, Json::error_handler_t::replace)) {
    harmless += character == deleted ? "\\u007f" : std::string(1, character);
  }
  out.write(harmless);
  out.write("\n");
}

}  // namespace TarvexDiags::FrontEnd
