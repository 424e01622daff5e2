set(RK_SOCKET_SANITIZERS "" CACHE STRING "Sanitizers to build with, as for -fsanitize")
mark_as_advanced(RK_SOCKET_SANITIZERS)

# Instruments all targets of a build or none.
function(rk_enable_sanitizers target)
  if(RK_SOCKET_SANITIZERS)
    target_compile_options(${target} PRIVATE
      -fsanitize=${RK_SOCKET_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${RK_SOCKET_SANITIZERS})
  endif()
endfunction()
