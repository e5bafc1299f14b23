# What a build is instrumented with. Sanitizers go into everything that is compiled. What counts the
# lines or branches that ran (coverage, and the feedback that guides the fuzzers) goes into the two
# libraries alone, through tarvex_coverage, which keeps the rest fast.

add_library(tarvex_coverage INTERFACE)

set(TARVEX_SANITIZED OFF)
set(TARVEX_INSTRUMENTATION_FLAGS "")
set(TARVEX_INSTRUMENTATION_LINK_FLAGS "")
if(TARVEX_INSTRUMENTATION STREQUAL "asan")
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "The fuzzers of this build need clang: configure with the preset 'asan'")
  endif()
  # The runtime is a shared library, as tests that stand in front of a platform's function expect.
  execute_process(
    COMMAND "${CMAKE_CXX_COMPILER}"
            "--print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so"
    OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  find_program(TARVEX_SYMBOLIZER NAMES llvm-symbolizer-14 llvm-symbolizer REQUIRED)
  cmake_path(GET runtime PARENT_PATH runtime_dir)
  # Not the types of functions: a package's exports are called through its own copy of their types,
  # which is hidden, and the check takes the two copies for different types.
  set(TARVEX_INSTRUMENTATION_FLAGS -fsanitize=address,undefined -fno-sanitize=function
                                   -fno-sanitize-recover=all)
  set(TARVEX_INSTRUMENTATION_LINK_FLAGS -shared-libasan "-Wl,-rpath,${runtime_dir}")
  target_compile_options(tarvex_coverage INTERFACE -fsanitize=fuzzer-no-link)
elseif(TARVEX_INSTRUMENTATION STREQUAL "tsan")
  set(TARVEX_INSTRUMENTATION_FLAGS -fsanitize=thread)
elseif(TARVEX_INSTRUMENTATION STREQUAL "coverage")
  # Many threads and processes count at once.
  target_compile_options(tarvex_coverage INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tarvex_coverage INTERFACE --coverage)
elseif(NOT TARVEX_INSTRUMENTATION STREQUAL "none")
  message(FATAL_ERROR "Unknown TARVEX_INSTRUMENTATION '${TARVEX_INSTRUMENTATION}'")
endif()

if(TARVEX_INSTRUMENTATION_FLAGS)
  set(TARVEX_SANITIZED ON)
  add_compile_definitions(TARVEX_SANITIZED)
  list(APPEND TARVEX_INSTRUMENTATION_FLAGS -fno-omit-frame-pointer)
  add_compile_options(
    ${TARVEX_INSTRUMENTATION_FLAGS}
    # The checks that a sanitizer adds lead gcc's own analysis of values and sizes astray: a text
    # that is one character longer, such as the path of the sources, is enough for a false finding.
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-maybe-uninitialized;-Wno-restrict>"
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow;-Wno-stringop-overread>")
  add_link_options(${TARVEX_INSTRUMENTATION_FLAGS} ${TARVEX_INSTRUMENTATION_LINK_FLAGS})
endif()

# What a worker of such a build leaves out, and what it is passed, is for the runtimes.
if(NOT TARVEX_INSTRUMENTATION STREQUAL "none")
  add_compile_definitions(TARVEX_INSTRUMENTED)
endif()
