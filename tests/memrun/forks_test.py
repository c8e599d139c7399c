"""Programs that fork, and whose children are tracked, too. KTL_FORKS: how many short children there are."""

import os
import pathlib
import re
import select
import signal
import struct
import subprocess
import unittest

from launcher import MEMRUN, SUBJECT, LauncherTest

MEMVIEW = os.environ["KTL_MEMVIEW"]
LARGEST_BLOCK = 8192  # as the allocator rounds the largest that the subject asks for


class Forks(LauncherTest):
    def start(self, *arguments):
        process = subprocess.Popen([MEMRUN, "-o", "reports", *map(str, arguments)], cwd=self.folder,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(lambda: process.poll() is None and (process.kill(), process.communicate()))
        return process

    def check(self):
        result = subprocess.run([MEMVIEW, "check", self.reports], capture_output=True)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertFalse((self.reports / ".memrun").exists())

    def reports_by_process(self):
        """The reports of call paths by their process, the launched one as 0."""
        return {int(re.search(r"\.(\d+)\.log$", path.name)[1]) if path.name.count(".") > 2 else 0: path
                for path in self.reports.glob("mem_tbb_call_paths.*")}

    def test_a_daemon_is_followed_to_its_end(self):
        result = self.run_tracked("--follow-forks", SUBJECT, "daemon")
        self.assertEqual(result.returncode, 7, result.stderr)
        self.assertIn(b"waiting for", result.stderr)
        self.assertIn(b"3 processes, 3 left reports", result.stderr)
        self.assertIn(b"2 forked children began with", result.stderr)
        # Three blocks of 1 KiB from before the forks; the last process frees one and takes one of 8 KiB.
        held = sorted(self.held_by("hold", report) for report in self.reports_by_process().values())
        self.assertEqual(held, [3 * 1024, 3 * 1024, 2 * 1024 + 8192])
        self.check()

    def test_without_the_option_a_child_is_left_alone(self):
        result = self.run_tracked(SUBJECT, "daemon")
        self.assertEqual((result.returncode, list(self.reports_by_process())), (7, [0]))
        self.assertIn(b"--follow-forks", result.stderr)

    def test_workers_that_are_killed(self):
        workers = 4
        counters = self.folder / "counters"
        counters.write_bytes(bytes(64 * workers))
        process = self.start("--follow-forks", SUBJECT, "workers", workers, counters)
        pids = [int(process.stdout.readline()) for _ in range(workers)]
        for number, pid in enumerate(pids):
            os.kill(pid, (signal.SIGKILL, signal.SIGTERM)[number % 2])
        errors = process.communicate(timeout=120)[1]
        self.assertEqual(process.returncode, 0, errors)
        reports = self.reports_by_process()
        self.assertEqual(set(reports), {0, *pids}, errors)
        for number, pid in enumerate(pids):
            counted = struct.unpack_from("<q", counters.read_bytes(), 64 * number)[0]
            self.assertLessEqual(abs(self.held_by("churn_block", reports[pid]) - counted), LARGEST_BLOCK, number)
            self.assertEqual(self.held_by("hold", reports[pid]), 1024)
        self.check()

    def test_short_children_of_a_threaded_parent(self):
        children = int(os.environ.get("KTL_FORKS", "20"))
        counters = self.folder / "counters"
        counters.write_bytes(bytes(64 * 2))
        result = self.run_tracked("--follow-forks", SUBJECT, "short_children", children, counters)
        self.assertEqual(result.returncode, 0, result.stderr)
        reports = self.reports_by_process()
        held = [self.held_by("hold", report) for pid, report in reports.items() if pid != 0]
        self.assertEqual(held, [8192] * children, result.stderr)
        self.check()

    def test_a_child_that_execs_leaves_nothing(self):
        result = self.run_tracked("--follow-forks", SUBJECT, "exec_child")
        self.assertEqual((result.returncode, list(self.reports_by_process())), (0, [0]), result.stderr)
        self.assertIn(b"1 program, 1 left reports", result.stderr)

    def test_the_launcher_is_told_to_leave(self):
        process = self.start("--follow-forks", SUBJECT, "daemon", "forever")
        daemon = int(process.stdout.readline())
        for line in process.stderr:
            if b"waiting for" in line:
                break
        process.send_signal(signal.SIGTERM)
        errors = process.communicate(timeout=120)[1]
        self.assertEqual(process.returncode, 7)
        self.assertIn(b"Still running: memrun_subject (%d)" % daemon, errors)
        ended = os.pidfd_open(daemon)
        os.kill(daemon, signal.SIGTERM)
        select.select([ended], [], [], 60)
        self.assertIn(daemon, self.reports_by_process())


if __name__ == "__main__":
    unittest.main()
