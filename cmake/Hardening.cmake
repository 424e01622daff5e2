include(Flags)

# What a distribution hardens its packages with; each flag is used where compiler or linker know it. Those of the
# compiler are for optimised builds: they cost a debugger's user much, and fortification does nothing there.
function(rk_enable_hardening target)
  set(CMAKE_REQUIRED_FLAGS -O2)
  rk_known_compile_options(compiled
    -fstack-protector-strong -fstack-clash-protection -fcf-protection -Wp,-U_FORTIFY_SOURCE,-D_FORTIFY_SOURCE=2
    -D_GLIBCXX_ASSERTIONS)
  target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${compiled}>")
  rk_known_link_options(linked -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  target_link_options(${target} PRIVATE ${linked})
endfunction()
