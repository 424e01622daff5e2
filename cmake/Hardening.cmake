include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

# What a distribution hardens its packages with; each flag is used where compiler or linker know it. Those of the
# compiler are for optimised builds: they cost a debugger's user much, and fortification does nothing there.
function(rk_enable_hardening target)
  set(CMAKE_REQUIRED_FLAGS -O2)
  foreach(flag
      -fstack-protector-strong -fstack-clash-protection -fcf-protection -Wp,-U_FORTIFY_SOURCE,-D_FORTIFY_SOURCE=2
      -D_GLIBCXX_ASSERTIONS)
    string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      target_compile_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${flag}>)
    endif()
  endforeach()
  foreach(flag -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
    check_linker_flag(CXX ${flag} ${known})
    if(${known})
      target_link_options(${target} PRIVATE ${flag})
    endif()
  endforeach()
endfunction()
