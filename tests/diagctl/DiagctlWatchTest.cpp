// The built program and what the machine shows while a test runs: poisoned memory under a test of
// something else, and what kernel and sensors say, on a machine of files.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/FakeMachine.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

class MachineWatch : public Diagctl {
 protected:
  MachineWatch() { place.useMisbehavingPackage(); }

  ReportedRun runOn(const std::vector<std::string>& devices) {
    std::vector<std::string> arguments = {"run", "--serial", "-t", "Poisoned memory"};
    for (const std::string& device : devices) {
      arguments.insert(arguments.end(), {"-d", device});
    }
    return reportedRun(withControlFile(arguments));
  }

  const std::string m_test = "Misbehaving package: Poisoned memory on Unit 0";
  const std::string m_step = "diagctl: Machine watch on this machine";
};

TEST_F(MachineWatch, tells_poisoned_memory_as_a_failure_beside_the_test_that_met_it) {
  const ReportedRun run = runOn({"Unit 0"});
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
  EXPECT_THAT(run.steps(), UnorderedElementsAre(m_test, m_step));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("ERROR"));
  EXPECT_THAT(run.symptomsOf(m_test), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.formatsWithout(m_step, "test Poisoned memory met"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "address 0x"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "Replace the memory module"), IsEmpty());
}

TEST_F(MachineWatch, tells_of_all_that_is_met_in_one_step) {
  const ReportedRun run = runOn({"Unit 0", "Unit 1"});
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
  EXPECT_THAT(run.steps(), UnorderedElementsAre(
                               m_test, "Misbehaving package: Poisoned memory on Unit 1", m_step));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
}

TEST_F(MachineWatch, tells_nothing_where_the_machine_shows_no_fault) {
  const ReportedRun run =
      reportedRun(withControlFile({"run", "-t", "Segmentation fault", "-d", "Unit 0"}));
  EXPECT_EQ(run.exitCode(), kNoVerdict);
  EXPECT_THAT(run.steps(), Not(::testing::Contains(m_step)));
}

/// A run on a machine of files, with a test that goes on until it is let go.
class WatchedRun : public Diagctl {
 protected:
  WatchedRun() {
    place.addPackage("HELD", {{.name = "Walking ones", .behaviour = "held"}},
                     {{"Node 0", "bus/node0"}});
    place.write(place.controlFile(), contentsOf(place.controlFile()) +
                                         "\n[Watch]\nInterval=10ms\nRoot=" + m_machine.path() +
                                         "\n");
    m_machine.has(kModule + "dimm_label", "DIMM_A1\n");
    correct(7);
    m_machine.has(kModule + "dimm_ue_count", "0\n");
  }

  /// Changes a file at once, as the kernel does: whoever reads it meanwhile finds no half of it.
  void show(const std::string& path, const std::string& text) {
    m_machine.has("new", text);
    std::filesystem::rename(m_machine.path() + "/new", m_machine.path() + "/" + path);
  }
  void correct(int errors) { show(kModule + "dimm_ce_count", std::to_string(errors) + "\n"); }
  std::string logPath() const { return m_machine.path() + "/dev/kmsg"; }
  void addKernelLog() {
    m_machine.has("dev/null", "");
    ASSERT_EQ(mkfifo(logPath().c_str(), 0600), 0);
  }
  /// Writes a record, which nobody may be there to read.
  void log(const std::string& record) {
    const int file = open(logPath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(file, 0);
    EXPECT_EQ(write(file, record.data(), record.size()), static_cast<ssize_t>(record.size()));
    close(file);
  }

  /// Begins a run, and returns while its test goes on.
  ReportedProgram& begin(std::vector<std::string> options = {"--watch=all"}) {
    options.insert(options.begin(), "run");
    m_run = std::make_unique<ReportedProgram>(withControlFile(options));
    EXPECT_TRUE(m_run->waitForLog("testStepStart"));
    return *m_run;
  }
  ReportedRun finish() {
    place.write(place.packageFile("HELD") + ".go", "");
    ReportedRun run = m_run->finish();
    EXPECT_THAT(run.faultsOfLog(), IsEmpty());
    return run;
  }
  bool becomes(const std::string& file, const std::string& word) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (m_machine.files().word(file) != word) {
      if (std::chrono::steady_clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

  const std::string kModule = "sys/devices/system/edac/mc/mc0/dimm0/";
  const std::string kInterval = "sys/devices/system/machinecheck/machinecheck0/check_interval";
  const std::string m_test = "Package HELD: Walking ones on Node 0";
  const std::string m_step = "diagctl: Machine watch on this machine";
  Tests::FakeMachine m_machine;
  std::unique_ptr<ReportedProgram> m_run;
};

TEST_F(WatchedRun, warns_of_corrected_errors_in_the_test_that_ran_on_the_memory) {
  begin();
  correct(10);
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.steps(), ElementsAre(m_test));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("WARNING"));
  EXPECT_THAT(
      run.formatsWithout(m_test, "Memory module DIMM_A1 corrected 3 errors during Walking ones."),
      IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_test, "Replace the module if it goes on."), IsEmpty());
}

TEST_F(WatchedRun, fails_the_test_for_errors_that_cannot_be_corrected) {
  begin();
  show(kModule + "dimm_ue_count", "1\n");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.steps(), ElementsAre(m_test));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(m_test), ElementsAre("memory-uncorrected"));
}

TEST_F(WatchedRun, judges_by_the_policy_that_is_asked_for) {
  begin({"--watch=edac", "--set", "watch.memory-corrected.failure-count=2"});
  correct(9);
  EXPECT_EQ(finish().exitCode(), kHardwareFailure);
  std::filesystem::remove(place.packageFile("HELD") + ".go");
  begin({"--watch=edac", "--set", "watch.memory-corrected=trouble"});
  correct(10);
  EXPECT_EQ(finish().exitCode(), kNoVerdict);
}

TEST_F(WatchedRun, tells_what_no_test_ran_on_in_a_step_of_the_machine) {
  addKernelLog();
  begin();
  log("3,1,1,-;critical medium error, dev sdb, sector 4660 op 0x0:(READ)\n");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.steps(), UnorderedElementsAre(m_test, m_step));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
  EXPECT_THAT(run.formatsWithout(m_step, "The medium of disk sdb had errors during this run"),
              IsEmpty());
}

TEST_F(WatchedRun, tells_what_was_before_it_as_such_and_blames_no_test_for_it) {
  addKernelLog();
  begin();
  log("0,1,1,-;mce: [Hardware Error]: CPU 0: Machine Check: 0 Bank 4: b200000000070f0f\n"
      "0,2,2,-;mce: [Hardware Error]: TSC 0 ADDR 1000 MISC 86\n"
      "0,3,3,-;mce: [Hardware Error]: PROCESSOR 0:906ea TIME 1500000000 SOCKET 0 APIC 0 "
      "microcode ea\n");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
  EXPECT_THAT(run.formatsWithout(m_step, "had an error (machine check) before this run"),
              IsEmpty());
}

// A test of memory runs on the processors beside it, and another one tests one of these.
TEST_F(WatchedRun, tells_what_belongs_to_several_tests_in_a_step_of_the_machine_that_names_them) {
  const std::string counter = "sys/devices/system/cpu/cpu0/thermal_throttle/core_throttle_count";
  m_machine.has("sys/devices/system/node/node0/cpu0/online", "1\n");
  m_machine.has(counter, "3\n");
  place.addPackage("CORE", {{.name = "Sums", .behaviour = "held"}}, {{"Core 0", "bus/cpu0"}});
  const std::string other = "Package CORE: Sums on Core 0";
  begin({"--watch=throttle"});
  ASSERT_TRUE(m_run->waitForLog(m_test) && m_run->waitForLog(other));
  show(counter, "5\n");
  ASSERT_TRUE(m_run->waitForLog("throttled"));
  place.write(place.packageFile("CORE") + ".go", "");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.steps(), UnorderedElementsAre(m_test, other, m_step));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.verdictsOf(other), ElementsAre("PASSED"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("WARNING"));
  for (const std::string test : {"Walking ones", "Sums"}) {
    EXPECT_THAT(run.formatsWithout(m_step, test), IsEmpty());
  }
}

// As long as the test has taken at most: the kernel tells of these errors late.
TEST_F(WatchedRun, waits_at_its_end_for_what_is_told_late_and_names_the_test) {
  begin({"--watch=edac", "--settle=20s"});
  std::this_thread::sleep_for(std::chrono::seconds(1));
  place.write(place.packageFile("HELD") + ".go", "");
  ASSERT_TRUE(m_run->waitForLog("testStepEnd"));
  correct(10);
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("WARNING"));
  EXPECT_THAT(
      run.formatsWithout(m_step, "Memory module DIMM_A1 corrected 3 errors during Walking ones."),
      IsEmpty());
}

TEST_F(WatchedRun, believes_nobody_but_the_kernel) {
  addKernelLog();
  begin();
  log("12,1,1,-;mce: [Hardware Error]: CPU 0: Machine Check Exception: 5 Bank 4: "
      "b200000000070f0f\n");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.steps(), ElementsAre(m_test));
}

TEST_F(WatchedRun, tells_once_what_cannot_be_watched) {
  begin({"--watch=edac,aer,throttle"});
  const ReportedRun run = finish();
  EXPECT_THAT(run.outcome().err, Not(HasSubstr("Not watched")));
  const std::string line = "Not watched on this machine: aer, throttle.";
  const std::size_t first = run.outcome().out.find(line);
  ASSERT_NE(first, std::string::npos) << run.outcome().out;
  EXPECT_EQ(run.outcome().out.find(line, first + 1), std::string::npos);
}

TEST_F(WatchedRun, is_not_watched_where_that_is_asked_for) {
  begin({"--watch=off"});
  show(kModule + "dimm_ue_count", "1\n");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed);
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  EXPECT_THAT(run.outcome().out, Not(HasSubstr("Not watched")));
}

TEST_F(WatchedRun, tells_in_the_language_of_the_user) {
  begin({"--watch=edac", "--lang", "de"});
  correct(8);
  const ReportedRun run = finish();
  // The text's lines are found by their English verdicts.
  EXPECT_THAT(
      run.formatsWithout(m_test,
                         "Bei Walking ones hat das Speichermodul DIMM_A1 einen Fehler korrigiert."),
      ElementsAre("text"));
  EXPECT_THAT(run.outcome().out, HasSubstr("das Speichermodul DIMM_A1"));
}

TEST_F(WatchedRun, tells_in_the_language_of_the_user_why_something_is_not_watched) {
  begin({"--watch=edac,aer,kmsg", "--lang", "de"});
  EXPECT_TRUE(m_run->waitForLog("meldet dem Kernel Fehler."));
  EXPECT_TRUE(m_run->waitForLog("das Protokoll des Kernels kann nicht gelesen werden: "));
  EXPECT_EQ(finish().exitCode(), kPassed);
}

TEST_F(WatchedRun, tells_a_device_that_has_vanished_once_and_as_it_is_to_be_told) {
  m_machine.has("sys/block/node0/device/ioerr_cnt", "0x0\n");
  begin();
  std::filesystem::remove_all(m_machine.path() + "/sys/block/node0");
  const ReportedRun trouble = finish();
  EXPECT_EQ(trouble.exitCode(), kNoVerdict) << trouble.outcome().out;
  EXPECT_THAT(trouble.steps(), UnorderedElementsAre(m_test, m_step));
  m_machine.has("sys/block/node0/device/ioerr_cnt", "0x0\n");
  std::filesystem::remove(place.packageFile("HELD") + ".go");
  begin({"--watch=disk", "--vanished", "failure"});
  std::filesystem::remove_all(m_machine.path() + "/sys/block/node0");
  EXPECT_EQ(finish().exitCode(), kHardwareFailure);
}

TEST_F(WatchedRun, tells_it_in_the_step_of_the_test_that_ran_on_it) {
  place.addPackage("DISK", {{.name = "Read", .behaviour = "held"}}, {{"Disk sdx", "bus/sdx"}});
  m_machine.has("sys/class/block/sdx/device/ioerr_cnt", "0x0\n");
  m_machine.has("sys/block/sdx/device/ioerr_cnt", "0x0\n");
  begin({"--watch=disk", "-p", "DISK"});
  std::filesystem::remove_all(m_machine.path() + "/sys/block/sdx");
  place.write(place.packageFile("DISK") + ".go", "");
  const ReportedRun run = finish();
  const std::string test = "Package DISK: Read on Disk sdx";
  EXPECT_EQ(run.exitCode(), kNoVerdict) << run.outcome().out;
  EXPECT_THAT(run.steps(), ElementsAre(test));
  EXPECT_THAT(run.verdictsOf(test), ElementsAre("ERROR"));
  EXPECT_THAT(run.formatsWithout(test, "sdx has vanished during Read"), IsEmpty());
}

TEST_F(WatchedRun, gives_back_the_kernels_interval_however_it_ends) {
  m_machine.has(kInterval, "300\n");
  begin({"--watch=mce", "--watch-ce-interval", "10s"});
  ASSERT_TRUE(becomes(kInterval, "10"));
  m_run->program().signal(SIGKILL);
  EXPECT_TRUE(becomes(kInterval, "300"));
  begin({"--watch=mce", "--watch-ce-interval", "15s"});
  ASSERT_TRUE(becomes(kInterval, "15"));
  EXPECT_EQ(finish().exitCode(), kPassed);
  EXPECT_EQ(m_machine.files().word(kInterval), "300");
}

TEST_F(WatchedRun, leaves_the_interval_to_the_run_that_has_changed_it) {
  m_machine.has(kInterval, "300\n");
  begin({"--watch=mce", "--watch-ce-interval", "10s"});
  ASSERT_TRUE(becomes(kInterval, "10"));
  const Outcome second =
      run({"run", "--watch=mce", "--watch-ce-interval=20s", "-t", "none of the tests"});
  EXPECT_EQ(second.exitCode, kNothingRan);
  EXPECT_THAT(second.err, HasSubstr("another run has changed"));
  EXPECT_EQ(m_machine.files().word(kInterval), "10");
  EXPECT_EQ(finish().exitCode(), kPassed);
}

TEST_F(WatchedRun, refuses_what_is_no_source_time_or_rule) {
  for (const auto& [option, fault] : std::vector<std::pair<std::string, std::string>>{
           {"--watch=edak", "--watch: 'edak' is none of off, all, edac"},
           {"--watch-interval=1ms", "--watch-interval: '1ms' is shorter than 10ms"},
           {"--settle=soon", "--settle: 'soon' is no time"},
           {"--watch-ce-interval=500ms", "--watch-ce-interval: '500ms' is not a number of seconds"},
           {"--set=watch.memory-corrected=bad", "--set: memory-corrected is information, warning"},
           {"--set=watch.nonsense", "is not watch.KEY=VALUE"}}) {
    const Outcome outcome = run({"run", option});
    EXPECT_EQ(outcome.exitCode, kUsage) << option;
    EXPECT_THAT(outcome.err, HasSubstr(fault));
  }
}

TEST_F(WatchedRun, takes_for_no_warning_what_the_test_provokes) {
  place.replaceIn(place.packageFile("HELD"), "Behave=held",
                  "Behave=held\nTestProvokes=throttled, device-vanished, link-lost");
  place.replaceIn(place.packageFile("HELD"), "Tag1=bus/node0", "Tag1=bus/eth0");
  for (const std::string port : {"eth0", "eth1"}) {
    m_machine.has("sys/class/net/" + port + "/device/vendor", "0x8086\n");
    m_machine.has("sys/class/net/" + port + "/carrier_down_count", "1\n");
  }
  begin({"--watch=net"});
  show("sys/class/net/eth0/carrier_down_count", "2\n");
  std::filesystem::remove_all(m_machine.path() + "/sys/class/net/eth1");
  const ReportedRun run = finish();
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.steps(), ElementsAre(m_test));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  place.replaceIn(place.packageFile("HELD"), "=throttled,", "=throtled,");
  EXPECT_THAT(Diagctl::run({"check"}).out,
              HasSubstr("[TestID1] TestProvokes: 'throtled' is no kind of finding"));
}

TEST_F(WatchedRun, keeps_what_sensors_show_in_the_log_and_makes_no_step_of_it) {
  m_machine.has("sys/class/hwmon/hwmon0/name", "coretemp\n");
  m_machine.has("sys/class/hwmon/hwmon0/temp1_label", "Core 3\n");
  m_machine.has("sys/class/hwmon/hwmon0/temp1_crit", "100000\n");
  m_machine.has("sys/class/hwmon/hwmon0/temp1_input", "41000\n");
  ReportedProgram& program = begin({"--watch=hwmon"});
  const ReportedRun run = finish();
  const std::chrono::milliseconds now(0);
  EXPECT_TRUE(program.waitForLog(R"("value":41.0)", now));
  EXPECT_TRUE(program.waitForLog(R"("type":"LESS_THAN_OR_EQUAL","value":100.0)", now));
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.outcome().out, Not(HasSubstr("Machine watch")));
  EXPECT_THAT(run.verdictsOf(m_test), ElementsAre("PASSED"));
  for (const char* const format : {"text", "junit", "tap"}) {
    EXPECT_EQ(run.accountOf(m_step, format), "") << format;
  }
}

/// The watch without a test, on a machine of files.
class WatchVerb : public WatchedRun {
 protected:
  /// Begins, and returns when all is watched that can be.
  void beginWatch(std::vector<std::string> options) {
    options.insert(options.begin(), "watch");
    m_program = std::make_unique<Program>(withControlFile(options));
    ASSERT_TRUE(m_program->waitFor("Not watched"));
  }
  Outcome endWatch() {
    m_program->signal(SIGTERM);
    return m_program->finish();
  }

  std::unique_ptr<Program> m_program;
};

TEST_F(WatchVerb, tells_what_it_finds_and_ends_in_order_with_a_signal) {
  beginWatch({});
  correct(8);
  const Outcome outcome = endWatch();
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(
      outcome.out,
      AllOf(HasSubstr("WARNING  Memory module DIMM_A1 corrected an error during the watch."),
            HasSubstr("-> Replace the module if it goes on."),
            HasSubstr("failures: 0, warnings: 1")));
}

TEST_F(WatchVerb, tells_again_what_goes_on) {
  beginWatch({"--set", "watch.Again=200ms"});
  correct(8);
  ASSERT_TRUE(m_program->waitFor("corrected an error during the watch."));
  correct(9);
  EXPECT_TRUE(m_program->waitFor("          Memory module DIMM_A1 corrected 2 errors"));
  EXPECT_THAT(endWatch().out, HasSubstr("failures: 0, warnings: 1"));
}

TEST_F(WatchVerb, ends_with_the_code_of_what_it_has_found) {
  beginWatch({"--format", "jsonl"});
  show(kModule + "dimm_ue_count", "1\n");
  const Outcome outcome = endWatch();
  EXPECT_EQ(outcome.exitCode, kHardwareFailure) << outcome.err;
  EXPECT_THAT(faultsOf(parseLines(outcome.out)), IsEmpty());
  EXPECT_THAT(outcome.out, HasSubstr("memory-uncorrected"));
}

TEST_F(WatchVerb, leaves_metrics_while_it_goes_on_and_at_its_end) {
  const std::string metrics = m_machine.path() + "/tarvexdiags-watch.prom";
  beginWatch({"--textfile", m_machine.path()});
  correct(8);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!std::filesystem::exists(metrics) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_THAT(contentsOf(metrics), HasSubstr("tarvexdiags_run_under_way{verb=\"watch\"} 1\n"));
  EXPECT_EQ(endWatch().exitCode, kPassed);
  EXPECT_THAT(contentsOf(metrics),
              AllOf(HasSubstr("tarvexdiags_run_under_way{verb=\"watch\"} 0\n"),
                    HasSubstr("kind=\"memory-corrected\",verdict=\"warning\"} 1\n")));
}

TEST_F(WatchVerb, is_over_with_its_time_and_has_passed_where_nothing_was_found) {
  const Outcome outcome = run({"watch", "--for", "10ms", "--format=jsonl"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(faultsOf(parseLines(outcome.out)), IsEmpty());
}

TEST_F(WatchVerb, counts_over_days_and_not_over_the_run) {
  beginWatch({"--set", "watch.memory-corrected.failure-count=1"});
  correct(9);
  EXPECT_EQ(endWatch().exitCode, kPassed);
  beginWatch({"--set", "watch.memory-corrected.failure-count-per-day=1"});
  correct(10);
  EXPECT_EQ(endWatch().exitCode, kHardwareFailure);
}

TEST_F(WatchVerb, refuses_a_time_that_is_none_and_to_watch_nothing) {
  EXPECT_EQ(run({"watch", "--for=soon"}).exitCode, kUsage);
  const Outcome nothing = run({"watch", "--watch=off"});
  EXPECT_EQ(nothing.exitCode, kUsage);
  EXPECT_THAT(nothing.err, HasSubstr("there is nothing to watch without a source"));
}

TEST_F(WatchedRun, is_checked_with_the_control_file_that_says_how) {
  EXPECT_EQ(run({"check"}).exitCode, kPassed) << run({"check"}).out;
  place.replaceIn(place.controlFile(), "Interval=10ms", "Interval=1ms\nthrotled=failure");
  const Outcome checked = run({"check"});
  EXPECT_EQ(checked.exitCode, kNoVerdict);
  EXPECT_THAT(checked.out, HasSubstr("[Watch] Interval: '1ms' is shorter than 10ms"));
  EXPECT_THAT(checked.out, HasSubstr("[Watch] throtled: throtled is no kind of finding"));
  const Outcome refused = run({"run", "--watch=all"});
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err, HasSubstr("[Watch] Interval: '1ms' is shorter than 10ms"));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
