# The manual pages of the tools: their own help, and what stands in a file beside their sources.
find_program(HELP2MAN help2man REQUIRED)

# add_manual(tool file purpose)
function(add_manual tool file purpose)
  set(page ${PROJECT_BINARY_DIR}/reference/man/man1/${tool}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=$<TARGET_FILE_DIR:wrenlink>:$ENV{LD_LIBRARY_PATH}
      ${HELP2MAN} --no-info --no-discard-stderr --include ${file} --name ${purpose} --source wrenlink
      --version-string ${PROJECT_VERSION} --output ${page}
      "${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${tool}>"
    DEPENDS ${tool} ${file}
    VERBATIM)
  add_custom_target(${tool}_manual ALL DEPENDS ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()

add_manual(wren ${PROJECT_SOURCE_DIR}/tools/wren/wren.h2m
  "read, write and inspect a Marigold chip through a Quill adapter")
add_manual(quillsim ${PROJECT_SOURCE_DIR}/sim/quillsim.h2m
  "simulated Quill adapters with Marigold chips behind them")
