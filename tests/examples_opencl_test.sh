#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Creates one library of the OpenCL functions and the HDL components of the examples, extracts all of
# it, and runs the result. BFCL_BUILD names the build folder. Exit status: 0 all well, 1 a fault, 77
# nothing could be checked.
set -euo pipefail

examples=$(cd "$(dirname "${BASH_SOURCE[0]}")/../examples" && pwd)
opencl=$examples/opencl
build=$(cd "${BFCL_BUILD:-$examples/../build}" && pwd)
PATH=$build/bin:$build/tools:$opencl/llvm:$PATH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
log=$work/log

library="\$HOME's \`false\`; \"helpers\".bfclib"
mkdir "$work/files"
cd "$work/files"

fail() { # WHAT
  printf 'FAIL %s\n' "$1" >&2
  cat "$log" >&2
  exit 1
}

# Runs a command that must succeed, or prints its output.
run() { # WHAT COMMAND...
  local what=$1
  shift
  "$@" >"$log" 2>&1 || fail "$what"
}

expect_same() { # WHAT EXPECTED ACTUAL
  diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") >"$log" || fail "$1"
}

skip_unless_possible() {
  local tool
  for tool in clang llvm-link opt llvm-dis llvm-nm; do
    bfcl-llvm "$tool" --version >/dev/null 2>&1 && continue
    printf 'skipped: %s is not installed\n' "$tool"
    exit 77
  done
  [[ $(uname -sm) == "Linux x86_64" ]] && return
  printf 'skipped: the Linux image does not run on this machine\n'
  exit 77
}

package_opencl() { # SOURCE PACKAGE
  run "$1 cannot be packaged" bfcl-shared "$opencl/$1" "$2" -Wextra -Werror
}

# A tool could mistake these names for an option, or for a file of arguments.
package() {
  local specification
  package_opencl q16.cl q16.bfco
  package_opencl q16_curves.cl @q16.bfco
  package_opencl words.cl -words.bfco
  for specification in "$examples"/*/*.xml; do
    run "$specification cannot be packaged" bfcl library hdl-comp-pkg "$specification" \
      -o "$(basename "$specification" .xml).bfco"
  done
}

create() {
  local before
  before=$(ls -A)
  # shellcheck disable=SC2035 # a name with a dash in front is a file to create
  run "the library cannot be made" \
    bfcl library create *.bfco -name helpers -vendor examples -version 1.0 -o "$library"
  expect_same "create left more than the library" \
    "$(printf '%s\n' "$before" "$library" | sort)" "$(find . -mindepth 1 -printf '%P\n' | sort)"
}

extract() {
  local target
  mkdir out
  run "the C models cannot be extracted" bfcl library extract_c_models "$library" out
  while read -r target; do
    run "the image for $target cannot be extracted" \
      bfcl library extract_clang_ir "$library" "$target" out
  done < <(bfcl-opencl-package --targets)
}

# The functions that an image defines, read by another tool.
defined_functions() { # IMAGE
  bfcl-llvm llvm-nm --defined-only --format=just-symbols "$1" 2>"$log" | sort
}

check_images() {
  local image names triple
  names=$(defined_functions "$linux_image") || fail "llvm-nm cannot read the Linux image"
  for image in out/*.bc; do
    run "llvm-dis cannot read $image" bfcl-llvm llvm-dis -o image.ll "$image"
    triple=${image#"out/$library."}
    run "$image was compiled for something else" \
      grep -F "target triple = \"${triple%-*.bc}" image.ll
    expect_same "$image has other functions" "$names" "$(defined_functions "$image")"
  done
  printf 'ok   llvm-dis and llvm-nm read all images\n'
}

# The kinds are right because the OpenCL names sort after those of the components: the LLVM_IR lines of
# a mixed library are the last of all its names.
check_listing() {
  local components functions listed
  components=$(sed -n 's/.*<FUNCTION name="\([^"]*\)".*/\1, HDL/p' "$examples"/*/*.xml | sort)
  functions=$(defined_functions "$linux_image" | sed 's/$/, LLVM_IR/')
  listed=$(bfcl library list "$library" | sed '1,/^Components:/d')
  expect_same "the library lists other functions than it holds" \
    "$(printf '%s\n' "$components" "$functions" | sort)" "$(sort <<<"$listed")"
  printf 'ok   the library lists %d components and %d OpenCL functions\n' \
    "$(wc -l <<<"$components")" "$(wc -l <<<"$functions")"
}

check_results() {
  local model objects=()
  for model in out/*.cl; do
    objects+=("$model.o")
    run "$model does not compile" \
      bfcl-llvm clang -x cl -cl-std=CL1.2 -O2 -fPIC -Wall -c -o "$model.o" "$model"
  done
  run "the host program cannot be built" bfcl-llvm clang -std=c11 -O2 -Wall -Wextra \
    -Wno-override-module -o host "$opencl/host.c" "$linux_image" "${objects[@]}" -lm
  run "a function gives a wrong result" ./host
  printf 'ok   %s\n' "$(<"$log")"
}

check_refusal() {
  local status=0
  mkdir refused
  cd refused
  package_opencl refused_kernel.cl kernel.bfco
  bfcl library create ../*.bfco kernel.bfco -name refused >"$log" 2>&1 || status=$?
  [[ $status -eq 1 ]] || fail "a kernel was not refused with status 1 but $status"
  expect_same "the kernel is not named" "   scale" "$(grep '^   ' "$log")"
  expect_same "a refused library left files" kernel.bfco "$(ls -A)"
  cd ..
  printf 'ok   the kernel is refused, and no library is left\n'
}

skip_unless_possible
package
create
extract
linux_image=$(printf '%s\n' out/*linux*.bc)
check_images
check_listing
check_results
check_refusal
