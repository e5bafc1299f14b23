# tarvex_add_package: a diagnostic package, written with the package kit.
#
#   tarvex_add_package(NAME <name> SOURCES <source>... [LIBRARIES <library>...]
#                      [FOLDER <folder>] [GROUP packages|selftest|examples|bench])
#
# builds lib<name>.so as the target package_<name>. Beside it go the configuration file <name>.cfg and
# the language files <language>/<name>.cfg, taken from the folder (by default where the function is
# called), each with the kit's own section entries appended.
#
# The target bundled_packages builds all that belong to the group `packages`.
#
# In the build tree all packages of a group lie in one folder, named by TARVEX_PACKAGES_DIR_<group>:
# a directory that `PackDirPath` of a control file can name. `packages` are installed into
# lib/tarvexdiags/packages, `selftest` into lib/tarvexdiags/selftest, the others nowhere.

include(GNUInstallDirs)

if(NOT DEFINED TARVEX_KIT_DATA_DIR)
  set(TARVEX_KIT_DATA_DIR "${CMAKE_CURRENT_LIST_DIR}/../packagekit/data")
endif()
set(TARVEX_PACKAGES_DIR_packages "${PROJECT_BINARY_DIR}/packages")
set(TARVEX_PACKAGES_DIR_selftest "${PROJECT_BINARY_DIR}/selftest")
set(TARVEX_PACKAGES_DIR_examples "${PROJECT_BINARY_DIR}/example_packages")
set(TARVEX_PACKAGES_DIR_bench "${PROJECT_BINARY_DIR}/bench_packages")
set(TARVEX_INSTALLED_PACKAGE_GROUPS packages selftest)

# Appends the kit's entries to a file of a package, in the build tree.
function(tarvex_join_package_file source kit_file output)
  get_filename_component(output_dir "${output}" DIRECTORY)
  file(MAKE_DIRECTORY "${output_dir}")
  add_custom_command(
    OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}" -E cat "${source}" "${kit_file}" > "${output}"
    DEPENDS "${source}" "${kit_file}"
    COMMENT "Joining ${output}"
    VERBATIM)
endfunction()

function(tarvex_add_package)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;FOLDER;GROUP" "SOURCES;LIBRARIES")
  if(NOT arg_GROUP)
    set(arg_GROUP packages)
  endif()
  if(NOT arg_FOLDER)
    set(arg_FOLDER "${CMAKE_CURRENT_SOURCE_DIR}")
  endif()
  get_filename_component(folder "${arg_FOLDER}" ABSOLUTE)
  set(output_dir "${TARVEX_PACKAGES_DIR_${arg_GROUP}}")
  set(install_dir "${CMAKE_INSTALL_LIBDIR}/tarvexdiags/${arg_GROUP}")

  set(files "${output_dir}/${arg_NAME}.cfg")
  tarvex_join_package_file("${folder}/${arg_NAME}.cfg" "${TARVEX_KIT_DATA_DIR}/kit.cfg"
                           "${output_dir}/${arg_NAME}.cfg")
  # The languages are those that the kit itself has texts in.
  file(GLOB kit_texts CONFIGURE_DEPENDS "${TARVEX_KIT_DATA_DIR}/*/kit.cfg")
  foreach(kit_text IN LISTS kit_texts)
    cmake_path(GET kit_text PARENT_PATH language)
    cmake_path(GET language FILENAME language)
    if(NOT EXISTS "${folder}/${language}/${arg_NAME}.cfg")
      continue()
    endif()
    set(joined "${output_dir}/${language}/${arg_NAME}.cfg")
    tarvex_join_package_file("${folder}/${language}/${arg_NAME}.cfg" "${kit_text}" "${joined}")
    list(APPEND files "${joined}")
    if(arg_GROUP IN_LIST TARVEX_INSTALLED_PACKAGE_GROUPS)
      install(FILES "${joined}" DESTINATION "${install_dir}/${language}")
    endif()
  endforeach()

  set(target package_${arg_NAME})
  add_library(${target} MODULE ${arg_SOURCES} ${files})
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES} TarvexDiags::packagekit)
  if(TARGET tarvex_warnings)
    target_link_libraries(${target} PRIVATE tarvex_warnings)
  endif()
  if(TARGET tarvex-package-worker)
    add_dependencies(${target} tarvex-package-worker)
  endif()
  if(arg_GROUP STREQUAL "packages")
    if(NOT TARGET bundled_packages)
      add_custom_target(bundled_packages)
    endif()
    add_dependencies(bundled_packages ${target})
  endif()
  set_target_properties(
    ${target}
    PROPERTIES
      OUTPUT_NAME "${arg_NAME}" PREFIX "lib" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN
      ON LIBRARY_OUTPUT_DIRECTORY "${output_dir}" INSTALL_RPATH "$ORIGIN/../..")
  if(COMMAND tarvex_set_run_path) # within the project
    tarvex_set_run_path(${target} "$ORIGIN/../.." "$ORIGIN/..")
  endif()
  target_link_options(${target} PRIVATE "-Wl,--version-script=${TARVEX_KIT_DATA_DIR}/package.map")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${TARVEX_KIT_DATA_DIR}/package.map")
  # A unique symbol would keep the package mapped after the last dlclose.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  if(arg_GROUP IN_LIST TARVEX_INSTALLED_PACKAGE_GROUPS)
    install(TARGETS ${target} LIBRARY DESTINATION "${install_dir}")
    install(FILES "${output_dir}/${arg_NAME}.cfg" DESTINATION "${install_dir}")
  endif()
endfunction()
