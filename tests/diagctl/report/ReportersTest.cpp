// What holds for reports of each format.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "diagctl/report/Formats.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string reportOf(const Format& format) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = format.makeReporter(printer, {});
  for (RunEvent event : wholeRun()) {
    if (auto* started = std::get_if<StepStarted>(&event.body)) {
      started->device = "Disk \xff\x1b[2J";
    }
    reporter->handle(event);
  }
  reporter->finish();
  return out.str();
}

TEST(PrintableTexts, are_all_that_reports_hold) {
  for (const Format& format : formats()) {
    const std::string report = reportOf(format);
    EXPECT_THAT(report, HasSubstr("Disk ")) << format.name;
    EXPECT_THAT(report, HasSubstr("[2J")) << format.name;
    EXPECT_THAT(report, Not(HasSubstr("\x1b"))) << format.name;
    EXPECT_EQ(toUtf8(report), report) << format.name;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
