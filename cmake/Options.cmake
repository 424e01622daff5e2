# Everything but the library is built only when the project is built for its own sake.
if(PROJECT_IS_TOP_LEVEL)
  include(CTest)
  if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release, RelWithDebInfo or MinSizeRel" FORCE)
  endif()
endif()
option(RK_SOCKET_BUILD_EXAMPLES "Build the examples" OFF)
