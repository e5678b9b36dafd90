# What cpack makes of the installed files: a set of Debian packages, or an archive for Windows.
set(CPACK_PACKAGE_VENDOR "wrenlink contributors")
# Whoever builds a package answers for it, and says so as Debian's own tools want it.
set(CPACK_PACKAGE_CONTACT "wrenlink maintainers <maintainers@users.noreply.c-seed-67a5e027.example>")
if(DEFINED ENV{DEBEMAIL})
  set(CPACK_PACKAGE_CONTACT "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SPI access to Marigold chips through Quill adapters")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
# One folder for each machine that packages are installed on.
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_SOURCE_DIR}/build/packages)
if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  string(APPEND CPACK_OUTPUT_FILE_PREFIX -${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_THREADS 0)

# Debian packages whose headers are compiled into the tools.
set(CPACK_WRENLINK_COMPILED_IN libcli11-dev libfmt-dev nlohmann-json3-dev)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME wrenlink-${PROJECT_VERSION}-windows-x86_64)
  set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish_zip.cmake)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish_deb.cmake)

  set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SOURCE wrenlink)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libwrenlink${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  file(WRITE ${PROJECT_BINARY_DIR}/kit/triggers "activate-noawait ldconfig\n")
  # Functions are added with a minor version.
  set(release ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  file(STRINGS spi/wrenlink/wrenlink/wrenlink.map symbols REGEX spifns_)
  list(TRANSFORM symbols REPLACE "^ *(.*);" " \\1@Base ${release}\n")
  list(SORT symbols)
  string(CONCAT symbols "libwrenlink.so.${PROJECT_VERSION_MAJOR} libwrenlink${PROJECT_VERSION_MAJOR} "
    "(>= ${release})\n" ${symbols})
  file(WRITE ${PROJECT_BINARY_DIR}/kit/symbols ${symbols})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/kit/triggers ${PROJECT_BINARY_DIR}/kit/symbols)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS wrenlink-common)

  set(CPACK_DEBIAN_COMMON_PACKAGE_NAME wrenlink-common)
  set(CPACK_DEBIAN_COMMON_PACKAGE_SECTION misc)
  set(CPACK_DEBIAN_COMMON_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_COMMON_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_COMMON_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers\
, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
  set(CPACK_DEBIAN_COMMON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/system/common/postinst)

  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libwrenlink-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS pkgconf)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS wrenlink-doc)

  set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME wrenlink-doc)
  set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
  set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)

  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME wrenlink-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/system/tools/prerm)

  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-wrenlink)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
endif()

include(CPack)

cpack_add_component(library DESCRIPTION
"Programs that reach a Marigold chip over SPI with a Quill USB-to-SPI adapter
use this library, several of them on one adapter at once.")
cpack_add_component(development DEPENDS library DESCRIPTION
"What building programs with wrenlink needs: the header, what CMake and
pkg-config find the library by, and a manual page for each function.")
cpack_add_component(documentation DESCRIPTION
"How to use wrenlink: its documents, a reference of its functions, examples.")
cpack_add_component(common DESCRIPTION
"The group of users who may use Quill adapters, and the folder in which the
services of adapters and the programs that use them meet.")
cpack_add_component(tools DEPENDS library common DESCRIPTION
"wren reads, writes and inspects the memory of a Marigold chip behind a Quill
adapter. quillsim offers simulated adapters to those who have none at hand.")
cpack_add_component(python DEPENDS library DESCRIPTION
"Python programs that reach a Marigold chip over SPI with a Quill USB-to-SPI
adapter use this package.")
