// A package without the kit, whose devices and tests do what its configuration file says:
//
//   [Devices]      Count, and for each number N: NameN, TagN; "\n" in them is a line break
//   [TestIDn]      Behave = pass, fail, warn, nothing, deaf (hears of no abort and tells no
//                  progress), crash (as the worker of a kit would), failcrash (a fault, then a
//                  crash), stay (takes MillisecondsToStay), held (a pass that ends once the file
//                  NAME.cfg.go lies beside this one); several between commas: one for each
//                  pass on a device, the last for all behind; BehaveOnNAME: the same for the device
//                  of that name; Signal (of a crash); Milliseconds; Event (a code raised with each
//                  pass); Estimate (seconds); UnsupportedOn (name of a device);
//                  Raises = error, warning (the event as such, before all else, or another one:
//                  Raised = its code; Raises is done so often: Repeats, with lines down to 3);
//                  ControllerEvent (a code that the controller itself raises, as it seems)
//
// An abort leaves a file NAME.cfg.aborted beside it.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagUtil.h"
#include "System/SysUtil.h"
#include "packagekit/KitEvents.h"

namespace {

using TarvexDiags::DeviceEnum::IDevice;
using TarvexDiags::DeviceEnum::IDeviceEnumerator;
using TarvexDiags::DeviceEnum::VirtualDevice;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::Diag::DiagnosticSettings;
using TarvexDiags::Diag::DiagnosticStatus;
using TarvexDiags::DiagCtrl::DiagCtrlEvent;
using TarvexDiags::DiagCtrl::DiagUtil;

std::string configFile;

std::string read(const std::string& section, const std::string& key) {
  std::string value;
  TarvexDiags::System::SysUtil::ReadCfgFile(section, key, value, configFile);
  return value;
}

int readNumber(const std::string& section, const std::string& key) {
  return std::atoi(read(section, key).c_str());
}

std::string sectionOf(int test) {
  return "TestID" + std::to_string(test);
}

// How often a test has begun on a device, over all requests: the file holds a byte for each. Its
// name stands in Workplace::markOf as well.
std::size_t countBegin(int test, const std::string& device) {
  const std::string name = configFile + "." + sectionOf(test) + "." + device;
  std::ofstream(name, std::ios::app) << '.';
  std::ifstream file(name, std::ios::ate);
  return static_cast<std::size_t>(file.tellg());
}

bool isLetGo() {
  return std::ifstream(configFile + ".go").good();
}

std::string behaviourOf(int test, const std::string& device) {
  const std::string ofDevice = read(sectionOf(test), "BehaveOn" + device);
  std::string behaviours = ofDevice.empty() ? read(sectionOf(test), "Behave") : ofDevice;
  for (std::size_t pass = countBegin(test, device); pass > 1; --pass) {
    const std::size_t comma = behaviours.find(',');
    if (comma == std::string::npos) {
      break;
    }
    behaviours.erase(0, comma + 1);
  }
  return behaviours.substr(0, behaviours.find(','));
}

// A line of the file holds no line break.
std::string withLineBreaks(std::string text) {
  for (std::size_t at = 0; (at = text.find("\\n", at)) != std::string::npos;) {
    text.replace(at, 2, "\n");
  }
  return text;
}

class ConfiguredDevices final : public IDeviceEnumerator {
 public:
  VirtualDeviceVector* getDeviceVector(const char*, TarvexDiags::Uint) override {
    m_devices.clear();
    for (int i = 1; i <= readNumber("Devices", "Count"); ++i) {
      const std::string number = std::to_string(i);
      const std::string name = withLineBreaks(read("Devices", "Name" + number));
      const std::string tag = withLineBreaks(read("Devices", "Tag" + number));
      m_devices.emplace_back(new IDevice(tag, name, name));
    }
    return &m_devices;
  }

 private:
  VirtualDeviceVector m_devices;
};

class ConfiguredTests final : public TarvexDiags::Diag::IDiagnostics {
 public:
  ~ConfiguredTests() override {
    for (DiagnosticEvent* event : m_events) {
      delete event;
    }
    for (DiagnosticResult* result : m_results) {
      delete result;
    }
  }

  DiagnosticResult* runDiagnostic(VirtualDevice& device, DiagnosticSettings* settings) override {
    m_device = device.getDevice();
    setState(DiagnosticStatus::EXECUTING);
    m_answer = DiagnosticResult();
    m_answer.setTestRequestId(settings->getTestRequestId());
    for (const int test : settings->getTestNumberVector()) {
      if (settings->getEstimationMode()) {
        m_answer.setEstimatedTime(readNumber(sectionOf(test), "Estimate"));
        m_answer.setTestResult(DiagnosticResult::PASSED);
      } else {
        run(test, *settings);
      }
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_delivers) {
      m_results.push_back(new DiagnosticResult(m_answer));
    }
    m_state = DiagnosticStatus::COMPLETED;
    return &m_answer;
  }

  bool IsDeviceSupported(VirtualDevice& device, int test) override {
    return device.getDevice()->getDeviceName() != read(sectionOf(test), "UnsupportedOn");
  }

  DiagnosticStatus getDiagnosticStatus() override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    DiagnosticStatus status;
    status.setStatus(m_state == DiagnosticStatus::COMPLETED && !m_events.empty()
                         ? DiagnosticStatus::EXECUTING
                         : (m_isAborted && m_state == DiagnosticStatus::READY
                                ? DiagnosticStatus::COMPLETED
                                : m_state));
    status.setProgress(m_percent);
    return status;
  }

  void abortDiagnostic() override {
    std::ofstream(configFile + ".aborted").flush();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isAborted = true;
    m_isSuspended = false;
    m_changed.notify_all();
  }
  void suspendDiagnostic() override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isSuspended = !m_isAborted;
  }
  void resumeDiagnostic() override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isSuspended = false;
    m_changed.notify_all();
  }

  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override { return handOver(m_events); }

  std::vector<DiagnosticResult*>* getDiagnosticResults() override {
    auto* results = handOver(m_results);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (results != nullptr && m_state == DiagnosticStatus::COMPLETED && !m_isAborted) {
      m_state = DiagnosticStatus::READY;
    }
    return results;
  }

 private:
  void run(int test, const DiagnosticSettings& settings) {
    const std::string section = sectionOf(test);
    const int event = readNumber(section, "Event");  // the file may be gone once the test has begun
    const int usual = readNumber(section, "Milliseconds");
    const int longer = readNumber(section, "MillisecondsToStay");
    const std::string behaviour = behaviourOf(test, m_device->getDeviceName());
    const int total = settings.getQuickTestMode() != 0 ? 1 : (behaviour == "stay" ? longer : usual);
    if (const int code = readNumber(section, "ControllerEvent"); code != 0) {
      DiagUtil::getInstance()->pushDiagCtrlEvent(static_cast<DiagCtrlEvent::eventCode>(code),
                                                 DiagnosticEvent::ERROR_EVENT,
                                                 settings.getTestRequestId());
    }
    if (const std::string raised = read(section, "Raises"); !raised.empty()) {
      const int code = readNumber(section, read(section, "Raised").empty() ? "Event" : "Raised");
      for (int left = std::max(1, readNumber(section, "Repeats")); left > 0; --left) {
        raise(settings,
              raised == "error" ? DiagnosticEvent::ERROR_EVENT : DiagnosticEvent::WARNING_EVENT,
              code, {"line " + std::to_string(left + 2)});
      }
    }
    if (behaviour == "deaf") {
      std::this_thread::sleep_for(std::chrono::milliseconds(total));
    } else if (!spend(total) || (behaviour == "held" && !stayUntilLetGo())) {
      m_answer.setTestResult(DiagnosticResult::UNUSUAL_STATUS);
      return;
    }
    if (behaviour == "crash") {
      crash(test, settings);
      m_answer.setTestResult(DiagnosticResult::UNUSUAL_STATUS);
    } else if (behaviour == "fail" || behaviour == "failcrash") {
      raise(settings, DiagnosticEvent::ERROR_EVENT, event);
      if (behaviour == "failcrash") {
        crash(test, settings);
      }
      m_answer.setTestResult(DiagnosticResult::FAILED);
    } else if (behaviour == "warn") {
      raise(settings, DiagnosticEvent::WARNING_EVENT, event);
      m_answer.setTestResult(DiagnosticResult::UNUSUAL_STATUS);
    } else {
      m_delivers = behaviour != "nothing";
      m_answer.setTestResult(DiagnosticResult::PASSED);
    }
  }

  // @return false if the test was aborted.
  bool spend(int milliseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (int spent = 0; spent < milliseconds && !m_isAborted;) {
      waitAwhile(lock);
      spent += m_isSuspended ? 0 : kSlice;
      m_percent = static_cast<unsigned int>(std::min(100, spent * 100 / milliseconds));
    }
    return !m_isAborted;
  }

  // @return false if the test was aborted.
  bool stayUntilLetGo() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_isAborted && (m_isSuspended || !isLetGo())) {
      waitAwhile(lock);
    }
    return !m_isAborted;
  }

  void waitAwhile(std::unique_lock<std::mutex>& lock) {
    using std::chrono::steady_clock;
    m_changed.wait_until(lock, steady_clock::now() + std::chrono::milliseconds(kSlice));
    m_state = m_isSuspended ? DiagnosticStatus::SUSPENDED : DiagnosticStatus::EXECUTING;
  }

  void crash(int test, const DiagnosticSettings& settings) {
    const std::string signal = read(sectionOf(test), "Signal");
    raise(settings, DiagnosticEvent::ERROR_EVENT, TarvexDiags::PackageKit::WORKER_CRASHED,
          {std::to_string(test), read(sectionOf(test), "TestName"), m_device->getResourceTag(),
           signal.empty() ? "SIGSEGV" : signal, "the last line"});
  }

  void raise(const DiagnosticSettings& settings, DiagnosticEvent::EventType type, int code,
             std::vector<std::string> parameters = {"line 3"}) {
    auto event = std::make_unique<DiagnosticEvent>();
    event->setEventType(type);
    event->setEventCode(static_cast<unsigned int>(code));
    event->setParamVector(std::move(parameters));
    event->setTestRequestId(settings.getTestRequestId());
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back(event.release());
  }

  template <class Message>
  std::vector<Message*>* handOver(std::vector<Message*>& messages) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto given = std::make_unique<std::vector<Message*>>();
    given->swap(messages);
    return given->empty() ? nullptr : given.release();
  }

  void setState(DiagnosticStatus::Status state) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_state = state;
    m_percent = 0;
  }

  static constexpr int kSlice = 10;  // milliseconds

  IDevice* m_device = nullptr;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  DiagnosticStatus::Status m_state = DiagnosticStatus::READY;
  unsigned int m_percent = 0;
  bool m_isAborted = false;
  bool m_isSuspended = false;
  bool m_delivers = true;
  std::vector<DiagnosticEvent*> m_events;
  std::vector<DiagnosticResult*> m_results;
  DiagnosticResult m_answer;
};

}  // namespace

#define PACKAGE_EXPORT extern "C" __attribute__((visibility("default")))

PACKAGE_EXPORT void setPackageConfigFile(const char* file) {
  configFile = file;
}

PACKAGE_EXPORT IDeviceEnumerator* getIDeviceEnumerator(bool, unsigned int) {
  return new ConfiguredDevices();
}

PACKAGE_EXPORT TarvexDiags::Diag::IDiagnostics* getIDiagnostics(bool, unsigned int) {
  return new ConfiguredTests();
}
