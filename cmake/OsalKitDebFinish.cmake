# Run by CPack after it made the packages (CPACK_POST_BUILD_SCRIPTS), to write what
# CPack of CMake 3.25 cannot into each .deb's control file:
# - "Multi-Arch: same", when the libraries lie in Debian's multiarch folder;
# - for a cross build, the runtime package's Depends. dpkg-shlibdeps is asked about
#   the packaged libraries for the target architecture, with the cross toolchain's
#   libraries as the ones to resolve against; its package data names them as the
#   toolchain installed them ("libc6:armhf", "libgcc-s1-armhf-cross"), which become the
#   target's package names, and libstdc++6, for which it has no version, gets the
#   compiler's major version as its least.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(NOT package MATCHES "\\.deb$")
        continue()
    endif()
    set(tree ${CPACK_TOPLEVEL_DIRECTORY}/finish)
    file(REMOVE_RECURSE ${tree})
    file(MAKE_DIRECTORY ${tree})
    execute_process(COMMAND dpkg-deb -R ${package} ${tree}/root COMMAND_ERROR_IS_FATAL ANY)
    file(READ ${tree}/root/DEBIAN/control control)
    set(fields "")
    if(CPACK_OSAL_KIT_MULTIARCH)
        string(APPEND fields "Multi-Arch: same\n")
    endif()

    file(GLOB_RECURSE libraries LIST_DIRECTORIES false ${tree}/root/*.so.*)
    list(FILTER libraries EXCLUDE REGEX "/DEBIAN/")
    set(objects "")
    foreach(library IN LISTS libraries)
        if(NOT IS_SYMLINK ${library})
            list(APPEND objects ${library})
        endif()
    endforeach()
    if(CPACK_OSAL_KIT_CROSS_LIBDIRS AND objects)
        set(arch ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
        string(REGEX MATCH "(^|\n)Package: *([^\n]+)" name "${control}")
        set(name ${CMAKE_MATCH_2})
        list(TRANSFORM CPACK_OSAL_KIT_CROSS_LIBDIRS PREPEND -l OUTPUT_VARIABLE search)
        file(MAKE_DIRECTORY ${tree}/debian)
        file(WRITE ${tree}/debian/control "")
        execute_process(COMMAND ${CMAKE_COMMAND} -E env DEB_HOST_ARCH=${arch}
                dpkg-shlibdeps --ignore-missing-info -x${name} ${search} -O ${objects}
            WORKING_DIRECTORY ${tree} OUTPUT_VARIABLE depends ERROR_VARIABLE errors
            RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(failed OR NOT depends MATCHES "^shlibs:Depends=")
            message(FATAL_ERROR "dpkg-shlibdeps failed on ${package}:\n${errors}")
        endif()
        string(REGEX REPLACE "^shlibs:Depends=" "" depends "${depends}")
        string(REPLACE ":${arch}" "" depends "${depends}")
        string(REPLACE "-${arch}-cross" "" depends "${depends}")
        string(REGEX REPLACE "libstdc\\+\\+6(,|$)" "libstdc++6 (>= ${CPACK_OSAL_KIT_CXX_MAJOR})\\1" depends "${depends}")
        string(REGEX REPLACE "(^|\n)Depends:[^\n]*\n" "\\1" control "${control}")
        string(APPEND fields "Depends: ${depends}\n")
    endif()

    if(fields)
        string(REGEX REPLACE "(^|\n)(Architecture:[^\n]*\n)" "\\1\\2${fields}" control "${control}")
        file(WRITE ${tree}/root/DEBIAN/control "${control}")
        execute_process(COMMAND dpkg-deb --root-owner-group -b ${tree}/root ${package}
            OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
    file(REMOVE_RECURSE ${tree})
endforeach()
