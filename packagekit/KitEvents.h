#pragma once

namespace TarvexDiags::PackageKit {

/// @brief Event codes that the kit raises on behalf of every package: 9000 to 9099 are reserved.
///
/// Their tokens and texts are appended to the files of each package when it is built. All of them
/// begin with the same three parameters: number of the test, name of the test, resource tag of the
/// device. What follows is told at each. "Last lines" are what the worker wrote to its standard
/// output and error last, the lines joined with " | ", possibly empty.
enum KitEvent : unsigned int {
  // ERROR_EVENT: trouble of the tool. The result is UNUSUAL_STATUS, unless the test had raised an
  // error before: that is a fault of the hardware, whatever ended the test then.
  WORKER_CRASHED = 9000,            ///< signal (as "SIGSEGV"), last lines
  WORKER_EXITED = 9001,             ///< exit status or "?", last lines
  TEST_TIMED_OUT = 9002,            ///< time allowed in seconds, last lines
  OUT_OF_MEMORY = 9003,             ///< what failed, last lines
  NO_PERMISSION = 9004,             ///< what failed (text of the errno included), last lines
  DEVICE_VANISHED = 9005,           ///< how that is known, " (detail)" or nothing, last lines
  TEST_THREW = 9006,                ///< text of the exception, last lines
  SYSTEM_CALL_FAILED = 9007,        ///< what failed (text of the errno included), last lines
  WORKER_NOT_STARTED = 9008,        ///< why, last lines
  WORKER_BROKE_PROTOCOL = 9009,     ///< what was wrong with its messages, last lines
  WORKER_KILLED = 9010,             ///< last lines: SIGKILL from outside, mostly for lack of memory
  WORKER_UNKILLABLE = 9011,         ///< process id, last lines: it ignores even SIGKILL
  DEVICE_REFUSED = 9012,            ///< process id: the device still has such a worker
  TEST_UNKNOWN = 9013,              ///< the package has no test of that number
  OPEN_MODE_REFUSED = 9014,         ///< the test writes and the open mode forbids it
  TEST_CONTRADICTED_ITSELF = 9015,  ///< last lines: it raised an error and returned passed
  MEMORY_POISONED = 9016,           ///< virtual and physical address (or "?"), last lines
  TAKEN_AWAY = 9017,                ///< what was taken from the test, last lines

  // WARNING_EVENT
  TEST_NOT_SUPPORTED = 9040,  ///< reason, " (detail)" or nothing. The result is UNUSUAL_STATUS
  EVENTS_DROPPED = 9041,      ///< how many events the test raised beyond what is kept
  TEST_ABORTED = 9042,        ///< the client ended the test: no verdict
  SETTING_REPLACED = 9043,    ///< key, value, what holds instead: the value is no such time

  // INFORMATION_EVENT
  TEST_STARTED = 9060,      ///< number of the pass, seed
  TEST_ENDED = 9061,        ///< verdict (PASSED, UNUSUAL_STATUS, FAILED), milliseconds that it took
  TEST_MEASUREMENT = 9062,  ///< name, value, unit
  TEST_PROGRESS = 9063,     ///< percent: every ten, when the request asks for status messages
  TEST_LOG_LINE = 9064,     ///< line of the package's log, or "..." where those behind it are left
                            ///< out: when the request asks for them, see contract/LogWish.h
  TEST_THROUGHPUT = 9065,   ///< figure, unit as "MB/s": what the test does, once a second, when the
                            ///< request asks for it: see contract/ThroughputWish.h
};

/// @brief Device status codes of the kit, with their tokens in section `DeviceStatus`.
enum KitDeviceStatus : unsigned int {
  DEVICE_STATUS_HUNG = 9090,     ///< a worker on it can't be killed; refused until enumerated again
  DEVICE_STATUS_UNKNOWN = 9091,  ///< the package's own function failed
};

/// @brief First code that packages must leave alone, and the last.
inline constexpr unsigned int kFirstKitCode = 9000;
inline constexpr unsigned int kLastKitCode = 9099;

}  // namespace TarvexDiags::PackageKit
