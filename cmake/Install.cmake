# What `cmake --install` puts into a prefix: the two libraries and the package kit, their headers
# below include/tarvexdiags, the texts of the controller's codes, the CMake package and the pkg-config
# files, the guides and the examples that they speak of.

include(CMakePackageConfigHelpers)

set(tarvex_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TarvexDiags")
set(tarvex_kit_data_dir "${CMAKE_INSTALL_DATADIR}/tarvexdiags/packagekit")
set(tarvex_pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(tarvex_message_file "${CMAKE_INSTALL_DATADIR}/tarvexdiags/messages.cfg")
# What a control file names as MsgFilePath: the same variable as in the installed CMake package.
set(TARVEX_MESSAGE_FILE "${PROJECT_SOURCE_DIR}/DiagCtrl/messages.cfg")

install(TARGETS diagframework diagctrl EXPORT TarvexDiagsTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(
  DIRECTORY DiagCtrl Diag DeviceEnum System packagekit
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvexdiags"
  FILES_MATCHING
  PATTERN "*.h"
  PATTERN "internal" EXCLUDE)

set(tarvex_doc_dir "${CMAKE_INSTALL_DATAROOTDIR}/doc/tarvexdiags")
install(FILES CHANGELOG.md DESTINATION "${tarvex_doc_dir}")
install(DIRECTORY docs examples DESTINATION "${tarvex_doc_dir}")

install(FILES "${TARVEX_MESSAGE_FILE}" DESTINATION "${CMAKE_INSTALL_DATADIR}/tarvexdiags")

install(EXPORT TarvexDiagsTargets NAMESPACE TarvexDiags:: DESTINATION "${tarvex_package_dir}")
configure_package_config_file(
  cmake/TarvexDiagsConfig.cmake.in TarvexDiagsConfig.cmake
  INSTALL_DESTINATION "${tarvex_package_dir}" PATH_VARS tarvex_kit_data_dir tarvex_message_file)
write_basic_package_version_file(TarvexDiagsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/TarvexDiagsConfig.cmake"
        "${PROJECT_BINARY_DIR}/TarvexDiagsConfigVersion.cmake" cmake/TarvexPackage.cmake
  DESTINATION "${tarvex_package_dir}")

# The pkg-config files find the prefix from where they lie, so an installed tree can be moved.
cmake_path(ABSOLUTE_PATH tarvex_pkgconfig_dir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE
           OUTPUT_VARIABLE tarvex_pkgconfig_path)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${tarvex_pkgconfig_path}"
           OUTPUT_VARIABLE TARVEX_PREFIX_FROM_PKGCONFIG)
foreach(file IN ITEMS tarvexdiags tarvexdiags-framework tarvexdiags-packagekit)
  configure_file("cmake/${file}.pc.in" "${file}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${file}.pc" DESTINATION "${tarvex_pkgconfig_dir}")
endforeach()
