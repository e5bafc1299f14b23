#include "diagctl/check/PackageCheck.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "diagctl/check/CheckRules.h"
#include "diagctl/check/SettingsCheck.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Estimate.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/contract/ReaderKeys.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

const std::vector<KeyRule> kPackageRules = {
    {"PackageName", ValueKind::Text, true},
    {"Mnemonic", ValueKind::Text, true},
    {"PackageVersion", ValueKind::Text, true},
    {"PackageDescription", ValueKind::Text, true},
    {"SystemLock", ValueKind::Truth, true},
    {"DeviceType", ValueKind::Number, false},
    {"NumberOfTests", ValueKind::PositiveNumber, true},
    {"Nice", ValueKind::Niceness, false},
    {PackageKit::Contract::kPrivilegesKey, ValueKind::Privileges, false},
    {"ResourceLockProperty", ValueKind::Text, false},
    {"SODependencies", ValueKind::Text, false},
    {PackageKit::Contract::kTestNeeds, ValueKind::Text, false},
    {PackageKit::Contract::kTestWrites, ValueKind::Text, false},
    {"NameToken", ValueKind::Text, false},
    {"DescriptionToken", ValueKind::Text, false},
};

const std::vector<KeyRule> kTestRules = {
    {"TestName", ValueKind::Text, true},
    {"TestDescription", ValueKind::Text, true},
    {"TestDisable", ValueKind::Truth, true},
    {"TestOpenMode", ValueKind::OpenMode, false},
    {"TestEstimatedTime", ValueKind::Number, false},
    {PackageKit::Contract::kQuickEstimateKey, ValueKind::Seconds, false},
    {"Nice", ValueKind::Niceness, false},
    {PackageKit::Contract::kPrivilegesKey, ValueKind::Privileges, false},
    {"TestCapabilities", ValueKind::Text, false},
    {PackageKit::Contract::kTestNeeds, ValueKind::Text, false},
    {PackageKit::Contract::kTestWrites, ValueKind::Text, false},
    {PackageKit::Contract::kTestProvokes, ValueKind::Findings, false},
    {"NameToken", ValueKind::Text, false},
    {"DescriptionToken", ValueKind::Text, false},
};

const std::vector<KeyRule> kDisabledTestRules = {
    {"TestID", ValueKind::PositiveNumber, true},
    {"MachineId", ValueKind::Number, false},
    {"Os", ValueKind::OperatingSystem, false},
};

const std::vector<KeyRule> kDisabledDeviceRules = {
    {"TestID", ValueKind::PositiveNumber, true},
    {"NumberOfDevice", ValueKind::PositiveNumber, true},
    {"MachineId", ValueKind::Number, false},
    {"Os", ValueKind::OperatingSystem, false},
};

constexpr const char* kExports[] = {"setPackageConfigFile", "getIDeviceEnumerator",
                                    "getIDiagnostics"};
constexpr const char* kTokenSections[] = {"Information", "Warning", "Error", "DeviceStatus"};
constexpr const char* kTestSection = "TestID";

// Wrong counts shall not fill the screen, nor the memory where they multiply.
constexpr int kMostEntries = 10'000;
constexpr std::size_t kMostProblems = 10'000;  ///< about, of a package

int countOf(const ConfigurationText& text, const std::string& section, const char* key) {
  const std::string value = text.value(section, key).value_or("0");
  return findFault(ValueKind::Number, value).empty() ? std::min(std::stoi(value), kMostEntries) : 0;
}

class PackageChecker {
 public:
  PackageChecker(std::string file, const ConfigurationText& text, std::vector<Problem>& problems)
      : m_file(std::move(file)),
        m_text(text),
        m_problems(problems),
        m_most(problems.size() + kMostProblems) {}

  void check(bool mayLoad) {
    checkRemarks(m_text, m_file, m_problems);
    checkKeys(m_text, m_file, "Package", kPackageRules, m_problems);
    checkTests();
    checkEntries("Disable Test", "DisableTestID", kDisabledTestRules);
    checkEntries("Disable Device", "DisableDeviceTestID", kDisabledDeviceRules);
    checkLibrary(mayLoad);
    checkDependency(mayLoad);
    collectTokens();
    for (const std::string& language : languages()) {
      checkTexts(language);
    }
    if (isFull()) {
      tell("", "",
           tr("there are more problems than {}, and not all of them are told", kMostProblems));
    }
  }

 private:
  bool isFull() const { return m_problems.size() >= m_most; }

  void tell(const std::string& section, const std::string& key, const std::string& reason) {
    m_problems.push_back({m_file, section, key, reason});
  }

  void checkTests() {
    const int count = countOf(m_text, "Package", "NumberOfTests");
    for (int test = 1; test <= count && !isFull(); ++test) {
      checkKeys(m_text, m_file, fmt::format("{}{}", kTestSection, test), kTestRules, m_problems);
    }
    for (const std::string& section : m_text.sections()) {
      const std::string number = section.substr(std::min(section.size(), std::size_t{6}));
      if (section.rfind(kTestSection, 0) == 0 && findFault(ValueKind::Number, number).empty() &&
          std::stoi(number) > count) {
        tell(section, "", tr("the test is not read, since NumberOfTests is {}", count));
      }
    }
  }

  void checkEntries(const std::string& listSection, const char* entryName,
                    const std::vector<KeyRule>& rules) {
    checkKeys(m_text, m_file, listSection, {{"NumberOfTests", ValueKind::Number, false}},
              m_problems);
    const int tests = countOf(m_text, "Package", "NumberOfTests");
    const int entries = countOf(m_text, listSection, "NumberOfTests");
    for (int entry = 1; entry <= entries && !isFull(); ++entry) {
      const std::string section = fmt::format("{}{}", entryName, entry);
      checkKeys(m_text, m_file, section, rules, m_problems);
      if (const int test = countOf(m_text, section, "TestID"); test > tests) {
        tell(section, "TestID", tr("the package has no test {}", test));
      }
      const int devices = countOf(m_text, section, "NumberOfDevice");
      for (int device = 1; device <= devices && !isFull(); ++device) {
        const std::string key = fmt::format("DeviceName{}", device);
        if (!m_text.value(section, key)) {
          tell(section, key, tr("the key is missing"));
        }
      }
    }
  }

  void checkLibrary(bool mayLoad) {
    const fs::path file(m_file);
    const std::string library =
        (file.parent_path() / ("lib" + file.stem().string() + ".so")).string();
    std::error_code failure;
    const fs::file_status status = fs::status(library, failure);
    if (status.type() == fs::file_type::not_found) {
      m_problems.push_back({library, "", "", tr("the shared object of the package is missing")});
      return;
    }
    if (failure) {
      m_problems.push_back({library, "", "", failure.message()});
      return;
    }
    if (!mayLoad || !fs::is_regular_file(status)) {
      return;
    }
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      m_problems.push_back({library, "", "", tr("it cannot be loaded: {}", dlerror())});
      return;
    }
    for (const char* name : kExports) {
      if (dlsym(handle, name) == nullptr) {
        m_problems.push_back({library, "", name, tr("the export is missing")});
      }
    }
    checkOwnKeys(handle);
    dlclose(handle);
  }

  // Only the package knows which keys it reads; one that does not tell may read any.
  void checkOwnKeys(void* handle) {
    void* const symbol = dlsym(handle, PackageKit::kDescribeSettings);
    if (symbol == nullptr) {
      return;
    }
    const char* const told = reinterpret_cast<const char* (*)()>(symbol)();
    const auto rules = PackageKit::settingRulesFrom(told == nullptr ? "" : told);
    if (!rules.empty()) {
      checkSettings(m_text, m_file, countOf(m_text, "Package", "NumberOfTests"),
                    {kPackageRules, kTestRules}, rules, m_problems);
    }
  }

  // Looked for beside the package, then as the loader finds it.
  void checkDependency(bool mayLoad) {
    const auto name = m_text.value("Package", "SODependencies");
    if (!name || !mayLoad) {
      return;
    }
    const std::string beside = (fs::path(m_file).parent_path() / *name).string();
    for (const std::string& path : {beside, *name}) {
      std::error_code ignored;
      if (fs::is_fifo(path, ignored) || fs::is_character_file(path, ignored)) {
        tell("Package", "SODependencies", tr("'{}' is no regular file", path));
        return;  // the loader would wait for it
      }
      if (void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); handle != nullptr) {
        dlclose(handle);
        return;
      }
    }
    tell("Package", "SODependencies", tr("'{}' cannot be loaded: {}", *name, dlerror()));
  }

  void collectTokens() {
    for (const char* section : kTokenSections) {
      for (const auto& [code, token] : m_text.keys(section)) {
        if (!findFault(ValueKind::Number, code).empty()) {
          tell(section, code, tr("the key is no code"));
        } else if (token.empty()) {
          tell(section, code, tr("the code has no token"));
        } else {
          m_tokens.insert(token);
        }
      }
    }
    for (const std::string& section : m_text.sections()) {
      for (const char* key : {"NameToken", "DescriptionToken"}) {
        if (const auto token = m_text.value(section, key)) {
          m_tokens.insert(*token);
        }
      }
    }
  }

  // Every directory beside the package that holds texts is a language; English is always one.
  std::set<std::string> languages() const {
    std::set<std::string> names;
    if (m_tokens.empty()) {
      return names;
    }
    names.insert("en");
    std::error_code failure;
    for (fs::directory_iterator entry(fs::path(m_file).parent_path(), failure), end;
         !failure && entry != end; entry.increment(failure)) {
      const std::string name = entry->path().filename().string();
      std::error_code ignored;
      if (entry->is_directory(ignored) && name.size() == 2) {
        names.insert(name);
      }
    }
    return names;
  }

  void checkTexts(const std::string& language) {
    const fs::path file(m_file);
    const std::string path = (file.parent_path() / language / file.filename()).string();
    std::error_code failure;
    if (const auto type = fs::status(path, failure).type();
        type != fs::file_type::regular && type != fs::file_type::not_found) {
      return;  // told already
    }
    const auto texts = ConfigurationText::read(path);
    if (!texts) {
      m_problems.push_back({path, "", "", tr("the file of texts is missing or cannot be read")});
      return;
    }
    checkRemarks(*texts, path, m_problems);
    for (const std::string& token : m_tokens) {
      const auto text = texts->value(language, token);
      if (!text) {
        m_problems.push_back({path, language, token, tr("the token has no text")});
      } else if (std::count(text->begin(), text->end(), '$') % 2 != 0) {
        m_problems.push_back({path, language, token, tr("a \"$\" has no counterpart")});
      }
    }
  }

  std::string m_file;
  const ConfigurationText& m_text;
  std::vector<Problem>& m_problems;
  const std::size_t m_most;  ///< problems, from where on counts are no longer followed
  std::set<std::string> m_tokens;
};

}  // namespace

void checkPackage(const std::string& descriptionFile, bool mayLoad,
                  std::vector<Problem>& problems) {
  std::string reason;
  const auto text = ConfigurationText::read(descriptionFile, reason);
  if (!text) {
    problems.push_back({descriptionFile, "", "", tr("the file cannot be read: {}", reason)});
    return;
  }
  PackageChecker(descriptionFile, *text, problems).check(mayLoad);
}

}  // namespace TarvexDiags::FrontEnd
