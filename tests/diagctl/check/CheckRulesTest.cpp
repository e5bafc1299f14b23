// What is wrong with values and files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/check/CheckRules.h"
#include "diagctl/session/ConfigurationText.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(Rules, tell_what_is_wrong_with_a_value) {
  EXPECT_EQ(findFault(ValueKind::Truth, "true"), "");
  EXPECT_EQ(findFault(ValueKind::Truth, "yes"), "'yes' is none of TRUE, FALSE");
  EXPECT_EQ(findFault(ValueKind::Number, "-3"), "");
  EXPECT_EQ(findFault(ValueKind::Number, "3x"), "'3x' is no whole number");
  EXPECT_EQ(findFault(ValueKind::Number, "99999999999"), "'99999999999' is no whole number");
  EXPECT_EQ(findFault(ValueKind::PositiveNumber, "0"), "0 is not above 0");
  EXPECT_EQ(findFault(ValueKind::Seconds, "0.5"), "");
  EXPECT_EQ(findFault(ValueKind::Seconds, "-1"), "'-1' is no number of seconds");
  EXPECT_EQ(findFault(ValueKind::Niceness, "0"), "");
  EXPECT_EQ(findFault(ValueKind::Niceness, "19"), "");
  EXPECT_EQ(findFault(ValueKind::Niceness, "20"), "20 is not between 0 and 19");
  EXPECT_EQ(findFault(ValueKind::Niceness, "-1"), "-1 is not between 0 and 19");
  EXPECT_EQ(findFault(ValueKind::Privileges, "CAP_IPC_LOCK, ptrace"), "");
  EXPECT_EQ(findFault(ValueKind::Privileges, "CAP_IPC_LOCK, all"), "'all' is no privilege");
  EXPECT_EQ(findFault(ValueKind::Niceness, "low"), "'low' is no whole number");
  EXPECT_EQ(findFault(ValueKind::MachineId, "0xffff"), "");
  EXPECT_EQ(findFault(ValueKind::MachineId, "65536"), "65536 is not between 0 and 65535");
  EXPECT_EQ(findFault(ValueKind::MachineId, "0xfg"),
            "'0xfg' is no whole number, decimal or hexadecimal");
  EXPECT_EQ(findFault(ValueKind::Directory, "/nowhere"), "'/nowhere' does not exist");
  EXPECT_EQ(findFault(ValueKind::Directory, "/etc/passwd"), "'/etc/passwd' is no directory");
  EXPECT_EQ(findFault(ValueKind::DiagMode, "factory"), "");
}

TEST(Rules, tell_what_a_file_holds_and_nobody_reads) {
  const TestSupport::TemporaryDirectory place;
  const std::string file = place.file("a.cfg");
  std::ofstream(file) << "early=1\n[A]\nkey=1\nkey=2\nnot a key\n[B\nlost=3\n";
  const auto text = ConfigurationText::read(file);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->value("A", "key"), "1");
  std::vector<Problem> problems;
  checkRemarks(*text, "a.cfg", problems);
  std::vector<std::string> told;
  for (const Problem& problem : problems) {
    told.push_back(toText(problem));
  }
  EXPECT_THAT(told, ElementsAre(HasSubstr("a.cfg:1 early: "), HasSubstr("a.cfg:4 [A] key: "),
                                HasSubstr("a.cfg:5 [A]: "), HasSubstr("a.cfg:6: "),
                                HasSubstr("a.cfg:7 lost: ")));
}

TEST(Remarks, tell_what_no_reader_finds) {
  const TestSupport::TemporaryDirectory place;
  const std::string file =
      place.write("a.cfg", "[]\nlost=1\n[Section]\n= nameless\nkey=1\n[ \t]\n");
  const auto text = ConfigurationText::read(file);
  ASSERT_TRUE(text);
  std::vector<std::string> told;
  for (const ConfigurationText::Remark& remark : text->remarks()) {
    told.push_back(std::to_string(remark.line) + " " + remark.key + ": " + remark.text);
  }
  EXPECT_THAT(told, ElementsAre("1 : the section has no name, so its keys are not read",
                                "2 lost: the key stands outside of a section, so it is not read",
                                "4 : the line has no key, so it is not read: = nameless",
                                "6 : the section has no name, so its keys are not read"));
  EXPECT_EQ(text->sections(), std::vector<std::string>{"Section"});
  EXPECT_EQ(text->keys("Section").size(), 1U);
}

TEST(Problems, are_bounded_where_wrong_counts_multiply) {
  const TestSupport::TemporaryDirectory place;
  std::string text = "[Package]\nNumberOfTests=1\n[Disable Device]\nNumberOfTests=9999\n";
  for (int entry = 1; entry <= 100; ++entry) {
    text += "[DisableDeviceTestID" + std::to_string(entry) + "]\nNumberOfDevice=9999\n";
  }
  place.write("disk.cfg", text);
  const std::vector<Problem> problems = checkPackages(place.path(), false);
  EXPECT_LT(problems.size(), 11'000U);
  EXPECT_THAT(problems.back().reason, HasSubstr("more problems than 10000"));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
