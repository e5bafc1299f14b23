# Sanitizers and the fuzzer's feedback go into everything that is compiled; coverage goes only into
# the libraries, through tarvex_coverage, which keeps the tests themselves fast.

add_library(tarvex_coverage INTERFACE)

set(TARVEX_SANITIZED OFF)
set(TARVEX_INSTRUMENTATION_FLAGS "")
if(TARVEX_INSTRUMENTATION STREQUAL "asan")
  set(TARVEX_INSTRUMENTATION_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(TARVEX_INSTRUMENTATION STREQUAL "tsan")
  set(TARVEX_INSTRUMENTATION_FLAGS -fsanitize=thread)
elseif(TARVEX_INSTRUMENTATION STREQUAL "fuzz")
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "The fuzzers need clang: configure with the preset 'fuzz'")
  endif()
  set(TARVEX_INSTRUMENTATION_FLAGS
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
elseif(TARVEX_INSTRUMENTATION STREQUAL "coverage")
  # Many threads and processes count at once.
  target_compile_options(tarvex_coverage INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tarvex_coverage INTERFACE --coverage)
elseif(NOT TARVEX_INSTRUMENTATION STREQUAL "none")
  message(FATAL_ERROR "Unknown TARVEX_INSTRUMENTATION '${TARVEX_INSTRUMENTATION}'")
endif()

if(TARVEX_INSTRUMENTATION_FLAGS)
  set(TARVEX_SANITIZED ON)
  list(APPEND TARVEX_INSTRUMENTATION_FLAGS -fno-omit-frame-pointer)
  add_compile_options(${TARVEX_INSTRUMENTATION_FLAGS}
    # The checks that a sanitizer adds lead gcc's own analysis of values and sizes astray: a text
    # that is one character longer, such as the path of the sources, is enough for a false finding.
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-maybe-uninitialized;-Wno-restrict>"
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow;-Wno-stringop-overread>")
  add_link_options(${TARVEX_INSTRUMENTATION_FLAGS})
endif()
