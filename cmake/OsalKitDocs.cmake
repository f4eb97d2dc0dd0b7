# The API reference: `cmake --build <build> --target docs` runs Doxygen over the
# public headers (not the platform layer's, not private/) with README.md as the main
# page, into <build>/docs/html. Any warning fails it, an undocumented public member
# included, so the reference stays complete. The target exists only where Doxygen is
# installed (Debian package doxygen; graphviz adds class diagrams).

find_package(Doxygen OPTIONAL_COMPONENTS dot)
if(NOT DOXYGEN_FOUND)
    message(STATUS "Doxygen not found: no docs target")
    return()
endif()

set(DOXYGEN_PROJECT_BRIEF "C++11 utility library for embedded components")
set(DOXYGEN_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/docs)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/README.md)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_NO_PARAMDOC NO)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_WARN_FORMAT "$file:$line: $text")
# Paths as code includes them: "core/String.h".
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR} ${OSAL_KIT_GENERATED_INCLUDE_DIR})
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR} ${OSAL_KIT_GENERATED_INCLUDE_DIR})
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED OSAL_KIT_API=)
# Helpers the templates need in the headers, not for callers.
set(DOXYGEN_EXCLUDE_SYMBOLS PAL::Detail)
# One comment before a group of members (between ///@{ and ///@}) documents each.
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)

doxygen_add_docs(docs
    ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    ${PROJECT_SOURCE_DIR}/osal_kit.h ${OSAL_KIT_PUBLIC_HEADERS}
    COMMENT "API reference into ${DOXYGEN_OUTPUT_DIRECTORY}/html")
