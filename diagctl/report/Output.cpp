#include "diagctl/report/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "diagctl/report/Formats.h"
#include "diagctl/report/HtmlReporter.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Suggestion.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

struct Specification {
  std::string format;
  std::string path;

  bool isStandardOutput() const { return path == "-"; }
};

Specification parse(const std::string& text) {
  const std::size_t separator = text.find('=');
  if (separator == std::string::npos) {
    return {};
  }
  return {text.substr(0, separator), text.substr(separator + 1)};
}

}  // namespace

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return isPlainFile(one) &&
         (fs::equivalent(one, other, ignored) ||
          fs::weakly_canonical(one, ignored) == fs::weakly_canonical(other, ignored));
}

bool isStandardOutputTaken(const std::vector<std::string>& specifications) {
  return std::any_of(specifications.begin(), specifications.end(),
                     [](const std::string& text) { return parse(text).isStandardOutput(); });
}

std::string findFault(const std::vector<std::string>& specifications,
                      const std::vector<std::string>& inputs) {
  std::vector<std::string> taken = inputs;
  int standardOutputs = 0;
  for (const std::string& text : specifications) {
    const Specification parsed = parse(text);
    const Format* format = findFormat(parsed.format);
    if (format == nullptr || !format->isChoice || parsed.path.empty()) {
      return tr("'{}' is not FORMAT=FILE with {}{}", text, listOfFormats(),
                format == nullptr ? didYouMean(parsed.format, choosableFormats()) : "");
    }
    if (parsed.isStandardOutput()) {
      ++standardOutputs;
      continue;
    }
    for (const std::string& other : taken) {
      if (isSameFile(parsed.path, other)) {
        return tr("the file '{}' is named twice", parsed.path);
      }
    }
    taken.push_back(parsed.path);
  }
  return standardOutputs > 1 ? tr("standard output takes one format") : "";
}

std::unique_ptr<Output> Output::toFile(const Format& format, const std::string& path,
                                       ReportSettings settings) {
  std::unique_ptr<Output> output(new Output);
  output->m_name = path;
  output->m_file = std::make_unique<WrittenFile>(
      path, path, format.isLog,
      format.name == kMetricsFormat ? Access::EverybodyReads : Access::AsUmaskSays);
  output->m_out = &output->m_file->out();
  settings.isColoured = false;
  settings.lineWidth = 0;
  output->m_reporter = format.makeReporter(*output->m_out, settings);
  return output;
}

std::unique_ptr<Output> Output::toFolder(const std::string& path, const ReportSettings& settings) {
  std::unique_ptr<Output> output(new Output);
  output->m_name = path;
  output->m_folder = std::make_unique<ReportFolder>(path);
  output->m_file = output->m_folder->make(Html::kPageOfAll);
  output->m_out = &output->m_file->out();
  output->m_reporter = std::make_unique<HtmlReporter>(*output->m_out, settings.conditions,
                                                      settings.mostHeld, output->m_folder.get());
  return output;
}

std::unique_ptr<Output> Output::toStandardOutput(const Format& format,
                                                 const ReportSettings& settings) {
  std::unique_ptr<Output> output(new Output);
  output->m_name = tr("standard output");
  output->m_out = &standardOutput();
  output->m_reporter = format.makeReporter(*output->m_out, settings);
  return output;
}

void Output::handle(const RunEvent& event) {
  m_reporter->handle(event);
  requireWritten();
}

void Output::finish() {
  m_reporter->finish();
  m_out->flush();
  requireWritten();
  if (m_file != nullptr) {
    m_file->finish();
  }
}

void Output::requireWritten() {
  if (!m_out->isSound()) {
    failWith(m_out->error(), m_name);
  }
}

Outputs::Outputs(const std::vector<std::string>& specifications, const std::string& format,
                 const ReportSettings& settings) {
  std::string standardFormat = format;
  for (const std::string& text : specifications) {
    const Specification parsed = parse(text);
    if (parsed.isStandardOutput()) {
      standardFormat = parsed.format;
    } else {
      m_outputs.push_back({Output::toFile(formatNamed(parsed.format), parsed.path, settings)});
    }
  }
  if (!standardFormat.empty()) {
    m_outputs.push_back({Output::toStandardOutput(formatNamed(standardFormat), settings)});
  }
}

void Outputs::add(std::unique_ptr<Output> output) {
  m_outputs.push_back({std::move(output)});
}

template <class Act>
void Outputs::attempt(Followed& followed, Act act) {
  try {
    if (followed.output != nullptr) {
      act(*followed.output);
    }
  } catch (const std::system_error& failure) {
    followed.failure = failure.what();
    followed.output.reset();
  }
}

void Outputs::handle(const RunEvent& event) {
  for (std::size_t index = 0; index < m_outputs.size(); ++index) {
    handle(index, event);
  }
}

void Outputs::handle(std::size_t index, const RunEvent& event) {
  attempt(m_outputs[index], [&](Output& output) { output.handle(event); });
}

void Outputs::finish() {
  for (Followed& followed : m_outputs) {
    attempt(followed, [](Output& output) { output.finish(); });
  }
}

std::vector<std::string> Outputs::failures() const {
  std::vector<std::string> failures;
  for (const Followed& followed : m_outputs) {
    if (!followed.failure.empty()) {
      failures.push_back(followed.failure);
    }
  }
  return failures;
}

}  // namespace TarvexDiags::FrontEnd
