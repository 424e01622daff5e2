include(CheckCXXCompilerFlag)
include(GenerateExportHeader)

# The library lets out rk::* and nothing else: hidden visibility for our own symbols, a version script for those that
# the standard library's templates would add.
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
# Within a file the library calls its own functions directly, and those of other libraries without a detour. What an
# application may replace, the logging calls, stands in a file that holds nothing else, and is found by the linker.
foreach(flag -fno-semantic-interposition -fno-plt)
  string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(rk-socket PRIVATE ${flag})
  endif()
endforeach()
target_link_options(rk-socket PRIVATE -Wl,--version-script=${RK_SOCKET_VERSION_SCRIPT})
if(NOT RK_SOCKET_SANITIZERS)
  target_link_options(rk-socket PRIVATE -Wl,-z,defs)
endif()
target_include_directories(rk-socket PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<BUILD_INTERFACE:${RK_SOCKET_GENERATED_DIR}>)
