# SPDX-License-Identifier: BSD-3-Clause
"""Running commands for their time and memory, and making the inputs of the work loads."""

import argparse
import dataclasses
import os
import random
import shutil
import statistics
import subprocess
import time
from pathlib import Path

TIME_LIMIT = 60  # seconds; what takes longer is shown as such


@dataclasses.dataclass
class Sample:
    wall: float  # seconds
    cpu: float  # seconds, user and system
    memory: int  # peak of one process, in KiB
    status: int


def parse_options(description):
    """The program and the folder of a command line, both absolute."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--program", required=True)
    parser.add_argument("--folder", type=Path, required=True)
    options = parser.parse_args()
    return str(Path(options.program).resolve()), options.folder.resolve()


def run(command, folder):
    """Runs a command line of words, or a shell text, to its end."""
    null = subprocess.DEVNULL
    begin = time.monotonic()
    process = subprocess.Popen(command, shell=isinstance(command, str), cwd=folder, stdout=null, stderr=null)
    while True:
        pid, status, usage = os.wait4(process.pid, os.WNOHANG if time.monotonic() - begin > TIME_LIMIT else 0)
        if pid:
            break
        process.kill()
    process.returncode = os.waitstatus_to_exitcode(status)
    wall = time.monotonic() - begin
    return Sample(wall, usage.ru_utime + usage.ru_stime, 0, process.returncode)


def peak_memory(command, folder):
    """Runs a command and returns its peak, in KiB. A small program starts it, because the memory of this
    process at the start of another one is counted for the other."""
    words = ["sh", "-c", command] if isinstance(command, str) else command
    run(["timeout", str(TIME_LIMIT), "time", "-q", "-f", "%M", "-o", ".memory"] + words, folder)
    report = folder / ".memory"
    text = report.read_text() if report.exists() else ""
    remove(report)
    return int(text or 0)


def median(samples):
    """The medians of a command's runs; the status is the worst."""
    return Sample(
        statistics.median(s.wall for s in samples),
        statistics.median(s.cpu for s in samples),
        samples[0].memory,
        max(samples, key=lambda s: abs(s.status)).status,
    )


def alternate(commands, folder, output, runs):
    """Runs the commands in turn, several times, in random order, because each run influences the next;
    each writes the output anew. {name: (medians, bytes written)}."""
    samples = {name: [] for name in commands}
    memory = {}
    sizes = {}
    for turn in range(runs + 1):
        for name, command in random.sample(sorted(commands.items()), len(commands)):
            if turn > 1 and samples[name][-1].wall > TIME_LIMIT / 20:
                continue
            remove(folder / output)
            os.sync()
            if turn == 0:  # it warms the caches, too
                memory[name] = peak_memory(command, folder)
                sizes[name] = written(folder / output)
                continue
            samples[name].append(dataclasses.replace(run(command, folder), memory=memory[name]))
    remove(folder / output)
    return {name: (median(samples[name]), sizes[name]) for name in commands}


def remove(path):
    if path.is_dir():
        shutil.rmtree(path)
    elif path.exists():
        path.unlink()


def written(path):
    if path.is_dir():
        return sum(file.stat().st_size for file in path.iterdir())
    return path.stat().st_size if path.exists() else 0


SIGNALS = "".join(
    f'<VEYRA port="{s}" type="{s}"/>' for s in ("clock", "resetn", "iready", "ivalid", "oready", "ovalid")
)


def function_text(name, sources, models, inputs=("data_in",)):
    """One FUNCTION element."""
    ports = "".join(f'<INPUT port="{port}" width="32"/>' for port in inputs)
    files = "".join(f'<FILE name="{source}"/>\n' for source in sources)
    c_models = "".join(f'<FILE name="{model}"/>' for model in models)
    return f"""<FUNCTION name="{name}" module="top">
<ATTRIBUTES><IS_STALL_FREE value="yes"/><IS_FIXED_LATENCY value="yes"/><EXPECTED_LATENCY value="1"/></ATTRIBUTES>
<INTERFACE>{SIGNALS}{ports}</INTERFACE>
<REQUIREMENTS>
{files}</REQUIREMENTS>
<C_MODEL>{c_models}</C_MODEL>
</FUNCTION>
"""


def write_spec(path, functions):
    path.write_text("<RTL_SPEC>\n" + "".join(functions) + "</RTL_SPEC>\n", encoding="latin-1")


def write_verilog(path, size, seed, ending=""):
    """A text of that many bytes which looks like a module, written piece by piece: the memory of this
    process would be counted as the peak of the measured programs."""
    random.seed(seed)
    words = ["assign", "wire [31:0]", "reg", "always @(posedge clock)", "begin", "end", "data_in", "if (resetn)"]
    lines = "".join(f"  {random.choice(words)} r{random.randrange(9999)};\n" for _ in range(2000))
    head = "module top(clock, data_in);\n"
    left = size - len(head) - len(ending)
    with open(path, "w", encoding="ascii") as file:
        file.write(head)
        while left > 0:
            left -= file.write(lines[:left])
        file.write(ending)


def make_component(folder, count, size, name="f"):
    """A specification of one function with that many sources of that many bytes; the files' names."""
    folder.mkdir(parents=True, exist_ok=True)
    sources = [f"s{i:05}.v" for i in range(count)]
    for i, source in enumerate(sources):
        write_verilog(folder / source, size, i)
    (folder / "model.cl").write_text(f"int {name}(int a);\n")
    write_spec(folder / "spec.xml", [function_text(name, sources, ["model.cl"])])
    return sources
