// The table of formats.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "diagctl/report/Formats.h"
#include "diagctl/report/Output.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Formats, are_found_by_names_of_their_own) {
  std::set<std::string> names;
  for (const Format& format : formats()) {
    EXPECT_EQ(&formatNamed(format.name), &format);
    EXPECT_TRUE(names.insert(format.name).second) << format.name;
  }
  EXPECT_EQ(findFormat("xml"), nullptr);
  EXPECT_THROW(formatNamed("xml"), std::invalid_argument);
}

TEST(Formats, each_tell_of_a_run_in_their_way) {
  std::set<std::string> reports;
  for (const Format& format : formats()) {
    std::ostringstream out;
    Printer printer(out);
    const auto reporter = format.makeReporter(printer, {});
    for (const RunEvent& event : wholeRun()) {
      reporter->handle(event);
    }
    reporter->finish();
    EXPECT_THAT(out.str(), HasSubstr("Disk on a shelf")) << format.name;
    EXPECT_TRUE(reports.insert(out.str()).second) << format.name;
  }
}

TEST(Formats, that_come_with_a_style_of_exit_codes_are_no_choice) {
  EXPECT_THAT(listOfFormats(), Not(HasSubstr(kSummaryFormat)));
  EXPECT_THAT(findFault({std::string(kSummaryFormat) + "=report"}), HasSubstr(listOfFormats()));
  for (const std::string& name : choosableFormats()) {
    EXPECT_EQ(findFault({name + "=/nowhere/report"}), "");
    EXPECT_THAT(listOfFormats(), HasSubstr(name));
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
