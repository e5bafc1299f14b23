// The directory of a report of several files, and the names of those.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "diagctl/report/ReportFolder.h"
#include "diagctl/report/Spool.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

namespace fs = std::filesystem;

std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(FileNames, hold_nothing_that_leads_elsewhere_or_needs_quotes) {
  FileNames names("index");
  EXPECT_EQ(names.take("node-7.lab", ".html"), "node-7.lab.html");
  EXPECT_EQ(names.take("../../etc/passwd", ".html"), "etc_passwd.html");
  EXPECT_EQ(names.take(".profile", ".html"), "profile.html");
  EXPECT_EQ(names.take("-rf", ".html"), "rf.html");
  EXPECT_EQ(names.take("a b\n\"<c>#?%\x1b\\", ".html"), "a_b___c______.html");
  EXPECT_EQ(names.take("\u6a5f\u68b0", ".html"), "machine.html");
  EXPECT_EQ(names.take("", ".html"), "machine-2.html");
  EXPECT_LT(names.take(std::string(5'000, 'x'), ".html").size(), 200U);
}

TEST(FileNames, are_never_two_of_one_name_whatever_the_case_of_letters) {
  FileNames names("index");
  EXPECT_EQ(names.take("index", ""), "index-2");
  EXPECT_EQ(names.take("n1-2", ""), "n1-2");
  EXPECT_EQ(names.take("n1", ""), "n1");
  EXPECT_EQ(names.take("N1", ""), "N1-3");
  EXPECT_EQ(names.take("n1", ""), "n1-4");
  EXPECT_EQ(names.take("Index", ""), "Index-3");
}

TEST(ReportFolder, has_a_file_whole_or_not_at_all) {
  const TestSupport::TemporaryDirectory place;
  const ReportFolder folder(place.file("pages"));
  {
    const auto broken = folder.make("one.html");
    broken->out().write("half");
  }
  EXPECT_TRUE(fs::is_empty(place.file("pages")));
  const auto file = folder.make("one.html");
  file->out().write("whole");
  EXPECT_FALSE(fs::exists(place.file("pages/one.html")));
  file->finish();
  EXPECT_EQ(contentsOf(place.file("pages/one.html")), "whole");
}

TEST(ReportFolder, stays_the_directory_that_it_was) {
  const TestSupport::TemporaryDirectory place;
  const ReportFolder folder(place.file("pages"));
  fs::rename(place.file("pages"), place.file("moved"));
  fs::create_directory(place.file("other"));
  fs::create_symlink(place.file("other"), place.file("pages"));
  const auto file = folder.make("one.html");
  file->out().write("whole");
  file->finish();
  EXPECT_TRUE(fs::exists(place.file("moved/one.html")));
  EXPECT_TRUE(fs::is_empty(place.file("other")));
}

TEST(Spool, finds_each_piece_again_and_leaves_no_file) {
  const TestSupport::TemporaryDirectory place;
  Spool spool(place.path(), "pages");
  const Spool::Piece one = spool.add("one\n");
  const Spool::Piece two = spool.add(std::string(100'000, 'x'));
  EXPECT_EQ(spool.read(two), std::string(100'000, 'x'));
  const Spool::Piece three = spool.add("three");
  EXPECT_EQ(spool.read(one), "one\n");
  EXPECT_EQ(spool.read(three), "three");
  EXPECT_TRUE(fs::is_empty(place.path()));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
