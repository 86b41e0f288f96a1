#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# fuzz.sh [SECONDS]: builds the fuzz targets into build-fuzz/, replays their corpora and fuzzes each
# target for SECONDS (30). The corpora of tests/fuzz/corpus.tar.xz grow in build-fuzz/corpus/; inputs
# that crash a target are in build-fuzz/crashes/. To keep new inputs: fuzz_TARGET -merge=1 NEW/TARGET
# build-fuzz/corpus/TARGET for each, and tar -cJf tests/fuzz/corpus.tar.xz of the new folders.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
seconds=${1:-30}

install_build_packages
install_packages clang libclang-rt-14-dev llvm xz-utils
build build-fuzz --preset fuzz
tests/fuzz/seeds.sh build-fuzz/bin/bfcl-library build-fuzz/seeds
mkdir -p build-fuzz/crashes build-fuzz/corpus
tar -xJf tests/fuzz/corpus.tar.xz -C build-fuzz/corpus

for target in package_image package_contents package_file component_spec ir_text; do
  say "Fuzzing $target for $seconds seconds"
  corpus=build-fuzz/corpus/$target
  mkdir -p "$corpus"
  options=(-close_fd_mask=1 -timeout=10 -rss_limit_mb=2048 -artifact_prefix="build-fuzz/crashes/$target-")
  if [ $target = component_spec ]; then options+=(-dict=tests/fuzz/xml.dict); fi
  build-fuzz/bin/fuzz_$target "${options[@]}" -runs=0 "$corpus" "build-fuzz/seeds/$target" 2>&1 | tail -n 1
  build-fuzz/bin/fuzz_$target "${options[@]}" -max_len=65536 -max_total_time="$seconds" -print_final_stats=1 \
    "$corpus" "build-fuzz/seeds/$target" >build-fuzz/$target.log 2>&1 ||
    { tail -n 60 build-fuzz/$target.log; exit 1; }
  grep -E 'number_of_executed_units|average_exec_per_sec' build-fuzz/$target.log
  echo "corpus: $(find "$corpus" -type f | wc -l) files"
done
