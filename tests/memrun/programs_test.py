"""Real programs behave under the tracker as they do without it, and leave sensible reports."""

import os
import re
import unittest

from launcher import PYTHON, SUBJECT, LauncherTest

PYTHON_SCRIPT = """
import subprocess, threading
held = []
threads = [threading.Thread(target=lambda: held.extend(bytes(1000) for _ in range(20000))) for _ in range(4)]
for thread in threads: thread.start()
for thread in threads: thread.join()
print(len(held), subprocess.run(["/bin/echo", "child"], capture_output=True).stdout)
"""
SQL = ("CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
       "WHERE i < 50000) INSERT INTO t SELECT i, hex(i * 7919) FROM n; CREATE INDEX u ON t(b); "
       "SELECT count(*), max(b) FROM t WHERE b LIKE '3%';")
PERL = "my %h; $h{$_ * 7919 % 10007} .= 'x' x ($_ % 50) for 1 .. 50000; print length join '', sort values %h"
TEMPLATES = """
#include <map>
#include <regex>
#include <string>
#include <vector>
template <int N> struct Deep { std::map<int, Deep<N - 1>> inner; };
template <> struct Deep<0> { std::vector<std::string> texts; };
bool matches(const std::string& text) { Deep<30> deep; return std::regex_match(text, std::regex("a+b*")) && deep.inner.empty(); }
"""


def without_figures(output):
    return re.sub(rb"[\d.]+ *k?s?", b"#", output)


class Programs(LauncherTest):
    def compare(self, command, least_bytes, options=(), normalise=lambda output: output, made=None, **settings):
        """Runs a command with and without the launcher; least_bytes must have been allocated at least."""
        results = []
        for arguments in (command, (os.environ["KTL_MEMRUN"], "-q", "-o", self.reports, "--all", *options, "--", *command)):
            result = self.run_plain(*map(str, arguments), **settings)
            made_bytes = (self.folder / made).read_bytes() if made else b""
            results.append((result.returncode, normalise(result.stdout), normalise(result.stderr), made_bytes))
        self.assertEqual(results[0][0], 0, results[0][2])
        self.assertEqual(results[0], results[1])
        by_site = sum(self.total(path.name, "Cumulative bytes") for path in self.reports.glob("mem_tbb_fileline.*"))
        by_module = sum(self.total(path.name, "Cumulative bytes") for path in self.reports.glob("mem_tbb_subsystem.*"))
        self.assertEqual(by_site, by_module)
        self.assertGreater(by_site, least_bytes)

    def test_python_with_threads_and_subprocesses(self):
        self.compare((PYTHON, "-c", PYTHON_SCRIPT), 80_000_000)
        self.compare((PYTHON, "-c", PYTHON_SCRIPT), 80_000_000, ("--force", "--fill-new", "0xCD", "--fill-freed", "0xDD"))
        sites = self.rows("mem_tbb_fileline.python3.log")
        self.assertTrue(any("obmalloc.c" in row["File"] for row in sites) or not os.path.exists("/usr/lib/debug/.build-id"))

    def test_programs_with_a_file_or_none(self):
        (self.folder / "data").write_bytes(bytes(range(256)) * 20000)
        for command, least_bytes in ((("sqlite3", ":memory:", SQL), 1_000_000), (("perl", "-e", PERL), 500_000),
                                     (("xz", "-T2", "-c", "--block-size=1MiB", "data"), 10_000_000)):
            with self.subTest(command=command):
                self.compare(command, least_bytes, ("--force",))

    def test_git(self):
        origin = self.folder / "origin"
        author = ("-c", "user.name=A", "-c", "user.email=a@b.c")
        self.run_plain("git", "init", "-q", str(origin))
        for i in range(5):
            (origin / f"file{i}").write_text("text\n" * 1000 * i)
            self.run_plain("git", "-C", str(origin), "add", ".")
            self.run_plain("git", *author, "-C", str(origin), "commit", "-qm", f"change {i}")
        self.compare(("sh", "-c", "rm -rf clone; exec git clone -q --no-local origin clone"), 10_000, ("--follow-children",))
        self.setUp()
        self.compare(("git", "-C", str(origin), "log", "-p"), 10_000)

    def test_cmake(self):
        (self.folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.20)\nproject(p LANGUAGES NONE)\nforeach(i RANGE 2000)\n"
            "list(APPEND items ${i})\nendforeach()\nlist(LENGTH items count)\nmessage(STATUS ${count})\n")
        self.compare(("sh", "-c", "rm -rf b; exec cmake -S . -B b"), 1_000_000, ("--follow-children",))

    def test_compiler_with_its_children(self):
        self.compare(("g++", "-c", "-o", "made.o", "-x", "c++", "-"), 20_000_000, ("--follow-children",), made="made.o",
                     input=TEMPLATES.encode())
        self.assertEqual(len(list(self.reports.glob("mem_tbb_fileline.g++.cc1plus.*"))), 1)

    def test_openssl(self):
        self.compare(("openssl", "speed", "-seconds", "1", "-bytes", "1024", "sha256"), 10_000, normalise=without_figures)

    def test_plugins_that_come_and_go(self):
        self.compare((SUBJECT, "plugins", os.environ["KTL_PLUGIN"]), 8_000_000)
        blocks = {"hold(": 0, "work": 0}
        for row in self.rows("mem_tbb_fileline.memrun_subject.log"):
            for function in blocks:
                if function in row["Function"]:
                    blocks[function] += int(row["Cumulative blocks"])
        self.assertEqual(blocks, {"hold(": 80000, "work": 100})


if __name__ == "__main__":
    unittest.main()
