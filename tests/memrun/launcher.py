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

    def total(self, report, column):
        return sum(int(row[column]) for row in self.rows(report))
