#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs what is missing, builds the tool into build/, and shows its work on the examples, in
# build/demo/: component packages, a library of them, its listing and its sections; and with clang
# and LLVM, a library with OpenCL code too.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"

install_build_packages
install_packages clang llvm || echo "could not install them: the OpenCL part will be skipped"
say "Building into build/"
build build

rm -rf build/demo
mkdir -p build/demo
PATH=$PWD/build/bin:$PWD/build/tools:$PWD/examples/opencl/llvm:$PATH

# Shows a command and runs it.
run() {
  printf '\n$ %s\n' "$*"
  "$@"
}

say "Packaging the example components"
for spec in examples/*/*.xml; do
  run bfcl library hdl-comp-pkg "$spec" -o "build/demo/$(basename "$spec" .xml).bfco"
done
if command -v verilator >/dev/null && command -v clang >/dev/null; then
  say "Checking that description, RTL and C model agree"
  run bfcl component check examples/popcount/popcount.xml examples/minmax/minmax.xml
  echo "Not run here, since it takes longer: bfcl component simulate, bfcl component prove"
fi
cd build/demo

say "Making a library of them"
run bfcl library create -name components -vendor examples -version 1.0 ./*.bfco
run bfcl library list components.bfclib
run readelf -SW components.bfclib

if ! command -v clang >/dev/null || ! command -v bfcl-opencl-package >/dev/null; then
  say "Skipped the OpenCL part: clang is not installed"
  exit 0
fi
say "Compiling OpenCL helper functions and joining them with the components"
for source in q16 q16_curves words; do
  run bfcl-shared "../../examples/opencl/$source.cl" "$source.bfco"
done
run bfcl library create -name everything -vendor examples -version 1.0 ./*.bfco
run bfcl library list everything.bfclib
run bfcl library extract_clang_ir everything.bfclib x86_64-unknown-linux-ostrahw .
say "The functions in the extracted image, as llvm-dis reads them"
bfcl-llvm llvm-dis -o - everything.bfclib.x86_64-unknown-linux-ostrahw.bc | grep '^define'
mkdir models
run bfcl library extract_c_models everything.bfclib models
say "A host program linked with that image and those C models"
BFCL_BUILD=$OLDPWD/build ../../tests/examples_opencl_test.sh
