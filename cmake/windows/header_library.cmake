# add_header_library(target folder)
#
# A header-only library of the building machine. The folder that all of its headers share would hide
# those of MinGW-w64, so this one is linked into a folder that holds nothing else.
function(add_header_library target folder)
  if(TARGET ${target})
    return()
  endif()
  set(place ${PROJECT_BINARY_DIR}/header-libraries/${folder})
  file(MAKE_DIRECTORY ${place})
  file(CREATE_LINK /usr/include/${folder} ${place}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${place})
endfunction()
