// What shared objects ask the loader for, and that it is looked at.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
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
using FrontEnd::expansionsOf;
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

TEST(LoaderWishesTest, of_a_script_are_its_interpreter_and_one_argument) {
  const TestSupport::TemporaryDirectory place;
  const LoaderWishes alone = loaderWishesOf(place.write("alone", "#!/bin/sh"));
  EXPECT_EQ(alone.interpreter, "/bin/sh");
  EXPECT_EQ(alone.argument, "");
  const LoaderWishes both = loaderWishesOf(place.write("both", "#! \t/a/b\t c  d \n/e f\n"));
  EXPECT_EQ(both.interpreter, "/a/b");
  EXPECT_EQ(both.argument, "c  d");
  EXPECT_EQ(loaderWishesOf(place.write("empty", "#!\n/a\n")).interpreter, "");
}

TEST(LoaderWords, are_replaced_by_all_that_they_may_mean) {
  EXPECT_THAT(expansionsOf("/a:b", "/home/file"), ElementsAre("/a:b"));
  EXPECT_THAT(expansionsOf("$ORIGIN/x/${ORIGIN}", "/home/file"), ElementsAre("/home/x//home"));
  EXPECT_THAT(expansionsOf("/a/$LIB/b", "/home/file"),
              ::testing::IsSupersetOf({"/a/lib/b", "/a/lib64/b"}));
  EXPECT_THAT(expansionsOf("${LIB}/${PLATFORM}", "/home/file"), Contains("lib64/haswell"));
}

TEST(LoaderWishesTest, of_what_is_no_object_are_none) {
  const TestSupport::TemporaryDirectory place;
  for (const std::string& file :
       {place.path(), place.file("none"), place.write("text", "plain\n"),
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

class EnvironmentScope {
 public:
  EnvironmentScope(const std::string& name, const std::string& value) : m_name(name) {
    const char* const before = std::getenv(name.c_str());
    m_before = before == nullptr ? std::nullopt : std::optional<std::string>(before);
    setenv(name.c_str(), value.c_str(), 1);
  }
  EnvironmentScope(const EnvironmentScope&) = delete;
  EnvironmentScope& operator=(const EnvironmentScope&) = delete;
  ~EnvironmentScope() {
    if (m_before) {
      setenv(m_name.c_str(), m_before->c_str(), 1);
    } else {
      unsetenv(m_name.c_str());
    }
  }

 private:
  const std::string m_name;
  std::optional<std::string> m_before;
};

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

  /// A package whose worker is a script that begins with a line.
  void addScript(const std::string& line) const {
    place.write("packages/S.cfg", "[Package]\nWorkerPath=" + script + "\n");
    place.write("packages/worker", line + "\n");
    fs::permissions(script, fs::perms(0755));
  }

  /// A program of root's in a directory of the stranger's.
  std::string addProgram(const std::string& directory) const {
    fs::create_directories(place.file(directory));
    fs::copy_file("/bin/true", place.file(directory + "/program"));
    give(place.file(directory), kStranger);
    return place.file(directory);
  }

  static std::string foreign(const std::string& path) {
    return path + ": is owned by user 61234 and not by root";
  }

  TestSupport::TemporaryDirectory place;
  const std::string packages = place.file("packages");
  const std::string needed = packages + "/needed/libsecurity_needed.so";
  const std::string script = packages + "/worker";
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

// As the loader itself does, which is asked besides.
TEST_F(ExecutedFilesTest, hold_what_the_loader_finds_by_the_run_path_of_whoever_needs_it) {
  const std::string between = packages + "/needed/libsecurity_between.so";
  fs::copy_file(TestSupport::modulePath("security_handing"), packages + "/libHANDING.so");
  fs::copy_file(TestSupport::modulePath("security_between"), between);
  fs::remove(packages + "/libNEEDING.so");
  void* const loaded = dlopen((packages + "/libHANDING.so").c_str(), RTLD_NOW);
  EXPECT_NE(loaded, nullptr) << dlerror();
  dlclose(loaded);
  EXPECT_THAT(findings(), Not(Contains(foreign(needed))));
  give(needed, kStranger);
  EXPECT_THAT(findings(), Contains(foreign(needed)));
}

TEST_F(ExecutedFilesTest, hold_what_the_run_path_of_a_worker_leads_its_package_to) {
  fs::create_directory(place.file("workers"));
  fs::copy_file(TestSupport::modulePath("security_handing"), place.file("workers/worker"));
  fs::copy_file(TestSupport::modulePath("security_between"), packages + "/libLATE.so");
  place.write("packages/LATE.cfg", "[Package]\nWorkerPath=" + place.file("workers/worker") + "\n");
  fs::remove(packages + "/libNEEDING.so");
  fs::create_directory(place.file("workers/needed"));
  const std::string late = place.file("workers/needed/libsecurity_needed.so");
  fs::rename(needed, late);
  EXPECT_THAT(findings(), Not(Contains(foreign(late))));
  give(late, kStranger);
  EXPECT_THAT(findings(), Contains(foreign(late)));
}

TEST_F(ExecutedFilesTest, hold_what_the_loader_prefers_for_a_processor) {
  for (const char* variant : {"glibc-hwcaps/x86-64-v3", "haswell/x86_64"}) {
    const std::string directory = packages + "/needed/" + variant;
    fs::create_directories(directory);
    EXPECT_THAT(findings(), Not(Contains(foreign(directory))));
    fs::copy_file(needed, directory + "/libsecurity_needed.so");
    give(directory + "/libsecurity_needed.so", kStranger);
    EXPECT_THAT(findings(), Contains(foreign(directory + "/libsecurity_needed.so")));
    give(directory, kStranger);
    EXPECT_THAT(findings(), Contains(foreign(directory)));
    give(fs::path(directory).parent_path(), kStranger);
    EXPECT_THAT(findings(), Contains(foreign(fs::path(directory).parent_path())));
  }
}

TEST_F(ExecutedFilesTest, hold_the_directories_that_words_of_the_loader_mean) {
  const EnvironmentScope scope("LD_LIBRARY_PATH", place.path() + "/$LIB");
  fs::create_directory(place.file("lib64"));
  give(place.file("lib64"), kStranger);
  EXPECT_THAT(findings(), Contains(foreign(place.file("lib64"))));
}

TEST_F(ExecutedFilesTest, hold_the_interpreter_of_a_script) {
  const std::string directory = addProgram("theirs");
  addScript("#!/bin/sh");
  EXPECT_THAT(findings(), Not(Contains(foreign(directory))));
  addScript("#! " + directory + "/program -x");
  EXPECT_THAT(findings(), Contains(foreign(directory)));
}

TEST_F(ExecutedFilesTest, hold_the_interpreter_of_the_interpreter) {
  const std::string directory = addProgram("theirs");
  addScript("#!" + place.write("packages/other", "#!" + directory + "/program\n"));
  EXPECT_THAT(findings(), Contains(foreign(directory)));
}

TEST_F(ExecutedFilesTest, hold_the_interpreter_that_a_script_has_looked_for) {
  const std::string directory = addProgram("theirs");
  const EnvironmentScope scope("PATH", "/nowhere:" + directory + ":/usr/bin");
  addScript("#!/usr/bin/env program");
  EXPECT_THAT(findings(), Contains(foreign(directory)));
  fs::create_symlink("/usr/bin/env", place.file("called"));
  addScript("#!" + place.file("called") + " true");  // theirs comes first, though it has none
  EXPECT_THAT(findings(), Contains(foreign(directory)));
}

TEST_F(ExecutedFilesTest, hold_no_script_that_hides_its_interpreter) {
  const std::string finding = script + ": is a script whose interpreter cannot be told";
  for (const char* line : {"#!/usr/bin/env -S PATH=/tmp sh", "#!/usr/bin/env A=b", "#!/bin/env"}) {
    addScript(line);
    EXPECT_THAT(findings(), Contains(finding)) << line;
  }
  addScript("#!/usr/bin/env sh");
  EXPECT_THAT(findings(), Not(Contains(finding)));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
