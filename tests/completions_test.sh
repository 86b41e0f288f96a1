#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Completes each line in bash, zsh and fish. A row is the line and its last word after completion,
# the same word when nothing fits. 77: one of the shells is not installed.
set -uo pipefail
files=$(cd "$(dirname "$0")/../share/completions" && pwd)
command -v zsh >/dev/null && command -v fish >/dev/null || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" && mkdir dir && touch {s,a,b}.txt s.xml a.bfco b.bfclib dir/a.bfco m.sv w.d || exit 1
cat >rows <<'ROWS'
bfcl l|library
bfcl library l|list
bfcl library -v extract_c_|extract_c_models
bfcl-library -v -c s|s.xml
bfcl library -c s.xml -o a|a.bfco
bfcl library create -n|-name
bfcl library create -name a|a
bfcl library create -o b|b.bfclib
bfcl library list b|b.bfclib
bfcl library extract_c_models b.bfclib d|dir
bfcl library extract_clang_ir b.bfclib s|spir64-unknown-unknown-ostrahw
bfcl c|component
bfcl component ch|check
bfcl-component d|deps
bfcl component check b|b.bfclib
bfcl component check --json s|s.xml
bfcl component check --jo|--jobs
bfcl component check --jobs s|s
bfcl component deps -o w|w.d
bfcl component deps --t|--target
bfcl component deps --target a.x s|s.xml
bfcl component new m|m
bfcl component new mod m|m.sv
bfcl component new -o d|dir
bfcl-component simulate --se|--seed
bfcl component simulate --seed 3 s|s.xml
bfcl component prove --d|--depth
bfcl p|package
bfcl package u|unpack
bfcl-package show --j|--json
bfcl package show a|a.bfco
bfcl package unpack --pac|--packages
bfcl package unpack -C d|dir
bfcl package unpack --function b|b
bfcl package unpack --list b|b.bfclib
bfcl package verify b|b.bfclib
ROWS
echo "fpath=($files \$fpath); autoload -Uz compinit; compinit -u -D
bfcl bfcl-library bfcl-component bfcl-package() { print -r -- \$0 \$* >>zsh.log }" >zshrc
zsh -fc 'zmodload zsh/zpty; zpty z zsh -fi; zpty -w z ". ./zshrc"
  cut -d"|" -f1 rows | while read -r line; do zpty -nw z "$line"$'\''\t\n'\''; done
  zpty -w z exit; while zpty -r z; do :; done' >zsh.out
# shellcheck source=/dev/null
. "$files/bfcl.bash"
while IFS='|' read -r line word; do
  read -ra COMP_WORDS <<<"$line"
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) typed=${COMP_WORDS[-1]}
  _bfcl
  echo "bash: $line: ${COMPREPLY[*]-$typed}"
  found=$(fish --no-config -c "source $files/bfcl.fish; complete -C'$line'" | cut -f1 | tr -d /)
  echo "fish: $line: ${found:-$typed}"
  read -r completed <&3
  echo "zsh: $line: ${completed##* }"
  printf "%s: $line: $word\n" bash fish zsh >>expected
done <rows 3<zsh.log >got
diff expected got
