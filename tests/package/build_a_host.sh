#!/usr/bin/env bash
# Builds a host in every way there is: with the installed CMake package, with pkg-config, and in a
# project that includes this one, whose own build then shows nothing of ours but the library. The
# host compiles as C++17 without a warning, replaces a function of the platform by including its
# header, is profiled though it calls nothing, and finds no leak that is not its own. What it calls
# nothing of either, another library, is left out as it asks.
set -euo pipefail
source=$1 build=$2 prefix=$3

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
host=$prefix/host
mkdir -p "$host/run"
cat >"$host/host.cpp" <<'SOURCE'
#include "tuk_mem.h"
#include "tuk_mem_scopes.h"
#include "every_platform_header.h"
#include <unistd.h>
#include <cstdlib>
#include <string_view>
static_assert(std::string_view(TUK_MEM_VERSION_STRING) == PACKAGE_VERSION);
void thr_thread_set_next_wrapper_func(THR_WRAPPER, THR_WRAPPER* previous) {
  *previous = nullptr;
  if (write(STDOUT_FILENO, "replaced\n", 9) < 0) std::_Exit(2);
}
int main() {
  void* volatile block = std::malloc(12345);
  return block == nullptr;
}
SOURCE
line=$(grep -n malloc "$host/host.cpp" | cut -d: -f1)
for header in "$prefix"/include/tuk_mem/platform/*.h; do
  echo "#include \"tuk_mem/platform/$(basename "$header")\""
done >"$host/every_platform_header.h"
echo 'int not_called() { return 0; }' >"$host/not_needed.cpp"
cat >"$host/CMakeLists.txt" <<'LISTS'
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
if(INCLUDED)
  add_subdirectory(${INCLUDED} tuk_mem)
  get_directory_property(tuk_mem_VERSION DIRECTORY ${INCLUDED} DEFINITION PROJECT_VERSION)
else()
  find_package(tuk_mem 1.0 REQUIRED COMPONENTS allocator malloc)
endif()
add_compile_options(${FLAGS})
add_library(not_needed SHARED not_needed.cpp)
add_executable(host host.cpp)
add_executable(over_glibc host.cpp)
add_compile_definitions(PACKAGE_VERSION="${tuk_mem_VERSION}")
target_link_libraries(host PRIVATE tuk_mem::tuk_mem tuk_mem::allocator not_needed)
target_link_libraries(over_glibc PRIVATE tuk_mem::tuk_mem tuk_mem::malloc not_needed)
install(TARGETS host over_glibc)
LISTS
flags='-g -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror'

configure() {
  cmake -G Ninja -S "$host" -B "$1" "${@:2}" -DFLAGS="${flags// /;}" \
    -DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed >/dev/null
}
expect_profiled() { # host, its allocator, what the leak report says of its block as that one rounds it
  local needed
  needed=$(readelf -d "$1" | grep NEEDED)
  [[ $needed == *libtuk_mem.so.1]* && $needed == *"$2"]* && $needed != *not_needed* ]]
  (cd "$host/run" && rm -f ./* &&
    [ "$(LD_LIBRARY_PATH=$library KORVANE_MEM_PROFILE_PER_FILELINE=1 KORVANE_MEM_CHECK_LEAKS=1 "$1")" = replaced ] &&
    grep -q $'\t12345\t.*host\\.cpp\t'"$line"$'\tmain$' ./mem_tbb_fileline.kvi.log &&
    grep -qx "$3" ./mem_tbb_leak_warning.kvi.log)
}
expect_none() {
  if grep "$@"; then exit 1; fi
}

library=$(dirname "$(find "$prefix" -name libtuk_mem.so)")
configure "$host/build" -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$host/build" >/dev/null
expect_profiled "$host/build/host" libtcmalloc.so.4 'Total leaked bytes: 13312'
expect_profiled "$host/build/over_glibc" libtuk_mem_malloc.so.1 ".* leaked 12360 bytes in 1 .*host.cpp:$line main"

export PKG_CONFIG_PATH=$library/pkgconfig
# shellcheck disable=SC2046,SC2086
g++ -std=c++17 $flags -DPACKAGE_VERSION="\"$(pkg-config --modversion tuk_mem)\"" "$host/host.cpp" \
  -o "$host/by_pkg_config" -Wl,--as-needed $(pkg-config --cflags --libs tuk_mem) \
  -l:libtcmalloc.so.4 -L"$host/build" -lnot_needed
expect_profiled "$host/by_pkg_config" libtcmalloc.so.4 'Total leaked bytes: 13312'

# A host in C: its phase is measured, and what the interface itself does is not charged to it.
cat >"$host/host.c" <<'SOURCE'
#include "tuk_mem_c.h"
#include <stdlib.h>
#include <string.h>
int main(void) {
  struct tuk_mem_phase_figures figures;
  void *volatile block;
  if (strcmp(TUK_MEM_VERSION_STRING, PACKAGE_VERSION) != 0) return 7;
  if (!tuk_mem_open_profile_bin("a name that no short string holds", "a tag of the same length")) return 1;
  block = malloc(1000);
  free(block);
  if (!tuk_mem_close_profile_bin("a tag of the same length", &figures)) return 2;
  if (figures.peak_bytes - figures.start_bytes != 1024 || figures.end_bytes != figures.start_bytes) return 3;
  if (!tuk_mem_dump_tbb_profile_bin_stats_tracking(stdout)) return 4;
  if (freopen("/dev/full", "w", stdout) == NULL || setvbuf(stdout, NULL, _IONBF, 0) != 0) return 5;
  return tuk_mem_dump_tbb_profile_bin_stats_tracking(stdout) ? 6 : 0;
}
SOURCE
# shellcheck disable=SC2046
gcc -std=c99 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror "$host/host.c" -o "$host/in_c" \
  -DPACKAGE_VERSION="\"$(pkg-config --modversion tuk_mem)\"" \
  $(pkg-config --cflags --libs tuk_mem) -l:libtcmalloc.so.4
(cd "$host/run" && LD_LIBRARY_PATH=$library KORVANE_MEM_PROFILE_PER_BIN=1 \
  KORVANE_MEM_PROFILE_BIN_TAG_PLOT=1 "$host/in_c" | grep -q '^a tag of the same length::a name')

# Compiling the library once more would take minutes: what is about to be done is looked at.
included=$host/included
configure "$included" -DINCLUDED="$source" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON 2>/dev/null
cmake --build "$included" --target CMakeFiles/host.dir/host.cpp.o >/dev/null
ninja -C "$included" -t commands host >"$included/commands"
grep -qE -- '--push-state,--no-as-needed +tuk_mem/libtuk_mem\.so\b.*--pop-state' \
  "$included/commands"
grep 'mem/host/callbacks\.cpp\.o -c' "$included/commands" >"$included/compilation"
expect_none -e -Werror "$included/compilation"
expect_none 'file(INSTALL' "$included/tuk_mem/cmake_install.cmake"
[ ! -e "$included/tuk_mem/tests" ] && [ ! -e "$included/tuk_mem/examples" ]
