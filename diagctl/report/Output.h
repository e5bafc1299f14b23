#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "diagctl/report/Formats.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Where one format of a report goes. A log is appended to as it happens, on a line of its
/// own where an earlier run broke off; every other format is written beside its file and renamed at
/// the end, so that a file is never half-written.
class Output {
 public:
  /// @throws std::system_error if the file cannot be opened.
  static std::unique_ptr<Output> toFile(const Format& format, const std::string& path);
  static std::unique_ptr<Output> toStandardOutput(const Format& format, bool colour);

  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();

  /// @throws std::system_error naming the file if it cannot be written.
  void handle(const RunEvent& event);
  void finish();

 private:
  Output() = default;
  void requireWritten();

  std::string m_name;                      ///< for people
  std::string m_path;                      ///< the file in the end; empty for standard output
  std::string m_besides;                   ///< what is renamed to it; empty for a log
  std::unique_ptr<std::ofstream> m_file;   ///< null for standard output
  std::unique_ptr<Printer> m_filePrinter;  ///< into the file
  Printer* m_out = nullptr;
  std::unique_ptr<Reporter> m_reporter;
};

/// What is wrong with "FORMAT=FILE" specifications, for people; empty for nothing. FILE may be "-"
/// for standard output, which takes one format; no file takes two.
/// @param input a file that is read meanwhile, and takes none; empty for no such file.
std::string findFault(const std::vector<std::string>& specifications,
                      const std::string& input = {});

/// All that follows the stream of a run. An output that can no longer be written is dropped, and
/// told at the end; the others go on.
class Outputs {
 public:
  /// Opens them all, and standard output in the given format unless one of them names it.
  /// @throws std::system_error naming the file that cannot be opened.
  Outputs(const std::vector<std::string>& specifications, const std::string& format, bool colour);

  void handle(const RunEvent& event);
  void finish();
  /// What became of outputs that were dropped, for people.
  const std::vector<std::string>& failures() const { return m_failures; }

 private:
  template <class Act>
  void forEach(Act act);

  std::vector<std::unique_ptr<Output>> m_outputs;
  std::vector<std::string> m_failures;
};

}  // namespace TarvexDiags::FrontEnd
