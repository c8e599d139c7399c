"""How the tests run the launcher, and read what a run left."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

MEMRUN = os.environ["KTL_MEMRUN"]
SUBJECT = os.environ["KTL_SUBJECT"]
PYTHON = "/usr/bin/python3"


class LauncherTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="memrun")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.reports = self.folder / "reports"

    def run_plain(self, *command, **settings):
        return subprocess.run(command, cwd=self.folder, capture_output=True, timeout=300, **settings)

    def run_tracked(self, *arguments, **settings):
        """Runs `ktl_memrun -o reports ARGUMENTS`."""
        return self.run_plain(MEMRUN, "-o", "reports", *map(str, arguments), **settings)

    def report_kinds(self):
        """The reports that are there, without middle word and the note beside them; the filters file depends on what was met."""
        kinds = {re.sub(r"\..*", "", path.name) for path in self.reports.iterdir()}
        return {kind.removeprefix("mem_tbb_") for kind in kinds} - {"filters", "ktl_memrun"}

    def rows(self, report):
        """The rows of a report with one table, as dictionaries."""
        lines = (self.reports / report).read_text().splitlines()
        titles = lines[2].split("\t")
        return [dict(zip(titles, line.split("\t"))) for line in lines[3:] if line.count("\t") == len(titles) - 1]

    def held_by(self, function, report):
        """Current bytes of the paths that end in a function of the subject's."""
        frames, held, columns = set(), 0, None
        for line in report.read_text().splitlines():
            fields = line.split("\t")
            if fields[0] in ("Frame", "Node"):
                columns = fields
            elif len(fields) < 2 or columns is None:
                continue
            elif columns[0] == "Frame" and f"::{function}(" in fields[7]:
                frames.add(fields[0])
            elif columns[0] == "Node" and fields[2] in frames:
                held += int(fields[columns.index("Current bytes")])
        return held

    def total(self, report, column):
        return sum(int(row[column]) for row in self.rows(report))
