# Packages of the install tree (`cpack`, or the package presets): a .tar.gz of the
# whole tree and, with a Debian toolchain, a runtime package (the shared libraries,
# named after the soname as Debian names them: libosal-kit0) and a development package
# (headers, unversioned symlinks, the CMake package, the pkg-config file:
# libosal-kit-dev). The stand-ins of the platform layer, when built, go into the
# runtime package: they are what the library runs on here, installed beside it and
# found through its $ORIGIN run path, not a product of their own.
#
# Configure with CMAKE_INSTALL_PREFIX=/usr and CMAKE_INSTALL_LIBDIR=lib/<multiarch
# triplet> (the package presets do) for packages that co-install across architectures.

set(CPACK_PACKAGE_NAME osal_kit)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
if(NOT DEFINED CPACK_PACKAGE_CONTACT)
    set(CPACK_PACKAGE_CONTACT "osal_kit maintainers")
endif()
# The first line of each is the package's synopsis.
set(osal_kit_description "libosal_kit gives the application components of an embedded device one set
of building blocks over the Morvex PAL core: a reference-counted UTF-8 string
with Unicode case mapping, vectors and hash engines, dates and times, byte
buffers and stream forms, wrappers for mutexes, semaphores, threads and client
sockets, a priority job queue and a thread pool. It throws nothing and
allocates through the platform layer.")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "C++11 utility library for embedded components - shared libraries
${osal_kit_description}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "C++11 utility library for embedded components - development files
${osal_kit_description}
.
This package holds the headers, the CMake package osal_kit and the pkg-config
file osal_kit.pc.")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

# The archive is the install tree relative to the prefix (include/, lib/...), to be
# unpacked into any prefix: the CMake package and the pkg-config file find the rest
# from where they lie.
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)

set(CPACK_GENERATOR TGZ)
find_program(OSAL_KIT_DPKG_ARCHITECTURE dpkg-architecture)
mark_as_advanced(OSAL_KIT_DPKG_ARCHITECTURE)
if(CMAKE_LIBRARY_ARCHITECTURE AND OSAL_KIT_DPKG_ARCHITECTURE)
    # The architecture of what the compiler makes, not of the build machine (which is
    # what CPack would assume when cross-compiling).
    execute_process(COMMAND ${OSAL_KIT_DPKG_ARCHITECTURE} -t ${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH
        OUTPUT_VARIABLE osal_kit_deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE osal_kit_failed ERROR_QUIET)
    if(NOT osal_kit_failed AND osal_kit_deb_arch)
        list(APPEND CPACK_GENERATOR DEB)
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${osal_kit_deb_arch})
    endif()
endif()
set(CPACK_PACKAGE_FILE_NAME osal_kit-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
if(osal_kit_deb_arch)
    set(CPACK_PACKAGE_FILE_NAME osal_kit-${PROJECT_VERSION}-${osal_kit_deb_arch})
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The development package needs exactly the runtime package of its own build.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

string(REPLACE "_" "-" osal_kit_deb_name "lib${PROJECT_NAME}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${osal_kit_deb_name}${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${osal_kit_deb_name}-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# Other packages' dpkg-shlibdeps then turn a link against libosal_kit.so.0 into a
# dependency on this package at this version or later.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# What CPack of this CMake cannot write into the control files, cmake/OsalKitDebFinish.cmake
# adds to the finished packages.
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/OsalKitDebFinish.cmake)
set(CPACK_OSAL_KIT_MULTIARCH OFF)
if(CMAKE_LIBRARY_ARCHITECTURE AND CMAKE_INSTALL_LIBDIR STREQUAL "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
    set(CPACK_OSAL_KIT_MULTIARCH ON)
endif()
if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
else()
    # dpkg-shlibdeps resolves against the build machine's libraries and package data
    # unless told otherwise; so the finishing script asks it with the folders where
    # the cross compiler finds its runtime libraries.
    set(CPACK_OSAL_KIT_CROSS_LIBDIRS "")
    foreach(osal_kit_runtime libc.so.6 libstdc++.so.6 libgcc_s.so.1)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${osal_kit_runtime}
            OUTPUT_VARIABLE osal_kit_path OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(IS_ABSOLUTE "${osal_kit_path}")
            get_filename_component(osal_kit_path "${osal_kit_path}" DIRECTORY)
            get_filename_component(osal_kit_path "${osal_kit_path}" REALPATH)
            list(APPEND CPACK_OSAL_KIT_CROSS_LIBDIRS ${osal_kit_path})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES CPACK_OSAL_KIT_CROSS_LIBDIRS)
    string(REGEX MATCH "^[0-9]+" CPACK_OSAL_KIT_CXX_MAJOR "${CMAKE_CXX_COMPILER_VERSION}")
endif()

include(CPack)
