// What tracing costs: every method of the library writes its entry and its exit. Off, a call still
// takes the tracer's lock; on, it also writes and flushes a line. The peer writes the same lines
// with the system's plain call.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace {

namespace fs = std::filesystem;
using TarvexDiags::DiagCtrl::DiagCtrlConstants;
using TarvexDiags::DiagCtrl::DiagTracer;
using TarvexDiags::DiagCtrl::TraceScope;

/// A directory that lasts as long as the program.
class LogDirectory {
 public:
  LogDirectory() {
    std::string name = (fs::temp_directory_path() / "tracer-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      std::abort();
    }
    m_path = name;
  }
  LogDirectory(const LogDirectory&) = delete;
  LogDirectory& operator=(const LogDirectory&) = delete;
  ~LogDirectory() { fs::remove_all(m_path); }

  const std::string& path() const { return m_path; }
  /// Keeps the file of a long run small.
  void emptyFile(const char* name) const {
    if (truncate((m_path + "/" + name).c_str(), 0) != 0) {
      std::abort();
    }
  }

 private:
  std::string m_path;
};

const LogDirectory& logDirectory() {
  static const LogDirectory directory;
  return directory;
}

/// The tracer, with its file open, at the level of the benchmark.
DiagTracer* tracerAt(int level) {
  static DiagTracer* const tracer = [] {
    DiagTracer* const made = DiagTracer::getInstance();
    made->openTraceFile(logDirectory().path().c_str(), DiagCtrlConstants::DIAG_INFORMATION);
    return made;
  }();
  tracer->setTraceLevel(level);
  return tracer;
}

void emptyTrace(const benchmark::State& state) {
  if (state.thread_index() == 0) {
    logDirectory().emptyFile(DiagCtrlConstants::mpcSDefTraceFile);
  }
}

/// The entry and the exit of a method; the argument is the level.
void traceInAndOut(benchmark::State& state) {
  DiagTracer* const tracer = tracerAt(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const TraceScope trace(tracer, "DiagnosticController::getDiagCtrlPhase");
  }
  state.SetItemsProcessed(state.iterations());
  emptyTrace(state);
}
BENCHMARK(traceInAndOut)->ArgName("level")->Arg(0)->Arg(3)->ThreadRange(1, 2)->UseRealTime();

/// One line with a value.
void traceValue(benchmark::State& state) {
  DiagTracer* const tracer = tracerAt(static_cast<int>(state.range(0)));
  tracer->beginTrace(DiagCtrlConstants::DIAG_INFORMATION, "TracerBench::traceValue");
  for (auto _ : state) {
    tracer->traceValue(DiagCtrlConstants::DIAG_INFORMATION, "DiagCtrl/DiagnosticController.cpp",
                       4711, "Progress of Enumeration is : ", 42UL);
  }
  tracer->endTrace(DiagCtrlConstants::DIAG_INFORMATION, "TracerBench::traceValue");
  state.SetItemsProcessed(state.iterations());
  emptyTrace(state);
}
BENCHMARK(traceValue)->ArgName("level")->Arg(0)->Arg(3)->UseRealTime();

/// Two lines as long as an entry and an exit, with nothing but the call that writes them.
void peerPlainWrite(benchmark::State& state) {
  const std::string path = logDirectory().path() + "/peer";
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string enter = "<140737353791296>   @enter DiagnosticController::getDiagCtrlPhase\n";
  const std::string exit = "<140737353791296>   @exit DiagnosticController::getDiagCtrlPhase\n";
  for (auto _ : state) {
    if (write(file, enter.data(), enter.size()) < 0 || write(file, exit.data(), exit.size()) < 0) {
      state.SkipWithError("cannot write");
      break;
    }
  }
  close(file);
  logDirectory().emptyFile("peer");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(peerPlainWrite)->UseRealTime();

}  // namespace
