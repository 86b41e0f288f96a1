# SPDX-License-Identifier: BSD-3-Clause
# Completion of "bfcl WORD ..." and "bfcl-WORD ..." for library, component and package in fish. Fish loads
# a program's file by its name: bfcl-library.fish, bfcl-component.fish and bfcl-package.fish are this file
# too.

# The words before the one to complete, without the program and without -v: the command first.
function __bfcl_words
    set -l words (commandline -opc)
    if test (path basename -- $words[1]) = bfcl
        test "$words[2]" = library; or return 1
        set -e words[1]
    end
    set -e words[1]
    string match --invert -- -v $words
    return 0
end

# __bfcl_at COUNT COMMAND...: whether COUNT operands follow one of the commands.
function __bfcl_at
    set -l words (__bfcl_words); or return
    test (count $words) -eq (math $argv[1] + 1); and contains -- $words[1] $argv[2..]
end

function __bfcl_wants_command
    set -l words (__bfcl_words); and test (count $words) -eq 0
end

function __bfcl_wants_v
    __bfcl_words >/dev/null; and string match -q -- "-*" (commandline -ct)
end

# What is next after "create": option, value or package. The program takes four options.
function __bfcl_create_wants
    set -l words (__bfcl_words); or return
    test "$words[1]" = create; or return
    set -l options
    set -l pending
    for word in $words[2..]
        if test -n "$pending"
            set pending
        else if test (count $options) -lt 4; and contains -- $word -name -vendor -version -o
            set -a options $word
            set pending $word
        end
    end
    switch $argv[1]
        case library
            test "$pending" = -o
        case package
            test -z "$pending"
        case '*'
            test -z "$pending" -a (count $options) -lt 4; and not contains -- $argv[1] $options
    end
end

# The files with one of the suffixes, and directories on the way to them.
function __bfcl_files
    set -l token (commandline -ct)
    if string match -q "~*" -- $token # which only fish itself expands
        __fish_complete_path $token
        return
    end
    set -l start (string unescape -- $token)
    set -l files $start*/
    for suffix in $argv
        set -a files $start*$suffix
    end
    printf "%s\n" $files
end

for program in bfcl bfcl-library
    complete -c $program -f
    complete -c $program -n __bfcl_wants_command -a hdl-comp-pkg -d 'Check a component specification and package it'
    complete -c $program -n __bfcl_wants_command -a -c -d 'The same as hdl-comp-pkg'
    complete -c $program -n __bfcl_wants_command -a create -d 'Join packages into a library'
    complete -c $program -n __bfcl_wants_command -a list -d 'Show what a library holds'
    complete -c $program -n __bfcl_wants_command -a extract_c_models -d 'Write the C models into a folder'
    complete -c $program -n __bfcl_wants_command -a extract_clang_ir -d 'Write the bitcode for a target into a folder'
    complete -c $program -n __bfcl_wants_command -a help -d 'Show the usage'
    complete -c $program -n __bfcl_wants_v -a -v -d 'Show progress'

    complete -c $program -n '__bfcl_at 0 hdl-comp-pkg -c' -a '(__bfcl_files .xml)'
    complete -c $program -n '__bfcl_at 1 hdl-comp-pkg -c' -a -o -d 'The package to write'
    complete -c $program -n '__bfcl_at 2 hdl-comp-pkg -c' -a '(__bfcl_files .bfco)'

    complete -c $program -n '__bfcl_create_wants -name' -a -name -d 'The name of the library'
    complete -c $program -n '__bfcl_create_wants -vendor' -a -vendor -d 'Its vendor'
    complete -c $program -n '__bfcl_create_wants -version' -a -version -d 'Its version'
    complete -c $program -n '__bfcl_create_wants -o' -a -o -d 'The file to write'
    complete -c $program -n '__bfcl_create_wants library' -a '(__bfcl_files .bfclib)'
    complete -c $program -n '__bfcl_create_wants package' -a '(__bfcl_files .bfco .bfclib)'

    complete -c $program -n '__bfcl_at 0 list extract_c_models extract_clang_ir' -a '(__bfcl_files .bfclib)'
    complete -c $program -n '__bfcl_at 1 extract_clang_ir' -a 'spir64-unknown-unknown-ostrahw x86_64-unknown-linux-ostrahw x86_64-pc-windows-ostrahw'
    complete -c $program -n '__bfcl_at 1 extract_c_models' -a '(__bfcl_files)'
    complete -c $program -n '__bfcl_at 2 extract_clang_ir' -a '(__bfcl_files)'
end

# __bfcl_words_of PROGRAM: the words after bfcl-PROGRAM before the one to complete: the command first.
function __bfcl_words_of
    set -l words (commandline -opc)
    if test (path basename -- $words[1]) = bfcl
        test "$words[2]" = $argv[1]; or return 1
        set -e words[1]
    end
    set -e words[1]
    string join \n -- $words
    return 0
end

# __bfcl_component_at COMMAND...: whether one of the commands is on the line.
function __bfcl_component_at
    set -l words (__bfcl_words_of component); or return
    test (count $words) -gt 0; and contains -- $words[1] $argv
end

# __bfcl_component_wants COMMAND...: whether an operand of one of the commands may be next.
function __bfcl_component_wants
    __bfcl_component_at $argv; or return
    set -l last (__bfcl_words_of component)[-1]
    test "$last" = --json; or not string match -qr -- '^(--|-o$|new$)' $last
end

# __bfcl_component_value COMMAND OPTION: whether the option's value is next.
function __bfcl_component_value
    __bfcl_component_at $argv[1]; and test (__bfcl_words_of component)[-1] = $argv[2]
end

for program in bfcl bfcl-component
    complete -c $program -f
    for row in 'check|Check that specification, RTL and C model agree|--json --jobs' \
            'new|Make a component of a module|-o --clock --reset --map --param --latency' \
            'simulate|Run the RTL against the C model|--function --vectors --seed --range --waves --json' \
            'prove|Prove latency, capacity and handshake|--function --depth --json' \
            'deps|Write what a package depends on|-o --target'
        set -l fields (string split '|' $row)
        complete -c $program -n '__bfcl_words_of component >/dev/null; and test (count (__bfcl_words_of component)) -eq 0' \
            -a $fields[1] -d $fields[2]
        complete -c $program -n "string match -q -- '-*' (commandline -ct); and __bfcl_component_wants $fields[1]" \
            -a "$fields[3] --help"
    end
    complete -c $program -n '__bfcl_component_wants check' -a '(__bfcl_files .xml .bfco .bfclib)'
    complete -c $program -n '__bfcl_component_wants simulate prove deps' -a '(__bfcl_files .xml)'
    complete -c $program -n '__bfcl_component_wants new' -a '(__bfcl_files .v .sv .svh .vhd .hex .mif)'
    complete -c $program -n '__bfcl_component_value new -o' -a '(__bfcl_files)'
    complete -c $program -n '__bfcl_component_value deps -o' -a '(__bfcl_files .d)'
    complete -c $program -n '__bfcl_component_value deps --target' -a "(__bfcl_files '')"
    complete -c $program -n '__bfcl_component_value simulate --waves' -a '(__bfcl_files .fst)'
end

# __bfcl_package_wants COMMAND...: whether an operand of one of the commands may be next.
function __bfcl_package_wants
    set -l words (__bfcl_words_of package); or return
    test (count $words) -gt 0; and contains -- $words[1] $argv
    and not contains -- $words[-1] -C --directory --function
end

for program in bfcl bfcl-package
    complete -c $program -f
    for row in 'show|Print what packages and libraries contain|--json' \
            'unpack|Write the files of a component, or the packages of a library|-C --function --packages --list --force' \
            'verify|Check that packages and libraries are complete and consistent|'
        set -l fields (string split '|' $row)
        complete -c $program -n '__bfcl_words_of package >/dev/null; and test (count (__bfcl_words_of package)) -eq 0' \
            -a $fields[1] -d $fields[2]
        complete -c $program -n "string match -q -- '-*' (commandline -ct); and __bfcl_package_wants $fields[1]" \
            -a "$fields[3] --help"
    end
    complete -c $program -n '__bfcl_package_wants show unpack verify' -a '(__bfcl_files .bfco .bfclib)'
    complete -c $program -n 'contains -- (__bfcl_words_of package)[-1] -C --directory' -a '(__bfcl_files)'
end

for row in 'library|Manage libraries of hardware components' \
        'component|Check, simulate and prove components' 'package|Look into packages and libraries'
    set -l fields (string split '|' $row)
    complete -c bfcl -n 'test (count (commandline -opc)) -eq 1' -a $fields[1] -d $fields[2]
end
