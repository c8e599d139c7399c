"""What the options do, and what the launcher refuses."""

import os
import pathlib
import shutil
import subprocess
import unittest

from launcher import MEMRUN, PYTHON, SUBJECT, LauncherTest

TIMELINES = {"clock", "timeline", "timeline_detailed", "cumulative_blocks_timeline", "cumulative_blocks_timeline_detailed"}
BINS = {"clock", "pbin_tag_timeline_detailed", "pbin_tag_stats", "pbin_tag_stats_mb", "pbin_stats", "pbin_stats_mb"}


class Options(LauncherTest):
    def test_switches_choose_the_reports(self):
        table = {
            (): {"fileline", "subsystem", "leak_warning", "call_paths"},
            ("--no-resident",): {"fileline", "subsystem", "leak_warning", "call_paths"},
            ("--no-paths",): {"fileline", "subsystem", "leak_warning"},
            ("--fast-leaks", "--paths"): {"fast_leak_warning", "call_paths"},
            ("--lines",): {"fileline", "subsystem", "call_paths"},
            ("--modules",): TIMELINES | {"call_paths"},
            ("--bins",): set(),
            ("--bin-tags",): BINS,
            ("--leaks",): {"leak_warning", "call_paths"},
            ("--fast-leaks",): {"fast_leak_warning"},
            ("--aux",): {"auxiliary_timeline", "clock"},
            ("--lines", "--aux"): {"fileline", "subsystem", "call_paths", "auxiliary_timeline", "clock"},
            ("--all",): {"fileline", "subsystem", "leak_warning", "auxiliary_timeline", "call_paths"} | TIMELINES | BINS,
            ("--fast-leaks", "--log"): {"fast_leak_warning", "mem_allocations"},
        }
        for switches, kinds in table.items():
            with self.subTest(switches=switches):
                if not {"--no-resident", "--bins", "--fast-leaks"} & set(switches):
                    kinds = kinds | {"resident"}
                result = self.run_tracked("--force", *switches, "--", SUBJECT, "leak")
                self.assertEqual((result.returncode, self.report_kinds()), (7, kinds), result.stderr)

    def test_call_sites_leaks_and_log_are_exact(self):
        self.run_tracked("--lines", "--leaks", "--log", "--name", "word", SUBJECT, "leak")
        # The allocator gives 1024 bytes for 1000.
        site = next(row for row in self.rows("mem_tbb_fileline.word.log") if row["File"].endswith("subject.cpp"))
        self.assertIn("hold(", site["Function"])
        self.assertEqual((site["Current bytes"], site["Cumulative requested bytes"], site["Current blocks"]),
                         ("3072", "3000", "3"))
        self.assertIn(f"leaked 3072 bytes in 3 object(s) allocated at {site['File']}:{site['Line']}",
                      (self.reports / "mem_tbb_leak_warning.word.log").read_text())
        lines = (self.reports / "mem_allocations.word.log").read_text().splitlines()
        self.assertTrue(all(line.endswith(("type=alloc", "type=free")) for line in lines))
        self.assertEqual(sum("size=1000, type=alloc" in line for line in lines), 3)

    def test_settings_reach_the_tracker(self):
        (self.folder / "filters").write_text("filter_function (anonymous\nfilter_modul x\n\nfilter_module\n")
        wrong = self.run_tracked("--filters", "filters", SUBJECT, "leak").stderr
        self.assertIn(b"2 lines of 'filters' have no effect: 2 (no filter command), 4 (no argument)", wrong)
        sites = self.rows("mem_tbb_fileline.memrun_subject.log")
        self.assertTrue(any(row["Function"].startswith("main") for row in sites), sites)
        self.assertFalse(any("hold(" in row["Function"] for row in sites), sites)
        for switches, known in ((("--force",), True), (("--force", "--no-unknown-lines"), False)):
            result = self.run_tracked(*switches, "perl", "-e", "1")
            self.assertEqual(any(row["Module"] == "perl" for row in self.rows("mem_tbb_fileline.perl.log")), known)
            self.assertEqual(b"leave out --no-unknown-lines" in result.stderr, not known)
        # The first event, those at which a free finds a peak, and the end.
        for period, rows in (("1", range(20, 10000)), ("1000000", range(1, 8))):
            self.run_tracked("--force", "--modules", "--sample-period", period, SUBJECT, "leak")
            text = (self.reports / "mem_tbb_timeline.memrun_subject.log").read_text()
            self.assertIn(text.count("\n") - 4, rows)

    def test_fill_patterns_show_and_break_nothing(self):
        # The allocator would leave a block of 1000 bytes where it is for 900.
        script = ("malloc a 64 bytes a 0 64 free a bytes a 16 64 calloc b 5000 bytes b 0 5000 malloc c 1000 fill c 1000 2a "
                  "realloc d c 900 bytes d 0 900 realloc e d 5000 bytes e 0 900 bytes e 1024 5000")
        result = self.run_tracked("--fill-new", "0xCD", "--fill-freed", "221", os.environ["KTL_HOST"], "script", *script.split())
        self.assertEqual(result.stdout, b"cd dd 00 2a 2a cd ")
        self.assertEqual(sum(int(row["Cumulative blocks"]) for row in self.rows("mem_tbb_fileline.tracked_host.log")
                             if row["File"].endswith("script.cpp")), 5)

    def test_children_are_followed_when_asked(self):
        command = ("--", "/bin/sh", "-c", f"{PYTHON} -c 1; {PYTHON} -c 2; exit 4")
        for switches, count in (((), 1), (("--follow-children",), 3)):
            result = self.run_tracked("--force", *switches, *command)
            self.assertEqual((result.returncode, len(list(self.reports.glob("mem_tbb_fileline.sh*")))), (4, count))
            self.assertEqual(b"3 programs, 3 left reports" in result.stderr, count == 3)

    def test_the_program_sees_its_own_world(self):
        script = ("import os; print(sorted(os.environ.items()), os.getcwd(), os.listdir('/proc/self/fd'), "
                  "open('/proc/self/status').read().count('Threads:\\t1\\n'), input())")
        environment = {**os.environ, "LD_PRELOAD": "libm.so.6", "VELDRIN_MEM_PROFILE_ALL": "0", "debug_msg": "on"}
        command = (PYTHON, "-c", script)
        plain = self.run_plain(*command, env=environment, input=b"line\n")
        tracked = self.run_tracked("--all", *command, env=environment, input=b"line\n")
        self.assertEqual(tracked.stdout, plain.stdout)
        head = (self.reports / "mem_tbb_fileline.python3.log").read_text().splitlines()[0]
        index = head.split("[at index ")[1].rstrip("]")
        self.assertRegex(tracked.stderr.decode(), rf"\npeak +[0-9.]+ [KM]iB (at sampling index {index}|after [0-9.]+ s)\n")
        self.assertEqual(os.listdir(self.folder), ["reports"])

    def test_scripts_are_tracked_in_their_interpreter(self):
        script = self.folder / "script"
        for first_line in (f"#!{PYTHON}", "#!/usr/bin/env -S A=1 python3"):
            script.write_text(first_line + "\nprint('script')\n")
            script.chmod(0o755)
            result = self.run_tracked("--force", "./script", env={**os.environ, "PATH": "/usr/bin:/bin"})
            self.assertEqual(result.stdout, b"script\n")
            self.assertGreater(self.total("mem_tbb_fileline.script.log", "Cumulative bytes"), 100000)


class Speech(LauncherTest):
    def test_default_folder_and_summary(self):
        result = self.run_plain(MEMRUN, SUBJECT, "leak")
        lines = result.stderr.decode().splitlines()
        (folder,) = self.folder.glob("ktl_mem.memrun_subject.*")
        self.assertEqual(lines[0], f"ktl_memrun: reports go to {folder}")
        self.assertLessEqual(len(lines), 11)
        text = "\n".join(lines)
        for part in ("ended with status 7", "not freed", "3.0 KiB in 3 blocks", "subject.cpp:", "ktl_memview show "):
            self.assertIn(part, text)
        self.assertEqual([path for path in folder.iterdir() if path.name.startswith(".")], [])

    def test_quiet_and_colour(self):
        self.assertEqual(self.run_tracked("-q", SUBJECT, "leak").stderr, b"")
        for settings, coloured in (({"TERM": "xterm"}, True), ({"TERM": "xterm", "NO_COLOR": "1"}, False)):
            on_terminal = self.run_plain("script", "-qc", f"{MEMRUN} --force -o reports {SUBJECT} leak", "/dev/null",
                                         env={"PATH": os.environ["PATH"], **settings})
            self.assertIn(b"ended with status 7", on_terminal.stdout)
            self.assertEqual(b"\033[" in on_terminal.stdout, coloured)

    def test_names_are_harmless_and_sizes_are_noted(self):
        program = self.folder / "a\033[31m\nb"
        shutil.copy(SUBJECT, program)
        errors = self.run_tracked("--name", "x", program, "leak").stderr
        self.assertIn(b"a?[31m?b ended with status 7", errors)
        self.assertNotIn(b"\033", errors)
        noted = (self.reports / "ktl_memrun.sizes").read_text().splitlines()
        reports = [f"{path.stat().st_size} {path.name}" for path in self.reports.glob("mem_tbb_*.log")]
        self.assertEqual(sorted(noted), sorted(reports))

    def test_what_has_no_call_site_is_told(self):
        shutil.copy("/bin/ls", self.folder / "tbbsim")
        for program, told in (("perl", "leave out --no-unknown-lines"), ("./tbbsim", "called 'tbbsim' are never held responsible")):
            errors = self.run_tracked("--force", "--no-unknown-lines", program, "/dev/null").stderr.decode()
            self.assertRegex(errors, "top at peak .* OTHER  [0-9]+ % have no call site")
            self.assertIn(told, errors)
        # A block that the tracker is not to see, and whose free it sees.
        script = ("import ctypes\nc = ctypes.CDLL(None)\nc.malloc.restype = ctypes.c_void_p\nc.mem_block_thread_tracking()\n"
                  "block = c.malloc(ctypes.c_size_t(1 << 26))\nc.mem_unblock_thread_tracking()\nc.free(ctypes.c_void_p(block))")
        self.assertIn(b"Less than nothing is not freed", self.run_tracked("--force", PYTHON, "-c", script).stderr)
        # An empty program holds nothing, and nothing of the tracker's either.
        self.assertIn(b"not freed   0 bytes in 0 blocks", self.run_tracked("--force", SUBJECT, "nothing").stderr)

    def test_closed_and_broken_streams_change_nothing(self):
        for streams in (">&- 2>&-", "<&- 2>&-", "2> >(exec true)"):
            result = self.run_plain("bash", "-c", f"{MEMRUN} --force -o reports {SUBJECT} leak {streams}")
            self.assertEqual((result.returncode, self.report_kinds()), (7, {"fileline", "subsystem", "leak_warning", "call_paths", "resident"}), streams)

    def test_cut_reports_give_no_figures(self):
        errors = self.run_plain("bash", "-c", f"ulimit -f 1; {MEMRUN} --all -o reports {PYTHON} -c 1").stderr
        self.assertIn(b"is cut", errors)
        self.assertNotIn(b"allocated", errors)

    def test_help_and_version(self):
        for option in ("--help", "--version"):
            result = self.run_plain(MEMRUN, option)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            self.assertIn(b"ktl_memrun", result.stdout)


class Refusals(LauncherTest):
    def refuse(self, status, reason, *arguments):
        result = self.run_plain(MEMRUN, *map(str, arguments))
        with self.subTest(arguments=arguments):
            self.assertEqual(result.returncode, status, result.stderr)
            self.assertIn(reason, result.stderr.decode())
            self.assertEqual(list(self.folder.glob("ktl_mem.*")), [])

    def patched(self, name, offset=0, value=0x7F):
        data = bytearray(pathlib.Path("/bin/true").read_bytes())
        data[data.index(offset) if isinstance(offset, bytes) else offset] = value
        path = self.folder / name
        path.write_bytes(data)
        path.chmod(0o755)
        return path

    def test_command_lines_without_sense(self):
        (self.folder / "file").write_text("")
        for arguments, reason in (((), "PROGRAM is required"), (("--bogus", "ls"), "--bogus"),
                                  (("--fill-new", "256", "ls"), "256"), (("--peak-step", "2X", "ls"), "'2X' is no size"),
                                  (("--peak-step", "9999999999G", "ls"), "is no size"),
                                  (("--sample-period", "0", "ls"), "'0' is no whole number from 1"),
                                  (("--name", "x" * 191, "ls"), "longer than"),
                                  (("--fast-leaks", "--all", "ls"), "--fast-leaks"),
                                  (("--name", "a/b", "ls"), "a/b"), (("--filters", "nowhere", "ls"), "nowhere"),
                                  (("-o", "file/deeper", SUBJECT, "leak"), "Not a directory")):
            self.refuse(125, reason, *arguments)

    def test_programs_that_cannot_be_run_or_tracked(self):
        plain_file = self.folder / "file"
        plain_file.write_text("")
        privileged = self.patched("privileged")
        if os.geteuid() == 0:
            os.chown(privileged, 65534, 65534)
            privileged.chmod(0o4755)
            self.refuse(126, "set-uid", privileged)
        for status, reason, program in ((127, "not found", "no-such-program"), (127, "No such file", "./no-such-program"),
                                        (126, "Permission denied", plain_file), (126, "directory", self.folder),
                                        (126, "statically linked", "/sbin/ldconfig"),
                                        (126, "32-bit", self.patched("narrow", 4, 1)),
                                        (126, "No such file", self.patched("no-loader", b"/lib64/ld-linux", 0x2E)),
                                        (126, "another architecture", self.patched("foreign", 18, 0xB7))):
            self.refuse(status, reason, program)

    def test_sanitized_programs_are_refused(self):
        (self.folder / "main.c").write_text("int main(void) { return 5; }")
        for option, name in (("address", "AddressSanitizer"), ("thread", "ThreadSanitizer"), ("leak", "LeakSanitizer")):
            self.assertEqual(self.run_plain("gcc", "-fsanitize=" + option, "main.c", "-o", option).returncode, 0)
            self.refuse(126, f"is built with {name}", self.folder / option)

    def test_folders_with_reports_are_kept(self):
        self.run_tracked("--name", "old", SUBJECT, "leak")
        before = sorted(os.listdir(self.reports))
        (self.reports / "notes.txt").write_text("kept")
        result = self.run_tracked("--name", "new", SUBJECT, "leak")
        self.assertEqual((result.returncode, result.stdout), (125, b""))
        self.assertIn(b"--force", result.stderr)
        self.assertEqual(sorted(os.listdir(self.reports)), before + ["notes.txt"])
        self.assertEqual(self.run_tracked("--force", "--name", "new", SUBJECT, "leak").returncode, 7)
        self.assertEqual(list(self.reports.glob("*.old.*")), [])
        self.assertTrue((self.reports / "notes.txt").exists())

    def test_a_folder_that_is_being_written_is_left_alone(self):
        first = subprocess.Popen([MEMRUN, "-o", self.reports, "cat"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL)
        first.stdin.write(b"ready")
        first.stdin.flush()
        self.assertEqual(first.stdout.read(5), b"ready")
        self.assertIn(b"another ktl_memrun", self.run_tracked("--force", SUBJECT, "leak").stderr)
        first.communicate()
        self.assertEqual(first.returncode, 0)
        self.assertIn("fileline", self.report_kinds())


if __name__ == "__main__":
    unittest.main()
