// SysUtil apart from configuration files: the machine's identity, sleeping, text.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "System/SysUtil.h"

namespace TarvexDiags::System {
namespace {

namespace fs = std::filesystem;

/// A folder of the test's own, gone with it.
class SysUtilTest : public ::testing::Test {
 protected:
  SysUtilTest() {
    std::string name = (fs::temp_directory_path() / "sysutil-XXXXXX").string();
    m_folder = mkdtemp(name.data());
  }
  ~SysUtilTest() override { fs::remove_all(m_folder); }

  fs::path write(const fs::path& name, const std::string& text) {
    const fs::path path = m_folder / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
    return path;
  }

  fs::path m_folder;
};

TEST_F(SysUtilTest, operating_system_has_a_fixed_name) {
  EXPECT_EQ(SysUtil::getOs(), "Linux");
}

TEST_F(SysUtilTest, machine_id_is_read_when_it_is_one) {
  const std::string id = "0123456789abcdefABCDEF0123456789";
  EXPECT_EQ(SysUtil::getMachineId(write("good", id + "\n")), id);
  EXPECT_EQ(SysUtil::getMachineId(write("unended", "  " + id)), id);
  EXPECT_EQ(SysUtil::getMachineId(write("early", "uninitialized\n")), "");
  EXPECT_EQ(SysUtil::getMachineId(write("letter", "g" + id.substr(1))), "");
  EXPECT_EQ(SysUtil::getMachineId(write("long", id + "0")), "");
  EXPECT_EQ(SysUtil::getMachineId(write("empty", "")), "");
  EXPECT_EQ(SysUtil::getMachineId(m_folder / "missing"), "");
  EXPECT_EQ(SysUtil::getMachineId(m_folder), "");
}

TEST_F(SysUtilTest, machine_id_of_this_machine_is_whole_or_empty) {
  const std::string id = SysUtil::getMachineId();
  EXPECT_TRUE(id.empty() || id.size() == 32) << id;
}

TEST_F(SysUtilTest, ipmi_version_comes_from_the_first_controller) {
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "");
  write("serial8250/ipmi_version", "9.9\n");
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "");
  write("ipmi_bmc.5/ipmi_version", "1.5\n");
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "1.5");
  write("ipmi_bmc.3/ipmi_version", "2.0\n");
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "2.0");
}

TEST_F(SysUtilTest, ipmi_version_of_a_controller_that_does_not_tell_is_empty) {
  fs::create_directories(m_folder / "ipmi_bmc.1");
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "");
  for (const char* const text : {"two", "2", "2.", ".0", "2.0.1", "", "2,0"}) {
    write("ipmi_bmc.1/ipmi_version", text);
    EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder), "") << text;
  }
  EXPECT_EQ(SysUtil::GetIpmiVersion(m_folder / "missing"), "");
  const std::string here = SysUtil::GetIpmiVersion();
  EXPECT_TRUE(here.empty() || here.find('.') != std::string::npos);
}

TEST_F(SysUtilTest, strips_blanks_at_the_ends_only) {
  EXPECT_EQ(SysUtil::stripSpaces(""), "");
  EXPECT_EQ(SysUtil::stripSpaces(" \t\r\n\v\f"), "");
  EXPECT_EQ(SysUtil::stripSpaces("text"), "text");
  EXPECT_EQ(SysUtil::stripSpaces("\t two  words \r\n"), "two  words");
  EXPECT_EQ(SysUtil::stripSpaces("x "), "x");
  EXPECT_EQ(SysUtil::stripSpaces(" x"), "x");
  EXPECT_EQ(SysUtil::stripSpaces(std::string("\0 ", 2)), std::string("\0", 1));
}

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

TEST_F(SysUtilTest, sleeps_for_the_time_given) {
  Clock::duration shortest = Clock::duration::max();  // a busy machine makes some of them longer
  for (int round = 0; round < 20; ++round) {
    const auto start = Clock::now();
    SysUtil::sleepForMilliseconds(0);
    SysUtil::sleepForSeconds(0);
    shortest = std::min(shortest, Clock::now() - start);
  }
  EXPECT_LT(shortest, milliseconds(500));
  const auto start = Clock::now();
  SysUtil::sleepForMilliseconds(30);
  EXPECT_GE(Clock::now() - start, milliseconds(30));
  const auto later = Clock::now();
  SysUtil::sleepForSeconds(1);
  EXPECT_GE(Clock::now() - later, milliseconds(1000));
}

TEST_F(SysUtilTest, signals_do_not_shorten_a_sleep) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const pthread_t sleeper = pthread_self();
  std::atomic<bool> ended{false};
  std::thread disturber([&] {
    while (!ended) {
      pthread_kill(sleeper, SIGUSR1);
      std::this_thread::sleep_for(milliseconds(5));
    }
  });
  const auto start = Clock::now();
  SysUtil::sleepForMilliseconds(100);
  EXPECT_GE(Clock::now() - start, milliseconds(100));
  ended = true;
  disturber.join();
}

}  // namespace
}  // namespace TarvexDiags::System
