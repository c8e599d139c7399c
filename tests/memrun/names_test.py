"""Where the names of code come from, and what becomes of them when something breaks."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time
import unittest

from launcher import MEMRUN, LauncherTest

SOURCE = """
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
void* volatile kept;
__attribute__((noinline)) void hold(int bytes) { kept = malloc(bytes); }
__attribute__((noinline)) void hold_later(int bytes) { kept = malloc(bytes); kept = 0; }
int main(int argc, char** argv) {
    hold(1000);
    if (argc > 1) { write(1, "1", 1); char c; if (read(0, &c, 1) < 0) return 1; }
    hold_later(3000);
    return 0;
}
"""

LINK = (("objcopy", "--only-keep-debug", "NAME", "NAME.debug"), ("strip", "NAME"),
        ("objcopy", "--add-gnu-debuglink=NAME.debug", "NAME"))


class Names(LauncherTest):
    def setUp(self):
        super().setUp()
        self.cache = self.folder / "cache"
        os.environ["XDG_CACHE_HOME"] = str(self.cache)
        (self.folder / "holder.c").write_text(SOURCE)
        self.build("holder", "-g")

    def build(self, name, *flags):
        self.run_checked("gcc", "-O1", "holder.c", "-o", name, *flags)
        return self.folder / name

    def run_checked(self, *command):
        result = self.run_plain(*map(str, command))
        self.assertEqual(result.returncode, 0, result.stderr)

    def site(self, requested, name):
        """File name and function of the site that holds that many bytes."""
        rows = [row for row in self.rows(f"mem_tbb_fileline.{name}.log") if row["Cumulative requested bytes"] == str(requested)]
        self.assertEqual(len(rows), 1, rows)
        return pathlib.Path(rows[0]["File"]).name, rows[0]["Function"]

    def entry_of_holder(self):
        """The one file of the cache that has its names."""
        entry, = (path for path in (self.cache / "ktl_mem").glob("*.names") if b"holder.c" in path.read_bytes())
        return entry

    def start_tracked(self, name, *options):
        """A run that stands between its two allocations."""
        process = subprocess.Popen([MEMRUN, "-o", "reports", "--force", *options, f"./{name}", "wait"], cwd=self.folder,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.stdout.read(1), b"1")
        return process

    def wait_for(self, report):
        begin = time.monotonic()
        while not (self.reports / report).exists():
            self.assertLess(time.monotonic(), begin + 60, report)
            time.sleep(0.05)

    def namer_of(self, process):
        return int(self.run_plain("pgrep", "-P", str(process.pid), "ktl_memrun_name").stdout)

    def test_each_source_names_code(self):
        mini = ("objcopy", "-S", "--keep-symbol=hold", "NAME", "table.elf"), ("xz", "table.elf"), \
            ("strip", "NAME"), ("objcopy", "--add-section", ".gnu_debugdata=table.elf.xz", "NAME")
        for name, flags, commands, file, function in (
                ("lines", "-g", (), "holder.c", "hold"),
                ("linked", "-g", LINK, "holder.c", "hold"),
                ("zlib", "-g -gz", (), "holder.c", "hold"),
                ("zstd", "-g", (("objcopy", "--compress-debug-sections=zstd", "NAME"),), "holder.c", "hold"),
                ("shared", "-g", (("cp", "holder", "twin"), ("dwz", "-m", "common", "NAME", "twin")), "holder.c", "hold"),
                ("split", "-g -gsplit-dwarf", (), "holder.c", "hold"),
                ("table", "", (), "Unknown", "hold+0x"),
                ("mini", "", mini, "Unknown", "hold+0x"),
                ("nothing", "", (("strip", "NAME"),), "Unknown", "nothing+0x")):
            with self.subTest(name=name):
                self.build(name, *flags.split())
                for command in commands:
                    self.run_checked(*(word.replace("NAME", name) for word in command))
                result = self.run_tracked("--force", f"./{name}")
                site = self.site(1000, name)
                self.assertEqual((site[0], site[1][:len(function)]), (file, function), result.stderr)
                note = b"of the bytes have file and line" in result.stderr
                self.assertEqual(note, file == "Unknown", result.stderr)
                other = [row for row in self.rows(f"mem_tbb_fileline.{name}.log") if row["Address"] == "OTHER"]
                self.assertLessEqual(sum(int(row["Cumulative bytes"]) for row in other), 40)

    @unittest.skipUnless(shutil.which("dpkg-query"), "packages are not dpkg's here")
    def test_the_summary_tells_what_names_are_missing(self):
        self.run_checked("strip", "holder")
        stripped = self.run_tracked("./holder").stderr
        self.assertIn(b"0 % of the bytes have file and line, 100 % only a module. No debug information: ", stripped)
        packaged = self.run_tracked("--force", "perl", "-e", "my @a = map { 'x' x 1000 } 1 .. 1000").stderr
        self.assertIn(b"install the debug symbols: perl-base-dbgsym", packaged)

    @unittest.skipUnless(shutil.which("debuginfod"), "no debuginfod server is installed")
    def test_debug_files_come_from_a_server(self):
        for command in LINK[:2]:
            self.run_checked(*(word.replace("NAME", "holder") for word in command))
        served = self.folder / "served"
        served.mkdir()
        (self.folder / "holder.debug").rename(served / "holder.debug")
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        server = subprocess.Popen(["debuginfod", "-d", ":memory:", "-p", str(port), "-F", str(served)],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        world = {**os.environ, "DEBUGINFOD_URLS": f"http://127.0.0.1:{port}", "no_proxy": "127.0.0.1",
                 "DEBUGINFOD_CACHE_PATH": str(self.folder / "fetched"), "DEBUGINFOD_RETRY_LIMIT": "1"}
        for attempt in range(50):  # until the server has looked through its folder
            self.run_tracked("--force", "--debuginfod", "./holder", env=world)
            if self.site(1000, "holder") == ("holder.c", "hold"):
                break
            shutil.rmtree(self.folder / "fetched", ignore_errors=True)
            time.sleep(0.1)
        self.assertEqual(self.site(1000, "holder"), ("holder.c", "hold"))
        self.run_tracked("--force", "--no-name-cache", "./holder", env=world)
        self.assertEqual(self.site(1000, "holder")[0], "Unknown")
        result = self.run_tracked("--force", "--debuginfod", "./holder", env={**world, "DEBUGINFOD_URLS": ""})
        self.assertEqual(result.returncode, 125)
        self.assertIn(b"DEBUGINFOD_URLS", result.stderr)

    def test_the_cache_names_what_it_knows(self):
        self.run_tracked("--no-name-cache", "./holder")
        self.assertFalse(self.cache.exists())
        homeless = {**os.environ, "HOME": str(self.folder / "home"), "XDG_CACHE_HOME": ""}
        self.assertEqual(self.run_tracked("--force", "./holder", env=homeless).returncode, 0)
        self.assertFalse((self.folder / "home").exists())
        self.run_tracked("--force", "./holder")
        entry = self.entry_of_holder()
        whole = entry.read_bytes()
        for damaged in (b"", whole[:-1], whole[:100] + b"x" + whole[101:], b"\xff" * 2000):
            entry.write_bytes(damaged)
            self.run_tracked("--force", "./holder")
            self.assertEqual(self.site(1000, "holder"), ("holder.c", "hold"))
            self.assertEqual(entry.read_bytes(), whole)
        # The names are those of the cache when the file has lost its own.
        self.run_checked("strip", "-g", "holder")
        self.run_tracked("--force", "./holder")
        self.assertEqual(self.site(3000, "holder"), ("holder.c", "hold_later"))

    def test_many_processes_fill_the_cache_to_its_bound(self):
        cache = self.cache / "ktl_mem"
        cache.mkdir(parents=True)
        for day, name in enumerate(("oldest", "older", "newest")):  # 300 MB on paper, of 256 that may be
            with open(cache / f"{name}.names", "wb") as other:
                other.truncate(100 << 20)
            os.utime(cache / f"{name}.names", (86400 * day, 86400 * day))
        runs = [subprocess.Popen([MEMRUN, "-q", "-o", f"run{i}", "./holder"], cwd=self.folder) for i in range(6)]
        self.assertEqual([run.wait() for run in runs], [0] * 6)
        self.assertEqual({path.suffix for path in cache.iterdir()}, {"", ".names"})
        # Down to three quarters of what may be.
        self.assertEqual([path.name for path in cache.glob("*old*")] + [path.name for path in cache.glob("new*")], ["newest.names"])
        (cache / "newest.names").unlink()
        self.assertIn(b"hold_later", self.entry_of_holder().read_bytes())

    def test_a_program_outlives_its_launcher(self):
        self.run_checked("objcopy", "--compress-debug-sections=zstd", "holder")
        process = self.start_tracked("holder")
        os.kill(process.pid, signal.SIGKILL)
        process.communicate(b"x")
        self.wait_for("mem_tbb_leak_warning.holder.log")
        for size, function in ((1000, "hold"), (3000, "hold_later")):
            self.assertEqual(self.site(size, "holder"), ("holder.c", function))

    def test_a_debug_file_is_cut_while_it_is_used(self):
        for command in LINK:
            self.run_checked(*(word.replace("NAME", "holder") for word in command))
        process = self.start_tracked("holder", "--no-name-cache")
        os.truncate(self.folder / "holder.debug", 100)
        _, errors = process.communicate(b"x")
        self.assertEqual(process.returncode, 0, errors)
        self.assertNotIn(b"inside the program", errors)
        self.assertEqual(self.site(1000, "holder"), ("holder.c", "hold"))
        self.assertEqual(self.site(3000, "holder")[1][:9], "holder+0x")

    def test_what_one_process_was_told_is_known_to_the_next(self):
        script = "for i in 1 2; do ./holder; echo; read line; done"
        process = subprocess.Popen([MEMRUN, "-o", "reports", "--no-name-cache", "--follow-children", "sh", "-c", script],
                                   cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        for word in (signal.SIGSTOP, signal.SIGCONT):
            self.assertEqual(process.stdout.read(1), b"\n")
            os.kill(self.namer_of(process), word)
            process.stdin.write(b"\n")
            process.stdin.flush()
        self.assertNotIn(b"inside the program", process.communicate()[1])
        names = {path.name.split(".", 1)[1][:-4] for path in self.reports.glob("mem_tbb_fileline.sh.holder.*.log")}
        self.assertEqual(len(names), 2)
        for name in names:
            self.assertEqual(self.site(3000, name), ("holder.c", "hold_later"))

    def test_a_namer_that_stands_still_costs_a_second(self):
        process = self.start_tracked("holder", "--no-name-cache")
        namer = self.namer_of(process)
        os.kill(namer, signal.SIGSTOP)
        process.stdin.write(b"x")
        process.stdin.flush()
        self.wait_for("mem_tbb_leak_warning.holder.log")
        os.kill(namer, signal.SIGCONT)
        self.assertIn(b"inside the program", process.communicate()[1])
        self.assertEqual(self.site(3000, "holder"), ("holder.c", "hold_later"))

    def test_a_launcher_that_stands_still_costs_a_second(self):
        process = subprocess.Popen([MEMRUN, "-o", "reports", "--follow-children", "sh", "-c", "echo; read line; ./holder; exit 7"],
                                   cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.stdout.read(1), b"\n")
        os.kill(process.pid, signal.SIGSTOP)
        process.stdin.write(b"\n")
        process.stdin.flush()
        self.wait_for("mem_tbb_leak_warning.sh.log")
        os.kill(process.pid, signal.SIGCONT)
        errors = process.communicate()[1]
        self.assertEqual(process.returncode, 7, errors)
        self.assertIn(b"inside the program", errors)
        holder, = (path.name.split(".", 1)[1][:-4] for path in self.reports.glob("mem_tbb_fileline.sh.holder.*.log"))
        self.assertEqual(self.site(3000, holder), ("holder.c", "hold_later"))


if __name__ == "__main__":
    unittest.main()
