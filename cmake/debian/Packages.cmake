# The Debian packages: the shared library, the development files, and the programs. scripts/package builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/documents.cmake)
set(CPACK_RK_CHANGELOG ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_PACKAGE_VENDOR "the maintainers of rk::socket")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Maintainers of rk-socket <maintainers@rk-socket.invalid>")
set(CPACK_DEBIAN_PACKAGE_SOURCE rk-socket)
# The version ends with the release, because packages of one release do not install on another: ~deb12, ~deb13,
# ~ubuntu24.04, or the code name of a release without a number.
cmake_host_system_information(RESULT names QUERY DISTRIB_INFO)
if(names_VERSION_ID)
  string(REPLACE debian deb release ${names_ID}${names_VERSION_ID})
else()
  set(release ${names_VERSION_CODENAME})
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE 1~${release})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)

set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# The dependencies are read from the binaries. This library is found in the build folder.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(this_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # CPack would prepend it to each description
set(about "Publish/subscribe and request/reply sockets that carry protobuf messages or
raw bytes over TCP, Unix domain sockets or within a process. Sockets report
failures as exceptions. A socket that is used out of turn is rebuilt, and
the call is retried. Listeners serve a socket on a thread and log failures.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME librk-socket${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "messaging sockets on top of ZeroMQ, shared library\n${about}")
# The trigger runs ldconfig. The scripts do not exist, and keep CPack from writing scripts that run it too.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/abi/symbols ${CMAKE_CURRENT_LIST_DIR}/triggers /nonexistent/postinst /nonexistent/postrm)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME librk-socket-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} ${this_version}, libprotobuf-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS protobuf-compiler)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libzmq3-dev, rk-socket-tools")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "messaging sockets on top of ZeroMQ, development files\n${about}

This package contains the headers and the files for CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME rk-socket-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} ${this_version}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "librk-socket-dev, protobuf-compiler")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "messaging sockets on top of ZeroMQ, programs\n${about}

This package contains the command-line tool rk-socket, and examples with
their sources.")

include(CPack)
