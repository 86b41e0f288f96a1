#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# bfcl WORD [ARGUMENT...]: runs bfcl-WORD with the arguments, from this folder or else the PATH.
if [ $# -eq 0 ]; then
  echo "Usage: bfcl <word> [argument...], for example: bfcl library help" >&2
  exit 1
fi
word=$1
shift
self=$(readlink -f -- "$0")
if [ -x "${self%/*}/bfcl-$word" ]; then
  exec "${self%/*}/bfcl-$word" "$@"
fi
if ! command -v "bfcl-$word" >/dev/null; then
  echo "bfcl: no program named bfcl-$word" >&2
  exit 127
fi
exec "bfcl-$word" "$@"
