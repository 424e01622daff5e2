include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

target_include_directories(rk-socket PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# As a sub-project, adds its target to the parent's build and nothing to the parent's installation.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

# Separate components for running programs and for building them.
install(TARGETS rk-socket EXPORT rk-socket-targets
  LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/rk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN detail EXCLUDE)
install(FILES ${RK_SOCKET_GENERATED_DIR}/rk/Export.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/rk COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rk-socket)
install(EXPORT rk-socket-targets NAMESPACE rk:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/rk-socket-config.cmake.in ${PROJECT_BINARY_DIR}/rk-socket-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rk-socket-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rk-socket-config.cmake ${PROJECT_BINARY_DIR}/rk-socket-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The prefix is relative to the file, so that an installed tree can be moved.
file(RELATIVE_PATH RK_SOCKET_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/rk-socket.pc.in ${PROJECT_BINARY_DIR}/rk-socket.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/rk-socket.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
