# Finds libzmq's C interface without pkg-config; defines the imported target LibZmq::LibZmq.
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
