# Replaces protobuf's configuration, which some systems have.
add_library(protobuf::libprotobuf INTERFACE IMPORTED)
set_target_properties(protobuf::libprotobuf PROPERTIES
  INTERFACE_LINK_LIBRARIES -lprotobuf
  INTERFACE_COMPILE_DEFINITIONS PROTOBUF_FOUND_BY_CONFIG)
