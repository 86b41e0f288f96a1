#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# install_test.sh BUILD: installs that build into an empty folder, moves the folder, and builds a C
# program through pkg-config and a C++ program through find_package against it.
set -euo pipefail

build=$(realpath "$1")
examples=$(cd "$(dirname "$0")/../examples" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

expect() { # ACTUAL EXPECTED
  [[ $1 == "$2" ]] || { printf 'FAIL: got "%s" instead of "%s"\n' "$1" "$2" >&2; exit 1; }
}

cmake --install "$build" --prefix "$work/first" >log
mv first prefix
libraries=$(dirname "$(find "$work/prefix" -name pkgconfig)")
export PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
expect "$(prefix/bin/bfcl library list none 2>log)" "Error: Cannot open library file none"
! grep -rl "$build\|$work/first" prefix || expect "a file with the build's paths" none

# The libraries define the names that their headers declare, and no other.
shared=$(compgen -G "$libraries/*.so" || :)
for name in pkg:pkg.h shelver:shelver.h spec:EFISpecHandle.h; do
  library=$libraries/libbfcl-${name%:*}.${shared:+so}
  library=${library/%./.a}
  nm -C -g ${shared:+-D} --defined-only "$library" | sed -nE 's/^[0-9a-f]+ . ([^(@]*).*/\1/p' |
    grep -v '^BFCL_' | sort -u >defined
  sed 's|//.*||' "prefix/include/bfcl/${name#*:}" | grep -oE '\w+\(|\w+;' | tr -d '(;' | sort -u >declared
  [[ -s defined ]] || expect "$library" "with names"
  expect "$(comm -23 defined declared)" ""
  [[ -z $shared || $(readelf -d "$library") == *"soname: [${library##*/}.1]"* ]] ||
    expect "$library" "a soname"
done

# shellcheck disable=SC2046,SC2086 # flags are words
${CC:-cc} ${CFLAGS:-} "$examples/consumer/list_files.c" -o list_files $(pkg-config --cflags --libs bfcl-spec)
expect "$(./list_files "$examples/popcount/popcount.xml")" "popcount64: popcount.cl popcount.v"

mkdir consumer
cat >consumer/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.21)
project(consumer LANGUAGES CXX)
find_package(bfcl-library 1.0 REQUIRED COMPONENTS libraries)
add_executable(list_functions "$examples/consumer/list_functions.cpp")
target_link_libraries(list_functions PRIVATE bfcl::shelver bfcl::spec)
add_executable(own_names own_names.cpp)
target_link_libraries(own_names PRIVATE bfcl::pkg)
bfcl_add_component(popcount SPEC "$examples/popcount/popcount.xml")
bfcl_add_library(bits COMPONENTS popcount)
END
# A user's own names, of which the libraries have some, too.
cat >consumer/own_names.cpp <<'END'
#include <bfcl/pkg.h>
#include <cstdio>
struct Arena { int size; Arena(); };
Arena::Arena() : size(7) {}
void report(bool show, const char* text, ...) { std::printf("own report: %d %s\n", show, text); }
const char* elf_error_text(int) { return "own text"; }
namespace vex::pkg {
void report(bool, const char* text, ...) { std::printf("own report in a namespace: %s\n", text); }
}
int main() {
  report(Arena().size == 7, elf_error_text(0));
  vex::pkg::report(true, "text");
  std::fflush(stdout);
  vex_pkg_close_file(vex_pkg_open_file("absent", VEX_PKG_READ_ONLY | VEX_PKG_SHOW_ERRORS));
}
END
cmake -S consumer -B out -DCMAKE_PREFIX_PATH="$work/prefix" >log || { cat log; exit 1; }
cmake --build out >log || { cat log; exit 1; }
expect "$(out/list_functions out/bits.bfclib)" "popcount64 in .vex.comp.popcount64"
expect "$(out/own_names 2>&1)" "own report: 1 own text
own report in a namespace: text
Couldn't open absent: No such file or directory"

# The program alone provides the functions for builds; the package reports that the libraries are missing.
cmake --install "$build" --prefix "$work/program" --component program >log
expect "$(find program -path '*/doc/*' -prune -o \( -name '*.h' -o -name 'libbfcl*' -o -name bfcl \) -print)" ""
! cmake -S consumer -B without -DCMAKE_PREFIX_PATH="$work/program" >log 2>&1 ||
  expect "libraries" "none"
grep -q "libbfcl-dev" log || { cat log; exit 1; }
sed -i 's/ COMPONENTS libraries//; /list_functions\|own_names/d' consumer/CMakeLists.txt
cmake -S consumer -B without -DCMAKE_PREFIX_PATH="$work/program" >log
cmake --build without >log
cmp out/bits.bfclib without/bits.bfclib
