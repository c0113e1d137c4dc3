#!/usr/bin/env bash
# Installs a build tree and builds a host against it twice, through the CMake package and through
# pkg-config. The host compiles as C++17 without a warning and is profiled though it calls nothing.
set -euo pipefail
build=$1 prefix=$2 allocator=$3

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
host=$prefix/host
mkdir -p "$host/run"
cat >"$host/host.cpp" <<'SOURCE'
#include "tuk_mem.h"
#include <cstdlib>
int main() {
  void* volatile block = std::malloc(12345);
  return block == nullptr;
}
SOURCE
cat >"$host/CMakeLists.txt" <<'LISTS'
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(tuk_mem 1.0 REQUIRED)
add_executable(host host.cpp)
target_link_libraries(host PRIVATE tuk_mem::tuk_mem)
LISTS

expect_profiled() {
  readelf -d "$1" | grep -q 'NEEDED.*libtuk_mem\.so\.1\]'
  (cd "$host/run" && rm -f ./* && LD_LIBRARY_PATH=$library LD_PRELOAD=$allocator \
    KORVANE_MEM_PROFILE_PER_FILELINE=1 "$1" && grep -q $'\t12345\t.*host\\.cpp\t4\tmain$' ./mem_tbb_fileline.kvi.log)
}

library=$(dirname "$(find "$prefix" -name libtuk_mem.so)")
flags='-g -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror'
cmake -G Ninja -S "$host" -B "$host/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$host/build" >/dev/null
expect_profiled "$host/build/host"

export PKG_CONFIG_PATH=$library/pkgconfig
# shellcheck disable=SC2046,SC2086
g++ -std=c++17 $flags "$host/host.cpp" -o "$host/by_pkg_config" $(pkg-config --cflags --libs tuk_mem)
expect_profiled "$host/by_pkg_config"
