"""Runs that are asked, ordered and watched while they go on."""

import json
import os
import pathlib
import resource
import signal
import socket
import stat
import subprocess
import time
import unittest

from launcher import MEMRUN, PYTHON, LauncherTest

MEMCTL = os.environ["KTL_MEMCTL"]
MEMVIEW = os.environ["KTL_MEMVIEW"]

# Holds one more block of 3000 bytes each millisecond, until its input ends.
GROW = ("import select, sys; print('ready', flush=True); held = []\n"
        "while not select.select([sys.stdin], [], [], 0.001)[0]: held.append(bytearray(3000))")


class Control(LauncherTest):
    def start(self, *arguments, **settings):
        process = subprocess.Popen([MEMRUN, "-o", "reports", *map(str, arguments)], cwd=self.folder, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, **settings)
        self.addCleanup(lambda: process.poll() is None and (process.kill(), process.communicate()))
        self.assertEqual(process.stdout.readline(), b"ready\n")
        return process

    def end(self, process):
        errors = process.communicate(b"\n", timeout=120)[1].decode()
        return process.returncode, errors

    def ask(self, *order):
        return self.run_plain(MEMCTL, "reports", *order)

    def status(self):
        return json.loads(self.ask("status", "--json").stdout)

    def wait_for(self, condition):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def check(self, folder):
        result = self.run_plain(MEMVIEW, "check", folder)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_a_busy_program_is_asked_and_goes_on(self):
        process = self.start("--all", PYTHON, "-c", GROW)
        self.wait_for(lambda: self.status()["processes"][0].get("events", 0) > 0)
        for order in (("mark", "before"), ("checkpoint",), ("mark", "after"), ("checkpoint",)):
            self.assertEqual(self.ask(*order).returncode, 0, order)
        for folder in ("marks/before", "marks/after", "checkpoint"):
            self.check(self.reports / folder)
        grown = self.run_plain(MEMVIEW, "diff", self.reports / "marks/before", self.reports / "marks/after")
        self.assertEqual(grown.returncode, 1, grown.stderr)
        growth = json.loads(self.run_plain(MEMVIEW, "growth", "--json", self.reports).stdout)
        self.assertEqual(growth["marks"], ["before", "after"])
        self.assertGreaterEqual(growth["sites"][0]["growth"], 3000)
        self.assertEqual(growth["totals"][1] - growth["totals"][0], sum(site["growth"] for site in growth["sites"]))
        self.assertEqual(self.ask("paths").returncode, 0)
        self.assertGreater((self.reports / "paths/mem_tbb_call_paths.python3.log").stat().st_size, 0)
        for order, bits in (("stop", []), ("start", ["bins", "bin-tags", "modules", "lines", "leaks", "aux", "paths"])):
            self.assertEqual(self.ask(order).returncode, 0)
            self.wait_for(lambda: self.status()["processes"][0]["tracking"] == bits)
        refused = self.ask("start")
        self.assertEqual((refused.returncode, b"is tracked already" in refused.stderr), (1, True))
        held = self.status()["processes"][0]["current_bytes"]
        self.assertEqual(self.ask("reset").returncode, 0)
        self.assertLess(self.status()["processes"][0]["current_bytes"], held)
        status, errors = self.end(process)
        self.assertEqual(status, 0)
        self.assertIn("began anew", errors)
        self.assertFalse((self.reports / ".memrun").exists())

    def test_a_program_that_sleeps_says_why_it_does_not_answer(self):
        process = self.start(PYTHON, "-c", "print('ready', flush=True); input()")
        refused = self.ask("mark", "early", "--timeout", "0.3")
        self.assertEqual(refused.returncode, 1)
        self.assertRegex(refused.stderr.decode(), "made no allocation or free for .*--interrupt")
        self.assertFalse((self.reports / "marks").exists())
        self.assertEqual(self.ask("mark", "late", "--interrupt").returncode, 0)
        pid = self.status()["processes"][0]["pid"]
        os.kill(pid, signal.SIGSTOP)
        stopped = self.ask("mark", "stopped", "--interrupt", "--timeout", "0.3")
        os.kill(pid, signal.SIGCONT)
        self.assertEqual((stopped.returncode, b"is stopped by a signal" in stopped.stderr), (1, True), stopped.stderr)
        self.check(self.reports / "marks/late")
        self.wait_for(lambda: self.status()["processes"][0]["seconds_since_event"] > 0)
        self.assertEqual(self.end(process)[0], 0)

    def test_bad_orders_and_strangers(self):
        process = self.start(PYTHON, "-c", GROW)
        place = self.reports / ".memrun/control"
        self.assertEqual(stat.S_IMODE(place.stat().st_mode), 0o600)
        for line in (b"\n", b"{}\n", b"[1]\n", b'{"order": 7}\n', b'{"order": "mark", "name": "../x"}\n', b'{"order": "go"}\n'):
            with socket.socket(socket.AF_UNIX) as asker:
                asker.connect(str(place))
                asker.sendall(line)
                self.assertIn(b'"ok":false', asker.recv(65536), line)
        for order, status, word in ((("mark", "a/b"), 1, b"is no name for a mark"), (("mark",), 2, b"NAME"), (("go",), 2, b"go"),
                                    (("mark", b"\xff"), 2, b"UTF-8")):
            result = self.ask(*order)
            self.assertEqual((result.returncode, word in result.stderr), (status, True), result.stderr)
        self.assertEqual(self.end(process)[0], 0)
        late = self.ask("status")
        self.assertEqual((late.returncode, b"no ktl_memrun writes" in late.stderr), (2, True))

    def test_a_damaged_page_harms_nobody(self):
        script = ("import ctypes, re\n"
                  "page = re.search(r'(\\w+)-.*ktl_mem control', open('/proc/self/maps').read())[1]\n"
                  "ctypes.memset(int(page, 16), 0xff, 4096)\n") + GROW
        process = self.start(PYTHON, "-c", script)
        for order in (("status",), ("mark", "one", "--timeout", "0.3"), ("checkpoint",)):
            self.assertIn(self.ask(*order).returncode, (0, 1))
        self.assertEqual(self.end(process)[0], 0)
        self.check(self.reports)

    def test_checkpoints_outlive_a_kill(self):
        process = self.start("--checkpoint-every", "1", PYTHON, "-c", GROW)
        self.wait_for((self.reports / "checkpoint").exists)
        os.kill(self.status()["processes"][0]["pid"], signal.SIGKILL)
        status, errors = self.end(process)
        self.assertEqual(status, -signal.SIGKILL)
        self.assertRegex(errors, r"checkpoint +.* before the end")
        self.assertRegex(errors, r"was ended by SIGKILL[^\n]*\nlimit [^\n]*\nheld [^\n]*\ntop ")
        self.check(self.reports / "checkpoint")

    def test_scarcity_of_address_space(self):
        limit = 400 << 20
        script = "import select, sys; print('ready', flush=True); held = []\n" \
                 "while not select.select([sys.stdin], [], [], 0.05)[0] and len(held) < 90: held.append(bytearray(4 << 20))"
        process = self.start("--on-scarcity", "echo $KTL_MEM_SCARCE > $KTL_MEM_DIR/told", PYTHON, "-c", script,
                             preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        self.wait_for((self.reports / "checkpoint").exists)
        self.check(self.reports / "checkpoint")
        self.wait_for((self.reports / "told").exists)
        self.assertEqual(self.end(process)[0], 0)
        self.assertRegex((self.reports / "told").read_text(), "^[89][0-9] % of the limit of address space$")
        self.assertFalse((self.reports / "checkpoint").exists(), "the reports of the end replace it")

    def test_the_live_screen(self):
        """In a terminal of 80 by 24, made smaller and larger, with and without colour."""
        process = self.start(PYTHON, "-c", GROW)
        for number, settings in enumerate(("", "NO_COLOR=1 ")):
            screen = f"ktl_mem_test_{os.getpid()}_{number}"
            tmux = ["tmux", "-L", screen]
            subprocess.run([*tmux, "new-session", "-d", "-x", "80", "-y", "24",
                            f"{settings}{MEMVIEW} top {self.reports}; echo left; sleep 60"], check=True)
            self.addCleanup(subprocess.run, [*tmux, "kill-server"], capture_output=True)

            def shown(*options):
                return subprocess.run([*tmux, "capture-pane", "-p", *options], capture_output=True).stdout.decode()

            def press(*keys):
                subprocess.run([*tmux, "send-keys", *keys], check=True)
            self.wait_for(lambda: "m mark  c checkpoint" in shown() and "+" in shown())
            self.assertRegex(shown(), r"^python3 \(\d+\)\nholds .* blocks, peak .*\n.* events a second")
            self.assertTrue(all(len(line) <= 80 for line in shown().splitlines()))
            if number == 1:
                self.assertNotIn("\x1b[31m", shown("-e"))
            press("c")
            self.wait_for(lambda: "written to" in shown())
            press("m")
            self.wait_for(lambda: "marks/" in shown())
            self.assertEqual(len(list((self.reports / "marks").iterdir())), number + 1)
            for width, height in ((40, 10), (120, 30)):
                subprocess.run([*tmux, "resize-window", "-x", str(width), "-y", str(height)], check=True)
                self.wait_for(lambda: shown().startswith("python3") and
                              len([line for line in shown().splitlines() if line]) <= height)
            press("/")
            press("-l", "no such place")
            self.wait_for(lambda: "/no such place" in shown() and "KiB " not in shown().split("function")[-1])
            press("Escape")
            press("q")
            self.wait_for(lambda: "left" in shown())
        lines = subprocess.Popen([MEMVIEW, "top", self.reports], stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        self.assertRegex(lines.stdout.readline().decode(), "^[0-9.]+ .iB in .* events/s, top ")
        self.assertEqual(self.end(process)[0], 0)
        self.assertIn(b"the run has ended", lines.communicate(timeout=60)[0])

    def test_the_kernels_killer(self):
        group = pathlib.Path("/sys/fs/cgroup/memory")
        group = (group if group.exists() else group.parent) / f"ktl_mem_test_{os.getpid()}"
        try:
            group.mkdir()
            self.addCleanup(group.rmdir)
            limit = next(path for path in (group / "memory.limit_in_bytes", group / "memory.max") if path.exists())
            limit.write_text(str(120 << 20))
        except (OSError, StopIteration) as error:
            self.skipTest(f"no memory cgroup can be made here: {error}")
        # Slow enough for the launcher, which looks ten times a second, to see the limit come near.
        script = "import time\nheld = []\nwhile True: held.append(bytearray(b'x' * (1 << 20))), time.sleep(0.02)"
        result = self.run_tracked(PYTHON, "-c", script, preexec_fn=lambda: (group / "cgroup.procs").write_text(str(os.getpid())))
        self.assertEqual(result.returncode, -signal.SIGKILL, result.stderr)
        errors = result.stderr.decode()
        self.assertRegex(errors, f"was ended by SIGKILL .* by the kernel's out-of-memory killer of {group}\n"
                                 r"limit +\d+ % of the cgroup's limit, 120.0 MiB.*\nheld .*\ntop .*MiB")
        self.check(self.reports)


if __name__ == "__main__":
    unittest.main()
