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
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(
    ${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                   $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tarvexdiags>)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:tarvex_warnings>
                                        $<BUILD_INTERFACE:tarvex_coverage>)
  if(NOT TARVEX_SANITIZED)
    # A sanitizer's runtime is found only when the program is linked.
    target_link_options(${name} PRIVATE -Wl,-z,defs)
  endif()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION
                                           ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN")
endfunction()

# tarvex_add_program(<name> SOURCES <source>... [LIBRARIES <library>...]): an executable of the
# project, linked with the controller.
function(tarvex_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} TarvexDiags::diagctrl
                                        TarvexDiags::diagframework tarvex_warnings)
endfunction()
