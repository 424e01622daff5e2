# Finds libzmq and defines the imported target LibZmq::LibZmq. Uses libzmq's CMake configuration if the system has one,
# and otherwise searches for its header and library.
find_package(ZeroMQ CONFIG QUIET)
mark_as_advanced(ZeroMQ_DIR)
if(TARGET libzmq)
  set(LibZmq_FOUND TRUE)
  if(NOT TARGET LibZmq::LibZmq)
    add_library(LibZmq::LibZmq INTERFACE IMPORTED)
    target_link_libraries(LibZmq::LibZmq INTERFACE libzmq)
  endif()
  return()
endif()

find_path(LibZmq_INCLUDE_DIR zmq.h)
find_library(LibZmq_LIBRARY zmq)
mark_as_advanced(LibZmq_INCLUDE_DIR LibZmq_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibZmq REQUIRED_VARS LibZmq_LIBRARY LibZmq_INCLUDE_DIR)

if(LibZmq_FOUND AND NOT TARGET LibZmq::LibZmq)
  add_library(LibZmq::LibZmq UNKNOWN IMPORTED)
  set_target_properties(LibZmq::LibZmq PROPERTIES
    IMPORTED_LOCATION ${LibZmq_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${LibZmq_INCLUDE_DIR})
endif()
