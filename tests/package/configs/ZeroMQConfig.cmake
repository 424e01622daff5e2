# Replaces libzmq's configuration, which some systems have.
add_library(libzmq INTERFACE IMPORTED)
set_target_properties(libzmq PROPERTIES
  INTERFACE_LINK_LIBRARIES -lzmq
  INTERFACE_COMPILE_DEFINITIONS ZEROMQ_FOUND_BY_CONFIG)
