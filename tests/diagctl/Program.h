#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace TarvexDiags::DiagctlTest {

/// What became of a run of the program.
struct Outcome {
  int exitCode = -1;  ///< 128+n for a signal that ended it, as a shell tells it
  std::string out;
  std::string err;
};

/// One run of the built program, with its output caught, or on a pseudo-terminal.
class Program {
 public:
  struct Options {
    std::map<std::string, std::string> environment = {};
    bool onTerminal = false;          ///< all three streams are one terminal of 100 columns
    std::string standardInput = {};   ///< a file instead of none
    std::string standardOutput = {};  ///< a file instead of being caught
    bool closesOutput = false;        ///< nobody reads its standard output
    std::vector<int> closed = {};     ///< descriptors that it is started without
    unsigned int user = 0;            ///< to run as, 0 for the present one
    int ignoredSignal = 0;            ///< as nohup does with SIGHUP
    unsigned long openFiles = 0;      ///< that it may have, 0 for no other limit
    unsigned long mostOpenFiles = 0;  ///< to which it may raise that; 0: no higher
    std::map<int, unsigned long> limits = {};   ///< others, by their names: RLIMIT_AS
    std::vector<int> withoutCapabilities = {};  ///< of those that root has: CAP_IPC_LOCK
  };

  Program(const std::vector<std::string>& arguments, const Options& options);
  explicit Program(const std::vector<std::string>& arguments);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits until the output (on a terminal: all of it) holds a text. @return whether it did.
  bool waitFor(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20));
  void type(const std::string& keys);
  void signal(int number);
  /// Waits for a process in which a test runs. @throws std::runtime_error if there comes none.
  pid_t awaitWorker(std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  /// The processes in which its tests run.
  std::vector<pid_t> workers() const;
  /// How many files it has open.
  std::size_t openFiles() const;
  /// The niceness of each of its threads, the highest first.
  std::vector<int> nicenesses() const;
  /// Waits for the end.
  Outcome finish(std::chrono::milliseconds limit = std::chrono::seconds(100));

 private:
  void start(const std::vector<std::string>& arguments, const Options& options);
  [[noreturn]] void become(const std::vector<std::string>& arguments, const Options& options);
  bool readSome(int milliseconds);

  pid_t m_process = -1;
  int m_out = -1;
  int m_err = -1;
  Outcome m_outcome;
};

/// Whether root may load what was built here: where the build lies among files of somebody else,
/// root runs the program with --allow-insecure, and what it refuses cannot be shown.
bool isBuildTrusted();

/// Runs it to its end.
Outcome diagctl(const std::vector<std::string>& arguments);
Outcome diagctl(const std::vector<std::string>& arguments, const Program::Options& options);

}  // namespace TarvexDiags::DiagctlTest
