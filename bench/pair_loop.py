"""Runs bench_pair_loop under the settings that are compared, in turns, so that a slow minute of the machine is everybody's.
"""
import argparse
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import typing

ROOT = pathlib.Path(__file__).resolve().parent.parent
ALLOCATOR = os.path.realpath("/usr/lib/x86_64-linux-gnu/libtcmalloc_minimal.so.4")
RECORDER = "/usr/lib/heaptrack/libheaptrack_preload.so"
FLOOR = "ownership and size asked"
WORDS = {
    "word 1": ["PROFILE_PER_BIN"],
    "word 8": ["PROFILE_PER_FILELINE"],
    "word 8 and call paths": ["PROFILE_PER_FILELINE", "PROFILE_CALL_PATHS"],
    "word 12": ["PROFILE_PER_FILELINE", "PROFILE_PER_LIBRARY"],
    "word 16": ["CHECK_LEAKS"],
    "word 95": ["PROFILE_ALL"],
}


class Figures(typing.NamedTuple):
    """Of a pair, or of several runs."""

    nanoseconds: float  # processor time of a pair
    rate: float  # million pairs a second, of all threads together


def settings(build):
    """What a process gets into its environment, by the name of the setting."""
    hooks = build / "lib/libbench_empty_hooks.so"
    tracker = {"LD_PRELOAD": f"{ALLOCATOR}:{build / 'lib/libktl_mem.so'}"}
    words = {name: tracker | {f"VELDRIN_MEM_{key}": "1" for key in keys} for name, keys in WORDS.items()}
    recorder = {"LD_PRELOAD": RECORDER, "DUMP_HEAPTRACK_OUTPUT": "recorder.raw"}
    return {
        "C library's malloc": {},
        "tcmalloc_minimal": {"LD_PRELOAD": ALLOCATOR},
        "hooks that return at once": {"LD_PRELOAD": f"{ALLOCATOR}:{hooks}"},
        FLOOR: {"LD_PRELOAD": f"{ALLOCATOR}:{hooks}", "BENCH_HOOKS": "sizes"},
        "library, tracking off": tracker,
        **words,
        **({"heaptrack's recorder": recorder} if os.path.exists(RECORDER) else {}),
    }


def parser(description, pairs):
    result = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    result.add_argument("build", nargs="?", type=pathlib.Path, default=ROOT / "build/release",
                        help="build folder (default: build/release)")
    result.add_argument("--pairs", type=int, default=pairs, help=f"of each thread (default: {pairs})")
    result.add_argument("--live", type=int, default=100000, help="live blocks of each thread (default: 100000)")
    result.add_argument("--repeat", type=int, default=7, help="runs of each kind (default: 7)")
    return result


class Bench:
    def __init__(self, arguments):
        self.program = (arguments.build / "bin/bench_pair_loop").resolve()
        self.settings = settings(arguments.build.resolve())
        self.arguments = arguments
        for needed in (ALLOCATOR, self.program):
            if not os.path.exists(needed):
                sys.exit(f"{sys.argv[0]}: {needed} is missing; run scripts/setup and build the release preset first")

    def run_once(self, setting, threads, depth=10):
        command = [self.program, *map(str, (threads, self.arguments.pairs, self.arguments.live, depth))]
        with tempfile.TemporaryDirectory() as folder:
            run = subprocess.run(command, env=os.environ | self.settings[setting], cwd=folder, check=True,
                                 capture_output=True, text=True)
        figures = re.search(r"([\d.]+) ns of processor time a pair, ([\d.]+) million pairs a second", run.stderr)
        return Figures(*map(float, figures.groups()))

    def medians(self, kinds):
        """Of all kinds, each a setting, a number of threads, and perhaps how many frames deep."""
        runs = {kind: [] for kind in kinds}
        for _ in range(self.arguments.repeat):
            for kind in kinds:
                runs[kind].append(self.run_once(*kind))
        return {kind: Figures(*map(statistics.median, zip(*figures))) for kind, figures in runs.items()}
