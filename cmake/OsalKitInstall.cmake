# Install rules: the public headers under <prefix>/include/osal_kit (with the platform
# headers in its platform/ folder when the stand-ins are built), the shared libraries
# with their versioned sonames, the CMake package osal_kit (targets osal_kit::osal_kit,
# osal_kit::morvex_pal, osal_kit::morvex_tools) and the pkg-config file osal_kit.pc.
# Component "runtime" is what a program needs to run (the versioned libraries),
# "development" the rest; the packages are cut along that line.

include(CMakePackageConfigHelpers)

set(OSAL_KIT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/osal_kit CACHE STRING
    "Where the CMake package goes, relative to the prefix")

install(TARGETS osal_kit EXPORT osal_kitTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/osal_kit.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/osal_kit
    COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/core ${PROJECT_SOURCE_DIR}/os ${PROJECT_SOURCE_DIR}/extensions
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/osal_kit COMPONENT development
    FILES_MATCHING PATTERN "*.h" PATTERN "private" EXCLUDE)
install(FILES ${OSAL_KIT_GENERATED_INCLUDE_DIR}/core/Version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/osal_kit/core
    COMPONENT development)

# Where an external platform was found: the package config and the pkg-config file
# record it, because the targets file names osal_kit::morvex_pal and
# osal_kit::morvex_tools without defining them.
if(OSAL_KIT_PLATFORM STREQUAL "external")
    get_target_property(OSAL_KIT_EXTERNAL_TOOLS_INCLUDE_DIR osal_kit::morvex_tools INTERFACE_INCLUDE_DIRECTORIES)
endif()

install(EXPORT osal_kitTargets NAMESPACE osal_kit:: DESTINATION ${OSAL_KIT_INSTALL_CMAKEDIR}
    COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/osal_kitConfig.cmake.in
    ${PROJECT_BINARY_DIR}/osal_kitConfig.cmake
    INSTALL_DESTINATION ${OSAL_KIT_INSTALL_CMAKEDIR})
# The soname carries the major version, so any release of the same major version will do.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/osal_kitConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/osal_kitConfig.cmake ${PROJECT_BINARY_DIR}/osal_kitConfigVersion.cmake
    DESTINATION ${OSAL_KIT_INSTALL_CMAKEDIR} COMPONENT development)

# pkg-config: the prefix is found from the file's own place, so an install made with
# `cmake --install --prefix`, or moved afterwards, still describes itself.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(OSAL_KIT_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
    set(OSAL_KIT_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
    file(RELATIVE_PATH up "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
    string(REGEX REPLACE "/$" "" up "${up}")
    set(OSAL_KIT_PC_PREFIX "\${pcfiledir}/${up}")
    set(OSAL_KIT_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(OSAL_KIT_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
    set(OSAL_KIT_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
if(OSAL_KIT_PLATFORM STREQUAL "external")
    set(OSAL_KIT_PC_PLATFORM_CFLAGS "-I${OSAL_KIT_PLATFORM_INCLUDE_DIR}")
    if(NOT OSAL_KIT_EXTERNAL_TOOLS_INCLUDE_DIR STREQUAL OSAL_KIT_PLATFORM_INCLUDE_DIR)
        string(APPEND OSAL_KIT_PC_PLATFORM_CFLAGS " -I${OSAL_KIT_EXTERNAL_TOOLS_INCLUDE_DIR}")
    endif()
    set(OSAL_KIT_PC_PLATFORM_LIBS "${OSAL_KIT_TOOLS_LIBRARY} ${OSAL_KIT_PAL_LIBRARY}")
    foreach(library IN LISTS OSAL_KIT_PLATFORM_LINK_LIBRARIES)
        if(library MATCHES "^-" OR IS_ABSOLUTE "${library}")
            string(APPEND OSAL_KIT_PC_PLATFORM_LIBS " ${library}")
        else()
            string(APPEND OSAL_KIT_PC_PLATFORM_LIBS " -l${library}")
        endif()
    endforeach()
else()
    set(OSAL_KIT_PC_PLATFORM_CFLAGS "-I\${includedir}/osal_kit/platform")
    set(OSAL_KIT_PC_PLATFORM_LIBS "-lmorvex_tools -lmorvex_pal")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/osal_kit.pc.in ${PROJECT_BINARY_DIR}/osal_kit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/osal_kit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
