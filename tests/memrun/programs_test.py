"""Real programs behave under the tracker as they do without it, and leave sensible reports."""

import os
import shutil
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
REPOSITORY = ("git init -q origin; cd origin; for i in 1 2 3 4 5; do yes text | head -${i}000 >file$i; git add .; "
              "git -c user.name=A -c user.email=a@b.c commit -qm $i; done")
PROJECT = ("cmake_minimum_required(VERSION 3.20)\nproject(p LANGUAGES NONE)\nforeach(i RANGE 2000)\n"
           "list(APPEND items ${i})\nendforeach()\nlist(LENGTH items count)\nmessage(STATUS ${count})\n")
TEMPLATES = """
#include <map>
#include <regex>
#include <string>
#include <vector>
template <int N> struct Deep { std::map<int, Deep<N - 1>> inner; };
template <> struct Deep<0> { std::vector<std::string> texts; };
bool matches(const std::string& text) { Deep<30> deep; return std::regex_match(text, std::regex("a+b*")) && deep.inner.empty(); }
"""
FILL = ("--fill-new", "0xCD", "--fill-freed", "0xDD")


def shell(script):
    return "sh", "-c", script


class Programs(LauncherTest):
    def compare(self, command, least_bytes, *options):
        """Runs a command with and without the launcher; least_bytes must have been allocated at least."""
        plain = self.run_plain(*command)
        tracked = self.run_tracked("-q", "--force", "--all", *options, "--", *command)
        self.assertEqual(plain.returncode, 0, plain.stderr)
        self.assertEqual((tracked.returncode, tracked.stdout, tracked.stderr), (0, plain.stdout, plain.stderr))
        by_site, by_module = (sum(self.total(path.name, "Cumulative bytes") for path in self.reports.glob(f"mem_tbb_{kind}.*"))
                              for kind in ("fileline", "subsystem"))
        self.assertEqual(by_site, by_module)
        self.assertGreater(by_site, least_bytes)

    def test_programs_by_themselves(self):
        (self.folder / "data").write_bytes(bytes(range(256)) * 20000)
        self.run_plain(*shell(REPOSITORY))
        for command, least_bytes, *options in (
                ((PYTHON, "-c", PYTHON_SCRIPT), 80_000_000, *FILL),
                (("sqlite3", ":memory:", SQL), 1_000_000),
                (("perl", "-e", PERL), 500_000),
                (("xz", "-T2", "-c", "--block-size=1MiB", "data"), 10_000_000),
                (("git", "-C", "origin", "log", "-p"), 10_000),
                ((PYTHON, "-c", PYTHON_SCRIPT), 80_000_000)):
            with self.subTest(command=command, options=options):
                self.compare(command, least_bytes, *options)
        sites = self.rows("mem_tbb_fileline.python3.log")
        self.assertTrue(any("obmalloc.c" in row["File"] for row in sites) or not os.path.exists("/usr/lib/debug/.build-id"))

    def test_programs_with_their_children(self):
        self.run_plain(*shell(REPOSITORY))
        (self.folder / "CMakeLists.txt").write_text(PROJECT)
        (self.folder / "templates.cpp").write_text(TEMPLATES)
        for script, least_bytes in (
                ("rm -rf clone; exec git clone -q --no-local origin clone", 10_000),
                ("rm -rf b; exec cmake -S . -B b", 1_000_000),
                # Its figures are of the speed.
                ("openssl speed -seconds 1 -bytes 1024 sha256 2>&1 | sed -E 's/[0-9.]+ *k?s?/#/g'", 10_000),
                ("g++ -c templates.cpp && exec cat templates.o", 20_000_000)):
            with self.subTest(script=script):
                self.compare(shell(script), least_bytes, "--follow-children")
        self.assertEqual(len(list(self.reports.glob("mem_tbb_fileline.sh.cc1plus.*"))), 1)

    def test_programs_that_put_another_in_their_place(self):
        (self.folder / "wrapper").write_text("#!/usr/bin/env bash\nset -e\nx=$(echo 1)\nexec \"$@\"\n")
        (self.folder / "wrapper").chmod(0o755)
        call = ("import ctypes, os\nprogram, held = ctypes.CDLL(None), bytearray(1 << 20)\n"
                "subject = os.environb[b'SUBJECT']\nlist = (ctypes.c_char_p * 3)(subject, b'leak')\n"
                "none, folder = ctypes.c_void_p(), os.open('/', os.O_PATH)\nprogram.")
        calls = ("execv(subject, list)", "execvp(b'memrun_subject', list)", "execve(subject, list, none)",
                 "execvpe(b'memrun_subject', list, none)", "execl(subject, subject, b'leak', none)",
                 "execlp(b'memrun_subject', subject, b'leak', none)", "execle(subject, subject, b'leak', none, none)",
                 "fexecve(os.open(subject, os.O_RDONLY), list, none)", "execveat(folder, subject, list, none, 0)",
                 "execveat(os.open(subject, os.O_RDONLY), b'', list, none, 0x1000)")
        settings = {**os.environ, "SUBJECT": SUBJECT, "PATH": os.path.dirname(SUBJECT) + ":" + os.environ["PATH"]}
        for command in (*((PYTHON, "-c", call + one) for one in calls), ("./wrapper", "./wrapper", SUBJECT, "leak")):
            with self.subTest(command=command[-1]):
                result = self.run_tracked("--force", "--name", "x", "--", *command, env=settings)
                self.assertEqual((result.returncode, result.stdout), (7, b""), result.stderr)
                held = [row["Current blocks"] for row in self.rows("mem_tbb_fileline.x.log") if "hold(" in row["Function"]]
                self.assertEqual(held, ["3"])
                self.assertEqual(len(list(self.reports.glob("mem_tbb_*"))), 6)
        # The environment is what the program made it; a child, a program that is not there and one that cannot be tracked.
        script = ("import os, subprocess\nprint(subprocess.run('env').returncode, flush=True)\n"
                  "os.environ.update(LD_PRELOAD='libm.so.6', VELDRIN_MEM_PROFILE_ALL='0')\n"
                  "try: os.execv('/none', ['none'])\nexcept FileNotFoundError: os.execvp('env', ['env'])\n")
        self.compare((PYTHON, "-c", script), 1000)
        result = self.run_tracked("--force", "sh", "-c", "exec /sbin/ldconfig --version")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.report_kinds(), {"call_paths"})

    def test_libraries_that_allocate_in_constructors(self):
        script = ("import ctypes, os\n"
                  "linked, opened = ctypes.CDLL(None), ctypes.CDLL('./copy.so', os.RTLD_NOW | os.RTLD_DEEPBIND)\n"
                  "print(*(ctypes.c_int.in_dll(library, 'registry_arguments').value for library in (linked, opened)))\n"
                  "linked.clear_registry()\n"
                  "opened.registry_block.restype = ctypes.c_void_p\n"
                  "linked.free(ctypes.c_void_p(opened.registry_block()))\n")
        shutil.copy(os.environ["KTL_REGISTRY"], self.folder / "copy.so")
        result = self.run_tracked(PYTHON, "-c", script, env={**os.environ, "LD_PRELOAD": os.environ["KTL_REGISTRY"]})
        self.assertEqual((result.returncode, result.stdout), (0, b"3 3\n"), result.stderr)
        # 20,000 blocks of 1024 bytes each: those of the linked one are gone at the end, the highest total is that of both.
        rows = [row for row in self.rows("mem_tbb_fileline.python3.log") if row["Function"] == "fill_registry"]
        self.assertEqual(sorted(int(row["Current blocks"]) for row in rows if row["Max blocks"] == "20000"), [0, 20000])
        self.assertGreater(self.total("mem_tbb_fileline.python3.log", "Peak bytes"), 2 * 20_480_000 - 1_048_576)
        self.assertIn(b"copy.so asked for its own symbols", result.stderr)


if __name__ == "__main__":
    unittest.main()
