// What shared objects ask the loader for, and that it is looked at.

#include <gmock/gmock.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "diagctl/session/ExecutedFiles.h"
#include "diagctl/session/LoaderWishes.h"
#include "tests/security/People.h"
#include "tests/support/Places.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using FrontEnd::elementsOf;
using FrontEnd::LoaderWishes;
using FrontEnd::loaderWishesOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

TEST(LoaderWishesTest, are_the_needed_objects_and_the_run_path_beside_the_file) {
  const TestSupport::TemporaryDirectory place;
  const std::string file = place.file("libNEEDING.so");
  fs::copy_file(TestSupport::modulePath("security_needing"), file);
  const LoaderWishes wishes = loaderWishesOf(file);
  EXPECT_THAT(wishes.needed, Contains("libsecurity_needed.so"));
  EXPECT_THAT(wishes.directories, Contains(place.file("needed")));
  EXPECT_EQ(wishes.interpreter, "");
}

TEST(LoaderWishesTest, of_a_program_are_also_its_loader) {
  EXPECT_THAT(loaderWishesOf("/proc/self/exe").interpreter, ::testing::StartsWith("/lib"));
}

TEST(LoaderWishesTest, of_what_is_no_object_are_none) {
  const TestSupport::TemporaryDirectory place;
  for (const std::string& file :
       {place.path(), place.file("none"), place.write("text", "#!/bin/sh\n"),
        place.write("cut", std::string("\177ELF", 4)), std::string("/dev/zero")}) {
    EXPECT_THAT(loaderWishesOf(file).needed, IsEmpty()) << file;
  }
}

// Whatever stands in a file, reading it ends, and reads nothing but the file.
TEST(LoaderWishesTest, of_a_damaged_object_do_no_harm) {
  const TestSupport::TemporaryDirectory place;
  const std::string file = place.file("libDAMAGED.so");
  fs::copy_file(TestSupport::modulePath("security_needing"), file);
  std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
  stream.exceptions(std::ios::badbit | std::ios::failbit);
  for (std::streamoff at = 4; at < 1024; ++at) {
    char byte = 0;
    stream.seekg(at).get(byte);
    stream.seekp(at).put('\xff').flush();
    loaderWishesOf(file);
    stream.seekp(at).put(byte).flush();
  }
  for (std::uintmax_t length = 1024; length > 0; length -= 8) {
    fs::resize_file(file, length);
    loaderWishesOf(file);
  }
}

TEST(LoaderLists, have_the_working_directory_for_an_empty_element) {
  EXPECT_THAT(elementsOf("", ":"), IsEmpty());
  EXPECT_THAT(elementsOf("/a", ":"), ElementsAre("/a"));
  EXPECT_THAT(elementsOf(":/a:;/b:", ":;"), ElementsAre(".", "/a", ".", "/b", "."));
}

class ExecutedFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    fs::permissions(place.path(), fs::perms(0755));
    fs::create_directories(packages + "/needed");
    fs::copy_file(TestSupport::modulePath("security_needing"), packages + "/libNEEDING.so");
    fs::copy_file(TestSupport::modulePath("security_needed"), needed);
  }

  std::vector<std::string> findings() const {
    FrontEnd::PathInspection inspection;
    FrontEnd::inspectExecutedFiles("/etc/passwd", packages, inspection);
    return inspection.findings();
  }

  static std::string foreign(const std::string& path) {
    return path + ": is owned by user 61234 and not by root";
  }

  TestSupport::TemporaryDirectory place;
  const std::string packages = place.file("packages");
  const std::string needed = packages + "/needed/libsecurity_needed.so";
};

TEST_F(ExecutedFilesTest, hold_the_objects_that_a_package_needs) {
  EXPECT_THAT(findings(), Not(Contains(foreign(needed))));
  give(needed, kStranger);
  EXPECT_THAT(findings(), Contains(foreign(needed)));
}

TEST_F(ExecutedFilesTest, hold_the_directory_where_those_are_looked_for) {
  fs::remove(needed);
  give(packages + "/needed", kStranger);
  EXPECT_THAT(findings(), Contains(foreign(packages + "/needed")));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
