#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// A process that does some work, with what it writes to standard output and standard error. It
/// asks to be ended when this one is gone, and is killed with the object. For a program of one
/// thread.
class ChildProcess {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param work what it does; its exit code. Standard input is empty.
  /// @param mostOutput bytes that are kept of each stream; all is read.
  /// @throws std::system_error
  ChildProcess(const std::function<int()>& work, std::size_t mostOutput);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Reads what it writes until it has ended, a moment has come, or somebody has seen enough.
  /// @param isEnough asked ten times a second and with each signal. @return whether it has ended.
  bool await(
      Clock::time_point until, const std::function<bool()>& isEnough = [] { return false; });
  void signal(int number);

  const std::string& out() const { return m_out.text; }
  const std::string& err() const { return m_err.text; }
  /// Of its end, as a shell tells it: 128+n for a signal. Below 0 while it lasts.
  int code() const { return m_code; }
  /// The signal that ended it; 0 for none.
  int endingSignal() const { return m_endingSignal; }

 private:
  struct Stream {
    OpenedFile end = {};
    std::string text = {};
  };

  [[noreturn]] static void become(const std::function<int()>& work, int out, int err, pid_t parent);
  void readFrom(Stream& stream) const;
  bool takeEnd();

  const std::size_t m_mostOutput;
  pid_t m_process = -1;
  OpenedFile m_handle;  ///< readable once it has ended
  Stream m_out;
  Stream m_err;
  int m_code = -1;
  int m_endingSignal = 0;
};

/// What became of another program.
struct ProgramOutcome {
  int code = -1;  ///< as a shell tells it; below 0: it did not end in time
  std::string out;
  std::string err;
};

/// Runs a program, without a shell, with no variables but those given, and kills it when its time
/// is over.
/// @param words the path of the program, and its arguments. @param environment "NAME=value".
/// @throws std::system_error
ProgramOutcome runProgram(const std::vector<std::string>& words,
                          const std::vector<std::string>& environment,
                          ChildProcess::Clock::time_point until);

}  // namespace TarvexDiags::FrontEnd
