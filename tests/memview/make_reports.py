#!/usr/bin/env python3
"""Writes a folder of reports as a run of a chosen size would leave it, with figures that agree with each other:
make_reports.py FOLDER NAME MODULES SITES SAMPLES"""

import itertools
import os
import sys

from path_report import PathReport, level

EXPECTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "report", "expected")
CLOSING = "Time spent dumping:\t3 clicks.\t0.003 seconds.\n"
LABELS = ["Other", "read", "analyse <b>", "write"]
TAGS = 6
CALLERS = 20
# Counters stand as in a row of call sites: bytes (current, max, peak, cumulative, requested, mismatched), then blocks
# (current, max, peak, cumulative).
CURRENT, MAX, PEAK, CUMULATIVE, MOST_BLOCKS = 0, 1, 2, 3, 7


def head(kind, lines):
    """The first lines of a report as the library writes it."""
    with open(os.path.join(EXPECTED, f"mem_tbb_{kind}.scripted.log")) as report:
        return "".join(itertools.islice(report, lines))


def row(*fields):
    return "\t".join(map(str, fields)) + "\n"


def counters_of_site(i):
    blocks, size, current = 1 + i * 7919 % 97, 16 + i * 104729 % 4096, int(i % 5 == 0)
    most, ever, mismatched = blocks + 2, 3 * (blocks + 2), size if i % 11 == 0 else 0
    return [current * size, most * size, blocks * size, ever * size, ever * (size - 3), mismatched,
            current, most, blocks, ever]


def figures_of_path(counters):
    """The exact peak holds twice what the recorded one does."""
    current, _, peak, ever, requested, _, blocks, _, peak_blocks, ever_blocks = counters
    return [current, blocks, current, 2 * peak, 2 * peak_blocks, ever, ever_blocks, requested, ever_blocks // 3]


def stack_of(i, place):
    """main, one of some callers, the call site, and what it allocates by."""
    caller = level(f"project::caller{i % CALLERS}(int)", "/home/user/project/source/callers.cpp", 10 + i % CALLERS, "module1")
    inlined = level("std::vector<int, std::allocator<int> >::push_back(int&&)", "/usr/include/c++/12/bits/stl_vector.h", 1296,
                    place[1], 1)
    return [[level("main", "/home/user/project/source/main.cpp", 5, "module1")], [caller], [inlined, place],
            [level("operator new(unsigned long)", "", 0, "libtcmalloc_minimal.so.4", 1)]]


class Series:
    """A module or a tag, with the sums of its call sites."""

    def __init__(self, name):
        self.name, self.counters = name, [0] * 10

    def add(self, counters):
        self.counters = [mine + other for mine, other in zip(self.counters, counters)]


class Run:
    def __init__(self, folder, name, modules, sites, samples):
        os.makedirs(folder)
        self.folder, self.name, self.sites, self.samples = folder, name, sites, samples
        self.modules = [Series(f"module{m}" if m else "<script>alert(1)</script>") for m in range(modules)]
        self.tags = [Series(f"tag{t}") for t in range(TAGS)]

    def write_all(self):
        self.write_sites()
        self.write("subsystem", head("subsystem", 3), (
            row(one.name, *(figure for i, figure in enumerate(one.counters) if i != MOST_BLOCKS))
            for one in self.modules), CLOSING)
        for kind in "timeline", "cumulative_blocks_timeline":
            self.write_timeline(kind, self.named_modules())
        self.write_timeline("pbin_tag_timeline_detailed", self.tags)
        for kind in "pbin_tag_stats", "pbin_stats":
            self.write(kind, head(kind, 3), (
                row(one.name, *(one.counters[i] for i in (MAX, PEAK, CUMULATIVE, CURRENT))) for one in self.tags))
        self.write("auxiliary_timeline", head("auxiliary_timeline", 3), (
            row(1000 + s * 3, 90000000 + s * 40, 30000000 + s % 1000 * 4096, s * 5, s * 4, s, s * 500, s * 100,
                s * 512, s * 102) for s in range(self.samples)), CLOSING)
        self.write("filters", head("filters", 1), [
            '"0x7f00deadbeef","stdc++","operator"" _x("a","b")","/usr/include/c++/12/bits/new.h:81"\n',
            '"0x7f00deadbeff","tbb","",""\n'])

    def open(self, kind):
        return open(os.path.join(self.folder, f"mem_tbb_{kind}.{self.name}.log"), "w")

    def write(self, kind, first, rows, last=""):
        with self.open(kind) as report:
            report.writelines(itertools.chain([first], rows, [last]))

    def write_sites(self):
        paths = PathReport()
        with self.open("fileline") as report, self.open("leak_warning") as leaks:
            report.write(head("fileline", 3).replace("index 3", f"index {self.samples // 2}"))
            leaks.write(head("leak_warning", 2))
            for i in range(self.sites):
                counters, module = counters_of_site(i), self.modules[i % len(self.modules)]
                module.add(counters)
                self.tags[i % TAGS].add(counters)
                part, line = f"part{i % 50}", 10 + i % 2000
                file = f"/home/user/project/source/{part}/file{i % 700}.cpp"
                function = f'project::{part}::Class<int, "&<b>">::function{i % 3000}(std::string const&, int)'
                address = hex(0x7f0000000000 + i * 64)
                report.write(row(address, *counters, module.name, file, line, function))
                place = level(function, file, line, module.name)
                paths.add(stack_of(i, place), address, figures_of_path(counters))
                if counters[CURRENT]:
                    leaks.write(f"{module.name} leaked {counters[CURRENT]} bytes in 1 object(s) allocated at "
                                f"{file}:{line} {function}\n")
            report.write(row("OTHER", *[0] * 10, "", "", 0, "") + CLOSING)
            leaks.write(f"\nTotal leaked bytes: {sum(tag.counters[CURRENT] for tag in self.tags)}\n")
        paths.write(self.folder, self.name)

    def named_modules(self):
        """The last 18 modules are named, the others are Misc."""
        misc = Series("Misc")
        for one in self.modules[:-18]:
            misc.add(one.counters)
        return [misc] + self.modules[-18:]

    def write_timeline(self, kind, all_series):
        """Each series goes in steps up to its peak in the middle of the run and ends at its current bytes."""
        steps = min(self.samples, 1000)
        middle = self.samples // 2 * steps // self.samples

        def value(series, which, step):
            if step in (middle, steps - 1):
                return series.counters[PEAK if step == middle else CURRENT]
            wobble = (step * 31 + which * 17) % 64
            return series.counters[PEAK] * min(step, steps - step) * (64 + wobble) // (steps * 128)

        rows = [row(LABELS[step * 4 // steps], *(value(one, i, step) for i, one in enumerate(all_series)))
                for step in range(steps)]
        titles = row("", *(one.name for one in all_series))
        self.write(kind, head(kind, 2) + titles, (rows[s * steps // self.samples] for s in range(self.samples)), CLOSING)


if __name__ == "__main__":
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    Run(*sys.argv[1:3], *map(int, sys.argv[3:])).write_all()
