// SysUtil::ReadCfgFile on real files, good and bad.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "System/SysUtil.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::System {
namespace {

namespace fs = std::filesystem;

/// A configuration file in a folder of the test's own.
class ReadCfgFileTest : public ::testing::Test {
 protected:
  ReadCfgFileTest() {
    std::string name = (fs::temp_directory_path() / "readcfg-XXXXXX").string();
    m_folder = mkdtemp(name.data());
    fs::permissions(m_folder, fs::perms::all);
    m_file = m_folder / "test.cfg";
  }
  ~ReadCfgFileTest() override { fs::remove_all(m_folder); }

  void write(const std::string& text) const { std::ofstream(m_file, std::ios::binary) << text; }

  /// The value of a key, or nothing when it was refused; checks that a refusal leaves no text.
  std::optional<std::string> read(const std::string& section, const std::string& key) const {
    std::string value = "from before";
    const int result = SysUtil::ReadCfgFile(section, key, value, m_file, -1);
    if (result >= 0) {
      return value;
    }
    EXPECT_EQ(result, SysUtil::CFG_KEY_NOT_FOUND);
    EXPECT_EQ(value, "");
    return std::nullopt;
  }

  std::optional<std::string> readFrom(const std::string& text, const std::string& section,
                                      const std::string& key) const {
    write(text);
    return read(section, key);
  }

  static void expectUnreadable(const std::string& path) {
    std::string value = "from before";
    EXPECT_EQ(SysUtil::ReadCfgFile("A", "k", value, path, -1), SysUtil::CFG_FILE_UNREADABLE)
        << path;
    EXPECT_EQ(value, "");
  }

  fs::path m_folder;
  fs::path m_file;
};

constexpr auto kNothing = std::nullopt;

TEST_F(ReadCfgFileTest, reads_a_key_of_a_section) {
  write("[Package]\nPackageName=Memory\nMnemonic=MEM\n[TestID1]\nTestName=March\n");
  EXPECT_EQ(read("Package", "PackageName"), "Memory");
  EXPECT_EQ(read("Package", "Mnemonic"), "MEM");
  EXPECT_EQ(read("TestID1", "TestName"), "March");
  EXPECT_EQ(read("TestID1", "Mnemonic"), kNothing);
  EXPECT_EQ(read("Package", "TestName"), kNothing);
  EXPECT_EQ(read("TestID2", "TestName"), kNothing);
}

TEST_F(ReadCfgFileTest, names_match_as_spelled) {
  write("[Section]\nKey=v\n");
  EXPECT_EQ(read("section", "Key"), kNothing);
  EXPECT_EQ(read("Section", "key"), kNothing);
  EXPECT_EQ(read("Sectio", "Key"), kNothing);
  EXPECT_EQ(read("Sections", "Key"), kNothing);
  EXPECT_EQ(read("Section", "Ke"), kNothing);
  EXPECT_EQ(read("Section", "Keys"), kNothing);
}

TEST_F(ReadCfgFileTest, a_name_that_begins_another_name_is_not_taken_for_it) {
  write("[TestID10]\nTestName=ten\n[TestID1]\nTestNameLong=no\nTestName=one\n");
  EXPECT_EQ(read("TestID1", "TestName"), "one");
  EXPECT_EQ(read("TestID10", "TestName"), "ten");
}

TEST_F(ReadCfgFileTest, blanks_around_names_and_values_do_not_count) {
  write("  [ \t Section \t]  \n\t key \t = \t two  words \t \n");
  EXPECT_EQ(read("Section", "key"), "two  words");
}

TEST_F(ReadCfgFileTest, blanks_inside_names_count) {
  write("[Disable  Device]\nk=two\n[Disable Device]\nk=one\nlong key = v\n");
  EXPECT_EQ(read("Disable Device", "k"), "one");
  EXPECT_EQ(read("Disable  Device", "k"), "two");
  EXPECT_EQ(read("Disable Device", "long key"), "v");
  EXPECT_EQ(read("Disable Device", "longkey"), kNothing);
}

TEST_F(ReadCfgFileTest, comment_lines_and_other_lines_are_passed_over) {
  write("# [A]\n; k=commented\n[A]\n#k=1\n ; k=2\nno equals sign\n\n \t\nk=3\n");
  EXPECT_EQ(read("A", "k"), "3");
  EXPECT_EQ(read("A", "#k"), kNothing);
}

TEST_F(ReadCfgFileTest, values_hold_any_sign) {
  write("[A]\neq=a=b==c\nhash=x # y ; z\nbrackets=[B] ]\nquoted=\" v \"\n=\nk=v\n[B]\nk=w\n");
  EXPECT_EQ(read("A", "eq"), "a=b==c");
  EXPECT_EQ(read("A", "hash"), "x # y ; z");
  EXPECT_EQ(read("A", "brackets"), "[B] ]");
  EXPECT_EQ(read("A", "quoted"), "\" v \"");
  EXPECT_EQ(read("A", "k"), "v");
  EXPECT_EQ(read("B", "k"), "w");
}

TEST_F(ReadCfgFileTest, empty_values_are_read) {
  write("[A]\nnone=\nblank= \t \nlast=");
  EXPECT_EQ(read("A", "none"), "");
  EXPECT_EQ(read("A", "blank"), "");
  EXPECT_EQ(read("A", "last"), "");
  EXPECT_EQ(read("A", "other"), kNothing);
}

TEST_F(ReadCfgFileTest, lines_end_in_either_way) {
  write("[A]\r\nk=v\r\n\r\n[B] \r\nk = w \r\nlast=z\r");
  EXPECT_EQ(read("A", "k"), "v");
  EXPECT_EQ(read("B", "k"), "w");
  EXPECT_EQ(read("B", "last"), "z");
}

TEST_F(ReadCfgFileTest, last_line_needs_no_end) {
  EXPECT_EQ(readFrom("[A]\nk=v", "A", "k"), "v");
  EXPECT_EQ(readFrom("[A]\nk", "A", "k"), kNothing);
  EXPECT_EQ(readFrom("[A]", "A", "k"), kNothing);
  EXPECT_EQ(readFrom("[A", "A", "k"), kNothing);
  EXPECT_EQ(readFrom("[", "A", "k"), kNothing);
  EXPECT_EQ(readFrom("", "A", "k"), kNothing);
}

TEST_F(ReadCfgFileTest, byte_order_mark_is_passed_over) {
  EXPECT_EQ(readFrom("\xEF\xBB\xBF[A]\nk=v\n", "A", "k"), "v");
  EXPECT_EQ(readFrom("\xEF\xBB\xBF \t[A]\nk=v\n", "A", "k"), "v");
  EXPECT_EQ(readFrom("\xEF\xBB\xBF\n[A]\nk=v\n", "A", "k"), "v");
  EXPECT_EQ(readFrom("\xEF\xBB[A]\nk=v\n", "A", "k"), kNothing) << "half of one is text";
  EXPECT_EQ(readFrom("\xEF\xBB\xBF\xEF\xBB\xBF[A]\nk=v\n", "A", "k"), kNothing) << "so is a second";
}

TEST_F(ReadCfgFileTest, first_of_repeated_keys_wins) {
  EXPECT_EQ(readFrom("[A]\nk=1\nk=2\n", "A", "k"), "1");
  EXPECT_EQ(readFrom("[A]\nk=\nk=2\n", "A", "k"), "") << "also an empty one";
}

TEST_F(ReadCfgFileTest, repeated_section_adds_the_keys_that_the_first_has_not) {
  write("[A]\nk=1\n[B]\nk=b\n[A]\nk=2\nmore=3\n");
  EXPECT_EQ(read("A", "k"), "1");
  EXPECT_EQ(read("A", "more"), "3");
  EXPECT_EQ(read("B", "more"), kNothing);
}

TEST_F(ReadCfgFileTest, text_behind_the_bracket_is_no_part_of_the_name) {
  write("[A] ; remark\nk=a\n[B]]\nk=b\n");
  EXPECT_EQ(read("A", "k"), "a");
  EXPECT_EQ(read("B", "k"), "b");
}

TEST_F(ReadCfgFileTest, section_without_a_closing_bracket_is_nobodys) {
  write("[A]\nx=1\n[B\nk=2\n[A]\ny=3\n");
  EXPECT_EQ(read("A", "x"), "1");
  EXPECT_EQ(read("B", "k"), kNothing);
  EXPECT_EQ(read("A", "k"), kNothing) << "its keys do not fall to the section before";
  EXPECT_EQ(read("A", "y"), "3");
}

TEST_F(ReadCfgFileTest, keys_before_any_section_are_nobodys) {
  write("k=0\n[]\nk=1\n[ ]\nk=2\n");
  EXPECT_EQ(read("", "k"), kNothing);
  EXPECT_EQ(read(" ", "k"), kNothing);
}

TEST_F(ReadCfgFileTest, nul_bytes_are_signs_like_any_other) {
  const std::string nul(1, '\0');
  write("[A]\nx=" + nul + "\n" + nul + "=y\nk=a" + nul + "b\n[" + nul + "]\nk=n\n");
  EXPECT_EQ(read("A", "k"), "a" + nul + "b");
  EXPECT_EQ(read("A", nul), "y");
  EXPECT_EQ(read(nul, "k"), "n");
}

TEST_F(ReadCfgFileTest, last_argument_has_no_effect) {
  write("[A]\nk=v\n");
  for (const int last : {-1, 0, 1, 4096}) {
    std::string value;
    EXPECT_EQ(SysUtil::ReadCfgFile("A", "k", value, m_file, last), SysUtil::CFG_READ);
    EXPECT_EQ(value, "v");
  }
}

TEST_F(ReadCfgFileTest, each_call_sees_the_file_as_it_is_then) {
  EXPECT_EQ(readFrom("[A]\nk=1\n", "A", "k"), "1");
  EXPECT_EQ(readFrom("[A]\nk=22\n", "A", "k"), "22");
  std::ofstream(m_folder / "new") << "[A]\nk=3\n";
  fs::rename(m_folder / "new", m_file);
  EXPECT_EQ(read("A", "k"), "3");
  fs::remove(m_file);
  expectUnreadable(m_file);
}

TEST_F(ReadCfgFileTest, lines_and_values_of_any_length_are_read_whole) {
  const std::string megabytes(8U << 20U, 'x');
  write("[O]\n" + megabytes + "=" + megabytes + "\n[A]\n; " + megabytes + "\nother=" + megabytes +
        "\nk=" + megabytes + "\nlast=z\n");
  EXPECT_EQ(read("A", "k"), megabytes);
  EXPECT_EQ(read("A", "last"), "z");
  EXPECT_EQ(read("O", megabytes), megabytes);
  EXPECT_EQ(readFrom("[" + megabytes + "]\nk=v\n", megabytes, "k"), "v");
}

TEST_F(ReadCfgFileTest, lines_anywhere_in_the_file_are_read_whole) {
  const std::string lines = "\n [ A ] \n key = value \n";
  constexpr std::size_t buffer =
      64 * 1024;  // what is read at a time; each cut of the lines is tried
  for (std::size_t before = 0; before <= lines.size(); ++before) {
    write("#" + std::string(buffer - 1 - before, '.') + lines + "[B]\nkey=other\n");
    EXPECT_EQ(read("A", "key"), "value") << before;
    EXPECT_EQ(read("B", "key"), "other") << before;
  }
}

TEST_F(ReadCfgFileTest, hundreds_of_megabytes_are_read_in_constant_memory) {
  constexpr off_t size = off_t{400} << 20U;  // a hole: takes no room on the disk
  write("[Head]\nk=start\n");
  ASSERT_EQ(truncate(m_file.c_str(), size), 0);
  std::ofstream(m_file, std::ios::app | std::ios::binary) << "\n[Tail]\nk=end\n";
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  EXPECT_EQ(read("Tail", "k"), "end");
  EXPECT_EQ(read("Head", "k"), "start");
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024) << "kilobytes";
}

TEST_F(ReadCfgFileTest, every_key_of_a_large_description_is_found) {
  std::string text = "[Package]\nNumberOfTests=1000\n";
  for (int test = 1; test <= 1000; ++test) {
    const std::string number = std::to_string(test);
    text += "\n[TestID" + number + "]\nTestName=Test " + number +
            "\nTestDescription=[TestID1000] " + std::string(200, '.') +
            "\nTestDisable=FALSE\nTestEstimatedTime=" + number + "\n";
  }
  write(text);
  for (int test = 1; test <= 1000; test += 7) {
    const std::string number = std::to_string(test);
    ASSERT_EQ(read("TestID" + number, "TestName"), "Test " + number);
    ASSERT_EQ(read("TestID" + number, "TestEstimatedTime"), number);
  }
  EXPECT_EQ(read("TestID1000", "TestName"), "Test 1000");
  EXPECT_EQ(read("TestID1001", "TestName"), kNothing);
}

TEST_F(ReadCfgFileTest, what_is_no_regular_file_is_refused_at_once) {
  expectUnreadable(m_folder);
  expectUnreadable("/dev/null");
  expectUnreadable("/dev/zero");
  expectUnreadable("/dev/tty");
  const fs::path pipe = m_folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  expectUnreadable(pipe);
  const fs::path name = m_folder / "socket";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, name.c_str(), sizeof(address.sun_path) - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  expectUnreadable(name);
  close(socket);
}

TEST_F(ReadCfgFileTest, paths_that_lead_nowhere_are_refused) {
  write("[A]\nk=v\n");
  expectUnreadable("");
  expectUnreadable(m_folder / "missing.cfg");
  expectUnreadable(m_file / "below");
  expectUnreadable(std::string(100000, 'x'));
  expectUnreadable(m_file.string() + std::string("\0.old", 5));
  fs::create_symlink(m_folder / "missing.cfg", m_folder / "dangling");
  expectUnreadable(m_folder / "dangling");
  fs::create_symlink(m_folder / "circle", m_folder / "circle");
  expectUnreadable(m_folder / "circle");
}

TEST_F(ReadCfgFileTest, links_lead_to_the_file) {
  write("[A]\nk=v\n");
  fs::create_symlink(m_file, m_folder / "link");
  m_file = m_folder / "link";
  EXPECT_EQ(read("A", "k"), "v");
}

TEST_F(ReadCfgFileTest, file_without_permission_is_refused) {
  write("[A]\nk=v\n");
  fs::permissions(m_file, fs::perms::none);
  constexpr uid_t nobody = 65534;
  const uid_t user = geteuid();
  if (user == 0) {
    ASSERT_EQ(seteuid(nobody), 0) << "the super-user may read everything";
  }
  expectUnreadable(m_file);
  ASSERT_EQ(seteuid(user), 0);
}

TEST_F(ReadCfgFileTest, failure_while_reading_is_reported) {
  // A regular file by its mode, whose first page cannot be read.
  expectUnreadable("/proc/self/mem");
}

TEST_F(ReadCfgFileTest, file_whose_size_is_not_known_beforehand_is_read) {
  m_file = "/proc/self/status";  // its size is given as 0
  EXPECT_EQ(read("A", "k"), kNothing);
}

std::size_t openDescriptors() {
  const fs::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(ReadCfgFileTest, no_descriptor_stays_open) {
  write("[A]\nk=v\n");
  const std::size_t before = openDescriptors();
  for (int round = 0; round < 100; ++round) {
    read("A", "k");
    read("A", "missing");
    expectUnreadable(m_folder);
    expectUnreadable("/proc/self/mem");
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ReadCfgFileTest, exhausted_descriptors_are_a_failure_and_no_more) {
  write("[A]\nk=v\n");
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t usual = limit.rlim_cur;
  limit.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  expectUnreadable(m_file);
  limit.rlim_cur = usual;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(read("A", "k"), "v");
}

TEST_F(ReadCfgFileTest, value_too_large_for_the_memory_is_a_failure_and_no_more) {
  if (TestSupport::kIsSanitized) {
    GTEST_SKIP() << "a sanitizer reserves more memory than a limit could leave";
  }
  write("[A]\nk=");
  ASSERT_EQ(truncate(m_file.c_str(), off_t{512} << 20U), 0);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
  const rlim_t usual = limit.rlim_cur;
  limit.rlim_cur = rlim_t{256} << 20U;
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  std::string value = "from before";
  const int result = SysUtil::ReadCfgFile("A", "k", value, m_file, -1);
  limit.rlim_cur = usual;
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_EQ(result, SysUtil::CFG_FILE_UNREADABLE);
  EXPECT_EQ(value, "");
}

TEST_F(ReadCfgFileTest, file_that_is_cut_short_while_it_is_read_does_no_harm) {
  const std::string filler = "[O]\n" + std::string(2U << 20U, '.') + "\n";
  write(filler + "[A]\nk=value\n");
  std::atomic<bool> ended{false};
  std::thread cutter([&] {
    while (!ended) {
      EXPECT_EQ(truncate(m_file.c_str(), 100), 0);
      write(filler + "[A]\nk=value\n");
    }
  });
  int found = 0;
  for (int round = 0; round < 300; ++round) {
    const auto value = read("A", "k");
    found += value.has_value() ? 1 : 0;
    // A text that is still being written may end anywhere, so a value may be the start of itself.
    EXPECT_TRUE(!value || std::string("value").compare(0, value->size(), *value) == 0) << *value;
  }
  ended = true;
  cutter.join();
  RecordProperty("found", found);
  EXPECT_EQ(read("A", "k"), "value");
}

TEST_F(ReadCfgFileTest, many_threads_read_at_the_same_time) {
  write("[A]\nk=a\n[B]\nk=b\n");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (const char* const section : {"A", "B", "A", "B"}) {
    threads.emplace_back([this, section, &wrong] {
      const std::string expected = section[0] == 'A' ? "a" : "b";
      for (int round = 0; round < 200; ++round) {
        wrong += read(section, "k") == expected ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
}

// --- The form with a buffer and a default

class BufferTest : public ReadCfgFileTest {
 protected:
  BufferTest() { std::memset(m_buffer, '~', sizeof(m_buffer)); }

  int readInto(const char* key, const char* defaultValue, int size) {
    return SysUtil::GetParamsValueString("A", key, defaultValue, m_buffer, size, m_file.c_str());
  }

  char m_buffer[16];
};

TEST_F(BufferTest, receives_the_value_and_nothing_behind_it) {
  write("[A]\nk=value\n");
  EXPECT_EQ(readInto("k", "default", 8), SysUtil::CFG_READ);
  EXPECT_EQ(std::memcmp(m_buffer, "value\0\0\0~~~~~~~~", sizeof(m_buffer)), 0);
}

TEST_F(BufferTest, receives_the_default_when_nothing_usable_is_there) {
  write("[A]\nk=value\nempty=\n");
  EXPECT_EQ(readInto("missing", "default", 16), SysUtil::CFG_KEY_NOT_FOUND);
  EXPECT_STREQ(m_buffer, "default");
  EXPECT_EQ(readInto("empty", "default", 16), SysUtil::CFG_READ);
  EXPECT_STREQ(m_buffer, "default");
  EXPECT_EQ(readInto("missing", nullptr, 16), SysUtil::CFG_KEY_NOT_FOUND);
  EXPECT_STREQ(m_buffer, "");
}

TEST_F(BufferTest, value_that_does_not_fit_with_its_end_is_dropped) {
  write("[A]\nk=value\n");
  EXPECT_EQ(readInto("k", "def", 6), SysUtil::CFG_READ);
  EXPECT_STREQ(m_buffer, "value");
  EXPECT_EQ(readInto("k", "def", 5), SysUtil::CFG_READ);
  EXPECT_STREQ(m_buffer, "def");
}

TEST_F(BufferTest, default_is_cut_to_the_buffer) {
  write("");
  readInto("k", "a long default", 4);
  EXPECT_EQ(std::memcmp(m_buffer, "a l\0~", 5), 0);
  readInto("k", "x", 1);
  EXPECT_STREQ(m_buffer, "");
}

TEST_F(BufferTest, bears_null_arguments_and_no_room) {
  write("[A]\nk=value\n");
  EXPECT_EQ(readInto("k", "default", 0), SysUtil::CFG_READ);
  EXPECT_EQ(readInto("k", "default", -1), SysUtil::CFG_READ);
  EXPECT_EQ(m_buffer[0], '~');
  const std::string file = m_file;
  EXPECT_EQ(SysUtil::GetParamsValueString("A", "k", "d", nullptr, 16, file.c_str()),
            SysUtil::CFG_READ);
  EXPECT_EQ(SysUtil::GetParamsValueString(nullptr, "k", "d", m_buffer, 16, file.c_str()),
            SysUtil::CFG_KEY_NOT_FOUND);
  EXPECT_EQ(SysUtil::GetParamsValueString("A", nullptr, "d", m_buffer, 16, file.c_str()),
            SysUtil::CFG_KEY_NOT_FOUND);
  EXPECT_EQ(SysUtil::GetParamsValueString("A", "k", "d", m_buffer, 16, nullptr),
            SysUtil::CFG_FILE_UNREADABLE);
  EXPECT_STREQ(m_buffer, "d");
}

}  // namespace
}  // namespace TarvexDiags::System
