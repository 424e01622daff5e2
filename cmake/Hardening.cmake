include(Flags)

# The hardening flags of distributions, if the compiler or linker supports them. The compiler's flags are used only in
# optimised builds: they hinder debugging, and fortification has no effect without optimisation.
function(rk_enable_hardening target)
  set(CMAKE_REQUIRED_FLAGS -O2)
  rk_known_compile_options(compiled
    -fstack-protector-strong -fstack-clash-protection -fcf-protection -Wp,-U_FORTIFY_SOURCE,-D_FORTIFY_SOURCE=2
    -D_GLIBCXX_ASSERTIONS)
  target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${compiled}>")
  rk_known_link_options(linked -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  target_link_options(${target} PRIVATE ${linked})
endfunction()
