# The warnings of the project's own code: every own target links this.

add_library(tarvex_warnings INTERFACE)
target_compile_options(tarvex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TARVEX_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  # Where clang's set is wider than gcc's: enumerations as integers, section names like "$DEVICE",
  # fields of the data model that nothing reads, the kernel's structures with a tail.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-dollar-in-identifier-extension>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-unused-private-field>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-zero-length-array>)
