"""How runs end: statuses, signals, faults, memory that runs out."""

import os
import pathlib
import re
import resource
import signal
import subprocess
import unittest

from launcher import MEMRUN, PYTHON, SUBJECT, LauncherTest


class Endings(LauncherTest):
    def start(self, *command, around=(), **settings):
        """Starts a tracked program, in a process group of its own, and waits for its first line.

        A shell's script that is given as `around` starts it."""
        shell = ["/bin/sh", "-c", *around, "sh"] if around else []
        process = subprocess.Popen([*shell, MEMRUN, "-o", "reports", "--force", *command], cwd=self.folder, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True, **settings)
        self.assertEqual(process.stdout.readline(), b"ready\n")
        return process

    def end(self, process):
        output, errors = process.communicate(timeout=120)
        return process.returncode, output, errors.decode()

    def test_signals_that_the_program_does_not_handle(self):
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            for behaviour in (("wait",), ("busy",), ("forking",), ("loading", os.environ["KTL_PLUGIN"])):
                for whole_group in (False, True):
                    with self.subTest(number=number, behaviour=behaviour, whole_group=whole_group):
                        process = self.start(SUBJECT, *behaviour)
                        (os.killpg if whole_group else os.kill)(process.pid, number)
                        status, output, errors = self.end(process)
                        self.assertEqual((status, output), (-number, b""))
                        self.assertIn(f"was ended by {number.name}", errors)
                        self.assertGreater(self.total("mem_tbb_fileline.memrun_subject.log", "Cumulative bytes"), 0)

    def test_signals_that_the_program_handles_or_ignores(self):
        handles = ("import signal, sys, time\n"
                   "found = signal.getsignal(signal.SIGTERM)\n"
                   "try: print('ready', flush=True); time.sleep(60)\n"
                   "except KeyboardInterrupt: print(found == signal.SIG_DFL); sys.exit(9)\n")
        ignores = "print('ready', flush=True); input(); print('alive')"
        # Who is started in a script's background ignores SIGINT.
        heeds = "import signal; signal.signal(signal.SIGINT, signal.default_int_handler)\n" + handles
        in_background = "trap '' INT; exec \"$@\""
        table = ((signal.SIGINT, 9, b"True\n", (PYTHON, "-c", handles)),
                 (signal.SIGINT, 9, b"True\n", (PYTHON, "-c", heeds), in_background),
                 (signal.SIGHUP, 0, b"alive\n", ("/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh", PYTHON, "-c", ignores)))
        for number, status, output, command, *around in table:
            process = self.start(*command, around=around)
            os.kill(process.pid, number)
            process.stdin.write(b"\n")
            self.assertEqual(self.end(process)[:2], (status, output))

    def test_a_filter_that_kills_and_allows_what_the_manual_names(self):
        manual = (pathlib.Path(__file__).parents[2] / "docs/memrun.md").read_text()
        passage = re.search(r"One that kills must let through(.*?)A kill ends", manual, re.DOTALL).group(1)
        header = pathlib.Path("/usr/include/x86_64-linux-gnu/asm/unistd_64.h").read_text()
        numbers = dict(re.findall(r"#define __NR_(\w+) (\d+)", header))
        allowed = [numbers[name] for name in re.findall(r"`(\w+)`", passage) + ["exit_group"]]
        tracked = self.run_tracked("--", SUBJECT, "filtered", *allowed)
        self.assertEqual(tracked.returncode, 0, tracked.stderr)
        self.assertGreaterEqual(self.total("mem_tbb_fileline.memrun_subject.log", "Cumulative blocks"), 3000)
        self.assertIn("call_paths", self.report_kinds())

    def test_default_set_and_sent_by_the_program_itself(self):
        script = ("import os, signal, time\n"
                  "signal.signal(signal.SIGTERM, lambda *_: 0)\n"
                  "signal.signal(signal.SIGTERM, signal.SIG_DFL)\n"
                  "os.kill(os.getpid(), signal.SIGTERM); time.sleep(60)\n")
        result = self.run_tracked(PYTHON, "-c", script)
        self.assertEqual(result.returncode, -signal.SIGTERM)
        self.assertIn("fileline", self.report_kinds())

    def test_forked_children_leave_no_reports(self):
        script = "import os\nif os.fork() == 0: os.kill(os.getpid(), 15)\nprint(os.wait()[1])"
        result = self.run_tracked(PYTHON, "-c", script)
        self.assertEqual((result.returncode, result.stdout), (0, b"15\n"))
        self.assertEqual(len(list(self.reports.glob("mem_tbb_fileline.*"))), 1)

    def test_processes_that_go_on_are_told(self):
        daemon = "import os, time\nif os.fork() == 0:\n  os.setsid()\n  if os.fork() == 0: os.close(1); os.close(2); time.sleep(5)\n  os._exit(0)\nos.wait()"
        program = "import subprocess\nsubprocess.Popen(['sleep', '5'], stdout=-3, stderr=-3)"
        for script, option, told in ((daemon, "--lines", "A forked child goes on untracked"),
                                     (program, "--lines", "--follow-children tracks programs"),
                                     (program, "--follow-children", "Their reports follow when they end")):
            errors = self.run_tracked("--force", option, PYTHON, "-c", script).stderr.decode()
            self.assertIn("Still running: ", errors)
            self.assertIn(told, errors)

    def test_faults_and_memory_that_runs_out(self):
        table = (
            ((PYTHON, "-c", "import ctypes; ctypes.string_at(0)"), -signal.SIGSEGV, "died of a fault: SIGSEGV", "held"),
            ((PYTHON, "-c", "import ctypes; ctypes.CDLL(None)._Znwm(ctypes.c_size_t(1 << 46))"), -signal.SIGABRT, "it ran out of memory", "allocated"),
            ((PYTHON, "-c", "bytearray(1 << 45)"), 1, "an allocation of 32.0 TiB failed", "allocated"),
            # A host's own end of memory, reached from outside.
            ((PYTHON, "-c", "import ctypes; ctypes.CDLL(None).mem_out_of_memory()"), 1, "it ran out of memory", "allocated"),
            ((PYTHON, "-c", "import os; os.kill(os.getpid(), 9)"), -signal.SIGKILL, "SIGKILL", "held"),
            ((PYTHON, "-c", "import os; os._exit(5)"), 5, "ended with status 5", "not freed"),
        )
        for command, status, ending, reports in table:
            with self.subTest(command=command):
                result = self.run_tracked("--force", *command)
                self.assertEqual(result.returncode, status)
                self.assertIn(ending, result.stderr.decode())
                self.assertIn(reports, result.stderr.decode())

    def test_no_memory_for_blocks_of_any_size(self):
        limit = 320 << 20
        for size in (16, 1000, 30000, 1 << 20, 1 << 30):
            for threads in (0, 8):
                with self.subTest(size=size, threads=threads):
                    result = self.run_tracked("--force", "--all", SUBJECT, "use_up", size, threads,
                                              preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
                    self.assertEqual((result.returncode, result.stdout), (7, b"no more\n"), result.stderr)
                    self.assertIn(b"it ran out of memory", result.stderr)
                    self.assertIn(b"not freed", result.stderr)
                    self.assert_all_whole()

    def test_threads_that_throw_for_want_of_memory_at_once(self):
        limit = 320 << 20
        for threads in (0, 8, 8, 8):
            result = self.run_tracked("--force", "--all", SUBJECT, "use_up_and_throw", threads,
                                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
            self.assertEqual(result.returncode, -signal.SIGABRT, result.stderr)
            self.assert_all_whole()

    def test_eight_threads_that_exit_at_once(self):
        for _ in range(20):
            self.assertEqual(self.run_tracked("--force", "--all", SUBJECT, "exit_at_once").returncode, 9)
            self.assert_all_whole()

    def assert_all_whole(self):
        reports = list(self.reports.glob("mem_tbb_*.log"))
        self.assertGreater(len(reports), 10)
        for report in reports:
            self.assertTrue(report.read_bytes().endswith(b"\n"), report)
        self.assertIn("Time spent", (self.reports / "mem_tbb_fileline.memrun_subject.log").read_text())

    def test_a_refused_allocation_is_the_programs_to_handle(self):
        script = "try: bytearray(1 << 45)\nexcept MemoryError: print('caught')"
        result = self.run_tracked(PYTHON, "-c", script)
        self.assertEqual((result.returncode, result.stdout), (0, b"caught\n"))
        self.assertNotIn(b"memory:", result.stderr)


if __name__ == "__main__":
    unittest.main()
