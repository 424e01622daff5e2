# Everything but the library is built only when the project is built for its own sake.
option(RK_SOCKET_BUILD_EXAMPLES "Build the examples" OFF)
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release, RelWithDebInfo or MinSizeRel" FORCE)
endif()

# The library needs none of the tests' tools: without them the tests are left out, unless they are asked for.
find_package(GTest QUIET)
find_program(RK_VALGRIND valgrind)
find_program(RK_PROTOC protoc)
mark_as_advanced(RK_VALGRIND RK_PROTOC)
if(GTest_FOUND AND RK_VALGRIND AND RK_PROTOC)
  option(BUILD_TESTING "Build the tests" ON)
else()
  option(BUILD_TESTING "Build the tests" OFF)
endif()
if(NOT BUILD_TESTING)
  message(STATUS "The tests are left out. They need GoogleTest, valgrind and protoc, and -DBUILD_TESTING=ON.")
endif()
include(CTest)
