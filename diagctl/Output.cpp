#include "diagctl/Output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "diagctl/JsonlReporter.h"
#include "diagctl/JunitReporter.h"
#include "diagctl/SummaryReporter.h"
#include "diagctl/TapReporter.h"
#include "diagctl/TextReporter.h"

namespace TarvexDiags::DiagCtl {

namespace {

[[noreturn]] void failWith(int error, const std::string& name) {
  throw std::system_error(error != 0 ? error : EIO, std::generic_category(), name);
}

}  // namespace

namespace {

bool isFormat(const std::string& name) {
  return name == "text" || name == "jsonl" || name == "junit" || name == "tap";
}

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

std::string findFault(const std::vector<std::string>& specifications) {
  int standardOutputs = 0;
  for (const std::string& text : specifications) {
    const Specification parsed = parse(text);
    if (!isFormat(parsed.format) || parsed.path.empty()) {
      return fmt::format("'{}' is not FORMAT=FILE with text, jsonl, junit or tap", text);
    }
    standardOutputs += parsed.isStandardOutput() ? 1 : 0;
  }
  return standardOutputs > 1 ? "standard output takes one format" : "";
}

std::vector<std::unique_ptr<Output>> openOutputs(const std::vector<std::string>& specifications,
                                                 const std::string& format, bool colour) {
  std::vector<std::unique_ptr<Output>> outputs;
  std::string standardFormat = format;
  for (const std::string& text : specifications) {
    const Specification parsed = parse(text);
    if (parsed.isStandardOutput()) {
      standardFormat = parsed.format;
    } else {
      outputs.push_back(Output::toFile(parsed.format, parsed.path));
    }
  }
  outputs.push_back(Output::toStandardOutput(standardFormat, colour));
  return outputs;
}

std::unique_ptr<Output> Output::toFile(const std::string& format, const std::string& path) {
  std::unique_ptr<Output> output(new Output);
  output->m_path = path;
  output->m_name = output->m_path;
  const bool isLog = format == "jsonl";
  // A device such as /dev/full has no neighbour to be renamed.
  const bool isPlain =
      !std::filesystem::exists(output->m_path) || std::filesystem::is_regular_file(output->m_path);
  if (!isLog && isPlain) {
    output->m_besides = fmt::format("{}.{}.part", output->m_path, getpid());
  }
  errno = 0;
  output->m_file = std::make_unique<std::ofstream>(
      output->m_besides.empty() ? output->m_path : output->m_besides,
      isLog ? std::ios::app : std::ios::trunc);
  if (!*output->m_file) {
    failWith(errno, output->m_name);
  }
  output->m_out = output->m_file.get();
  output->makeReporter(format, false);
  return output;
}

std::unique_ptr<Output> Output::toStandardOutput(const std::string& format, bool colour) {
  std::unique_ptr<Output> output(new Output);
  output->m_name = "standard output";
  output->m_out = &std::cout;
  output->makeReporter(format, colour);
  return output;
}

Output::~Output() {
  if (!m_besides.empty()) {
    std::remove(m_besides.c_str());  // never finished
  }
}

void Output::makeReporter(const std::string& format, bool colour) {
  if (format == "jsonl") {
    m_reporter = std::make_unique<JsonlReporter>(*m_out);
  } else if (format == "junit") {
    m_reporter = std::make_unique<JunitReporter>(*m_out);
  } else if (format == summaryFormat) {
    m_reporter = std::make_unique<SummaryReporter>(*m_out);
  } else if (format == "tap") {
    m_reporter = std::make_unique<TapReporter>(*m_out);
  } else {
    m_reporter = std::make_unique<TextReporter>(*m_out, colour);
  }
}

void Output::handle(const RunEvent& event) {
  errno = 0;
  m_reporter->handle(event);
  requireWritten();
}

void Output::finish() {
  errno = 0;
  m_reporter->finish();
  m_out->flush();
  requireWritten();
  if (m_file == nullptr) {
    return;
  }
  m_file->close();
  requireWritten();
  if (!m_besides.empty()) {
    if (std::rename(m_besides.c_str(), m_path.c_str()) != 0) {
      failWith(errno, m_name);
    }
    m_besides.clear();
  }
}

void Output::requireWritten() {
  if (!*m_out) {
    failWith(errno, m_name);
  }
}

}  // namespace TarvexDiags::DiagCtl
