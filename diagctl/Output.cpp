#include "diagctl/Output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "diagctl/JsonlReporter.h"
#include "diagctl/JunitReporter.h"
#include "diagctl/TapReporter.h"
#include "diagctl/TextReporter.h"

namespace TarvexDiags::DiagCtl {

namespace {

[[noreturn]] void failWith(int error, const std::string& name) {
  throw std::system_error(error != 0 ? error : EIO, std::generic_category(), name);
}

}  // namespace

bool isFormat(const std::string& name) {
  return name == "text" || name == "jsonl" || name == "junit" || name == "tap";
}

std::unique_ptr<Output> Output::toFile(const std::string& specification) {
  const std::size_t separator = specification.find('=');
  if (separator == std::string::npos || !isFormat(specification.substr(0, separator)) ||
      separator + 1 == specification.size()) {
    throw std::invalid_argument(fmt::format(
        "--output {}: expected FORMAT=FILE with text, jsonl, junit or tap", specification));
  }
  const std::string format = specification.substr(0, separator);
  std::unique_ptr<Output> output(new Output);
  output->m_path = specification.substr(separator + 1);
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
