#include "diagctl/report/Formats.h"

#include <algorithm>
#include <stdexcept>

#include "diagctl/report/HtmlReporter.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/JunitReporter.h"
#include "diagctl/report/RunMetrics.h"
#include "diagctl/report/SummaryReporter.h"
#include "diagctl/report/TapReporter.h"
#include "diagctl/report/TextReporter.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::unique_ptr<Reporter> makeLog(Printer& out, const ReportSettings& /*settings*/) {
  return std::make_unique<JsonlReporter>(out);
}

std::unique_ptr<Reporter> makeJunit(Printer& out, const ReportSettings& settings) {
  return std::make_unique<JunitReporter>(out, settings.mostHeld);
}

std::unique_ptr<Reporter> makeTap(Printer& out, const ReportSettings& settings) {
  return std::make_unique<TapReporter>(out, settings.conditions, settings.mostHeld);
}

std::unique_ptr<Reporter> makeHtml(Printer& out, const ReportSettings& settings) {
  return std::make_unique<HtmlReporter>(out, settings.conditions, settings.mostHeld);
}

std::unique_ptr<Reporter> makeText(Printer& out, const ReportSettings& settings) {
  return std::make_unique<TextReporter>(out, settings);
}

std::unique_ptr<Reporter> makeSummary(Printer& out, const ReportSettings& settings) {
  return std::make_unique<SummaryReporter>(out, settings.conditions, settings.mostHeld);
}

std::unique_ptr<Reporter> makeMetrics(Printer& out, const ReportSettings& settings) {
  return std::make_unique<MetricsReporter>(out, settings.conditions);
}

}  // namespace

const std::vector<Format>& formats() {
  static const std::vector<Format> kTable = {
      {kTextFormat, true, false, makeText},        {kLogFormat, true, true, makeLog},
      {"junit", true, false, makeJunit},           {"tap", true, false, makeTap},
      {kPageFormat, true, false, makeHtml},        {kSummaryFormat, false, false, makeSummary},
      {kMetricsFormat, false, false, makeMetrics},
  };
  return kTable;
}

const Format* findFormat(const std::string& name) {
  const auto found = std::find_if(formats().begin(), formats().end(),
                                  [&](const Format& format) { return format.name == name; });
  return found != formats().end() ? &*found : nullptr;
}

const Format& formatNamed(const std::string& name) {
  const Format* format = findFormat(name);
  if (format == nullptr) {
    throw std::invalid_argument(name);
  }
  return *format;
}

std::vector<std::string> choosableFormats() {
  std::vector<std::string> names;
  for (const Format& format : formats()) {
    if (format.isChoice) {
      names.push_back(format.name);
    }
  }
  return names;
}

std::string listOfFormats() {
  std::vector<std::string> names = choosableFormats();
  const std::string last = names.back();
  names.pop_back();
  return tr("{} or {}", fmt::format("{}", fmt::join(names, ", ")), last);
}

}  // namespace TarvexDiags::FrontEnd
