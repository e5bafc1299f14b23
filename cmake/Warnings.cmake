# The warnings of the project's own code: every own target links this.

define_property(TARGET PROPERTY TARVEX_LOCKS_UNCHECKED INHERITED
                BRIEF_DOCS "Whether the compiler's check of locks is left out")
add_library(tarvex_warnings INTERFACE)
target_compile_options(
  tarvex_warnings
  INTERFACE
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wconversion
    $<$<BOOL:${TARVEX_WERROR}>:-Werror>
    # Data touched without its lock is an error, with or without TARVEX_WERROR. Tests and benchmarks
    # alone go unchecked: they call what only the controller may call.
    "$<$<AND:$<CXX_COMPILER_ID:Clang>,$<NOT:$<BOOL:$<TARGET_PROPERTY:TARVEX_LOCKS_UNCHECKED>>>>:-Wthread-safety;-Werror=thread-safety>"
    # Where clang's set is wider than gcc's: enumerations as integers, section names like "$DEVICE",
    # fields of the data model that nothing reads, the kernel's structures with a tail.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-dollar-in-identifier-extension>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-unused-private-field>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-zero-length-array>)
