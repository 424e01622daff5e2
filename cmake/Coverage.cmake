option(RK_SOCKET_COVERAGE "Count what is executed of the library; needs clang 19" OFF)
mark_as_advanced(RK_SOCKET_COVERAGE)

# Counters are atomic, because several threads count. Includes our headers, although they are marked as system headers.
function(rk_enable_coverage target)
  if(RK_SOCKET_COVERAGE)
    set(counting -fprofile-instr-generate)
    target_compile_options(${target} PRIVATE
      ${counting} -fprofile-update=atomic -fcoverage-mapping -fcoverage-mcdc
      "SHELL:-mllvm -system-headers-coverage")
    target_link_options(${target} PRIVATE ${counting})
  endif()
endfunction()
