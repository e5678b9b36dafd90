# Run by cpack when the files of all Debian packages are in place: gives each package what Debian
# wants of it, a copyright file, a changelog and compressed manual pages.
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(changelog ${CPACK_TEMPORARY_DIRECTORY}/../changelog)
file(WRITE ${changelog} "wrenlink (${CPACK_PACKAGE_VERSION}) stable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")

# The licence of wrenlink, and of what is compiled in.
function(write_copyright file)
  file(READ ${CPACK_RESOURCE_FILE_LICENSE} text)
  foreach(package ${ARGN})
    file(READ /usr/share/doc/${package}/copyright theirs)
    string(APPEND text "\n\nContains code of ${package}:\n\n${theirs}")
  endforeach()
  file(WRITE ${file} "${text}")
endfunction()

# cpack has the library's scripts call ldconfig, besides the trigger that Debian wants.
set(library ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME})
file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/library/usr/share/lintian/overrides/${library}
  "${library}: maintscript-calls-ldconfig\n")

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} COMPONENT)
  set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  set(compiled_in)
  if(component STREQUAL tools)
    set(compiled_in ${CPACK_WRENLINK_COMPILED_IN})
  endif()
  write_copyright(${share}/doc/${package}/copyright ${compiled_in})
  configure_file(${changelog} ${share}/doc/${package}/changelog COPYONLY)
  file(GLOB_RECURSE texts ${share}/man/*.[1-8] ${share}/doc/${package}/changelog)
  execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
