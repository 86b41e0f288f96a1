#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Measures our programs and the alternatives on the same bytes. Prints a row of our
medians for each load, with the ratios of all tools to copying (or to our program where nothing is
copied), and writes all medians to results.csv."""

import argparse
import csv
import shutil
from pathlib import Path

from measure import alternate, function_text, make_component, remove, run, write_spec, write_verilog

MIB = 1 << 20


def copying(list_file, output):
    """The physical yardstick: the same bytes into one file, flushed to the disk."""
    return f"xargs cat < {list_file} > {output} && sync {output}"


def archivers(folder, files, output):
    """The commands of other archivers for a list of files, of those that are installed."""
    (folder / "list").write_text("\n".join(files) + "\n")
    (folder / "empty.o").write_bytes(b"")
    sections = " ".join(f"--add-section .s.{name}={name}" for name in files)
    (folder / "sections").write_text(sections)
    (folder / "empty.c").write_text("")
    run("gcc -c empty.c -o empty.o", folder)
    commands = {
        "cp": copying("list", output),
        "ar": f"ar rcs {output} @list && sync {output}",
        "objcopy": f"objcopy @sections empty.o {output} && sync {output}",
        "llvm-objcopy": f"llvm-objcopy @sections empty.o {output} && sync {output}",
        "tar": f"tar cf {output} -T list && sync {output}",
    }
    return {name: text for name, text in commands.items() if name == "cp" or shutil.which(name)}


def packaging(program, root, count, size):
    folder = root / f"package-{count}"
    files = make_component(folder, count, size)
    ours = {"bfcl": [program, "-c", "spec.xml", "-o", "out"]}
    return folder, ours | archivers(folder, files + ["model.cl", "spec.xml"], "out")


def creating(program, root, count, size):
    folder = root / f"create-{count}"
    folder.mkdir()
    packages = []
    for i in range(count):
        part = folder / "part"
        make_component(part, 1, max(size - 6144, 64), f"f{i:05}")
        packages.append(f"p{i:05}.bfco")
        run([program, "-c", "part/spec.xml", "-o", packages[-1]], folder)
    ours = {"bfcl": [program, "create", "-o", "out"] + packages}
    return folder, ours | archivers(folder, packages, "out")


def extracting(program, root, count):
    folder, commands = creating(program, root, count, 8192)
    run(commands["bfcl"][:3] + ["lib"] + commands["bfcl"][4:], folder)
    (folder / "list").write_text("lib\n")
    extract = f"mkdir out && {program} extract_c_models lib out"
    return folder, {"bfcl": extract, "cp": "mkdir out && cp lib out/lib"}


def extracting_shared(program, root):
    """One component with 2,000 functions."""
    folder = root / "validate-2000"  # made before
    write_verilog(folder / "top.v", 32 * MIB, 1)
    run([program, "-c", "spec.xml", "-o", "p"], folder)
    run([program, "create", "-o", "lib", "p"], folder)
    extract = f"mkdir out && {program} extract_c_models lib out"
    return folder, {"bfcl": extract, "cp": "mkdir out && cp lib out/lib"}


def taking_apart(program, root, options):
    """2,000 component packages of a library, against copying the same files."""
    folder = root / "create-2000"  # made before
    packages = sorted(path.name for path in folder.glob("p*.bfco"))
    run([program, "create", "-o", "lib"] + packages, folder)
    unpack = f"{Path(program).with_name('bfcl-package')} unpack {options} lib -C"
    remove(folder / "copied")
    run(f"{unpack} copied", folder)
    return folder, {"bfcl": f"{unpack} out", "cp": "cp -r copied out"}


def extracting_ir(program, root):
    """8 MiB of bitcode from a library of 16,000 packages."""
    folder = root / "create-16000"  # made before
    section = ".vex.clang_ir.x86_64-unknown-linux-ostrahw"
    (folder / "ir").write_bytes(b"bitcode " * MIB)
    run(["objcopy", "--add-section", f"{section}=ir", "lib", "with_ir"], folder)
    extract = f"mkdir out && {program} extract_clang_ir with_ir {section[14:]} out"
    return folder, {"bfcl": extract, "cp": "mkdir out && cp ir out/ir"}


def listing(program, root):
    folder = root / "create-16000"  # made before
    run([program, "create", "-o", "lib"] + sorted(p.name for p in folder.glob("p*.bfco")), folder)
    return folder, {"bfcl": [program, "list", "lib"], "readelf -S": ["readelf", "-S", "lib"]}


def validating(program, root, count):
    folder = root / f"validate-{count}"
    folder.mkdir()
    names = [f"f{i:05}" for i in range(count)]
    write_verilog(folder / "top.v", 64 * 1024, 1)
    (folder / "model.cl").write_text("".join(f"int {name}(int a);\n" for name in names))
    write_spec(folder / "spec.xml", [function_text(name, ["top.v"], ["model.cl"]) for name in names])
    return folder, {"bfcl": [program, "-c", "spec.xml", "-o", "out"]}


def searching(program, root):
    """The end of the source contains 49 of 50 names; the last one is missing."""
    folder = root / "search"
    folder.mkdir()
    names = [f"signal_{i:02}_port" for i in range(50)]
    write_verilog(folder / "big.v", 256 * MIB, 1, "\n".join(names[:-1]) + "\n")
    (folder / "names").write_text("\n".join(names) + "\n")
    (folder / "model.cl").write_text("int f(int a);\n")
    write_spec(folder / "spec.xml", [function_text("f", ["big.v"], ["model.cl"], names)])
    return folder, {
        "bfcl": [program, "-c", "spec.xml", "-o", "out"],
        "grep -F": ["grep", "-F", "-c", "-f", "names", "big.v"],
    }


def starting(program, root):
    folder = root / "package-1"
    run([program, "-c", "spec.xml", "-o", "x.bfco"], folder)
    (folder / "small.v").write_text("module top(data_in);")
    write_spec(folder / "small.xml", [function_text("f", ["small.v"], ["model.cl"])])
    run([program, "-c", "small.xml", "-o", "x.bfco"], folder)
    run([program, "create", "-o", "small.bfclib", "x.bfco"], folder)
    return folder, {
        "bfcl list": [program, "list", "small.bfclib"],
        "bfcl help": [program, "help"],
        "readelf -S": ["readelf", "-S", "small.bfclib"],
    }


LOADS = [
    ("package 1 x 512 MiB", lambda p, r: packaging(p, r, 1, 512 * MIB)),
    ("package 2,000 x 64 KiB", lambda p, r: packaging(p, r, 2000, 64 * 1024)),
    ("package 16,000 x 1 KiB", lambda p, r: packaging(p, r, 16000, 1024)),
    ("create 2,000 x 64 KiB", lambda p, r: creating(p, r, 2000, 64 * 1024)),
    ("create 16,000 x 7 KiB", lambda p, r: creating(p, r, 16000, 2048)),
    ("unpack 2,000 x 64 KiB", lambda p, r: taking_apart(p, r, "")),
    ("split 2,000 x 64 KiB", lambda p, r: taking_apart(p, r, "--packages")),
    ("extract 2,000 models", lambda p, r: extracting(p, r, 1999)),
    ("list 16,000 lines", listing),
    ("extract 8 MiB of IR", extracting_ir),
    ("validate 100 functions", lambda p, r: validating(p, r, 100)),
    ("validate 2,000 functions", lambda p, r: validating(p, r, 2000)),
    ("extract 2,000 functions", extracting_shared),
    ("search 256 MiB", searching),
    ("start", starting),
]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--folder", type=Path, required=True)
    parser.add_argument("--runs", type=int, default=9)
    parser.add_argument("--only", default="", help="only loads whose name contains this text")
    options = parser.parse_args()
    program = str(Path(options.program).resolve())
    root = options.folder / "inputs"
    remove(root)
    root.mkdir(parents=True)
    rows = []
    print("| Load | Wall, s | CPU, s | Memory, MiB | Ratio | Ratios of others |")
    print("|---|---|---|---|---|---|")
    for load, make in LOADS:
        if options.only not in load:
            continue
        folder, commands = make(program, root)
        results = alternate(commands, folder, "out", options.runs)
        yardstick = next(iter(results.values()))[0] if "cp" not in results else results["cp"][0]
        ratios = {tool: sample.wall / yardstick.wall for tool, (sample, _) in results.items()}
        for tool, (sample, size) in results.items():
            rows.append([load, tool, sample.wall, ratios[tool], sample.cpu, sample.memory, size, sample.status])
        (name, (ours, _)), *others = results.items()
        print(
            f"| {load} | {ours.wall:.4f} | {ours.cpu:.4f} | {ours.memory / 1024:.1f} | {ratios[name]:.2f} | "
            + ", ".join(f"{tool} {ratios[tool]:.2f}" for tool, _ in others) + " |",
            flush=True,
        )
    with open(options.folder / "results.csv", "w", newline="", encoding="ascii") as file:
        writer = csv.writer(file)
        writer.writerow(["load", "tool", "wall_s", "ratio", "cpu_s", "memory_kib", "output_bytes", "status"])
        writer.writerows(rows)
    remove(root)


main()
