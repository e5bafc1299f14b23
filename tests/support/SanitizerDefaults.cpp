// Settings of the sanitizers, compiled into every test program so that a test run by hand behaves
// as under ctest. The runtimes look these functions up by name; elsewhere nobody calls them.

#define TARVEX_RUNTIME_HOOK extern "C" __attribute__((visibility("default"), used)) const char*

TARVEX_RUNTIME_HOOK __asan_default_options();
TARVEX_RUNTIME_HOOK __lsan_default_options();
TARVEX_RUNTIME_HOOK __ubsan_default_options();
TARVEX_RUNTIME_HOOK __tsan_default_options();

const char* __asan_default_options() {
  return "detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1:"
         "detect_leaks=1:external_symbolizer_path=" TARVEX_SYMBOLIZER;
}

const char* __lsan_default_options() {
  return "print_suppressions=0:suppressions=" TARVEX_LSAN_SUPPRESSIONS;
}

const char* __ubsan_default_options() {
  return "print_stacktrace=1";
}

const char* __tsan_default_options() {
  return "second_deadlock_stack=1:history_size=4";
}
