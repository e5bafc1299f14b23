// Tests that crash, hang, flood, lie and leave things behind. Their numbers are those of the
// sections in misbehaving.cfg.

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "packagekit/Caretaker.h"
#include "packagekit/PackageKit.h"
#include "packagekit/internal/Frame.h"
#include "packagekit/internal/WorkerProcess.h"
#include "packages/misbehaving/LyingDiagnostics.h"
#include "packages/misbehaving/OwnRights.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;

namespace {

enum OwnEvent : unsigned int { GREETING = 1, FAULT_FOUND = 2, MARGIN_SMALL = 3, FLOOD = 4 };

constexpr int kSocketToHost = 3;

// By discovery: in its own process alone.
int devicesFound = 0;
std::string markOfHanging;  // a file that tells whoever waits for it

// In the first page, which is never mapped; a null pointer would not get past the sanitizers.
volatile int* volatile nowhere = reinterpret_cast<volatile int*>(16);

Verdict behaves(TestContext& context) {
  context.progress(50);
  context.information(GREETING, {context.device().name});
  context.measurement("answer", 42, "units");
  context.progress(100);
  return passed();
}

Verdict segfaults(TestContext&) {
  std::fprintf(stderr, "about to read from nowhere\n");
  // The runtime of a sanitizer would turn the signal into an exit.
  signal(SIGSEGV, SIG_DFL);
  *nowhere = 1;
  return passed();
}

Verdict aborts(TestContext&) {
  std::printf("about to abort\n");
  signal(SIGABRT, SIG_DFL);
  std::abort();
}

Verdict throws(TestContext&) {
  throw std::runtime_error("deliberately thrown");
}

Verdict throwsNoException(TestContext&) {
  throw 7;
}

[[noreturn]] void hang() {
  for (;;) {
    __asm__ volatile("");
  }
}

Verdict hangs(TestContext&) {
  hang();
}

Verdict hangsIgnoringSigterm(TestContext&) {
  signal(SIGTERM, SIG_IGN);
  hang();
}

Verdict exitsWithinFrame(TestContext&) {
  FrameWriter frame(FrameType::Event);
  const std::string& bytes = frame.number(0).number(GREETING).texts({"cut off"}).bytes();
  ::send(kSocketToHost, bytes.data(), bytes.size() / 2, 0);
  _exit(0);
}

Verdict exitsEarly(TestContext&) {
  std::printf("leaving early");
  std::exit(0);
}

Verdict floodsEvents(TestContext& context) {
  const long count = context.settingInteger("FloodCount", 100'000);
  const std::string ballast(static_cast<std::size_t>(context.settingInteger("BytesOfEach", 0)),
                            'x');
  for (long number = 0; number < count; ++number) {
    context.information(FLOOD, {std::to_string(number), ballast});
  }
  return passed();
}

Verdict floodsOutput(TestContext& context) {
  const std::string line(199, 'x');
  const long count = context.settingInteger("FloodCount", 100'000);
  for (long number = 0; number < count; ++number) {
    std::printf("%s\n", line.c_str());
  }
  std::printf("the last line\n");
  return passed();
}

// The address space is limited by the configuration, so the machine is safe.
Verdict allocatesWithoutEnd(TestContext&) {
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  if (limit.rlim_cur == RLIM_INFINITY) {
    return notSupported("no limit of memory is set, and the machine shall survive");
  }
  constexpr std::size_t block = 1 << 20;
  for (;;) {
    std::memset(::operator new(block), 1, block);
  }
}

Verdict claimsImpossibleProgress(TestContext&) {
  FrameWriter frame(FrameType::Progress);
  const std::string& bytes = frame.number(4'000'000'000U).bytes();
  ::send(kSocketToHost, bytes.data(), bytes.size(), 0);
  pause();
  return passed();
}

void sendByHand(FrameWriter& frame) {
  const std::string& bytes = frame.bytes();
  ::send(kSocketToHost, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void claimEnd(std::uint64_t position, TestEnding ending, unsigned int code,
              const std::vector<std::string>& parameters) {
  FrameWriter frame(FrameType::TestEnd);
  sendByHand(frame.number(position)
                 .number(static_cast<std::uint64_t>(ending))
                 .number(code)
                 .texts(parameters));
}

Verdict claimsOthersEnd(TestContext&) {
  claimEnd(99, TestEnding::Passed, 0, {});
  pause();
  return passed();
}

Verdict forgesCode(TestContext&) {
  claimEnd(0, TestEnding::Failed, MEMORY_POISONED, {"0x1000", "0x2000"});
  pause();
  return passed();
}

// Ends itself, and begins and passes what is due behind it.
Verdict claimsNextVerdict(TestContext&) {
  claimEnd(0, TestEnding::Passed, 0, {});
  FrameWriter begin(FrameType::TestBegin);
  sendByHand(begin.number(1));
  claimEnd(1, TestEnding::Passed, 0, {});
  FrameWriter end(FrameType::PassEnd);
  sendByHand(end);
  _exit(0);
}

Verdict sendsGarbage(TestContext&) {
  const std::string garbage(1000, '\xa5');
  ::send(kSocketToHost, garbage.data(), garbage.size(), 0);
  pause();
  return passed();
}

Verdict usesReservedCode(TestContext& context) {
  if (context.settingFlag("InVerdict", false)) {
    return failed(WORKER_CRASHED, {"not so"});
  }
  context.error(WORKER_CRASHED, {"not so"});
  return passed();
}

Verdict losesDevice(TestContext&) {
  throw std::system_error(ENODEV, std::generic_category(), "read");
}

Verdict lacksPermission(TestContext&) {
  throw std::system_error(EACCES, std::generic_category(), "open");
}

Verdict findsFault(TestContext& context) {
  return failed(FAULT_FOUND, {context.device().name, "bit 3"});
}

Verdict findsSmallMargin(TestContext&) {
  return unusual(MARGIN_SMALL, {"0.1"});
}

Verdict isImpossible(TestContext&) {
  return notSupported("there is nothing to test");
}

// What is told at once stays told: each of these finds its fault first.
void findFault(TestContext& context) {
  context.error(FAULT_FOUND, {context.device().name, "bit 3"});
}

Verdict findsFaultAndCrashes(TestContext& context) {
  findFault(context);
  return segfaults(context);
}

Verdict findsFaultAndExits(TestContext& context) {
  findFault(context);
  return exitsEarly(context);
}

Verdict findsFaultAndIsKilled(TestContext& context) {
  findFault(context);
  raise(SIGKILL);
  return passed();
}

Verdict findsFaultAndHangs(TestContext& context) {
  findFault(context);
  return hangs(context);
}

Verdict findsFaultAndThrows(TestContext& context) {
  findFault(context);
  return throws(context);
}

Verdict findsFaultAndSendsGarbage(TestContext& context) {
  findFault(context);
  return sendsGarbage(context);
}

Verdict findsFaultAndHasNoVerdict(TestContext& context) {
  findFault(context);
  return notSupported("the device is not what it was");
}

Verdict contradictsItself(TestContext& context) {
  findFault(context);
  return passed();
}

Verdict passesWithWarning(TestContext& context) {
  context.warning(MARGIN_SMALL, {"0.1"});
  return passed();
}

Verdict losesCore(TestContext&) {
  throw TakenAway("the core was taken away");
}

volatile sig_atomic_t poisonMet = 0;

// As the kernel sends it for a page with an uncorrectable error.
void sendPoison(void* address) {
  siginfo_t info{};
  info.si_signo = SIGBUS;
  info.si_code = BUS_MCEERR_AR;
  info.si_addr = address;
  syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGBUS, &info);
}

Verdict meetsPoison(TestContext& context) {
  alignas(4096) static char page[4096];
  page[0] = 1;
  if (context.settingFlag("FindsFault", false)) {
    findFault(context);
  }
  if (context.settingFlag("Handles", false)) {
    signal(SIGBUS, [](int /*signal*/) { poisonMet = 1; });
  }
  std::ostringstream address;
  address << static_cast<void*>(&page);
  context.measurement("address", address.str());
  if (context.settingFlag("InMidst", false)) {
    FrameWriter frame(FrameType::Event);
    ::send(kSocketToHost, frame.bytes().data(), frame.bytes().size() / 2, 0);
  }
  sendPoison(page);
  return poisonMet != 0 ? failed(FAULT_FOUND, {context.device().name, "poison"}) : passed();
}

// No poison: there is nothing behind the end of a file.
Verdict readsBehindEnd(TestContext&) {
  signal(SIGBUS, SIG_DFL);
  const int file = memfd_create("short", MFD_CLOEXEC);
  auto* const page =
      static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  page[0] = 1;
  return passed();
}

// A test as it ought to be: asks often whether it shall stop.
Verdict takesTime(TestContext& context) {
  using std::chrono::milliseconds;
  const long total = context.quickMode() ? 1 : context.settingInteger("Milliseconds", 60'000);
  for (long passedBy = 0; passedBy < total; passedBy += 5) {
    context.progress(static_cast<unsigned int>(passedBy * 100 / total));
    if (!context.sleepFor(milliseconds(5))) {
      throw Stopped();
    }
  }
  return passed();
}

Verdict findsFaultAndTakesTime(TestContext& context) {
  findFault(context);
  return takesTime(context);
}

// Does not ask, and ends at once when it gets SIGTERM.
Verdict sleepsDeaf(TestContext&) {
  for (;;) {
    pause();
  }
}

[[noreturn]] void talk() {
  for (;;) {
    if (::write(STDOUT_FILENO, "still here\n", 11) < 0) {
      _exit(1);
    }
  }
}

Verdict leavesChildBehind(TestContext& context) {
  const bool talks = context.settingFlag("Talks", false);
  const pid_t child = fork();
  if (child == 0) {
    if (talks) {
      talk();
    }
    for (;;) {
      pause();
    }
  }
  context.measurement("child", static_cast<double>(child));
  return passed();
}

// Nobody finds it by its group or its session. Grandchildren have no parent any more.
pid_t forkOutOfGroup(int generations, const std::function<void()>& work) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  if (fork() == 0) {
    setsid();
    for (int generation = 1; generation < generations; ++generation) {
      if (fork() != 0) {
        _exit(0);
      }
    }
    const pid_t own = getpid();
    _exit(::write(report[1], &own, sizeof own) == sizeof own ? (work(), 0) : 1);
  }
  close(report[1]);
  pid_t child = -1;
  if (::read(report[0], &child, sizeof child) != sizeof child) {
    child = -1;
  }
  close(report[0]);
  return child;
}

Verdict leavesGroup(TestContext& context) {
  const bool talks = context.settingFlag("Talks", false);
  const int generations = static_cast<int>(context.settingInteger("Generations", 1));
  const pid_t child = forkOutOfGroup(generations, [talks] {
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
      ::signal(signal, SIG_IGN);
    }
    if (talks) {
      talk();
    }
    for (;;) {
      pause();
    }
  });
  context.measurement("child", std::to_string(child));
  if (context.settingFlag("Hangs", false)) {
    hang();
  }
  return passed();
}

// Tells of its processes, and goes on until it is asked to stop.
Verdict staysWithChild(TestContext& context) {
  context.measurement("process", std::to_string(getpid()));
  context.measurement("reaper", std::to_string(getppid()));
  static_cast<void>(leavesGroup(context));
  return takesTime(context);
}

// A process that has something to do when the test has ended, and takes its time.
Verdict leavesCaretaker(TestContext& context) {
  const std::string mark = context.setting("Mark").value_or("");
  const long milliseconds = context.settingInteger("Milliseconds", 100);
  int end[2];
  if (pipe(end) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const pid_t test = getpid();
  const pid_t child = forkOutOfGroup(1, [&] {
    close(end[1]);
    char byte = 0;
    while (::read(end[0], &byte, 1) > 0) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    std::ofstream(mark) << test;
  });
  announceCaretaker(child);
  context.measurement("child", std::to_string(child));
  raise(SIGKILL);
  return passed();
}

// Makes what is to end it as deaf as it can, and hangs.
Verdict resistsItsEnd(TestContext& context) {
  const std::string way = context.setting("Way").value_or("");
  const pid_t reaper = getppid();
  pid_t child = getpid();
  signal(SIGTERM, SIG_IGN);
  if (way == "queue") {
    const rlimit none{0, 0};
    prlimit(reaper, RLIMIT_SIGPENDING, &none, nullptr);
  } else if (way == "flood") {
    child = forkOutOfGroup(1, [reaper] {
      while (kill(reaper, SIGHUP) == 0 && kill(reaper, SIGUSR1) == 0) {
      }
    });
  } else if (way == "stop" || way == "kill") {
    child = way == "kill" ? forkOutOfGroup(1, hang) : child;
    kill(reaper, way == "kill" ? SIGKILL : SIGSTOP);
  } else if (way == "group") {
    child = fork();
    if (child == 0) {
      for (;;) {
        pause();
      }
    }
    setpgid(child, child);
    setpgid(0, child);
  }
  context.measurement("process", std::to_string(getpid()));
  context.measurement("reaper", std::to_string(reaper));
  context.measurement("child", std::to_string(child));
  hang();
}

std::string openDescriptors() {
  std::string numbers;
  DIR* const directory = opendir("/proc/self/fd");
  while (const dirent* const entry = readdir(directory)) {
    if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(directory)) {
      numbers += std::string(numbers.empty() ? "" : " ") + entry->d_name;
    }
  }
  closedir(directory);
  return numbers;
}

std::string lineOf(const char* file, const std::string& start) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (line.compare(0, start.size(), start) == 0) {
      return line.substr(line.find_first_not_of(" \t", start.size()));
    }
  }
  return {};
}

int niceOfThisThread() {
  return getpriority(PRIO_PROCESS, 0);
}

const int kNiceAtLoad = niceOfThisThread();

Verdict looksAround(TestContext& context) {
  context.measurement("descriptors", openDescriptors());
  context.measurement("blockedSignals", lineOf("/proc/self/status", "SigBlk:"));
  context.measurement("ignoredSignals", lineOf("/proc/self/status", "SigIgn:"));
  context.measurement("oomScore", lineOf("/proc/self/oom_score_adj", ""));
  context.measurement("process", std::to_string(getpid()));
  context.measurement("group", std::to_string(getpgrp()));
  context.measurement("nice", std::to_string(niceOfThisThread()));
  context.measurement("niceAtLoad", std::to_string(kNiceAtLoad));
  context.measurement("session", std::to_string(getsid(0)));
  context.measurement("schedulingGroup", lineOf("/proc/self/autogroup", ""));
  context.measurement("openMode", std::to_string(context.openMode()));
  context.measurement("property", context.property("key"));
  context.measurement("discoveredBy", context.property("discoveredBy", "none"));
  context.measurement("discoveredIn", context.property("discoveredIn", "none"));
  context.measurement("discoveredWith", context.property("discoveredWith", "none"));
  context.measurement("devicesFoundHere", std::to_string(devicesFound));
  context.measurement("setting", context.setting("Setting").value_or("none"));
  context.measurement("packageSetting", context.setting("PackageSetting").value_or("none"));
  for (long line = context.settingInteger("LogLines", 1); line > 0; --line) {
    context.log("looked around");
  }
  for (long rate = context.settingInteger("Throughputs", 1); rate > 0; --rate) {
    context.information(PackageKit::TEST_THROUGHPUT, {"12.5", "looks/s"});
  }
  return passed();
}

void tellDevice(const std::string& name, const std::string& tag) {
  FrameWriter frame(FrameType::DeviceFound);
  sendByHand(frame.text(name).text(tag).text("").texts({}).number(0));
}

void tellDevicesWithoutEnd() {
  for (;;) {
    tellDevice("Another", "selftest/another");
  }
}

void tellEnd(std::uint64_t devices) {
  FrameWriter frame(FrameType::DiscoveryEnd);
  sendByHand(frame.number(devices).text(""));
}

void endTwice() {
  tellEnd(0);
  tellEnd(0);
  pause();
}

void tellVerdict() {
  claimEnd(0, TestEnding::Passed, 0, {});
  pause();
}

void throwFromDiscovery() {
  throw std::runtime_error("no bus");
}

void crashInDiscovery() {
  std::fprintf(stderr, "about to look behind the bus\n");
  signal(SIGSEGV, SIG_DFL);
  *nowhere = 1;
}

void hangInDiscovery() {
  std::fprintf(stderr, "waiting for the bus\n");
  signal(SIGTERM, SIG_IGN);
  forkOutOfGroup(1, [] {
    signal(SIGTERM, SIG_IGN);
    hang();
  });
  if (!markOfHanging.empty()) {
    std::ofstream(markOfHanging) << "hangs";
  }
  hang();
}

void exitFromDiscovery() {
  std::printf("leaving early");
  std::exit(3);
}

void sendGarbageFromDiscovery() {
  const std::string garbage(1000, '\xa5');
  ::send(kSocketToHost, garbage.data(), garbage.size(), 0);
  pause();
}

// Whatever a test has written there.
void sendFileFromDiscovery(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t size = ::send(kSocketToHost, bytes.data() + sent, bytes.size() - sent, 0);
    if (size <= 0) {
      break;
    }
    sent += static_cast<std::size_t>(size);
  }
}

void leaveProcessFromDiscovery() {
  const pid_t left = forkOutOfGroup(2, [] {
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
      ::signal(signal, SIG_IGN);
    }
    talk();
  });
  std::fprintf(stderr, "left %d\n", static_cast<int>(left));
}

// Ends when two processes were there at the same time.
void meetAnother(const std::string& place) {
  std::ofstream(place + "/" + std::to_string(getpid())) << "here";
  const auto there = [&place] {
    return std::distance(std::filesystem::directory_iterator(place),
                         std::filesystem::directory_iterator());
  };
  while (there() < 2) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// What the key `Discovery` asks for.
const std::map<std::string, std::function<void()>> kWaysOfDiscovery = {
    {"throws", throwFromDiscovery},
    {"crashes", crashInDiscovery},
    {"hangs", hangInDiscovery},
    {"exits", exitFromDiscovery},
    {"sends garbage", sendGarbageFromDiscovery},
    {"has no end", tellDevicesWithoutEnd},
    {"tells of a device without a name", [] { tellDevice("", "selftest/nameless"); }},
    {"tells of a long tag", [] { tellDevice("Long", std::string(20'000, 't')); }},
    {"tells of a deep tag", [] { tellDevice("Deep", std::string(1000, '/') + "deep"); }},
    {"counts wrong", [] { tellEnd(7); }},
    {"ends twice", endTwice},
    {"tells a verdict", tellVerdict},
    {"leaves a process", leaveProcessFromDiscovery},
    {"leaves a process and throws",
     [] {
       leaveProcessFromDiscovery();
       throwFromDiscovery();
     }},
    {"hangs at its end",
     [] {
       tellEnd(0);
       hangInDiscovery();
     }},
};

// A device that is as large as may be, and three that are larger.
void addLargeDevices(std::vector<Device>& devices) {
  devices.push_back({.name = std::string(1024, 'n'), .resourceTag = "selftest/large0"});
  devices.back().properties["value"] = std::string(16 * 1024, 'v');
  devices.push_back({.name = std::string(1025, 'n'), .resourceTag = "selftest/large1"});
  devices.push_back({.name = "Large", .resourceTag = "selftest/large2"});
  devices.back().properties["value"] = std::string(16 * 1024 + 1, 'v');
  devices.push_back({.name = "Deep", .resourceTag = std::string(64, '/') + "large3"});
}

std::vector<Device> findDevices(const Environment& environment) {
  std::vector<Device> devices = {
      {.name = "Unit 0", .resourceTag = "selftest/unit0", .properties = {{"key", "a = [b]"}}},
      {.name = "Unit 1", .resourceTag = "selftest/unit1"},
      // Clashes with the first.
      {.name = "Unit 0 of a rack", .resourceTag = "selftest/rack/unit0"},
      {.name = "Without a tag", .resourceTag = ""},
      {.name = "Broken status", .resourceTag = "selftest/unit2"},
  };
  std::fputs(environment.settings.package("DiscoverySays").value_or("").c_str(), stderr);
  const std::string way = environment.settings.package("Discovery").value_or("");
  markOfHanging = environment.settings.package("MarkOfHanging").value_or("");
  if (const auto place = environment.settings.package("MeetingPlace")) {
    meetAnother(*place);
  }
  if (const auto file = environment.settings.package("DiscoveryFile")) {
    sendFileFromDiscovery(*file);
    pause();
  }
  if (const auto found = kWaysOfDiscovery.find(way); found != kWaysOfDiscovery.end()) {
    found->second();
  } else if (way == "finds large devices") {
    addLargeDevices(devices);
  }
  devicesFound = static_cast<int>(devices.size());
  devices[0].properties["discoveredBy"] = std::to_string(getpid());
  devices[0].properties["discoveredWith"] = ownCapabilities();
  devices[0].properties["discoveredIn"] = environment.resourceString + " " +
                                          std::to_string(environment.deviceType) + " " +
                                          std::to_string(environment.diagnosticMode);
  return devices;
}

Support isSupported(const Device& device, const Environment& environment) {
  const std::string way = environment.settings.package("Predicate").value_or("");
  if (way == "throws") {
    throw std::runtime_error("nobody knows");
  }
  if (way == "crashes") {
    crashInDiscovery();
  }
  return device.name == "Unit 1" ? Support::no("unit 1 is excused") : Support::yes();
}

unsigned int statusOf(const Device& device) {
  return device.name == "Broken status" ? throw std::runtime_error("no status") : 0;
}

void define(Package& package) {
  package.discover(findDevices);
  package.status(statusOf);
  package.test(1, behaves);
  package.test(2, segfaults);
  package.test(3, aborts);
  package.test(4, throws);
  package.test(5, hangs);
  package.test(6, hangsIgnoringSigterm);
  package.test(7, exitsWithinFrame);
  package.test(8, floodsEvents);
  package.test(9, allocatesWithoutEnd);
  package.test(10, claimsImpossibleProgress);
  package.test(11, throwsNoException);
  package.test(12, losesDevice);
  package.test(13, lacksPermission);
  package.test(14, findsFault);
  package.test(15, findsSmallMargin);
  package.test(16, takesTime).estimate([](const Device&, const Environment&) { return 12; });
  package.test(17, sendsGarbage);
  package.test(18, floodsOutput);
  package.test(19, leavesChildBehind);
  package.test(20, isImpossible).supportedWhen(isSupported);
  package.test(21, behaves).writes().onlyIn({DiagnosticMode::FACTORY});
  package.test(22, exitsEarly);
  package.test(23, looksAround);
  package.test(24, sleepsDeaf);
  package.test(LyingDiagnostics::kLyingTest, takesTime);
  package.test(26, claimsOthersEnd);
  package.test(27, usesReservedCode);
  // 28 stands in the configuration file alone.
  package.test(29, findsFaultAndCrashes);
  package.test(30, findsFaultAndExits);
  package.test(31, findsFaultAndIsKilled);
  package.test(32, findsFaultAndHangs);
  package.test(33, findsFaultAndThrows);
  package.test(34, findsFaultAndSendsGarbage);
  package.test(35, findsFaultAndHasNoVerdict);
  package.test(36, findsFaultAndTakesTime);
  package.test(37, contradictsItself);
  package.test(38, passesWithWarning);
  package.test(39, losesCore);
  package.test(40, meetsPoison);
  package.test(41, readsBehindEnd);
  package.test(42, forgesCode);
  package.test(43, claimsNextVerdict);
  package.test(44, leavesGroup);
  package.test(45, leavesCaretaker);
  package.test(46, staysWithChild);
  package.test(47, resistsItsEnd);
  package.test(48, tellsItsRights);
}

// Stands for a worker that hangs in the kernel, where no signal reaches it.
int loseSignal(pid_t /*target*/, int /*signal*/, ReaperRecord& /*reaper*/) {
  return 0;
}

}  // namespace

extern "C" {

TARVEXDIAGS_EXPORT void setPackageConfigFile(const char* file) {
  setConfigFile(file);
  if (file != nullptr && Settings(file).packageFlag("SignalsLost", false)) {
    WorkerProcess::sendSignal = &loseSignal;
  }
}

TARVEXDIAGS_EXPORT void setPackageLogDir(const char* directory) {
  setLogDirectory(directory);
}

TARVEXDIAGS_EXPORT DeviceEnum::IDeviceEnumerator* getIDeviceEnumerator(bool diagLog,
                                                                       DiagnosticMode mode) {
  return makeEnumerator(&define, diagLog, mode);
}

TARVEXDIAGS_EXPORT Diag::IDiagnostics* getIDiagnostics(bool diagLog, DiagnosticMode mode) {
  std::unique_ptr<Diag::IDiagnostics> honest(makeDiagnostics(&define, diagLog, mode));
  return honest ? new LyingDiagnostics(std::move(honest)) : nullptr;
}

TARVEXDIAGS_EXPORT void beginPackageDiscovery(const char* configFile, const char* logDirectory,
                                              DiagnosticMode mode) {
  beginDiscovery(&define, configFile, logDirectory, mode);
}

TARVEXDIAGS_EXPORT int runPackageWorker(int socket) {
  return runWorker(&define, socket);
}
}
