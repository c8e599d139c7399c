"""Runs that are asked, ordered and watched while they go on."""

import json
import os
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
        for order, status, word in ((("mark", "a/b"), 1, b"is no name for a mark"), (("mark",), 2, b"NAME"), (("go",), 2, b"go")):
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


if __name__ == "__main__":
    unittest.main()
