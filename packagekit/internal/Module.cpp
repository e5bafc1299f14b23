#include "packagekit/internal/Module.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "System/SysUtil.h"
#include "packagekit/contract/WorkerPlaces.h"
#include "packagekit/internal/Guard.h"
#include "packagekit/internal/KitSettings.h"
#include "packagekit/internal/PackageLog.h"
#include "packagekit/internal/ProcessTexts.h"
#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::PackageKit {

namespace {

std::string absolute(const char* path) {
  char* const resolved = realpath(path, nullptr);
  if (resolved == nullptr) {
    std::error_code ignored;
    return std::filesystem::absolute(path, ignored).lexically_normal().string();
  }
  std::string text(resolved);
  free(resolved);
  return text;
}

// The file of the shared object that has the function or variable at that address.
std::string objectWith(const void* address) {
  Dl_info info{};
  return dladdr(address, &info) != 0 && info.dli_fname != nullptr ? absolute(info.dli_fname) : "";
}

std::string directoryOf(const std::string& file) {
  const auto separator = file.rfind('/');
  return separator == std::string::npos ? "." : file.substr(0, separator);
}

std::string stemOf(const std::string& file) {
  const auto separator = file.rfind('/');
  const std::string name = separator == std::string::npos ? file : file.substr(separator + 1);
  return name.substr(0, name.rfind('.'));
}

// What the controller makes of a value is what it will ask with. To it, one that is too long is
// none.
std::string asTheControllerReads(const char* key, const std::string& file) {
  constexpr int kRoom = 4096;
  char value[kRoom];
  System::SysUtil::GetParamsValueString("Package", key, "", value, kRoom, file.c_str());
  return value;
}

// Lies in the package's own shared object, as the kit is linked into it.
const char kAnchor = 0;

}  // namespace

Module& Module::instance() {
  static Module module;
  return module;
}

Module::Module() : m_packageFile(objectWith(&kAnchor)) {}

Module::~Module() {
  forgetHung();
}

void Module::setConfigFile(const char* file) {
  const System::LockHold hold(m_lock);
  // The host may change its working directory before a worker reads the file.
  m_configFile = file == nullptr ? "" : absolute(file);
  m_workerFile.clear();
  m_testNames.reset();
}

void Module::setLogDirectory(const char* directory) {
  const System::LockHold hold(m_lock);
  m_logDirectory = directory == nullptr ? "" : absolute(directory);
}

Settings Module::settings() const {
  const System::LockHold hold(m_lock);
  return Settings(m_configFile);
}

std::string Module::baseName() const {
  const System::LockHold hold(m_lock);
  return stemOf(m_configFile);
}

std::string Module::logFile(const std::string& name) const {
  if (name.find('/') != std::string::npos) {
    return name;
  }
  const System::LockHold hold(m_lock);
  if (m_logDirectory.empty() || m_configFile.empty()) {
    return {};
  }
  return m_logDirectory + "/" + (name.empty() ? stemOf(m_configFile) + ".log" : name);
}

void Module::log(const std::string& line) const {
  writeLogLine(logFile(), line);
}

void Module::keepTestNames() {
  const System::LockHold hold(m_lock);
  if (m_testNames) {
    return;
  }
  constexpr long kMostTests = 10'000;  // a wrong count shall keep nobody waiting
  m_testNames.emplace();
  const Settings settings(m_configFile);
  const long count =
      Settings::toInteger(settings.package("NumberOfTests").value_or("")).value_or(0);
  for (int testId = 1; testId <= std::min(count, kMostTests); ++testId) {
    if (auto name = settings.read("TestID" + std::to_string(testId), "TestName")) {
      m_testNames->emplace(testId, *std::move(name));
    }
  }
}

std::string Module::testName(int testId) {
  keepTestNames();
  const System::LockHold hold(m_lock);
  const auto name = m_testNames->find(testId);
  return name != m_testNames->end() ? name->second : "?";
}

const Package* Module::package(DefineFunction define) {
  std::optional<std::string> failure;
  {
    const System::LockHold hold(m_lock);
    if (m_defined) {
      return m_package.get();
    }
    m_defined = true;
    auto package = std::make_unique<Package>();
    failure = failureOf([&] { define(*package); });
    if (!failure) {
      m_package = std::move(package);
      return m_package.get();
    }
  }
  log("the package can't be used: " + *failure);
  return nullptr;
}

Environment Module::environment(DiagnosticMode mode) const {
  return {mode, settings(), {}, 0, [this](const std::string& line) { log(line); }};
}

std::string Module::workerFile() {
  const System::LockHold hold(m_lock);
  if (m_workerFile.empty()) {
    m_workerFile = findWorker();
  }
  return m_workerFile;
}

std::string Module::findWorker() const {
  if (const auto configured = Settings(m_configFile).package(kWorkerPath.key())) {
    // The worker is executed in another directory.
    return absolute(configured->c_str());
  }
  const std::string framework =
      directoryOf(objectWith(reinterpret_cast<const void*>(&System::SysUtil::getOs)));
  const std::vector<std::string> places = Contract::workerPlaces(
      directoryOf(packageFile()), framework, {TARVEX_LIBEXEC_FROM_LIB, TARVEX_LIBEXEC_DIR});
  const auto found = std::find_if(places.begin(), places.end(), [](const std::string& file) {
    return access(file.c_str(), X_OK) == 0;
  });
  return found == places.end() ? "" : *found;
}

DiscoverySetup Module::discoverySetup(DiagnosticMode mode, const std::string& resourceString,
                                      unsigned int deviceType) const {
  const Settings settings = this->settings();
  const auto megabytes =
      Settings::toInteger(settings.package(kMemoryLimit.key()).value_or("")).value_or(0);
  DiscoverySetup setup;
  setup.diagnosticMode = mode;
  setup.resourceString = resourceString;
  setup.deviceType = deviceType;
  setup.configFile = settings.file();
  setup.logFile = logFile();
  setup.memoryLimit = static_cast<std::uint64_t>(std::max(0L, megabytes)) << 20U;
  setup.coreDumps = settings.packageFlag(kCoreDumps.key(), false);
  return setup;
}

// There is nothing to tidy up, so what is to end is killed soon.
DiscoveryPlace Module::discoveryPlace() {
  constexpr double kLongestTermGrace = 0.3;
  const Settings settings = this->settings();
  const auto seconds = [this, &settings](const auto& setting, double fallback) {
    const auto text = settings.package(setting.key());
    const auto value = text ? valueFrom<Seconds>(*text) : Seconds(fallback);
    if (!value) {
      log(setting.key() + "=" + *text + " is no time: " + secondsText(fallback) + " s hold");
    }
    return value ? value->count() : fallback;
  };
  DiscoveryPlace place{baseName(), workerFile(), packageFile(), discoveryPrivileges(), {}};
  place.limits.start = seconds(kDiscoveryTimeout, kDefaultDiscoveryTimeout.count());
  place.limits.exit = seconds(kExitTimeout, place.limits.exit);
  place.limits.abortGrace = 0;
  place.limits.termGrace = std::min(seconds(kTermGrace, kLongestTermGrace), kLongestTermGrace);
  place.limits.killGrace = seconds(kKillGrace, place.limits.killGrace);
  return place;
}

// It answers for all tests whether they can run, so it may do what any of them may.
Contract::Privileges Module::discoveryPrivileges() {
  keepTestNames();
  const System::LockHold hold(m_lock);
  const Settings settings(m_configFile);
  std::string words = settings.package(kPrivileges.key()).value_or("");
  for (const auto& entry : *m_testNames) {
    words += " " + settings.test(entry.first, kPrivileges.key()).value_or("");
  }
  return Contract::privilegesFrom(words);
}

Discovered Module::discover(DiagnosticMode mode, const std::string& resourceString,
                            unsigned int deviceType) {
  Discovered found =
      m_discoverer.find(discoverySetup(mode, resourceString, deviceType), discoveryPlace());
  if (found.unkillable) {
    const System::LockHold hold(m_lock);
    m_forgotten.push_back(*found.unkillable);
  }
  return found;
}

void Module::beginDiscovery(DiagnosticMode mode) {
  const std::string file = settings().file();
  const std::string type = asTheControllerReads("DeviceType", file);
  m_discoverer.begin(
      discoverySetup(mode, asTheControllerReads("ResourceLockProperty", file),
                     static_cast<unsigned int>(std::strtol(type.c_str(), nullptr, 10))),
      discoveryPlace());
}

void Module::markHung(const std::string& resourceTag, pid_t worker) {
  const System::LockHold hold(m_lock);
  m_hung[resourceTag] = worker;
  m_leaving.erase(resourceTag);
}

std::optional<pid_t> Module::hungWorker(const std::string& resourceTag) const {
  const System::LockHold hold(m_lock);
  const auto found = m_hung.find(resourceTag);
  return found == m_hung.end() ? std::nullopt : std::optional<pid_t>(found->second);
}

void Module::markLeaving(const std::string& resourceTag, pid_t worker) {
  const System::LockHold hold(m_lock);
  m_leaving[resourceTag] = worker;
}

std::optional<pid_t> Module::leavingWorker(const std::string& resourceTag) {
  const System::LockHold hold(m_lock);
  const auto found = m_leaving.find(resourceTag);
  if (found != m_leaving.end() && reapIfEnded(found->second)) {
    m_leaving.erase(found);
    return std::nullopt;
  }
  return found == m_leaving.end() ? std::nullopt : std::optional<pid_t>(found->second);
}

void Module::forgetHung() {
  const System::LockHold hold(m_lock);
  for (std::map<std::string, pid_t>* const workers : {&m_hung, &m_leaving}) {
    for (const auto& entry : *workers) {
      m_forgotten.push_back(entry.second);
    }
    workers->clear();
  }
  reapForgotten();
}

void Module::reapForgotten() {
  m_forgotten.erase(std::remove_if(m_forgotten.begin(), m_forgotten.end(), &reapIfEnded),
                    m_forgotten.end());
}

}  // namespace TarvexDiags::PackageKit
