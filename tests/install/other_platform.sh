#!/usr/bin/env bash
# Builds and installs the product alone against another platform folder: other_platform.sh BUILD SOURCE. That platform
# has headers of the same names and its own library; this script reuses the host platform's library.
set -euo pipefail
build=$1 source=$2

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/platform"
cat >"$folder/platform/CMakeLists.txt" <<TEXT
add_library(makers-platform INTERFACE)
add_library(platform::platform ALIAS makers-platform)
target_include_directories(makers-platform INTERFACE "$source/platform/contract")
target_link_libraries(makers-platform INTERFACE "$build/lib/libframe-platform.so")
TEXT

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" \
    -DTVSA_PLATFORM_DIR="$folder/platform" -DTVSA_BUILD_HOST=OFF
cmake --build "$folder/build"
cmake --install "$folder/build" --prefix "$folder/installed"
"$source/tests/check-exports.sh" "$folder"/installed/lib*/tvservice-adapter/libapp-tvservice-adapter.so \
    "$source/tvservice-adapter/exports.txt"
