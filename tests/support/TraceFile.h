#pragma once

#include <pthread.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

namespace TarvexDiags::TestSupport {

/// One line of a trace: "<thread> indentation text"; an empty line has no thread.
struct TraceLine {
  unsigned long thread = 0;
  std::size_t indentation = 0;  // blanks in front of the text
  std::string text;
};

/// The trace file of a log directory, read anew at each question.
class TraceFile {
 public:
  explicit TraceFile(const std::string& directory)
      : m_path(directory + "/DiagnosticController.trace") {}

  const std::string& path() const { return m_path; }

  /// The lines as they stand in the file, without their ends.
  std::vector<std::string> rawLines() const {
    std::vector<std::string> lines;
    std::ifstream stream(m_path, std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  /// The lines that are not empty, taken apart.
  std::vector<TraceLine> lines() const {
    std::vector<TraceLine> result;
    for (const std::string& raw : rawLines()) {
      if (!raw.empty()) {
        result.push_back(parse(raw));
      }
    }
    return result;
  }

  /// One thread's lines, by default the calling one's: the controller's own threads write at any
  /// time.
  std::vector<TraceLine> linesOf(unsigned long thread = pthread_self()) const {
    std::vector<TraceLine> result = lines();
    std::erase_if(result, [&](const TraceLine& line) { return line.thread != thread; });
    return result;
  }

  /// The texts of linesOf, without indentation.
  std::vector<std::string> texts(unsigned long thread = pthread_self()) const {
    std::vector<std::string> result;
    for (const TraceLine& line : linesOf(thread)) {
      result.push_back(line.text);
    }
    return result;
  }

  /// How many lines hold the piece of text.
  std::size_t count(const std::string& piece) const {
    std::size_t found = 0;
    for (const std::string& line : rawLines()) {
      found += line.find(piece) != std::string::npos ? 1U : 0U;
    }
    return found;
  }
  bool contains(const std::string& piece) const { return count(piece) > 0; }

 private:
  static TraceLine parse(const std::string& raw) {
    TraceLine line;
    const auto end = raw.find("> ");
    if (raw.front() != '<' || end == std::string::npos) {
      line.text = raw;
      return line;
    }
    line.thread = std::stoul(raw.substr(1, end - 1));
    const auto start = raw.find_first_not_of(' ', end + 2);
    line.text = start == std::string::npos ? "" : raw.substr(start);
    line.indentation = start == std::string::npos ? 0 : start - (end + 2);
    return line;
  }

  std::string m_path;
};

}  // namespace TarvexDiags::TestSupport
