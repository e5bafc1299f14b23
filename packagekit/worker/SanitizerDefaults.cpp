// Settings of the thread sanitizer for the worker, whose end is waited for: its runtime would sleep
// for a second before the process ends. The runtime looks the function up by name.

// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_options() {
  return "atexit_sleep_ms=0";
}
