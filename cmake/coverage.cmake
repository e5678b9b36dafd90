# Counts what runs of the library's own code. Its threads count at the same time.
foreach(target wrenlink_core wrenlink_platform tidewater)
  target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  target_link_options(${target} INTERFACE --coverage)
endforeach()
