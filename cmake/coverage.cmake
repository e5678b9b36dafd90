# Counts what runs of the library's own code, and of its headers in what tests link in its place. Its
# threads count at the same time.
foreach(target wrenlink_core wrenlink_platform tidewater recording_handler)
  target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  target_link_options(${target} INTERFACE --coverage)
endforeach()
