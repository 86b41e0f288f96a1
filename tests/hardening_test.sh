#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# hardening_test.sh PROGRAM: fails unless a built program is hardened as a release: position-independent,
# full RELRO, a stack that cannot be executed, stack protector, fortified calls, assertions of the C++ library, marked
# branch targets.
set -euo pipefail
program=$1
status=0

# check NAME PATTERN READELF_OPTION...: whether a line of readelf's output matches.
check() {
  local name=$1 pattern=$2
  shift 2
  if grep -qE -- "$pattern" <<<"$(readelf -W "$@" "$program")"; then
    echo "ok       $name"
  else
    echo "MISSING  $name"
    status=1
  fi
}

check 'position-independent executable' 'FLAGS_1.*\bPIE\b' -d
check 'relocations read-only' 'GNU_RELRO' -l
check 'all symbols bound at start' 'BIND_NOW|FLAGS_1.*\bNOW\b' -d
check 'stack not executable' 'GNU_STACK +(0x[0-9a-f]+ +){5}RW +' -l
check 'stack protector' '__stack_chk_fail' --dyn-syms
check 'fortified calls' '__[a-z]+_chk(@|$| )' --dyn-syms
check 'assertions of the C++ library' '__glibcxx_assert_fail' --dyn-syms
# A few of them are in the C library's own start files.
if [[ $(uname -m) != x86_64 || $(objdump -d --section=.text "$program" | grep -c endbr64) -gt 10 ]]; then
  echo 'ok       marked branch targets'
else
  echo 'MISSING  marked branch targets'
  status=1
fi
exit $status
