// What holds for reports of each format.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "diagctl/report/JunitReporter.h"
#include "diagctl/report/TapReporter.h"
#include "diagctl/report/TextReporter.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string reportOf(Reporter& reporter, const std::ostringstream& out) {
  for (RunEvent event : wholeRun()) {
    if (auto* started = std::get_if<StepStarted>(&event.body)) {
      started->device = "Disk \xff\x1b[2J";
    }
    reporter.handle(event);
  }
  reporter.finish();
  return out.str();
}

TEST(PrintableTexts, are_all_that_reports_for_people_and_machines_hold) {
  std::ostringstream text;
  Printer textPrinter(text);
  TextReporter textReporter(textPrinter, false);
  std::ostringstream tap;
  Printer tapPrinter(tap);
  TapReporter tapReporter(tapPrinter);
  std::ostringstream junit;
  Printer junitPrinter(junit);
  JunitReporter junitReporter(junitPrinter);
  for (const std::string& report :
       {reportOf(textReporter, text), reportOf(tapReporter, tap), reportOf(junitReporter, junit)}) {
    EXPECT_THAT(report, HasSubstr("Disk \xef\xbf\xbd"));
    EXPECT_THAT(report, Not(HasSubstr("\x1b")));
    EXPECT_EQ(toUtf8(report), report);
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
