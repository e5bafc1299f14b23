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

std::string textOfWidth(std::size_t width, const std::string& finding) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = findFormat(kTextFormat)->makeReporter(printer, {.lineWidth = width});
  for (RunEvent event : wholeRun()) {
    if (auto* diagnosis = std::get_if<StepDiagnosis>(&event.body)) {
      diagnosis->message = finding;
    }
    reporter->handle(event);
  }
  reporter->finish();
  return out.str();
}

TEST(TextReport, breaks_findings_at_the_width_of_the_window) {
  const std::string finding = "The disk  returned other bytes than were written to block 1,234.";
  EXPECT_THAT(textOfWidth(40, finding), HasSubstr("         The disk returned other bytes\n"
                                                  "         than were written to block\n"
                                                  "         1,234.\n"));
}

TEST(TextReport, leaves_findings_as_they_are_where_there_is_no_window_or_room_enough) {
  const std::string finding = "The disk  returned other bytes than were written.\n  Twice.";
  for (const std::size_t width : {0UL, 10UL, 100UL}) {
    EXPECT_THAT(textOfWidth(width, finding),
                HasSubstr("         The disk  returned other bytes than were written.\n"
                          "           Twice.\n"))
        << width;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
