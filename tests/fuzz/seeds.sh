#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# seeds.sh PROGRAM FOLDER: writes first inputs of each fuzz target, made from the examples, to FOLDER/TARGET.
set -euo pipefail
program=$(readlink -f -- "$1")
mkdir -p "$2"/{package_image,package_contents,package_file,component_spec,ir_text}
folder=$(readlink -f -- "$2")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

for spec in examples/*/*.xml; do
  name=$(basename "$spec" .xml)
  cp "$spec" "$folder/component_spec/$name"
  "$program" hdl-comp-pkg "$spec" -o "$folder/package_image/$name" >/dev/null
done
"$program" create -name seeds -o "$folder/package_image/library" "$folder"/package_image/* >/dev/null

cp "$folder"/package_image/* "$folder/package_contents"
for image in "$folder"/package_image/*; do
  for choice in '\000' '\025' '\066'; do
    { printf '%b' "\\0${choice#?}"; cat "$image"; } >"$folder/package_file/$(basename "$image")${choice#?}"
  done
done

printf 'define i32 @f(i32 %%a) {\ndefine spir_kernel void @k()\ndeclare i32 @g(i32)\n' >"$folder/ir_text/functions"
printf 'define linkonce i32 @"a b"(i32)\n%5000s\n' define >"$folder/ir_text/long_line"
