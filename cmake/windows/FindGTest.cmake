# GoogleTest from its sources, which are not held to our warnings.
if(NOT TARGET gtest)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set_target_properties(gtest gtest_main gmock gmock_main PROPERTIES
    COMPILE_OPTIONS "" COMPILE_WARNING_AS_ERROR OFF)
endif()
set(GTest_FOUND TRUE)
