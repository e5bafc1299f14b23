#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "tests/support/FakeMachine.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tests::FakeMachine;

TEST(SystemFilesTest, read_numbers_in_both_notations_and_words) {
  FakeMachine machine;
  machine.has("decimal", "12 and more\n").has("hexadecimal", "0x1f\n").has("word", " nvme \n");
  const SystemFiles files = machine.files();
  EXPECT_EQ(files.number("decimal"), 12U);
  EXPECT_EQ(files.hexadecimal("hexadecimal"), 31U);
  EXPECT_EQ(files.hexadecimal("decimal"), std::nullopt);
  EXPECT_EQ(files.word("word"), "nvme");
  EXPECT_EQ(files.word("nowhere"), "");
}

TEST(SystemFilesTest, give_no_text_of_what_is_no_file) {
  FakeMachine machine;
  machine.has("folder/file", "");
  EXPECT_EQ(machine.files().text("folder"), std::nullopt);
  EXPECT_EQ(machine.files().text("folder/file"), "");
  EXPECT_EQ(machine.files().text("nowhere"), std::nullopt);
}

TEST(SystemFilesTest, read_a_file_that_is_longer_than_one_read) {
  FakeMachine machine;
  const std::string text(100'000, 'x');
  machine.has("long", text);
  EXPECT_EQ(machine.files().text("long"), text);
}

TEST(SystemFilesTest, list_a_folder_in_order) {
  FakeMachine machine;
  machine.has("folder/b", "").has("folder/a/c", "");
  EXPECT_THAT(machine.files().entries("folder"), ElementsAre("a", "b"));
  EXPECT_THAT(machine.files().entries("nowhere"), IsEmpty());
}

TEST(SystemFilesTest, follow_links_that_stay_below_the_root) {
  FakeMachine machine;
  machine.has("sys/devices/a/b/file", "");
  std::filesystem::create_symlink("devices/a/b", machine.path() + "/sys/inside");
  std::filesystem::create_symlink("/", machine.path() + "/sys/outside");
  EXPECT_EQ(machine.files().resolved("sys/inside"), "sys/devices/a/b");
  EXPECT_EQ(machine.files().resolved("sys/outside"), "");
  EXPECT_EQ(machine.files().resolved("sys/nowhere"), "");
}

// Whose root it is may have been recorded, and sent, by anybody.
TEST(SystemFilesTest, give_no_text_of_what_never_answers_or_never_ends) {
  FakeMachine machine;
  ASSERT_EQ(mkfifo((machine.path() + "/pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", machine.path() + "/zero");
  std::ofstream(machine.path() + "/huge");
  std::filesystem::resize_file(machine.path() + "/huge", 1UL << 40U);
  for (const char* const name : {"pipe", "zero", "huge"}) {
    EXPECT_EQ(machine.files().text(name), std::nullopt) << name;
  }
}

TEST(SystemFilesTest, tell_nothing_of_what_lies_outside_of_the_root) {
  FakeMachine machine;
  machine.has("inside", "text");
  std::filesystem::create_symlink("/proc/version", machine.path() + "/version");
  std::filesystem::create_symlink("/proc", machine.path() + "/outside");
  std::filesystem::create_symlink(machine.path() + "/inside", machine.path() + "/link");
  EXPECT_EQ(machine.files().text("version"), std::nullopt);
  EXPECT_EQ(machine.files().text("outside/version"), std::nullopt);
  EXPECT_THAT(machine.files().entries("outside"), IsEmpty());
  EXPECT_THAT(machine.files().numberedEntries("outside", ""), IsEmpty());
  EXPECT_EQ(machine.files().text("link"), "text");
  EXPECT_NE(SystemFiles().text("proc/version"), std::nullopt) << "this machine has no outside";
}

}  // namespace
}  // namespace TarvexDiags::Watching
