# Compiler settings shared by every target of the project.

# Source paths in allocation records and traces are repository-relative, whatever
# the build directory.
add_compile_options(-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)

if(OSAL_KIT_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        # Clang links its static sanitizer runtime into executables only, so the shared
        # libraries (linked with --no-undefined) take the runtime's shared form instead,
        # found at run time through the compiler's own folder.
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
            OUTPUT_VARIABLE osal_kit_clang_resource_dir OUTPUT_STRIP_TRAILING_WHITESPACE)
        add_link_options(-shared-libsan -Wl,-rpath,${osal_kit_clang_resource_dir}/lib/linux)
    endif()
elseif(OSAL_KIT_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT OSAL_KIT_SANITIZE STREQUAL "")
    message(FATAL_ERROR "OSAL_KIT_SANITIZE must be empty, address or thread")
endif()

# Fuzzing needs coverage feedback from the library and the platform, not only from
# the fuzz targets themselves.
if(OSAL_KIT_BUILD_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "OSAL_KIT_BUILD_FUZZ needs Clang (libFuzzer)")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Warnings for the project's own targets (not for GoogleTest built alongside).
function(osal_kit_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wcast-align
        $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
    if(OSAL_KIT_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
