# The reference of the public header, which Doxygen makes of its comments: in HTML, and as manual pages,
# one for each group of functions and one for each function that leads to its group's.
find_package(Doxygen REQUIRED)

set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_PREDEFINED SPIFNS_API=)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_OPTIMIZE_OUTPUT_FOR_C YES)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_ALWAYS_DETAILED_SEC YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
# What each group's manual page has to say besides.
set(DOXYGEN_INPUT_FILTER
  "sed '/@defgroup wrenlink_/a \\ * @details `\\#include <wrenlink/spifns.h>`. What all functions share: wrenlink(3).'")
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_AS_ERROR YES)
set(DOXYGEN_HAVE_DOT NO)
# Pages that need no scripts.
set(DOXYGEN_SEARCHENGINE NO)
set(DOXYGEN_HTML_DYNAMIC_MENUS NO)
set(DOXYGEN_GENERATE_MAN YES)
set(DOXYGEN_MAN_LINKS YES)
doxygen_add_docs(reference ALL USE_STAMP_FILE
  ${PROJECT_SOURCE_DIR}/include/wrenlink/spifns.h)
