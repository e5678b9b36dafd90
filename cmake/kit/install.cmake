# What `cmake --install` offers, in components: the library, which is all that running programs need;
# what building such programs needs; the documentation; the tools; what a system has in common for all
# that reach adapters; and the Python package.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/wrenlink)

install(TARGETS wrenlink EXPORT wrenlink
  RUNTIME COMPONENT library
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(TARGETS wren quillsim RUNTIME COMPONENT tools)

# For find_package().
install(EXPORT wrenlink NAMESPACE wrenlink:: FILE wrenlink-targets.cmake
  DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/wrenlink-config.cmake.in
  ${PROJECT_BINARY_DIR}/kit/wrenlink-config.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_LIBDIR
  NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/kit/wrenlink-config-version.cmake COMPATIBILITY SameMajorVersion)

# For pkg-config. It leaves out the system's own folders when they are named plainly; any other prefix
# is where the file itself is found.
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(pkgconfig_prefix /usr)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL /usr)
  file(RELATIVE_PATH pkgconfig_prefix /prefix/${pkgconfig_folder} /prefix)
  string(REGEX REPLACE "(.+)/$" "\${pcfiledir}/\\1" pkgconfig_prefix ${pkgconfig_prefix})
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/wrenlink.pc.in ${PROJECT_BINARY_DIR}/kit/wrenlink.pc @ONLY)

install(FILES
  ${PROJECT_BINARY_DIR}/kit/wrenlink-config.cmake
  ${PROJECT_BINARY_DIR}/kit/wrenlink-config-version.cmake
  DESTINATION ${package_folder} COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/kit/wrenlink.pc
  DESTINATION ${pkgconfig_folder} COMPONENT development)
install(FILES include/wrenlink/spifns.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wrenlink COMPONENT development)

install(FILES README.md CHANGELOG.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
foreach(part sim bindings/python)
  install(FILES ${part}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/${part} COMPONENT documentation)
endforeach()
if(WRENLINK_REFERENCE)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
endif()

if(WIN32)
  install(DIRECTORY bindings/python DESTINATION . COMPONENT python PATTERN __pycache__ EXCLUDE)
  install(FILES ${PROJECT_BINARY_DIR}/wrenlink.def ${PROJECT_BINARY_DIR}/wrenlink.lib
    DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  # The simulator installs what lies beside it.
  install(TARGETS quillsim_driver LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${PROJECT_BINARY_DIR}/quillsim.inf
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
else()
  if(WRENLINK_REFERENCE)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR}
      COMPONENT development FILES_MATCHING PATTERN spifns_* PATTERN wrenlink* PATTERN SpiAction*)
    include(cmake/kit/manuals.cmake)
  endif()
  # Where Debian's Wireshark looks for dissectors.
  install(FILES tools/wireshark/wrenlink.lua
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)
  foreach(kind sysusers tmpfiles)
    install(FILES cmake/kit/system/${kind}.conf RENAME wrenlink.conf
      DESTINATION lib/${kind}.d COMPONENT common)
  endforeach()
  install(FILES cmake/kit/system/quillsim.service
    DESTINATION lib/systemd/system COMPONENT tools)
  # Elsewhere than in Debian's own folder, Python packages are pip's affair.
  install(DIRECTORY bindings/python/wrenlink DESTINATION lib/python3/dist-packages
    COMPONENT python EXCLUDE_FROM_ALL PATTERN __pycache__ EXCLUDE)
  install(FILES tools/wren/wren.bash RENAME wren
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()
