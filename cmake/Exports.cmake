include(Flags)
include(GenerateExportHeader)

# The library exports only rk::*. Hidden visibility hides our other symbols, and a version script those of the standard
# library's templates.
set(RK_SOCKET_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
generate_export_header(rk-socket
  BASE_NAME RK_SOCKET
  EXPORT_FILE_NAME ${RK_SOCKET_GENERATED_DIR}/rk/Export.h)

set(RK_SOCKET_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/exports.map)
set_target_properties(rk-socket PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  EXPORT_NAME socket
  CXX_EXTENSIONS OFF
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON
  LINK_DEPENDS ${RK_SOCKET_VERSION_SCRIPT})
# Calls within a file are direct, and calls of other libraries do not go through the procedure linkage table.
rk_known_compile_options(direct_calls -fno-semantic-interposition -fno-plt)
target_compile_options(rk-socket PRIVATE ${direct_calls})
set(linked -Wl,--version-script=${RK_SOCKET_VERSION_SCRIPT})
if(NOT RK_SOCKET_SANITIZERS)
  list(APPEND linked -Wl,-z,defs)
endif()
rk_known_link_options(linked ${linked})
target_link_options(rk-socket PRIVATE ${linked})

# An application replaces the logging functions by defining them. The library must therefore call them through the dynamic
# linker, whatever flags the user, the distribution or a parent project sets:
# - Log.cpp is compiled separately to machine code. A unity build or link-time optimisation would inline the functions.
# - The linker must not bind calls within the library. Its last option of this kind counts, and libraries come last.
rk_known_compile_options(apart -fno-lto)
set_source_files_properties(rk/utils/Log.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON COMPILE_OPTIONS "${apart}")
rk_known_link_options(unbound -Wl,-Bno-symbolic)
target_link_libraries(rk-socket PRIVATE ${unbound})

target_include_directories(rk-socket PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<BUILD_INTERFACE:${RK_SOCKET_GENERATED_DIR}>)
