# finish_binary(target description)
#
# What users get of a target on Windows: with what its properties show there, and without symbols.
find_program(WINDRES NAMES ${CMAKE_RC_COMPILER} x86_64-w64-mingw32-windres windres REQUIRED)
file(STRINGS ${PROJECT_SOURCE_DIR}/LICENSE WRENLINK_COPYRIGHT REGEX ^Copyright)

function(finish_binary target description)
  set(type_EXECUTABLE 1)
  set(type_SHARED_LIBRARY 2)
  set(type_MODULE_LIBRARY 3) # a driver
  get_target_property(type ${target} TYPE)
  set(type ${type_${type}})
  string(REPLACE . , version ${PROJECT_VERSION},0)
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}-version)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/windows/version.rc.in ${resource}.rc.in @ONLY)
  file(GENERATE OUTPUT ${resource}.rc INPUT ${resource}.rc.in)
  add_custom_command(OUTPUT ${resource}.obj
    COMMAND ${WINDRES} -O coff ${resource}.rc ${resource}.obj
    DEPENDS ${resource}.rc VERBATIM)
  target_sources(${target} PRIVATE ${resource}.obj)
  if(PROJECT_IS_TOP_LEVEL)
    target_link_options(${target} PRIVATE -s)
  endif()
endfunction()
