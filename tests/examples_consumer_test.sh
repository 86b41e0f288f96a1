#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds this project in copies, with CMake (Make and Ninja) and plain make, changes its inputs, and
# looks at what is made again. Uses the installed programs, or those of the build folder BFCL_BUILD.
# Exit status: 0 all well, 1 a fault, 77 a build system was missing.
set -euo pipefail

examples=$(cd "$(dirname "${BASH_SOURCE[0]}")/../examples" && pwd)
bfcl=bfcl
options=()
if [[ -n ${BFCL_BUILD:-} ]]; then
  bfcl=$(realpath "$BFCL_BUILD")/bin/bfcl
  options=(-Dbfcl-library_DIR="$(realpath "$BFCL_BUILD")/cmake")
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
  printf 'FAIL %s\n' "$*" >&2
  cat log >&2
  exit 1
}

checkout() { # FOLDER
  mkdir "$1"
  (cd "$examples" && cp -r common consumer crc32c minmax popcount "$work/$1")
}

# Builds what is out of date, which must be as many packages and libraries as said.
rebuild() { # PACKAGES LIBRARIES COMMAND...
  local packages=$1 libraries=$2
  shift 2
  "$@" >log 2>&1 || fail "$*"
  [[ $(grep -cE 'Packaging|hdl-comp-pkg' log) -eq $packages ]] || fail "not $packages packages: $*"
  [[ $(grep -cE 'Making|create -name' log) -eq $libraries ]] || fail "not $libraries libraries: $*"
}

# Changes a source, the specification, the list of sources in it, a source new in the list and a file
# that this one includes; then takes them away again.
change_inputs() { # FOLDER PACKAGES LIBRARIES COMMAND...
  local folder=$1 counts=("$2" "$3")
  shift 3
  rebuild "${counts[@]}" "$@"
  rebuild 0 0 "$@"
  echo "// changed" >>"$folder/common/skid_buffer.v"
  rebuild 1 "${counts[1]}" "$@"
  sed -i 's|<ALUTS value="116"/>|<ALUTS value="117"/>|' "$folder/minmax/minmax.xml"
  rebuild 1 "${counts[1]}" "$@"
  echo '`include "new header.svh"' >"$folder/common/new file.v"
  echo "// included" >"$folder/common/new header.svh"
  cp "$folder/minmax/minmax.xml" minmax.xml
  sed -i "s|<FILE name=\"../common/skid_buffer.v\"/>|<!-- <FILE name=\"none.v\"/> -->\n&<FILE\n\
      name = '../common/new \&#102;ile.v'/>|" "$folder/minmax/minmax.xml"
  rebuild 1 "${counts[1]}" "$@"
  rebuild 0 0 "$@"
  echo "// changed again" >>"$folder/common/new file.v"
  rebuild 1 "${counts[1]}" "$@"
  echo "// changed again" >>"$folder/common/new header.svh"
  rebuild 1 "${counts[1]}" "$@"
  rm "$folder/common/new header.svh" "$folder/common/new file.v"
  cp minmax.xml "$folder/minmax/minmax.xml"
  rebuild 1 "${counts[1]}" "$@"
  rebuild 0 0 "$@"
  printf 'ok   %s\n' "$folder"
}

missing=()
for generator in "Unix Makefiles" Ninja; do
  if [[ $generator == Ninja ]] && ! command -v ninja >ninja.log; then
    missing+=(ninja)
    continue
  fi
  folder=cmake_${generator/ /_}
  checkout "$folder"
  cmake -S "$folder/consumer" -B "$folder/build" -G "$generator" "${options[@]}" >log 2>&1 ||
    fail "cmake, $generator"
  change_inputs "$folder" 3 2 cmake --build "$folder/build" --parallel 4
  cp "$folder/build/bits.bfclib" "$folder.bfclib"
  "$folder/build/list_functions" "$folder.bfclib" >log
  [[ $(grep -c . log) -eq 3 ]] || fail "the library lacks functions"
  "$folder/build/list_files" "$folder/minmax/minmax.xml" >log
  grep -q '^max_u8x8: .*skid_buffer.v$' log || fail "the specification lacks files"
done

# The components are checked when one of their files changes.
check_components() { # FOLDER
  cmake -DCHECK=CHECK "$1/build" >log 2>&1 || fail "cmake with CHECK"
  for count in 2 0; do
    cmake --build "$1/build" >log 2>&1 || fail "a component has faults"
    [[ $(grep -c Checking log) -eq $count ]] || fail "not $count components checked"
  done
  sed -i 's/^uint popcount64/ulong popcount64/' "$1/popcount/popcount.cl"
  ! cmake --build "$1/build" >log 2>&1 || fail "the fault was not found"
  grep -q 'popcount.cl:3: error: .* \[model-result\]$' log || fail "not the fault expected"
}
if command -v verilator >tools.log && command -v clang >tools.log; then
  for folder in cmake_*/; do check_components "${folder%/}"; done
else
  missing+=("verilator or clang")
fi

checkout make
change_inputs make 2 1 make -C make/consumer -j4 BFCL="$bfcl"
cp make/consumer/build/bits.bfclib make.bfclib

for library in *.bfclib; do
  cmp "$library" make.bfclib || fail "the bytes of $library differ"
done
[[ ${#missing[@]} -eq 0 ]] || { printf 'skipped: %s\n' "${missing[@]}"; exit 77; }
