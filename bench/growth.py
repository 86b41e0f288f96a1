#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""How the time of packaging grows with the size of one source and with the number of small ones.
Writes growth_size.dat and growth_count.dat: the parameter, our seconds, those of copying, and our
CPU time a source in microseconds."""

from measure import alternate, make_component, parse_options, remove

SIZES = [(1, mib << 20) for mib in (16, 32, 64, 128, 256, 512)]
COUNTS = [(count, 1024) for count in (1000, 2000, 4000, 8000, 16000, 32000)]


def measure(program, folder, count, size):
    remove(folder)
    files = make_component(folder, count, size)
    (folder / "list").write_text("\n".join(files) + "\n")
    commands = {
        "bfcl": [program, "-c", "spec.xml", "-o", "out"],
        "cp": "xargs cat < list > out && sync out",
    }
    results = alternate(commands, folder, "out", 3)
    remove(folder)
    return results["bfcl"][0], results["cp"][0]


def main():
    program, root = parse_options(__doc__)
    for name, points, parameter in (("size", SIZES, 1), ("count", COUNTS, 0)):
        with open(root / f"growth_{name}.dat", "w", encoding="ascii") as file:
            for point in points:
                ours, copying = measure(program, root / "inputs", *point)
                cpu = 1e6 * ours.cpu / point[0]
                file.write(f"{point[parameter]} {ours.wall:.4f} {copying.wall:.4f} {cpu:.1f}\n")


main()
