#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "diagctl/report/Formats.h"
#include "diagctl/report/ReportFolder.h"
#include "diagctl/report/Reporter.h"
#include "diagctl/report/WrittenFile.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Where one format of a report goes. A log is appended to as it happens, on a line of its
/// own where an earlier run broke off; every other format is written beside its file and renamed at
/// the end, so that a file is never half-written.
class Output {
 public:
  /// @throws std::system_error if the file cannot be opened.
  static std::unique_ptr<Output> toFile(const Format& format, const std::string& path,
                                        ReportSettings settings);
  /// A page of all runs, and one for each machine beside it.
  /// @throws std::system_error if the directory cannot be opened.
  static std::unique_ptr<Output> toFolder(const std::string& path, const ReportSettings& settings);
  static std::unique_ptr<Output> toStandardOutput(const Format& format,
                                                  const ReportSettings& settings);

  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// @throws std::system_error naming the file if it cannot be written.
  void handle(const RunEvent& event);
  void finish();

  /// Whether writing waits for a disk at most, and never for somebody who reads.
  bool isPlainFile() const { return m_file != nullptr && m_file->isPlain(); }

 private:
  Output() = default;
  void requireWritten();

  std::string m_name;  ///< for people
  std::unique_ptr<ReportFolder> m_folder;
  std::unique_ptr<WrittenFile> m_file;  ///< null for standard output
  Printer* m_out = nullptr;
  std::unique_ptr<Reporter> m_reporter;
};

/// What is wrong with "FORMAT=FILE" specifications, for people; empty for nothing. FILE may be "-"
/// for standard output, which takes one format; no file takes two.
/// @param inputs files that are read meanwhile, and take none.
[[nodiscard]] std::string findFault(const std::vector<std::string>& specifications,
                                    const std::vector<std::string>& inputs = {});

/// Whether one of the outputs that are asked for is standard output.
bool isStandardOutputTaken(const std::vector<std::string>& specifications);

/// Whether two names are those of one plain file, which need not be there.
bool isSameFile(const std::string& one, const std::string& other);

/// All that follows the stream of a run. An output that can no longer be written is dropped, and
/// told at the end; the others go on.
class Outputs {
 public:
  /// Opens them all, and standard output in the given format unless one of them names it; with an
  /// empty one, nothing goes there.
  /// @throws std::system_error naming the file that cannot be opened.
  /// @param settings no file is coloured.
  Outputs(const std::vector<std::string>& specifications, const std::string& format,
          const ReportSettings& settings);

  /// Adds one that is opened already, behind the others.
  void add(std::unique_ptr<Output> output);

  void handle(const RunEvent& event);
  void finish();
  /// What became of outputs that were dropped, for people.
  [[nodiscard]] std::vector<std::string> failures() const;

  /// How many there are; standard output is the last of those that were asked for.
  std::size_t count() const { return m_outputs.size(); }
  /// Tells one of them alone. Several threads may do so at a time, each to an output of its own.
  void handle(std::size_t index, const RunEvent& event);
  /// Whether one of them waits for nobody who reads.
  bool isPlainFile(std::size_t index) const { return m_outputs[index].isPlainFile; }

 private:
  struct Followed {
    std::unique_ptr<Output> output;  ///< null once dropped
    bool isPlainFile = output->isPlainFile();
    std::string failure = {};
  };

  template <class Act>
  static void attempt(Followed& followed, Act act);

  std::vector<Followed> m_outputs;
};

}  // namespace TarvexDiags::FrontEnd
