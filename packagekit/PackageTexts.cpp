#include "packagekit/PackageTexts.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <set>
#include <utility>

#include "System/SysUtil.h"
#include "packagekit/KitEvents.h"
#include "packagekit/Settings.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

namespace {

using System::SysUtil;

constexpr std::array<const char*, 4> kCodeSections = {"Information", "Warning", "Error",
                                                      "DeviceStatus"};
constexpr std::array<const char*, 2> kTokenKeys = {"NameToken", "DescriptionToken"};

struct Entry {
  std::string section;
  std::string key;
  std::string value;
};

// All entries of a configuration file in their order; lookups go through Settings.
std::vector<Entry> entriesOf(const std::string& file) {
  std::vector<Entry> entries;
  std::ifstream stream(file);
  std::string section;
  for (std::string line; std::getline(stream, line);) {
    line = SysUtil::stripSpaces(line);
    if (line.empty() || line[0] == '#' || line[0] == ';') {
      continue;
    }
    if (line[0] == '[') {
      section = SysUtil::stripSpaces(line.substr(1, line.find(']') - 1));
      continue;
    }
    const auto equals = line.find('=');
    if (equals != std::string::npos) {
      entries.push_back({section, SysUtil::stripSpaces(line.substr(0, equals)),
                         SysUtil::stripSpaces(line.substr(equals + 1))});
    }
  }
  return entries;
}

// The variables of a text, each as often as it stands there.
std::multiset<std::string> variablesOf(const std::string& text) {
  std::multiset<std::string> variables;
  for (auto begin = text.find('$'); begin != std::string::npos;) {
    const auto end = text.find('$', begin + 1);
    if (end == std::string::npos) {
      variables.insert("a single $");
      break;
    }
    variables.insert(text.substr(begin + 1, end - begin - 1));
    begin = text.find('$', end + 1);
  }
  return variables;
}

bool isUsableCode(const std::string& key) {
  const auto code = Settings::toInteger(key);
  return code && *code >= 0 && *code <= static_cast<long>(kLastKitCode) &&
         std::to_string(*code) == key;
}

class TextCheck {
 public:
  TextCheck(const std::string& directory, const std::string& name)
      : m_directory(directory), m_name(name), m_configuration(directory + "/" + name + ".cfg") {}

  std::vector<std::string> run() {
    const auto entries = entriesOf(m_configuration);
    if (entries.empty()) {
      return {m_configuration + ": missing or empty"};
    }
    collectTokens(entries);
    if (m_needsAction.empty() && m_needsNone.empty()) {
      complain(m_configuration, "no token at all");
    }
    for (const char* const language : Contract::kLanguages) {
      checkLanguage(language);
    }
    return std::move(m_faults);
  }

 private:
  void collectTokens(const std::vector<Entry>& entries) {
    std::set<std::pair<std::string, std::string>> seen;
    for (const Entry& entry : entries) {
      const bool hasCodes = std::find(kCodeSections.begin(), kCodeSections.end(), entry.section) !=
                            kCodeSections.end();
      if (hasCodes) {
        if (!isUsableCode(entry.key)) {
          complain(m_configuration, "[" + entry.section + "] " + entry.key + " is no code");
        } else if (!seen.emplace(entry.section, entry.key).second) {
          complain(m_configuration, "[" + entry.section + "] " + entry.key + " stands twice");
        } else if (entry.value.empty()) {
          complain(m_configuration, "[" + entry.section + "] " + entry.key + " has no token");
        } else {
          m_needsAction.insert(entry.value);
        }
      } else if (std::find(kTokenKeys.begin(), kTokenKeys.end(), entry.key) != kTokenKeys.end()) {
        m_needsNone.insert(entry.value);
      }
    }
  }

  void checkLanguage(const std::string& language) {
    const std::string file = m_directory + "/" + language + "/" + m_name + ".cfg";
    std::map<std::string, std::string> texts;
    for (const Entry& entry : entriesOf(file)) {
      if (entry.section == language) {
        texts.emplace(entry.key, entry.value);
      }
    }
    if (texts.empty()) {
      complain(file, "missing, or without section [" + language + "]");
      return;
    }
    for (const std::string& token : m_needsAction) {
      checkText(file, texts, token);
      checkText(file, texts, Contract::toActionToken(token));
    }
    for (const std::string& token : m_needsNone) {
      checkText(file, texts, token);
    }
  }

  void checkText(const std::string& file, const std::map<std::string, std::string>& texts,
                 const std::string& token) {
    const auto text = texts.find(token);
    if (text == texts.end() || text->second.empty()) {
      complain(file, "no text for " + token);
      return;
    }
    const auto variables = variablesOf(text->second);
    const auto known = m_variables.emplace(token, variables);
    if (known.first->second != variables) {
      complain(file, token + " has other variables than the languages before");
    }
  }

  void complain(const std::string& file, const std::string& fault) {
    m_faults.push_back(file + ": " + fault);
  }

  const std::string m_directory;
  const std::string m_name;
  const std::string m_configuration;
  std::set<std::string> m_needsAction;
  std::set<std::string> m_needsNone;
  std::map<std::string, std::multiset<std::string>> m_variables;
  std::vector<std::string> m_faults;
};

}  // namespace

std::vector<std::string> checkPackageTexts(const std::string& directory, const std::string& name) {
  return TextCheck(directory, name).run();
}

}  // namespace TarvexDiags::PackageKit
