# The package by which other programs build against common/. It is a component
# of its own: an installation of the daemon, or of everything, leaves it out.
#
#   cmake --install build/release --component common --prefix /usr/local

include(CMakePackageConfigHelpers)

set(LAUNCHER_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/TamrelCommon)

# Installs a library and its headers, whose paths are relative to the root.
# Programs include them as this tree does.
function(launcher_install_common target)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME tamrel_${target})
  target_include_directories(
    ${target} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tamrel>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  install(
    TARGETS ${target}
    EXPORT TamrelCommonTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT common
            EXCLUDE_FROM_ALL)
  foreach(header IN LISTS ARGN)
    cmake_path(GET header PARENT_PATH folder)
    install(
      FILES ${PROJECT_SOURCE_DIR}/${header}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tamrel/${folder}
      COMPONENT common
      EXCLUDE_FROM_ALL)
  endforeach()
endfunction()

install(
  EXPORT TamrelCommonTargets
  NAMESPACE TamrelCommon::
  DESTINATION ${LAUNCHER_PACKAGE_DIR}
  COMPONENT common
  EXCLUDE_FROM_ALL)

write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/TamrelCommonConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_SOURCE_DIR}/cmake/TamrelCommonConfig.cmake
        ${PROJECT_BINARY_DIR}/TamrelCommonConfigVersion.cmake
  DESTINATION ${LAUNCHER_PACKAGE_DIR}
  COMPONENT common
  EXCLUDE_FROM_ALL)
