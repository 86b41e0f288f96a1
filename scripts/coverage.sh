#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds into build-coverage/, runs the tests, and prints which lines of src/ they cover. Tests whose
# faults damage the profile itself (a size limit, killed children) or that build programs are left out.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"

install_build_packages
install_packages gcovr
build build-coverage -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS=--coverage
find build-coverage -name '*.gcda' -delete
ctest --test-dir build-coverage --parallel "$(nproc)" -E 'FullDisk|DamagedFiles|install|examples_consumer' |
  tail -n 4
gcovr --root . --filter src/ --object-directory build-coverage --exclude-throw-branches \
  --gcov-ignore-parse-errors --print-summary "$@"
