// What a path leads to, and who could decide it.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/security/Findings.h"
#include "tests/security/People.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::SecurityTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

/// Two directories, root's and a stranger's, in one of root's.
class PathInspectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_UNLESS_ROOT();
    fs::permissions(place.path(), fs::perms(0755));
    for (const std::string& directory : {ours, theirs, shared}) {
      fs::create_directory(directory);
      fs::permissions(directory, fs::perms(directory == shared ? 01777 : 0755));
    }
    give(theirs, kStranger);
    fs::permissions(place.write("ours/file", "x"), fs::perms(0644));
    fs::permissions(place.write("theirs/file", "x"), fs::perms(0644));
    give(theirs + "/file", kStranger);
  }

  std::string link(const std::string& target, const std::string& path) {
    fs::create_symlink(target, path);
    return path;
  }

  std::string foreign(const std::string& path) {
    return path + ": is owned by user " + std::to_string(kStranger) + " and not by root";
  }

  std::string missing(const std::string& path) {
    return path + ": does not exist, and others may put something in its place";
  }

  TestSupport::TemporaryDirectory place;
  const std::string ours = place.file("ours");
  const std::string theirs = place.file("theirs");
  const std::string shared = place.file("shared");  // sticky, as /tmp is
};

TEST_F(PathInspectionTest, finds_nothing_where_all_is_roots) {
  EXPECT_THAT(findingsOf(ours + "/file"), IsEmpty());
  EXPECT_THAT(findingsOf(ours + "/./../ours//file"), IsEmpty());
  EXPECT_THAT(findingsOf(link("../ours/file", ours + "/again")), IsEmpty());
  EXPECT_THAT(findingsOf(ours + "/missing/below"), IsEmpty());
}

TEST_F(PathInspectionTest, names_each_element_that_is_anothers) {
  EXPECT_THAT(findingsOf(theirs + "/file"),
              ElementsAre(foreign(theirs), foreign(theirs + "/file")));
}

TEST_F(PathInspectionTest, looks_at_the_middle_of_a_chain_of_links) {
  link(ours + "/file", theirs + "/middle");
  link(theirs + "/middle", ours + "/first");
  EXPECT_THAT(findingsOf(link("first", ours + "/chain")), ElementsAre(foreign(theirs)));
}

TEST_F(PathInspectionTest, finds_a_link_of_another_in_a_sticky_directory) {
  give(link(ours + "/file", shared + "/link"), kStranger);
  EXPECT_THAT(findingsOf(shared + "/link"), ElementsAre(foreign(shared + "/link")));
  give(shared + "/link", 0);
  EXPECT_THAT(findingsOf(shared + "/link"), IsEmpty());
}

TEST_F(PathInspectionTest, judges_what_is_missing_by_the_directory_where_it_would_be_made) {
  EXPECT_THAT(findingsOf(link(shared + "/none", ours + "/dangling")),
              ElementsAre(missing(shared + "/none")));
  EXPECT_THAT(findingsOf(link(shared + "/none/below", ours + "/deeper")),
              ElementsAre(missing(shared + "/none")));
  EXPECT_THAT(findingsOf(link(theirs + "/none", ours + "/foreign")), ElementsAre(foreign(theirs)));
  EXPECT_THAT(findingsOf(link("none", ours + "/harmless")), IsEmpty());
}

TEST_F(PathInspectionTest, looks_at_a_directory_that_is_left_upwards_again) {
  EXPECT_THAT(findingsOf(theirs + "/../ours/file"), ElementsAre(foreign(theirs)));
}

TEST_F(PathInspectionTest, lets_no_sticky_directory_hold_what_is_executed) {
  EXPECT_THAT(findingsOf(shared), ElementsAre(HasSubstr(shared + ": may be written by others")));
  EXPECT_THAT(findingsOf(shared + "/."),
              ElementsAre(HasSubstr(shared + ": may be written by others")));
}

TEST_F(PathInspectionTest, follows_relative_paths_from_the_working_directory) {
  const fs::path before = fs::current_path();
  fs::current_path(theirs);
  EXPECT_THAT(findingsOf("file"), ElementsAre(foreign(theirs), foreign(theirs + "/file")));
  EXPECT_THAT(findingsOf(""), ElementsAre(foreign(theirs)));
  fs::current_path(before);
}

TEST_F(PathInspectionTest, tells_a_circle_of_links_and_a_name_that_is_too_long) {
  link("circle", ours + "/circle");
  EXPECT_THAT(findingsOf(ours + "/circle"),
              ElementsAre(HasSubstr("Too many levels of symbolic links")));
  EXPECT_THAT(findingsOf(ours + "/" + std::string(300, 'x')),
              ElementsAre(HasSubstr("File name too long")));
}

TEST_F(PathInspectionTest, trusts_no_link_whose_text_is_not_where_it_leads) {
  EXPECT_THAT(findingsOf("/proc/self/cwd"), ElementsAre(HasSubstr("does not tell where it leads")));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
