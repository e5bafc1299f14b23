# The warnings of the project's own code: every own target links this.

add_library(tarvex_warnings INTERFACE)
target_compile_options(tarvex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TARVEX_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
