#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Usage: examples_test.sh BFCL-COMPONENT
# Checks, simulates and proves every example component. Exit status 77: a tool is missing.
set -euo pipefail
component=$1
cd "$(dirname "${BASH_SOURCE[0]}")/../examples"

for tool in verilator ghdl clang yosys; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
compgen -G '/etc/OpenCL/vendors/*.icd' >/dev/null || { echo "skipped: no OpenCL"; exit 77; }

"$component" check ./*/*.xml
for specification in */*.xml; do
  "$component" simulate "$specification"
  "$component" prove "$specification"
done
