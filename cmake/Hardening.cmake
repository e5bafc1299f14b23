# What makes a mistake in a release harder to use for others: checks where sizes are known to the compiler
# or the standard library, a guarded stack, marked targets of jumps, and no table of functions that can
# be written to. Other builds are for finding the mistakes themselves.

set(TARVEX_HARDENED OFF)
set(TARVEX_SPARED_OPTIONS "")
if(TARVEX_INSTRUMENTATION STREQUAL "none" AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(TARVEX_HARDENED ON)
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS
                      -fstack-protector-strong -fstack-clash-protection)
  list(APPEND TARVEX_SPARED_OPTIONS -U_GLIBCXX_ASSERTIONS -fno-stack-protector
       -fno-stack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
    add_compile_options(-fcf-protection=full)
    list(APPEND TARVEX_SPARED_OPTIONS -fcf-protection=none)
  endif()
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

# tarvex_spare_kernels(<source>...): files with the loops of tests that do nothing but compute, take
# nothing from outside, and lost more than 2 % of their rate.
function(tarvex_spare_kernels)
  set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS ${TARVEX_SPARED_OPTIONS})
endfunction()
