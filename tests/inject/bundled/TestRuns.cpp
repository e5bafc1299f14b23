#include "tests/inject/bundled/TestRuns.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "packagekit/KitEvents.h"
#include "tests/inject/network/LoopbackFilter.h"

namespace TarvexDiags::BundledTests {

namespace {

namespace fs = std::filesystem;
using Diag::DiagnosticEvent;
using PackageKit::Testing::PackageDriver;

void command(const std::string& text) {
  if (std::system(text.c_str()) != 0) {  // NOLINT(cert-env33-c): a command of this test's own
    throw std::runtime_error("failed: " + text);
  }
}

void write(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

/// Whether a test came to its own end.
bool hasEndedByItself(Diag::IDiagnostics& diagnostics) {
  const std::unique_ptr<std::vector<DiagnosticEvent*>> events(diagnostics.getDiagnosticEvents());
  bool hasEnded = false;
  bool wasAborted = false;
  if (events) {
    for (DiagnosticEvent* const event : *events) {
      hasEnded = hasEnded || event->getEventCode() == PackageKit::TEST_ENDED;
      wasAborted = wasAborted || event->getEventCode() == PackageKit::TEST_ABORTED;
      delete event;
    }
  }
  return hasEnded && !wasAborted;
}

}  // namespace

std::vector<std::string> namesOfPackages() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(TARVEX_PACKAGE_DIR)) {
    if (entry.path().extension() == ".cfg") {
      names.push_back(entry.path().stem());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

void enterOwnNamespace() {
  if (unshare(CLONE_NEWNET) != 0) {
    throw std::runtime_error("no network namespace: this needs root");
  }
  command("ip link set lo up");
}

void makeSilentInterfaces() {
  command("ip link add left type veth peer name beyond-left");
  command("ip link add right type veth peer name beyond-right");
  command("ip link set beyond-left up && ip link set beyond-right up");
  Network::filterLoopback();
}

Machine::Machine() {
  command("ip link add left type veth peer name right");
  // One that is switched on gets an address, and then it is in use.
  command("ip link add linked type veth peer name partner");
  command("ip link set linked up && ip link set partner up");
  std::string name = (fs::current_path() / "machine-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no folder");
  }
  m_folder = name;
  std::ofstream image(m_folder / "image", std::ios::binary);
  for (int block = 0; block < 64 * 256; ++block) {
    image << std::string(4096, static_cast<char>(block % 251));
  }
  for (unsigned int core = 0; core < std::thread::hardware_concurrency(); ++core) {
    write(m_folder / "sys/devices/system/cpu" / ("cpu" + std::to_string(core)) /
              "thermal_throttle/core_throttle_count",
          "0\n");
  }
  write(m_folder / "sys/devices/system/cpu/online",
        "0-" + std::to_string(std::thread::hardware_concurrency() - 1) + "\n");
}

Machine::~Machine() {
  std::error_code ignored;
  fs::remove_all(m_folder, ignored);
}

std::vector<Arrangement> Machine::arrangements() const {
  using Change = Arrangement::Change;
  constexpr auto kFactory = DeviceEnum::IDeviceEnumerator::FACTORY;
  const std::vector<Change> shortTests = {{"Package", "QuickDurationSeconds", "0.1"},
                                          {"TestID8", "QuickDurationSeconds", "0.1"},
                                          {"TestID8", "QuickHoldSeconds", "0.1"},
                                          {"TestID9", "QuickDurationSeconds", "0.1"},
                                          {"Package", "QuickMaximumMegabytes", "128"}};
  // Interfaces of software are devices only where they are named as a pair.
  const auto pairOf = [](const char* first, const char* second) {
    return std::vector<Change>{{"TestID6", "FirstInterface", first},
                               {"TestID6", "SecondInterface", second}};
  };
  std::vector<Arrangement> all = {
      {.package = "memory", .changes = shortTests},
      // Enough that it takes long to be had.
      {.package = "memory",
       .changes = {{"Package", "QuickMaximumMegabytes", "2048"}},
       .tests = {1},
       .timesTheWork = 8},
      {.package = "processor", .changes = shortTests},
      {.package = "processor",
       .changes = {{"Package", "SystemRoot", m_folder}, {"TestID8", "QuickDurationSeconds", "0.1"}},
       .tests = {8}},
      {.package = "storage",
       .changes = {{"Package", "DeviceFile1", m_folder / "image"}},
       .device = "image"},
      // Of disks that keep an account of their health: those of the machine are read, none written.
      {.package = "storage", .tests = {2, 3}, .needsHardware = true},
      {.package = "network", .device = "lo"},
      // Where the machine counts something at all.
      {.package = "errors", .needsHardware = true},
      {.package = "platform", .tests = {2, 5, 6}},
      // Where links show both ends, firmware its modules, and disks are of one model.
      {.package = "platform", .tests = {1, 3, 4}, .needsHardware = true},
      // Of adapters whose driver tests them; offline, the link is down meanwhile.
      {.package = "network",
       .changes = pairOf("linked", "partner"),
       .tests = {2, 3},
       .mode = kFactory,
       .needsHardware = true},
      {.package = "network",
       .changes = pairOf("linked", "partner"),
       .device = "linked",
       .tests = {1}},
      {.package = "network",
       .changes = pairOf("left", "right"),
       .device = "left",
       .tests = {6},
       .mode = kFactory},
  };
  for (const std::string& name : namesOfPackages()) {
    const bool isKnown = std::any_of(all.begin(), all.end(), [&](const Arrangement& arrangement) {
      return arrangement.package == name;
    });
    if (!isKnown) {
      all.push_back({.package = name});
    }
  }
  return all;
}

std::string BundledTest::name() const {
  return m_package + ", test " + std::to_string(m_number) + " on " + m_device;
}

PackageDriver::Run BundledTest::run() const {
  PackageDriver::Options options;
  options.quickMode = true;
  return m_driver.run(m_device, {m_number}, options);
}

std::chrono::seconds BundledTest::estimate() const {
  PackageDriver::Options options;
  options.quickMode = true;
  options.estimationMode = true;
  return m_timesTheWork *
         std::chrono::seconds(m_driver.run(m_device, {m_number}, options).estimatedTime);
}

BundledTest::Outcome BundledTest::abortAfter(Clock::duration moment,
                                             const std::function<void()>& beforeAbort) const {
  DeviceEnum::VirtualDevice& device = m_driver.device(m_device);
  const auto diagnostics = m_driver.makeDiagnostics();
  Diag::DiagnosticSettings settings(true, false, false, false, false, "", 1, 600, 1, 1,
                                    DeviceEnum::IDevice::READ_WRITE);
  settings.setTestNumberVector({m_number});
  std::promise<Clock::time_point> ended;
  auto end = ended.get_future();
  const auto begin = Clock::now();
  std::thread pass([&] {
    diagnostics->runDiagnostic(device, &settings);
    ended.set_value(Clock::now());
  });
  end.wait_until(begin + moment);
  beforeAbort();
  const auto asked = Clock::now();
  diagnostics->abortDiagnostic();
  pass.join();
  const bool isAborted = !hasEndedByItself(*diagnostics);
  return {isAborted, end.get() - (isAborted ? asked : begin)};
}

}  // namespace TarvexDiags::BundledTests
