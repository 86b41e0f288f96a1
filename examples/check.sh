#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Lints every component here and simulates it, connected as its component specification says,
# against its C model. Exit status: 0 all well, 1 a fault, 77 nothing could be simulated.
set -euo pipefail

examples=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
vectors=4096
memory_bytes=4096
memory_base=7f3a5c000000 # above 2^32, so that the whole width of an address is used

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Every name from here on is relative to a component's directory below $work, since verilator
# cannot be relied on with blanks in a path.
ln -s "$examples" "$work/examples"
mkdir "$work/components"
examples=../../examples

installed() {
  command -v "$1" >/dev/null && return
  printf 'skipped: %s is not installed\n' "$1"
  return 1
}

# Runs a command that has to be silent and succeed; what it prints otherwise is the diagnosis.
quiet() { # WHAT COMMAND...
  local what=$1
  shift
  if ! "$@" >log 2>&1 || [[ -s log ]]; then
    printf 'FAIL %s: %s\n' "$name" "$what" >&2
    cat log >&2
    exit 1
  fi
}

lint() {
  local arguments
  mapfile -t arguments <lint
  quiet "verilator has complaints" verilator --lint-only -Wall "${arguments[@]}" "${sources[@]}"
}

make_vectors() {
  quiet "the C model does not compile" cc -std=c11 -O2 -Wall -Wextra -I. -I"$examples"/check \
    -DVECTORS="$vectors" -DMEMORY_BYTES="$memory_bytes" -DMEMORY_BASE="0x${memory_base}u" \
    -o generator "$examples/check/vectors.c"
  ./generator >vectors.hex
}

simulate() {
  make_vectors
  quiet "the test bench does not compile" iverilog -g2012 -Wall -I. -s stream_tb \
    -DVECTORS="$(wc -l <vectors.hex)" -DMEMORY_BYTES="$memory_bytes" \
    -DMEMORY_BASE="64'h$memory_base" -o simulation \
    "$examples/check/stream_tb.sv" "$examples/check/memory_port.sv" "${sources[@]}"
  if ! vvp -n simulation >log 2>&1 || [[ $(<log) != "$vectors vectors match" ]]; then
    printf 'FAIL %s: the simulation differs from the model\n' "$name" >&2
    cat log >&2
    exit 1
  fi
}

check_component() {
  local results=() sources name=${PWD##*/}
  mapfile -t sources <sources
  if $can_lint; then
    lint
    results+=("lint clean")
  fi
  if $can_simulate; then
    simulate
    results+=("$vectors vectors match")
  fi
  local line
  printf -v line '%s, ' "${results[@]}"
  printf 'ok   %s: %s\n' "$name" "${line%, }"
}

can_lint=false can_simulate=false
if installed verilator; then can_lint=true; fi
if installed iverilog && installed cc; then can_simulate=true; fi

cd "$work/examples"
for specification in */*.xml; do
  grep -qE '\.(svh|hex|vhd)"' "$specification" && continue # more than iverilog and this script know
  awk -v base="$examples/$(dirname "$specification")" -v work="$work/components" \
    -f check/wire_up.awk "$specification"
done
for component in "$work"/components/*/; do
  cd "$component"
  check_component
done
$can_simulate || exit 77
