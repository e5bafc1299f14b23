// What root must not load code by.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "diagctl/session/Safety.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

TEST(Safety, finds_foreign_owners_and_writers_of_the_file_and_of_what_lies_above) {
  const TestSupport::TemporaryDirectory place;
  const std::string directory = place.makeDirectory("packages");
  const std::string file = directory + "/a.cfg";
  std::ofstream(file) << "x";
  fs::permissions(place.path(), fs::perms(0755));
  fs::permissions(directory, fs::perms(0777));
  fs::permissions(file, fs::perms(0664));
  const auto findings = findInsecurePaths(file);
  EXPECT_THAT(findings, ::testing::Contains(HasSubstr(file + ": may be written by others")));
  EXPECT_THAT(findings, ::testing::Contains(HasSubstr(directory + ": may be written by others")));
  fs::permissions(directory, fs::perms(0755));
  fs::permissions(file, fs::perms(0644));
  for (const std::string& finding : findInsecurePaths(file)) {
    EXPECT_THAT(finding, Not(HasSubstr("written")));
    EXPECT_NE(geteuid(), 0U) << finding;
  }
}

TEST(Safety, trusts_sticky_directories_for_what_lies_in_them) {
  for (const std::string& finding : findInsecurePaths("/tmp/nothing")) {
    EXPECT_THAT(finding, Not(HasSubstr("/tmp: may be written")));
  }
}

TEST(Safety, trusts_no_sticky_directory_to_hold_only_what_is_meant) {
  const TestSupport::TemporaryDirectory place;
  fs::permissions(place.path(), fs::perms(01777));
  EXPECT_THAT(findInsecurePaths(place.path()),
              ::testing::Contains(HasSubstr(place.path() + ": may be written by others")));
}

TEST(Safety, looks_at_the_way_over_symbolic_links_too) {
  const TestSupport::TemporaryDirectory place;
  const std::string open = place.makeDirectory("open");
  fs::permissions(open, fs::perms(0777));
  fs::create_symlink("/etc/passwd", open + "/link");
  EXPECT_THAT(findInsecurePaths(open + "/link"),
              ::testing::Contains(HasSubstr(open + ": may be written by others")));
}

TEST(Safety, looks_at_shared_objects_that_a_description_needs) {
  const TestSupport::TemporaryDirectory place;
  const std::string packages = place.makeDirectory("packages");
  const std::string helper = place.file("helper.so.1");
  std::ofstream(packages + "/a.cfg") << "[Package]\nSODependencies=../helper.so.1\n";
  std::ofstream(helper) << "x";
  fs::permissions(helper, fs::perms(0666));
  EXPECT_THAT(findInsecureFiles("/etc/passwd", packages),
              ::testing::Contains(HasSubstr(helper + ": may be written by others")));
}

TEST(Safety, looks_at_the_folder_that_a_package_takes_for_the_machine) {
  const TestSupport::TemporaryDirectory place;
  const std::string packages = place.makeDirectory("packages");
  const std::string machine = place.makeDirectory("machine");
  std::ofstream(packages + "/a.cfg") << "[Package]\nSystemRoot=" << machine << "\n";
  fs::permissions(machine, fs::perms(0755));
  const auto isOpen = ::testing::Contains(HasSubstr(machine + ": may be written by others"));
  EXPECT_THAT(findInsecureFiles("/etc/passwd", packages), Not(isOpen));
  fs::permissions(machine, fs::perms(0777));
  EXPECT_THAT(findInsecureFiles("/etc/passwd", packages), isOpen);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
