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


class Load(typing.NamedTuple):
    """What bench_pair_loop does, and with how many pairs and live blocks of each thread."""

    name: str
    live: int = 0
    kind: str = "pairs"
    pairs: int = 1000000
    depth: int = 10


WARM = Load("1,000 live blocks", live=1000, pairs=2000000)
COLD = Load("100,000 live blocks", live=100000, pairs=500000)
LOADS = {
    "warm": WARM,
    "cold": COLD,
    "grow": Load("only allocations", kind="grow"),
    "shrink": Load("only frees", kind="shrink"),
    "pass": Load("allocated here, freed there", kind="pass"),
    "one-place": Load("one call site, 1,000 live blocks", live=1000, kind="one-place"),
    "many-places": Load("10,000 call sites, 10,000 live blocks", live=10000, kind="many-places"),
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


def parser(description, loads=()):
    result = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    result.add_argument("build", nargs="?", type=pathlib.Path, default=ROOT / "build/release",
                        help="build folder (default: build/release)")
    if loads:
        result.add_argument("--loads", nargs="+", choices=list(LOADS), default=loads, metavar="LOAD",
                            help=f"of {', '.join(LOADS)} (default: {' '.join(loads)})")
    result.add_argument("--settings", nargs="+", metavar="SETTING", help="those alone, by their names in the table")
    result.add_argument("--pairs", type=int, help="of each thread (default: as many as fit the load)")
    result.add_argument("--repeat", type=int, default=7, help="runs of each kind (default: 7)")
    return result


class Bench:
    def __init__(self, arguments):
        self.program = (arguments.build / "bin/bench_pair_loop").resolve()
        known = settings(arguments.build.resolve())
        for name in arguments.settings or ():
            if name not in known:
                sys.exit(f"{sys.argv[0]}: no setting \"{name}\"; there are: {', '.join(known)}")
        self.settings = {name: known[name] for name in arguments.settings or known}
        self.arguments = arguments
        for needed in (ALLOCATOR, self.program):
            if not os.path.exists(needed):
                sys.exit(f"{sys.argv[0]}: {needed} is missing; run scripts/setup and build the release preset first")

    def run_once(self, setting, threads, load):
        pairs = self.arguments.pairs or load.pairs
        command = [self.program, str(threads), str(pairs), str(load.live), load.kind, str(load.depth)]
        with tempfile.TemporaryDirectory() as folder:
            run = subprocess.run(command, env=os.environ | self.settings[setting], cwd=folder, check=True,
                                 capture_output=True, text=True)
        figures = re.search(r"([\d.]+) ns of processor time a pair, ([\d.]+) million pairs a second", run.stderr)
        return Figures(*map(float, figures.groups()))

    def medians(self, kinds):
        """Of all kinds, each of a setting, a number of threads and a load."""
        runs = {kind: [] for kind in kinds}
        for _ in range(self.arguments.repeat):
            for kind in kinds:
                runs[kind].append(self.run_once(*kind))
        return {kind: Figures(*map(statistics.median, zip(*figures))) for kind, figures in runs.items()}
