# Functions for the folders of the project. All own targets get the warnings and find headers from
# the root ("DiagCtrl/TestRequest.h").

# tarvex_add_subfolders(<folder>): adds each folder below it that has a CMakeLists.txt.
function(tarvex_add_subfolders parent)
  file(GLOB lists CONFIGURE_DEPENDS "${parent}/*/CMakeLists.txt")
  foreach(list IN LISTS lists)
    get_filename_component(folder "${list}" DIRECTORY)
    add_subdirectory("${folder}")
  endforeach()
endfunction()

# tarvex_set_run_path(<target> <directory>...): where it finds the project's libraries, from where it
# lies itself, installed and in the build tree. It is the same in both: a run path that is replaced when
# it is installed has empty elements until then, and the loader takes those for the working directory.
function(tarvex_set_run_path target)
  set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${ARGN}")
endfunction()

# tarvex_precompile(<target> [<header>...]): in the builds that compile all together, the standard headers that
# most sources include are compiled once for all of the target's, and those given with them, and the sources
# eight at a time. Sources that have names of their own in common with others of their folder say so with
# tarvex_compile_alone.
function(tarvex_precompile target)
  if(TARVEX_COMPILE_TOGETHER STREQUAL "all")
    target_precompile_headers(
      ${target} PRIVATE <algorithm> <chrono> <fstream> <functional> <map> <memory> <mutex>
      <optional> <sstream> <string> <thread> <utility> <vector> ${ARGN})
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    # What a source keeps to itself, gcc takes for what a header should not have.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
endfunction()

# tarvex_compile_alone(<source>...): these sources of a target that is compiled several at a time.
function(tarvex_compile_alone)
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# tarvex_add_library(<name> FOLDERS <folder>...): a shared library of all the sources in the folders
# at the root, with its alias and the properties that both libraries share.
function(tarvex_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FOLDERS")
  set(sources)
  foreach(folder IN LISTS arg_FOLDERS)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
    list(APPEND sources ${found})
  endforeach()

  add_library(${name} SHARED ${sources})
  add_library(TarvexDiags::${name} ALIAS ${name})
  tarvex_precompile(${name})
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(
    ${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                   $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tarvexdiags>)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:tarvex_warnings>
                                        $<BUILD_INTERFACE:tarvex_coverage>)
  if(NOT TARVEX_SANITIZED)
    # A sanitizer's runtime is found only when the program is linked, and has names of its own.
    set(map "${PROJECT_SOURCE_DIR}/cmake/library.map")
    target_link_options(${name} PRIVATE -Wl,-z,defs "-Wl,--version-script=${map}")
    set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS "${map}")
  endif()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION
                                           ${PROJECT_VERSION_MAJOR})
  tarvex_set_run_path(${name} "$ORIGIN")
endfunction()

# tarvex_add_program(<name> SOURCES <source>... [LIBRARIES <library>...]): an executable of the
# project, linked with the controller.
function(tarvex_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} TarvexDiags::diagctrl
                                        TarvexDiags::diagframework tarvex_warnings)
endfunction()
