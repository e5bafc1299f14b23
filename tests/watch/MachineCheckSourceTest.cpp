#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "tests/support/FakeMachine.h"
#include "tests/watch/RecordingCollector.h"
#include "watch/MachineCheckSource.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tests::FakeMachine;
using Tests::RecordingCollector;

const std::string kHead = "          <idle>-0       [000] d.h1.   123.456789: ";
const std::string kMachineCheck =
    "mce_record: CPU: 2, MCGc/s: 10f/0, MC4: 8c00004000010091, IPID: 0000000000000000, "
    "ADDR/MISC/SYND: 0000000012345000/0000000000000000/0000000000000000, RIP: 00:<0>, TSC: 0, "
    "PROCESSOR: 2:a20f10, TIME: 2000, SOCKET: 0, APIC: 0";

class MachineCheckSourceTest : public ::testing::Test {
 protected:
  /// The files of an instance, which the kernel makes with its folder.
  void makeInstance() {
    m_machine.has(m_instance + "events/mce/mce_record/enable", "0")
        .has(m_instance + "buffer_percent", "50");
    ASSERT_EQ(mkfifo((m_machine.path() + "/" + m_instance + "trace_pipe").c_str(), 0600), 0);
  }
  void trace(const std::string& lines) {
    ASSERT_EQ(write(m_writer.get(), lines.data(), lines.size()),
              static_cast<ssize_t>(lines.size()));
  }
  void open() {
    ASSERT_EQ(m_source.open(), std::nullopt);
    const std::string pipe = m_machine.path() + "/" + m_instance + "trace_pipe";
    m_writer = PackageKit::UniqueDescriptor(::open(pipe.c_str(), O_WRONLY | O_CLOEXEC));
  }
  std::string textOf(const std::string& file) const {
    return m_machine.files().text(file).value_or("none");
  }

  FakeMachine m_machine;
  const std::string m_instances = "sys/kernel/tracing/instances/";
  const std::string m_instance = m_instances + "tarvexdiags-" + std::to_string(getpid()) + "/";
  RecordingCollector m_collector;
  MachineCheckSource m_source{m_machine.files()};
  PackageKit::UniqueDescriptor m_writer;
};

TEST_F(MachineCheckSourceTest, says_that_neither_trace_nor_counters_are_there) {
  EXPECT_THAT(m_source.open(), Optional(HasSubstr("trace is not mounted")));
}

TEST_F(MachineCheckSourceTest, reads_a_trace_of_its_own_without_waiting_for_a_full_buffer) {
  makeInstance();
  open();
  EXPECT_EQ(textOf(m_instance + "events/mce/mce_record/enable"), "1");
  EXPECT_EQ(textOf(m_instance + "buffer_percent"), "00");  // over the file's "50"
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  std::string check = kMachineCheck;
  check.replace(check.find("2000"), 4, "9999999999");
  trace(kHead + check + "\nCPU:0 [LOST 2 EVENTS]\n" + kHead.substr(0, 10));
  EXPECT_THAT(m_collector.lookAt(m_source),
              ElementsAre("machine-check-corrected cpu:2 bank 4 1", "records-lost machine - 2"));
  trace(kHead.substr(10) + check + "\n");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("machine-check-corrected cpu:2 bank 4 1"));
}

TEST_F(MachineCheckSourceTest, removes_what_dead_ones_left_and_nothing_else) {
  makeInstance();
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  const std::string folder = m_machine.path() + "/" + m_instances;
  const std::string dead = folder + "tarvexdiags-" + std::to_string(child);
  const std::string living = folder + "tarvexdiags-1";
  const std::string foreign = folder + "others-" + std::to_string(child);
  for (const std::string& instance : {dead, living, foreign}) {
    std::filesystem::create_directory(instance);
  }
  open();
  EXPECT_FALSE(std::filesystem::exists(dead));
  EXPECT_TRUE(std::filesystem::exists(living));
  EXPECT_TRUE(std::filesystem::exists(foreign));
}

TEST_F(MachineCheckSourceTest, counts_machine_checks_where_there_is_no_trace) {
  m_machine.has("proc/interrupts", "CPU0 CPU1\nMCE: 1 0\nTHR: 5 5\n");
  ASSERT_EQ(m_source.open(), std::nullopt);
  EXPECT_LT(m_source.descriptor(), 0);
  EXPECT_THAT(m_collector.lookAt(m_source), IsEmpty());
  m_machine.has("proc/interrupts", "CPU0 CPU1\nMCE: 1 1\nTHR: 8 5\n");
  EXPECT_THAT(m_collector.lookAt(m_source), ElementsAre("machine-check-uncorrected cpu:1 - 1",
                                                        "machine-check-corrected cpu:0 - 3"));
}

}  // namespace
}  // namespace TarvexDiags::Watching
