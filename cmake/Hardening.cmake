include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

# What a distribution would harden a release build with; each flag is used where compiler and linker know it.
function(rk_enable_hardening target)
  foreach(flag
      -fstack-protector-strong -fstack-clash-protection -fcf-protection -Wp,-U_FORTIFY_SOURCE,-D_FORTIFY_SOURCE=2
      -D_GLIBCXX_ASSERTIONS)
    string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
    set(CMAKE_REQUIRED_FLAGS -O2)
    check_cxx_compiler_flag(${flag} ${known})
    unset(CMAKE_REQUIRED_FLAGS)
    if(${known})
      target_compile_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:${flag}>)
    endif()
  endforeach()
  foreach(flag -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
    check_linker_flag(CXX ${flag} ${known})
    if(${known})
      target_link_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:${flag}>)
    endif()
  endforeach()
endfunction()
