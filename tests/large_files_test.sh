#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# large_files_test.sh PROGRAM: packages a C model of more than 2 GiB, adds it to a library, extracts it
# and compares it. Needs 7 GiB in the temporary folder.
set -euo pipefail
program=$(readlink -f -- "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp -r "$(dirname "${BASH_SOURCE[0]}")/../examples/popcount" "$folder"
cd "$folder"
truncate -s 2200M popcount/popcount.cl
echo '// the end' >>popcount/popcount.cl
"$program" hdl-comp-pkg popcount/popcount.xml -o large.bfco
"$program" create -o large.bfclib large.bfco
"$program" list large.bfclib
rm large.bfco
mkdir models
"$program" extract_c_models large.bfclib models
cmp popcount/popcount.cl models/large.bfclib_.vex.comp.popcount64_popcount.cl
echo "whole: $(stat -c %s models/*) bytes"
