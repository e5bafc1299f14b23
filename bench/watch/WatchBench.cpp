// What it costs to watch a large machine: 256 threads of processors, 64 sensors, 32 disks, 64
// devices of PCI Express, 32 memory modules. The machine is one of files, whose kernel takes no
// time to make them up, so a real one is dearer; a virtual file of the kernel is cheaper to open
// than one of a disk.
//
// "share" is what a look in each second takes of a core. All together shall stay below 0.2 %.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FakeMachine.h"
#include "watch/Watch.h"

namespace {

using namespace TarvexDiags::Watching;
using TarvexDiags::Tests::FakeMachine;

constexpr int kCpus = 256;
constexpr int kSensors = 64;
constexpr int kDisks = 32;
constexpr int kPciDevices = 64;
constexpr int kModules = 32;
constexpr int kInterrupts = 100;

std::string rowsOfInterrupts() {
  std::string head;
  std::string counts;
  for (int cpu = 0; cpu < kCpus; ++cpu) {
    head += "       CPU" + std::to_string(cpu);
    counts += "          0";
  }
  std::string text = head + "\n";
  for (int row = 0; row < kInterrupts; ++row) {
    text += std::to_string(row) + ":" + counts + "  IR-PCI-MSI\n";
  }
  return text + "MCE:" + counts + "  Machine check exceptions\nTHR:" + counts + "  Threshold\n";
}

void addProcessors(FakeMachine& machine) {
  for (int cpu = 0; cpu < kCpus; ++cpu) {
    const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/";
    machine.has(folder + "topology/core_id", std::to_string(cpu % 64))
        .has(folder + "topology/physical_package_id", std::to_string(cpu / 64 % 2))
        .has(folder + "thermal_throttle/core_throttle_count", "0")
        .has(folder + "thermal_throttle/package_throttle_count", "0");
  }
  machine.has("proc/interrupts", rowsOfInterrupts());
}

void addMemory(FakeMachine& machine) {
  for (int module = 0; module < kModules; ++module) {
    const std::string folder = "sys/devices/system/edac/mc/mc" + std::to_string(module / 8) +
                               "/dimm" + std::to_string(module % 8) + "/";
    machine.has(folder + "dimm_ce_count", "0")
        .has(folder + "dimm_ue_count", "0")
        .has(folder + "dimm_label", "DIMM_" + std::to_string(module));
  }
}

void addDevices(FakeMachine& machine) {
  for (int device = 0; device < kPciDevices; ++device) {
    const std::string folder = "sys/bus/pci/devices/0000:" + std::to_string(10 + device) + ":00.0/";
    machine.has(folder + "aer_dev_correctable", "RxErr 0\nBadTLP 0\nTOTAL_ERR_COR 0\n")
        .has(folder + "aer_dev_nonfatal", "DLP 0\nTOTAL_ERR_NONFATAL 0\n")
        .has(folder + "aer_dev_fatal", "DLP 0\nTOTAL_ERR_FATAL 0\n");
  }
  for (int sensor = 0; sensor < kSensors; ++sensor) {
    const std::string stem = "sys/class/hwmon/hwmon" + std::to_string(sensor / 8) + "/temp" +
                             std::to_string(sensor % 8 + 1);
    machine.has(stem + "_input", "45000").has(stem + "_crit", "100000").has(stem + "_alarm", "0");
  }
  for (int disk = 0; disk < kDisks; ++disk) {
    const std::string folder = "sys/block/sd" + std::to_string(disk) + "/device/";
    machine.has(folder + "ioerr_cnt", "0x0").has(folder + "iotmo_cnt", "0x0");
  }
  for (int interface = 0; interface < 4; ++interface) {
    const std::string folder = "sys/class/net/eth" + std::to_string(interface) + "/";
    machine.has(folder + "device/uevent", "").has(folder + "carrier_down_count", "0");
  }
  machine.has("proc/pressure/cpu", "some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n")
      .has("dev/kmsg", "");
}

const FakeMachine& largeMachine() {
  static FakeMachine machine;
  static const bool kIsFilled =
      (addProcessors(machine), addMemory(machine), addDevices(machine), true);
  benchmark::DoNotOptimize(kIsFilled);
  return machine;
}

class Ignore : public Collector {
 public:
  void found(Finding finding) override { benchmark::DoNotOptimize(finding); }
  void sampled(Sample sample) override { benchmark::DoNotOptimize(sample); }
};

class IgnoringSink : public WatchSink {
 public:
  void found(const Finding& finding) override { benchmark::DoNotOptimize(&finding); }
  void sampled(const Sample& sample) override { benchmark::DoNotOptimize(&sample); }
  void absent(SourceKind source, const std::string& reason) override {
    benchmark::DoNotOptimize(source);
    benchmark::DoNotOptimize(&reason);
  }
};

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void lookAtOneSource(benchmark::State& state) {
  const SourceKind kind = allSources().at(static_cast<std::size_t>(state.range(0)));
  WatchSettings settings;
  settings.sources = {kind};
  const auto sources = makeSources(largeMachine().files(), settings);
  state.SetLabel(nameOf(kind));
  if (sources.at(0)->open()) {
    state.SkipWithError("the machine of files has none");
    return;
  }
  Ignore ignore;
  const double before = processorSeconds();
  for (auto _ : state) {
    sources[0]->look(std::chrono::system_clock::now(), ignore);
  }
  const double each =
      (processorSeconds() - before) /
      static_cast<double>(std::max<benchmark::IterationCount>(state.iterations(), 1));
  state.counters["share %"] =
      100 * each * 1000 / static_cast<double>(sources[0]->interval().count());
}
BENCHMARK(lookAtOneSource)->DenseRange(0, 10)->Unit(benchmark::kMicrosecond);

void watchAll(benchmark::State& state) {
  for (auto _ : state) {
    IgnoringSink sink;
    Watch watch(largeMachine().files(), WatchSettings(), sink);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const long memory = usage.ru_maxrss;
    watch.start();
    const double before = processorSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(state.range(0)));
    state.counters["share %"] =
        100 * (processorSeconds() - before) / static_cast<double>(state.range(0));
    watch.stop();
    getrusage(RUSAGE_SELF, &usage);
    state.counters["more KiB"] = static_cast<double>(usage.ru_maxrss - memory);
  }
}
BENCHMARK(watchAll)->Arg(30)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
