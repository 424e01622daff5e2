include(CheckCXXCompilerFlag)

# The warnings that the project is clean of, those that the compiler at hand knows. The presets make them errors.
# One of clang's is off: it takes the standard library's destruction of a Socket, by its own type, for one through a base.
function(rk_enable_warnings target)
  foreach(flag
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wuseless-cast -Wcast-align
      -Wcast-qual -Wduplicated-cond -Wlogical-op -Wnull-dereference -Woverloaded-virtual -Wformat=2
      -Wimplicit-fallthrough -Wundef -Wextra-semi -Wno-delete-non-abstract-non-virtual-dtor)
    string(MAKE_C_IDENTIFIER "RK_SOCKET_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      target_compile_options(${target} PRIVATE ${flag})
    endif()
  endforeach()
endfunction()
