#include "packagekit/testing/PackageDriver.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "DeviceEnum/IDeviceEnumerator.h"
#include "packagekit/KitEvents.h"
#include "packagekit/ResourceTags.h"
#include "packagekit/Settings.h"
#include "packagekit/contract/DiscoveryLines.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"

namespace TarvexDiags::PackageKit::Testing {

namespace {

namespace fs = std::filesystem;
using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticStatus;

constexpr auto kPollInterval = std::chrono::milliseconds(2);

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what);
}

std::string textOf(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

fs::path makeTemporaryDirectory() {
  std::string pattern = (fs::temp_directory_path() / "package-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    fail("no temporary directory");
  }
  return pattern;
}

// @param options kept alive by the caller.
Diag::DiagnosticSettings settingsOf(const PackageDriver::Options& options,
                                    const std::vector<int>& testIds) {
  Diag::DiagnosticSettings settings(options.quickMode, options.stressMode, options.haltOnError,
                                    options.reportStatusMessage, false, "", options.requestId,
                                    options.runTime, options.requestedPassCount, options.passCount,
                                    options.openMode);
  settings.setTestNumberVector(testIds);
  settings.setEstimationMode(options.estimationMode);
  if (!options.parameters.empty()) {
    settings.setParameterPointer(const_cast<char*>(options.parameters.c_str()));
  }
  return settings;
}

}  // namespace

class PackageDriver::Implementation {
 public:
  Implementation(const std::string& directory, const std::string& name, DiagnosticMode mode)
      : m_name(name),
        m_mode(mode),
        m_work(makeTemporaryDirectory()),
        m_original(textOf(fs::path(directory) / (name + ".cfg"))),
        m_configFile((m_work / (name + ".cfg")).string()) {
    if (m_original.empty()) {
      fail("no configuration file " + name + ".cfg in " + directory);
    }
    const fs::path object = fs::path(directory) / ("lib" + name + ".so");
    m_handle = dlopen(object.c_str(), RTLD_NOW);
    if (m_handle == nullptr) {
      fail(dlerror());
    }
    writeConfiguration();
    call<void (*)(const char*)>("setPackageLogDir")(m_work.c_str());
  }

  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  ~Implementation() {
    m_devices.clear();
    dlclose(m_handle);
    std::error_code ignored;
    fs::remove_all(m_work, ignored);
  }

  // The first entry of a name counts, so the new ones go to the top.
  void set(const std::string& section, const std::string& key, const std::string& value) {
    m_changes = "[" + section + "]\n" + key + "=" + value + "\n" + m_changes;
    writeConfiguration();
  }

  void beginDiscovery() {
    call<void (*)(const char*, const char*, DiagnosticMode)>(Contract::kBeginDiscovery)(
        m_configFile.c_str(), m_work.c_str(), m_mode);
  }

  DeviceEnum::VirtualDeviceVector& devices() {
    if (!m_isEnumerated) {
      const std::unique_ptr<DeviceEnum::IDeviceEnumerator> enumerator(
          call<DeviceEnum::IDeviceEnumerator* (*)(bool, DiagnosticMode)>("getIDeviceEnumerator")(
              true, m_mode));
      if (!enumerator) {
        fail("no enumerator");
      }
      const Settings settings(m_configFile);
      const auto type = Settings::toInteger(settings.package("DeviceType").value_or("0"));
      const auto* const found =
          enumerator->getDeviceVector(settings.package("ResourceLockProperty").value_or("").c_str(),
                                      static_cast<Uint>(type.value_or(0)));
      if (found == nullptr) {
        fail("no device vector");
      }
      m_devices = *found;
      m_isEnumerated = true;
    }
    return m_devices;
  }

  void forgetDevices() {
    m_devices.clear();
    m_isEnumerated = false;
  }

  DeviceEnum::VirtualDevice& device(const std::string& component) {
    auto& all = devices();
    const auto found = std::find_if(all.begin(), all.end(), [&](DeviceEnum::VirtualDevice& device) {
      return lastComponent(device.getDevice()->getResourceTag()) == component;
    });
    if (found == all.end()) {
      fail("no device " + component);
    }
    return *found;
  }

  std::unique_ptr<Diag::IDiagnostics> makeDiagnostics() {
    std::unique_ptr<Diag::IDiagnostics> diagnostics(
        call<Diag::IDiagnostics* (*)(bool, DiagnosticMode)>("getIDiagnostics")(true, m_mode));
    if (!diagnostics) {
      fail("no diagnostics object");
    }
    return diagnostics;
  }

  Run run(DeviceEnum::VirtualDevice& device, const std::vector<int>& testIds,
          const Options& options) {
    const auto diagnostics = makeDiagnostics();
    Diag::DiagnosticSettings settings = settingsOf(options, testIds);
    Run run{};
    const auto start = std::chrono::steady_clock::now();
    std::thread pass([&] {
      const DiagnosticResult* const result = diagnostics->runDiagnostic(device, &settings);
      run.verdict = result->getTestResult();
      run.estimatedTime = result->getEstimatedTime();
    });
    do {
      std::this_thread::sleep_for(kPollInterval);
      drain(*diagnostics, run);
    } while (diagnostics->getDiagnosticStatus().getStatus() != DiagnosticStatus::COMPLETED);
    pass.join();
    drain(*diagnostics, run);
    drainResults(*diagnostics, run);
    run.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    if (run.results.empty()) {
      fail("a run without a result");
    }
    return run;
  }

  std::string logText() const { return textOf(m_work / (m_name + ".log")); }
  const std::string& configFile() const { return m_configFile; }
  std::vector<std::string> eventsWithoutToken() const {
    return {m_withoutToken.begin(), m_withoutToken.end()};
  }

 private:
  template <class Function>
  Function call(const char* name) {
    void* const address = dlsym(m_handle, name);
    if (address == nullptr) {
      fail(std::string("no export ") + name);
    }
    return reinterpret_cast<Function>(address);
  }

  void writeConfiguration() {
    std::ofstream(m_configFile) << m_changes << m_original;
    call<void (*)(const char*)>("setPackageConfigFile")(m_configFile.c_str());
  }

  void drain(Diag::IDiagnostics& diagnostics, Run& run) {
    const std::unique_ptr<std::vector<DiagnosticEvent*>> given(diagnostics.getDiagnosticEvents());
    if (!given) {
      return;
    }
    const Settings settings(m_configFile);
    for (DiagnosticEvent* const event : *given) {
      run.events.push_back({event->getEventType(), event->getEventCode(), event->getParamVector()});
      const std::string code = std::to_string(event->getEventCode());
      if (m_known.insert(code).second &&
          !settings.read(Contract::sectionOf(event->getEventType()), code)) {
        m_withoutToken.insert(code);
      }
      delete event;
    }
  }

  static void drainResults(Diag::IDiagnostics& diagnostics, Run& run) {
    const std::unique_ptr<std::vector<DiagnosticResult*>> given(diagnostics.getDiagnosticResults());
    if (!given) {
      return;
    }
    for (DiagnosticResult* const result : *given) {
      run.results.push_back(result->getTestResult());
      delete result;
    }
  }

  const std::string m_name;
  const DiagnosticMode m_mode;
  const fs::path m_work;
  const std::string m_original;
  const std::string m_configFile;
  std::string m_changes;
  void* m_handle = nullptr;
  bool m_isEnumerated = false;
  DeviceEnum::VirtualDeviceVector m_devices;
  std::set<std::string> m_known;
  std::set<std::string> m_withoutToken;
};

bool PackageDriver::Run::has(unsigned int code) const {
  return std::any_of(events.begin(), events.end(),
                     [code](const Event& event) { return event.code == code; });
}

const std::vector<std::string>& PackageDriver::Run::parametersOf(unsigned int code) const {
  for (const Event& event : events) {
    if (event.code == code) {
      return event.parameters;
    }
  }
  fail("no event " + std::to_string(code));
}

std::string PackageDriver::Run::measurement(const std::string& name) const {
  for (const Event& event : events) {
    const auto measurement = Contract::toMeasurement(event.parameters);
    if (event.code == TEST_MEASUREMENT && measurement && measurement->name == name) {
      return measurement->value;
    }
  }
  fail("no measurement " + name);
}

PackageDriver::PackageDriver(const std::string& directory, const std::string& name,
                             DiagnosticMode mode)
    : m_implementation(std::make_unique<Implementation>(directory, name, mode)) {}

PackageDriver::~PackageDriver() = default;

PackageDriver& PackageDriver::set(const std::string& section, const std::string& key,
                                  const std::string& value) {
  m_implementation->set(section, key, value);
  m_implementation->forgetDevices();
  return *this;
}

PackageDriver& PackageDriver::setForTests(const std::string& section, const std::string& key,
                                          const std::string& value) {
  devices();
  m_implementation->set(section, key, value);
  return *this;
}

PackageDriver& PackageDriver::beginDiscovery() {
  m_implementation->beginDiscovery();
  return *this;
}

DeviceEnum::VirtualDeviceVector& PackageDriver::devices() {
  return m_implementation->devices();
}

DeviceEnum::VirtualDeviceVector& PackageDriver::enumerateAgain() {
  m_implementation->forgetDevices();
  return m_implementation->devices();
}

DeviceEnum::VirtualDevice& PackageDriver::device(const std::string& lastComponent) {
  return m_implementation->device(lastComponent);
}

bool PackageDriver::supports(const std::string& lastComponent, int testId) {
  return makeDiagnostics()->IsDeviceSupported(device(lastComponent), testId);
}

PackageDriver::Run PackageDriver::run(const std::string& lastComponent,
                                      const std::vector<int>& testIds) {
  return run(lastComponent, testIds, Options());
}

PackageDriver::Run PackageDriver::run(const std::string& lastComponent,
                                      const std::vector<int>& testIds, const Options& options) {
  return m_implementation->run(device(lastComponent), testIds, options);
}

std::unique_ptr<Diag::IDiagnostics> PackageDriver::makeDiagnostics() {
  return m_implementation->makeDiagnostics();
}

std::string PackageDriver::logText() const {
  return m_implementation->logText();
}

std::vector<std::string> PackageDriver::eventsWithoutToken() const {
  return m_implementation->eventsWithoutToken();
}

const std::string& PackageDriver::configFile() const {
  return m_implementation->configFile();
}

}  // namespace TarvexDiags::PackageKit::Testing
