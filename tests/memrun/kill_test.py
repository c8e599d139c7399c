"""Programs that are killed at any moment: the launcher knows what they held. KTL_KILLS: how many are killed."""

import os
import pathlib
import random
import signal
import struct
import subprocess
import time
import unittest

from launcher import MEMRUN, SUBJECT, LauncherTest

MEMCTL = os.environ["KTL_MEMCTL"]
MEMVIEW = os.environ["KTL_MEMVIEW"]
LARGEST_BLOCK = 8192  # as the allocator rounds the largest that the subject asks for
WAYS = ("growth", "checkpoint", "end", "start")


class Kills(LauncherTest):
    def setUp(self):
        super().setUp()
        self.counters = self.folder / "counters"

    def program_of(self, launcher):
        """The launcher's first child: others serve it."""
        children = pathlib.Path(f"/proc/{launcher.pid}/task/{launcher.pid}/children")
        while launcher.poll() is None:
            if found := children.read_text().split():
                return int(found[0])
        self.fail("the launcher ended")

    def kill_one(self, threads, way, dice):
        self.counters.write_bytes(bytes(64 * threads))
        launcher = subprocess.Popen([MEMRUN, "-o", "reports", "--force", SUBJECT, "churn", str(threads), self.counters],
                                    cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(lambda: launcher.poll() is None and launcher.kill())
        program = self.program_of(launcher)
        asker = None
        if way != "start":
            self.assertEqual(launcher.stdout.readline(), b"ready\n")
            time.sleep(dice.uniform(0, 0.2))
        if way == "checkpoint":
            asker = subprocess.Popen([MEMCTL, "reports", "checkpoint"], cwd=self.folder, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
        if way == "end":
            os.kill(program, signal.SIGTERM)
        time.sleep(dice.uniform(0, 0.02 if way != "start" else 0.3))
        try:
            os.kill(program, signal.SIGKILL)
        except ProcessLookupError:
            self.assertEqual(way, "end")
        errors = launcher.communicate(timeout=120)[1].decode()
        if asker is not None:
            asker.wait(120)
        return launcher.returncode, errors

    def counted(self):
        return sum(struct.unpack_from("<q", self.counters.read_bytes(), at)[0]
                   for at in range(0, self.counters.stat().st_size, 64))

    def test_nothing_is_lost(self):
        dice = random.Random(4711)
        for number in range(int(os.environ.get("KTL_KILLS", "12"))):
            threads, way = (1, 8)[number % 2], WAYS[number // 2 % len(WAYS)]
            with self.subTest(number=number, threads=threads, way=way):
                status, errors = self.kill_one(threads, way, dice)
                self.assertIn(status, (-signal.SIGKILL,) if way != "end" else (-signal.SIGKILL, -signal.SIGTERM), errors)
                self.assertFalse((self.reports / ".memrun").exists())
                self.assertLessEqual({path.name for path in self.reports.iterdir() if path.is_dir()}, {"checkpoint"})
                report = self.reports / "mem_tbb_call_paths.memrun_subject.log"
                if not report.exists():
                    self.assertEqual((way, self.counted()), ("start", 0), errors)
                    continue
                checked = subprocess.run([MEMVIEW, "check", self.reports], capture_output=True)
                self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
                if way != "end" or threads == 1:  # an end that has begun tracks no more; others go on until it is made
                    self.assertLessEqual(abs(self.held_by("churn_block", report) - self.counted()), threads * LARGEST_BLOCK)
                if status == -signal.SIGKILL:
                    self.assertIn("SIGKILL", errors)


if __name__ == "__main__":
    unittest.main()
