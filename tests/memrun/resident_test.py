"""The parts of the resident memory: they add up, and the largest is the one that the program was made for."""

import unittest

from launcher import PYTHON, SUBJECT, LauncherTest

ADDED_UP = ("Blocks", "Rounding", "Unknown blocks", "Tracker blocks", "Kept by threads", "Kept in between", "Kept free",
            "Allocator tables", "Never touched", "Tracker mappings", "Stacks", "Code", "Module data", "Files",
            "Shared memory", "Anonymous", "Unexplained")
MIB = 1 << 20
# 64 MiB each, so that what the interpreter itself needs is the smaller part.
PROGRAMS = {
    "Stacks": "stacks",
    "Kept in between": "fragments",
    "Blocks": "kept = [bytearray(1 << 20) for _ in range(64)]\nfor block in kept: block[:] = b'x' * len(block)",
    "Kept free": "kept = [bytearray(b'x' * 900000) for _ in range(80)]\ndel kept",
    "Anonymous": "import mmap\nm = mmap.mmap(-1, 64 << 20, flags=mmap.MAP_PRIVATE)\nfor at in range(0, len(m), 4096): m[at] = 1",
    "Shared memory": "import mmap\nm = mmap.mmap(-1, 64 << 20)\nfor at in range(0, len(m), 4096): m[at] = 1",
    "Files": "import mmap, tempfile\nf = tempfile.TemporaryFile(dir='.')\nf.truncate(64 << 20)\n"
             "m = mmap.mmap(f.fileno(), 64 << 20)\nfor at in range(0, len(m), 4096): m[at] = 1",
}


class Resident(LauncherTest):
    def full_points(self):
        lines = next(self.reports.glob("mem_tbb_resident.*")).read_text().splitlines()
        titles = lines[5].split("\t")
        rows = [dict(zip(titles, line.split("\t"))) for line in lines[6:-1]]
        return [{title: int(row[title]) for title in ("Resident", *ADDED_UP)} for row in rows if row["Point"] == "full"]

    def test_parts_add_up_and_name_the_largest(self):
        for part, script in PROGRAMS.items():
            with self.subTest(part=part):
                command = (PYTHON, "-c", script + "\nimport os\nos._exit(0)") if " " in script else (SUBJECT, script)
                result = self.run_tracked("--force", *command)
                self.assertEqual(result.returncode, 0, result.stderr)
                points = self.full_points()
                for point in points:
                    self.assertEqual(sum(point[title] for title in ADDED_UP), point["Resident"])
                    self.assertLess(abs(point["Unexplained"]), 0.02 * point["Resident"], point)
                self.assertEqual(max(ADDED_UP, key=points[-1].get), part, points[-1])
                self.assertGreater(points[-1][part], 60 * MIB)

    def test_mappings_are_charged_right_to_the_page(self):
        self.run_tracked("--mappings", SUBJECT, "mappings")
        held = [row for row in self.rows("mem_tbb_fileline.memrun_subject.log") if int(row["Current bytes"]) >= 4096]
        # 10 - 3 pages in two pieces, 6, and 5 - 1
        self.assertEqual((sum(int(row["Current bytes"]) for row in held), sum(int(row["Current blocks"]) for row in held)),
                         (17 * 4096, 4), held)
        self.assertTrue(all("map_memory" in row["Function"] or "operator()" in row["Function"] or "lambda" in row["Function"]
                            for row in held), held)


if __name__ == "__main__":
    unittest.main()
