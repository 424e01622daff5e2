option(RK_SOCKET_COVERAGE "Count what is executed of the library; needs clang 19" OFF)
mark_as_advanced(RK_SOCKET_COVERAGE)

# Threads count at once, hence atomically. Our headers count although they call themselves system headers.
function(rk_enable_coverage target)
  if(RK_SOCKET_COVERAGE)
    set(counting -fprofile-instr-generate)
    target_compile_options(${target} PRIVATE
      ${counting} -fprofile-update=atomic -fcoverage-mapping -fcoverage-mcdc
      "SHELL:-mllvm -system-headers-coverage")
    target_link_options(${target} PRIVATE ${counting})
  endif()
endfunction()
