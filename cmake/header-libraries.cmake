# Header-only libraries of the building machine, for programs of another system. The folder that all
# headers of the machine share would hide those of the other system, so each library is linked into
# a folder that holds nothing else.
function(add_header_library target folder)
  find_path(found_${folder} ${folder} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
    REQUIRED)
  set(headers ${CMAKE_BINARY_DIR}/header-libraries/${folder})
  file(MAKE_DIRECTORY ${headers})
  file(CREATE_LINK ${found_${folder}}/${folder} ${headers}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${headers})
endfunction()
