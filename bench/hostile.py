#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Compares the processor time of files made to be slow with that of ordinary ones of the same size."""

import struct

from measure import function_text, median, parse_options, remove, run, write_spec

COUNT = 50000
SEARCHED = 8 << 20  # bytes
MASK = (1 << 64) - 1
FACTOR = 0xC6A4A7935BD1E995  # of the hash of libstdc++, MurmurHash64A with the seed 0xC70F6907
FORBIDDEN = b"\0\n\r\t <&\"'>"


def scramble(word, first, second):
    word = word * first & MASK
    return (word ^ (word >> 47)) * second & MASK


def colliding_names(count):
    """Names of 16 bytes whose hashes are all equal."""
    names = []
    inverse = pow(FACTOR, -1, 1 << 64)
    for number in range(2 * count):
        first = b"p%07x" % number
        state = 0xC70F6907 ^ 16 * FACTOR & MASK ^ scramble(int.from_bytes(first, "little"), FACTOR, FACTOR)
        second = scramble(state * FACTOR & MASK, inverse, inverse).to_bytes(8, "little")
        if not any(byte in FORBIDDEN for byte in second):
            names.append(first + second)
    return names[:count]


def write_library(path, names):
    """A library with an empty section of each name."""
    texts = [(name, b"") for name in names] + [(b".vex.info", b"1 n v"), (b".vex.comp_table", b"<END_OF_TABLE>")]
    table = b"\0.shstrtab\0"
    headers = struct.pack("<10I", *[0] * 10)
    contents = b""
    for name, text in texts:
        headers += struct.pack("<10I", len(table), 1, 0, 0, 52 + len(contents), len(text), 0, 0, 1, 0)
        table += name + b"\0"
        contents += text
    headers += struct.pack("<10I", 1, 3, 32, 0, 52 + len(contents), len(table), 0, 0, 1, 0)
    end = 52 + len(contents) + len(table)
    count = len(texts) + 2
    header = b"\x7fELF\1\1\1".ljust(16, b"\0")
    header += struct.pack("<HHIIIIIHHHHHH", 0, 62, 1, 0, 0, end, 0, 52, 0, 0, 40, count, count - 1)
    path.write_bytes(header + contents + table + headers)


def write_component(folder, names, source):
    folder.mkdir()
    (folder / "top.v").write_bytes(source)
    (folder / "model.cl").write_text("f")
    ports = [name.decode("latin-1") for name in names]
    write_spec(folder / "spec.xml", [function_text("f", ["top.v"], ["model.cl"], ports)])


def main():
    program, folder = parse_options(__doc__)
    root = folder / "hostile"
    remove(root)
    root.mkdir(parents=True)
    plain = [b"p%015d" % number for number in range(COUNT)]
    colliding = colliding_names(COUNT)
    text = b"assign data_out = data_in;\n" * (SEARCHED // 27)
    zeros = [b"0" * length + b"b" for length in range(1, 300)]
    loads = {
        "sections": (write_library, (plain,), (colliding,)),
        "ports": (write_component, (plain, b""), (colliding, b"")),
        "search": (write_component, (plain[:300], text), (zeros, b"0" * SEARCHED)),
    }
    print("| Load | ordinary, s | hostile, s |\n|---|---|---|")
    for name, (write, *inputs) in loads.items():
        times = []
        for kind, data in zip(("ordinary", "hostile"), inputs):
            path = root / f"{name}-{kind}"
            write(path, *data)
            words = ["list", str(path)] if path.is_file() else ["-c", str(path / "spec.xml"), "-o", "out"]
            times.append(median([run([program] + words, root) for _ in range(3)]).cpu)
        print(f"| {name} | {times[0]:.3f} | {times[1]:.3f} |")
    remove(root)


main()
