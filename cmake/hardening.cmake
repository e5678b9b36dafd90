# What makes a fault in memory hard to exploit, in everything optimised that is built from here on.
# Sanitizers, which find such faults, and coverage go without.
#
# MinGW-w64 makes what it links movable and its data not executable by itself. Its stack protector
# stays off: it asks the system for random numbers while the DLL is loaded, which a DLL should not.
if(WIN32)
  return()
endif()

include(CheckCXXCompilerFlag)
foreach(flag
    -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
  check_cxx_compiler_flag(${flag} COMPILER_KNOWS${flag})
  if(COMPILER_KNOWS${flag})
    list(APPEND hardening ${flag})
  endif()
endforeach()
# Some distributions set another level, which may not be redefined.
list(APPEND hardening -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${hardening}>")
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
