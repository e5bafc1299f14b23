# What a build can be told, and the defaults of the language.

option(TARVEX_WERROR "Treat warnings as errors" ON)
option(TARVEX_USE_CCACHE "Compile through ccache where it is installed" ON)
# Most of what a source takes to compile is what it includes. clang-tidy, for which nothing is compiled
# together, shows what a source forgot to include.
set(TARVEX_COMPILE_TOGETHER "nothing"
    CACHE STRING "What is compiled eight sources of a target at a time: nothing, tests or all")
set_property(CACHE TARVEX_COMPILE_TOGETHER PROPERTY STRINGS nothing tests all)
set(TARVEX_INSTRUMENTATION "none"
    CACHE STRING "What the build is instrumented for: none, asan, tsan or coverage")
set_property(CACHE TARVEX_INSTRUMENTATION PROPERTY STRINGS none asan tsan coverage)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
endif()

# A launcher named by the caller, on the command line or in the environment, goes first.
if(TARVEX_USE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(TARVEX_CCACHE ccache)
  if(TARVEX_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
                                    "CCACHE_SLOPPINESS=pch_defines,time_macros" "${TARVEX_CCACHE}")
  endif()
endif()

# Source file names compiled into messages and exceptions are relative to the root. (ccache with a
# base folder hands relative names to the compiler.)
cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_BINARY_DIR}" OUTPUT_VARIABLE
           tarvex_root_from_build)
add_compile_options("-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/="
                    "-fmacro-prefix-map=${tarvex_root_from_build}/=")
