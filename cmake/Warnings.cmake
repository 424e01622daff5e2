include(Flags)

# The warnings of the project, if the compiler supports them. The presets turn them into errors.
function(rk_enable_warnings target)
  set(useless_cast "")
  if(CMAKE_SIZEOF_VOID_P EQUAL 8) # with 32 bits, casts between int and size_t are useless
    set(useless_cast -Wuseless-cast)
  endif()
  rk_known_compile_options(warnings
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast ${useless_cast} -Wcast-align
    -Wcast-qual -Wduplicated-cond -Wlogical-op -Wnull-dereference -Woverloaded-virtual -Wformat=2
    -Wimplicit-fallthrough -Wmismatched-tags -Wundef -Wextra-semi)
  target_compile_options(${target} PRIVATE ${warnings})
endfunction()
