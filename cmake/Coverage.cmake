option(RK_SOCKET_COVERAGE "Count what is executed of the library; needs clang 19" OFF)
mark_as_advanced(RK_SOCKET_COVERAGE)

# Threads count at once, hence atomically.
function(rk_enable_coverage target)
  if(RK_SOCKET_COVERAGE)
    set(counting -fprofile-instr-generate)
    target_compile_options(${target} PRIVATE
      ${counting} -fprofile-update=atomic -fcoverage-mapping -fcoverage-mcdc)
    target_link_options(${target} PRIVATE ${counting})
  endif()
endfunction()
