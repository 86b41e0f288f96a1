#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds the release, measures it and the usual tools on the same bytes, compares files made to be
# slow with ordinary ones, and writes the tables, results.csv and the plots to build/bench/. RUNS=N
# sets the runs of each command (9).
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=../scripts/common.sh
. "$(dirname "$0")/../scripts/common.sh"

install_build_packages
install_packages python3 tar time gnuplot-nox llvm
build build -DCMAKE_BUILD_TYPE=Release
mkdir -p build/bench
python3 bench/bench.py --program build/bin/bfcl-library --folder build/bench --runs "${RUNS:-9}" |
  tee build/bench/table.md
python3 bench/hostile.py --program build/bin/bfcl-library --folder build/bench |
  tee build/bench/hostile.md
python3 bench/growth.py --program build/bin/bfcl-library --folder build/bench
gnuplot -c bench/growth.gnuplot build/bench
