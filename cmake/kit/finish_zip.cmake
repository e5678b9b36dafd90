# Run by cpack when the files of the Windows archive are in place: adds the licences of what is
# compiled into the programs, as the Debian packages that it comes from state them.
foreach(package ${CPACK_WRENLINK_COMPILED_IN} libz-mingw-w64-dev mingw-w64-x86-64-dev gcc-mingw-w64-base)
  configure_file(/usr/share/doc/${package}/copyright
    ${CPACK_TEMPORARY_DIRECTORY}/licences/${package}.txt COPYONLY)
endforeach()
