# shellcheck shell=bash
# SPDX-License-Identifier: BSD-3-Clause
# Completion of "bfcl WORD ..." and "bfcl-WORD ..." for library, component and package in bash, with or
# without the package bash-completion.

# _bfcl_files SUFFIX...: the files with one of the suffixes, and directories on the way to them.
_bfcl_files() {
  local suffix
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$cur"
    for suffix in "$@"; do compgen -f -X "!*$suffix" -- "$cur"; done
  )
}

_bfcl_words() {
  mapfile -t COMPREPLY < <(compgen -W "$*" -- "$cur")
}

# _bfcl_create OPERAND...: the operands before the word to complete. As in the program, at most four
# options with their values precede the packages.
_bfcl_create() {
  local option='' free=' -name -vendor -version -o ' taken=0
  while [[ $# -gt 0 ]]; do
    option=
    if [[ $taken -lt 4 && $1 == -@(name|vendor|version|o) ]]; then
      option=$1 taken=$((taken + 1)) free=${free/ $1 / }
      shift
    fi
    shift || break # the option's value is the word to complete
    option=
  done
  case $option in
    -o) _bfcl_files .bfclib ;;
    -*) ;;
    *)
      if [[ $cur == -* && $taken -lt 4 ]]; then
        _bfcl_words "$free -v"
      else
        _bfcl_files .bfco .bfclib
      fi
      ;;
  esac
}

_bfcl_folders() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -d -- "$cur")
}

# _bfcl_library WORD...: the command and its operands before the word to complete.
_bfcl_library() {
  local operands=$(($# - 1))
  case $1:$operands in
    :*) _bfcl_words hdl-comp-pkg -c create list extract_c_models extract_clang_ir help -v ;;
    hdl-comp-pkg:0 | -c:0) _bfcl_files .xml ;;
    hdl-comp-pkg:1 | -c:1) _bfcl_words -o ;;
    hdl-comp-pkg:2 | -c:2) _bfcl_files .bfco ;;
    create:*) _bfcl_create "${@:2}" ;;
    list:0 | extract_c_models:0 | extract_clang_ir:0) _bfcl_files .bfclib ;;
    extract_clang_ir:1)
      _bfcl_words spir64-unknown-unknown-ostrahw x86_64-unknown-linux-ostrahw \
        x86_64-pc-windows-ostrahw
      ;;
    extract_c_models:1 | extract_clang_ir:2)
      _bfcl_folders
      ;;
  esac
}

# The options of each command of bfcl-component.
declare -A _bfcl_component_options=(
  [check]='--json --jobs'
  [new]='-o --clock --reset --map --param --latency'
  [simulate]='--function --vectors --seed --range --waves --json'
  [prove]='--function --depth --json'
  [deps]='-o --target'
)

# _bfcl_component WORD...: the command and what follows it, before the word to complete.
_bfcl_component() {
  local command=${1-}
  case $command:${*: -1} in
    :*) _bfcl_words check new simulate prove deps --help ;;
    new:-o) _bfcl_folders ;;
    deps:-o) _bfcl_files .d ;;
    deps:--target) _bfcl_files '' ;;
    simulate:--waves) _bfcl_files .fst ;;
    *:--json) _bfcl_component "$command" ;;
    *:--* | new:new) ;; # a value of the user's own
    *)
      if [[ $cur == -* ]]; then
        _bfcl_words "${_bfcl_component_options[$command]-} --help"
      elif [[ $command == check ]]; then
        _bfcl_files .xml .bfco .bfclib
      elif [[ $command == new ]]; then
        _bfcl_files .v .sv .svh .vhd .hex .mif
      else
        _bfcl_files .xml
      fi
      ;;
  esac
}

# The options of each command of bfcl-package.
declare -A _bfcl_package_options=(
  [show]='--json'
  [unpack]='-C --function --packages --list --force'
)

# _bfcl_package WORD...: the command and what follows it, before the word to complete.
_bfcl_package() {
  case ${1-}:${*: -1} in
    :*) _bfcl_words show unpack verify --help ;;
    unpack:-C | unpack:--directory) _bfcl_folders ;;
    unpack:--function) ;;
    *)
      if [[ $cur != -* ]]; then
        _bfcl_files .bfco .bfclib
      else
        _bfcl_words "${_bfcl_package_options[$1]-}" --help
      fi
      ;;
  esac
}

_bfcl() {
  local cur=${COMP_WORDS[COMP_CWORD]} word words=()
  local program=${COMP_WORDS[0]##*/} first=1
  COMPREPLY=()
  if [[ $program == bfcl ]]; then
    if [[ $COMP_CWORD -eq 1 ]]; then
      _bfcl_words library component package
      return
    fi
    program=bfcl-${COMP_WORDS[1]}
    first=2
  fi
  words=("${COMP_WORDS[@]:first:COMP_CWORD - first}")
  case $program in
    bfcl-component) _bfcl_component "${words[@]}" ;;
    bfcl-package) _bfcl_package "${words[@]}" ;;
    bfcl-library)
      for word in "${!words[@]}"; do
        [[ ${words[word]} != -v ]] || unset "words[word]"
      done
      _bfcl_library "${words[@]-}"
      ;;
  esac
}

complete -F _bfcl bfcl bfcl-library bfcl-component bfcl-package
