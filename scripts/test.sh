#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs what is missing, builds the tool and its tests into build/, and runs all tests.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"

install_build_packages
install_optional_packages
say "Building into build/"
build build
say "Running the tests"
ctest --test-dir build --output-on-failure --parallel "$(nproc)"
