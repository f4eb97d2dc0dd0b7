#!/usr/bin/env bash
# Installs osal_kit from a build folder into a temporary prefix and builds, runs and
# checks the consumer in this folder against it, through find_package and through
# pkg-config. Then builds osal_kit again with OSAL_KIT_PLATFORM=external, taking the
# installed stand-ins as if they were the device's libraries, and checks the consumer
# against that install too.
#
#   tests/consumer/run.sh [BUILD_DIR]      (default: build/default)
set -euo pipefail
cd "$(dirname "$0")/../.."
source_dir=$PWD
build_dir=${1:-build/default}
version=$(sed -n 's/^project(osal_kit VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Builds the consumer against the install in $1 both ways; $2 names the install.
check_consumer() {
    local prefix=$1 what=$2 expected output
    expected="osal_kit ${version} through %s, headers ${version}, library ${version}: \"Grüße\" has 5 characters; 2024-05-17 read: yes"

    echo "-- ${what}: find_package"
    cmake -S tests/consumer -B "$work/${what}-cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$work/${what}-cmake" >/dev/null
    output=$("$work/${what}-cmake/consumer")
    echo "$output"
    [ "$output" = "$(printf "$expected" find_package)" ] || { echo "unexpected output"; return 1; }

    echo "-- ${what}: pkg-config"
    local pc_version
    pc_version=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --modversion osal_kit)
    [ "$pc_version" = "$version" ] || { echo "pkg-config reports ${pc_version}, not ${version}"; return 1; }
    # shellcheck disable=SC2046
    g++ -std=c++11 -Wall -Wextra -Werror tests/consumer/main.cpp -o "$work/${what}-pkg-config" \
        -DOSAL_KIT_CONSUMER_VERSION="\"${pc_version}\"" -DOSAL_KIT_CONSUMER_HOW='"pkg-config"' \
        $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs osal_kit) \
        -Wl,-rpath,"$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --variable=libdir osal_kit)"
    output=$("$work/${what}-pkg-config")
    echo "$output"
    [ "$output" = "$(printf "$expected" pkg-config)" ] || { echo "unexpected output"; return 1; }
}

echo "-- installing ${build_dir} into a temporary prefix"
cmake --install "$build_dir" --prefix "$work/posix" >/dev/null
for file in include/osal_kit/osal_kit.h include/osal_kit/core/String.h include/osal_kit/os/Mutex.h \
        include/osal_kit/extensions/JobQueue.h include/osal_kit/platform/morvex_pal.h include/osal_kit/core/Version.h \
        lib/libosal_kit.so.0 lib/libmorvex_pal.so.0 lib/libmorvex_tools.so.0 \
        lib/cmake/osal_kit/osal_kitConfig.cmake lib/pkgconfig/osal_kit.pc; do
    [ -e "$work/posix/$file" ] || { echo "missing from the install: $file"; exit 1; }
done
if find "$work/posix/include" -path '*/private/*' | grep -q .; then
    echo "private headers were installed"; exit 1
fi
check_consumer "$work/posix" posix

echo "-- osal_kit over an external platform (the installed stand-ins)"
cmake -S "$source_dir" -B "$work/external-build" -DCMAKE_BUILD_TYPE=Release -DOSAL_KIT_PLATFORM=external \
    -DOSAL_KIT_PLATFORM_INCLUDE_DIR="$work/posix/include/osal_kit/platform" \
    -DOSAL_KIT_PAL_LIBRARY="$work/posix/lib/libmorvex_pal.so" \
    -DOSAL_KIT_TOOLS_LIBRARY="$work/posix/lib/libmorvex_tools.so" >/dev/null
cmake --build "$work/external-build" -j2 >/dev/null
cmake --build "$work/external-build" --target run_demo >/dev/null
cmake --install "$work/external-build" --prefix "$work/external" >/dev/null
if [ -e "$work/external/include/osal_kit/platform" ]; then
    echo "an external platform's headers were installed"; exit 1
fi
check_consumer "$work/external" external
echo "-- consumers passed"
