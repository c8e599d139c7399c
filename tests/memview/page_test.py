#!/usr/bin/env python3
"""The page of a run in a real browser, opened from disk with the network cut: page_test.py MEMVIEW MEMRUN
TWENTY_PLACES"""

import csv
import os
import subprocess
import sys
import tempfile
import time
import unittest

from browser import Browser
from make_reports import CALLERS, CLOSING, Run

MEMVIEW, MEMRUN, TWENTY_PLACES = (os.path.abspath(argument) for argument in sys.argv[1:])
RANGES = "charts.graphs.map((graph) => graph.xAxisRange())"


def make_page(folder, modules, sites, samples):
    reports, page = os.path.join(folder, "reports"), os.path.join(folder, "page.html")
    Run(reports, "vii", modules, sites, samples).write_all()
    subprocess.run([MEMVIEW, "html", "-o", page, reports], check=True)
    return reports, page


def make_twenty_places(folder):
    """The page of a real run, the line of the place that holds what it gets, and that in bytes."""
    reports, page = os.path.join(folder, "twenty"), os.path.join(folder, "twenty.html")
    subprocess.run([MEMRUN, "--quiet", "-o", reports, "--", TWENTY_PLACES], check=True)
    subprocess.run([MEMVIEW, "html", "-o", page, reports], check=True)
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "twenty_places.cpp")
    with open(source) as lines:
        return page, next(number for number, line in enumerate(lines, 1) if "the one" in line and "keep(" in line)


def report_rows(folder, kind):
    """Column titles and rows of a report that is one table."""
    with open(os.path.join(folder, f"mem_tbb_{kind}.vii.log")) as report:
        rows = [line.rstrip("\n").split("\t") for line in report][2:]
    return [row for row in rows if not row[0].startswith("Time spent")]


class Processes(unittest.TestCase):
    """Two processes of one run, the second a child that began 1.5 s later, on one axis of seconds."""

    def test_lie_on_one_axis(self):
        with tempfile.TemporaryDirectory() as folder:
            reports, page = os.path.join(folder, "reports"), os.path.join(folder, "page.html")
            for word, start, process, parent in (("first", "1000.000", 7, 1), ("second", "1001.500", 8, 7)):
                run = Run(os.path.join(folder, word), word, 3, 20, 5)
                run.write_all()
                run.write("clock", f"MEM: Clock.\n\nStart\t{start}\nProcess\t{process}\nParent\t{parent}\n\n"
                          "Sample\tMilliseconds\tEvent\n", (f"{i}\t{i * 1000}\t{i}\n" for i in range(5)), CLOSING)
            os.rename(os.path.join(folder, "first"), reports)
            for name in os.listdir(os.path.join(folder, "second")):
                os.rename(os.path.join(folder, "second", name), os.path.join(reports, name))
            subprocess.run([MEMVIEW, "html", "-o", page, reports], check=True)
            browser = Browser()
            self.addCleanup(browser.quit)
            browser.open(page)
            lines = browser.run("[...document.querySelectorAll('#processes tr')].map((row) => row.textContent)")
            self.assertEqual(lines, ["first0 s to 4 s", "\u2003second1.5 s to 5.5 s"])
            self.assertEqual(browser.run(RANGES), [[0, 5.5]] * 3)
            # The recorded peak of each lies at sample 2 of 5; held by both from 3.5 s on.
            self.assertEqual(browser.run("marksOf(data.processes[1].charts[0], data.processes[1])[0].x"), 3.5)
            held = browser.run("sumOverProcesses().filter(([time]) => time === 5.5).pop()[1]")
            self.assertEqual(held, 0)
            browser.run("document.querySelector('#axis').click()")
            self.assertEqual(browser.run(RANGES), [[0, 4]] * 3)
            self.assertEqual(browser.errors(), [])


class Page(unittest.TestCase):
    """Each case opens the page afresh, and none may leave a word on the console."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.reports, cls.page = make_page(cls.folder.name, 30, 500, 400)
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.folder.cleanup()

    def setUp(self):
        self.browser.resize(1280, 1000)
        self.browser.open(self.page)

    def tearDown(self):
        self.assertEqual(self.browser.errors(), [])
        self.assertEqual(self.browser.run("performance.getEntriesByType('resource').length"), 0)

    def column(self, table, title):
        """The raw figures of a shown column, from top to bottom."""
        texts = self.browser.run(
            "((box) => { const at = [...box.querySelectorAll('th')].findIndex((th) => th.textContent === arguments[1]);"
            " return [...box.querySelectorAll('tbody tr')].map((row) => row.children[at].title); })"
            "(document.querySelector(`[data-table=${arguments[0]}]`))", table, title)
        return [int(text.replace(",", "")) for text in texts]

    def test_shows_charts_and_tables(self):
        drawn = self.browser.run(
            "[...document.querySelectorAll('.chart')].map((box) => [box.dataset.chart, [...box.querySelectorAll('canvas')]"
            ".some((canvas) => canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data.some((v) => v))])")
        self.assertEqual(drawn, [["modules", True], ["tags", True], ["process", True]])
        marks = self.browser.run("((process) => marksOf(process.charts[0], process).map((mark) => mark.x))(data.processes[0])")
        self.assertEqual(marks, [200, 200])
        tables = self.browser.run("[...document.querySelectorAll('[data-table]')].map((one) => one.dataset.table)")
        self.assertEqual(tables, ["sites", "modules", "bins", "tags", "leaks", "filtered"])
        peak = sum(int(row[3]) for row in report_rows(self.reports, "fileline")[1:])
        self.assertIn(f"({2 * peak:,})", self.browser.run("document.querySelector('.figures div').title"))

    def boxes(self, row):
        """What stands in a row of the flame graph, from left to right: (name, line, value)."""
        return self.browser.run("(flames.graph.rows[arguments[0]] || []).map(({node}) => [node.frame.name, node.line, node.value])", row)

    def click_box(self, row, at=0):
        self.browser.run("flames.graph.box.scrollIntoView({block: 'center'})")
        x, y = self.browser.run(
            "(({left, top}, box) => [left + box.x + box.width / 2, top + ROW_HEIGHT * (box.row + 0.5)])"
            "(flames.graph.canvas.getBoundingClientRect(), flames.graph.rows[arguments[0]][arguments[1]])", row, at)
        self.browser.click(int(x), int(y))

    def click_on(self, text):
        self.browser.run("[...document.querySelectorAll('main button, main label')].find((one) => one.textContent.includes(arguments[0])).click()", text)

    def test_flame_graph_opens_at_the_exact_peak(self):
        peak = 2 * sum(int(row[3]) for row in report_rows(self.reports, "fileline")[1:])
        self.assertEqual(self.boxes(0), [["all", 0, peak]])
        self.assertEqual(self.boxes(1), [["main", 5, peak]])
        callers = self.boxes(2)
        self.assertEqual(sorted(name for name, _, _ in callers), sorted(f"project::caller{i}(int)" for i in range(CALLERS)))
        self.assertEqual(sum(value for _, _, value in callers), peak)
        self.assertEqual([value for _, _, value in callers], sorted((value for _, _, value in callers), reverse=True))
        self.assertEqual(self.browser.run("flames.graph.rows.length"), 4)  # what is filtered is folded
        self.assertEqual(self.browser.run("document.querySelector('main h2').textContent"), "Who called it")
        self.click_on("Fold library frames")
        self.assertEqual(self.browser.run("flames.graph.rows.length"), 6)
        self.browser.run("((select) => { select.value = 'temporary_blocks'; select.dispatchEvent(new Event('change')); })"
                         "(document.querySelector('#flame-measure'))")
        blocks = sum(int(row[10]) // 3 for row in report_rows(self.reports, "fileline")[1:])
        self.assertEqual(self.boxes(0), [["all", 0, blocks]])

    def test_flame_graph_zooms_and_comes_back(self):
        whole = self.boxes(2)
        self.click_box(2, 1)
        self.assertEqual(self.boxes(2), whole[1:2])
        self.assertIn(whole[1][0], self.browser.run("document.querySelector('.flame-detail').textContent"))
        self.click_box(1)
        self.assertEqual(self.boxes(2), whole)
        self.browser.run("history.back()")
        self.browser.wait_for("flames.graph.rows[2].length === 1")
        self.browser.run("history.back()")
        self.browser.wait_for("flames.graph.rows[2].length === arguments[0]", len(whole))

    def test_flame_graph_by_keyboard(self):
        whole = self.boxes(2)
        self.browser.run("document.querySelector('.flame').focus()")
        for key in ["\ue015", "\ue015", "\ue015", "\ue014"]:  # three times down, once to the right
            self.browser.key(key)
        self.assertEqual(self.browser.run("flames.graph.selected.frame.name"), whole[1][0])
        self.browser.key("\ue007")
        self.assertEqual(self.boxes(2), whole[1:2])
        self.browser.key("\ue003")
        self.browser.wait_for("flames.graph.rows[2].length === arguments[0]", len(whole))
        for letter in "/caller7(":
            self.browser.key(letter)
        share = next(value for name, _, value in whole if "caller7(" in name) / self.boxes(0)[0][2]
        self.assertIn(f"{100 * share:.1f} % of what is shown", self.browser.run("flames.graph.found.textContent"))

    def test_finds_the_one_place_of_twenty_by_clicks(self):
        page, line = make_twenty_places(self.folder.name)
        self.browser.open(page)
        helper = "(anonymous namespace)::make_buffer()"
        self.click_on("Allocators at the root")
        self.assertEqual(self.boxes(1)[0][0], helper)
        self.click_box(1)
        self.click_on("Who calls this?")
        self.assertEqual(self.boxes(1)[0][0], helper)
        places = self.boxes(2)
        self.assertEqual(len(places), 20)
        self.assertEqual(places[0][1:], [line, 2000 * 1024])
        # At the peak the place behind it has a block in hand, too.
        self.assertEqual(places[1][1:], [line + 1, 3 * 1024])
        self.assertEqual([value for _, _, value in places[2:]], [2 * 1024] * 18)
        self.click_box(2)
        detail = self.browser.run("document.querySelector('.flame-detail').textContent")
        self.assertIn(f"twenty_places.cpp:{line}", detail)
        self.assertIn("2.0 MiB, 98.1 % of all", detail)
        self.browser.run("document.querySelector('.chip button').click()")
        self.click_on("Callers at the root")
        depth = self.browser.run("flames.graph.rows.findIndex((row) => row[0].node.frame.name.includes('work('))")
        work = self.boxes(depth)[0][0]
        self.assertEqual(work, "(anonymous namespace)::work(std::vector<std::unique_ptr<char []>>&, bool, int)")
        self.assertEqual(sorted(name for name, _, _ in self.boxes(depth + 1)), [helper, work])
        self.click_on("Fold recursion")
        self.assertEqual([name for name, _, _ in self.boxes(depth + 1)], [helper])

    def test_leads_from_a_row_to_its_part_of_the_graph(self):
        first = report_rows(self.reports, "fileline")[1:]
        first = max(first, key=lambda row: int(row[3]))
        self.browser.run("document.querySelector('[data-table=sites] tbody button.link').click()")
        self.assertEqual(self.boxes(0), [["all", 0, 2 * int(first[3])]])
        self.assertEqual(self.boxes(1)[0][1:], [int(first[13]), 2 * int(first[3])])
        self.assertEqual(self.boxes(3)[0][0], "main")
        self.assertIn(f":{first[13]}", self.browser.run("document.querySelector('.chip').textContent"))

    def test_names_stay_text(self):
        self.assertEqual(self.browser.run("document.querySelectorAll('main script, main b').length"), 0)
        self.assertIn("<script>alert(1)</script>", self.browser.run("document.querySelector('[data-table=modules]').textContent"))
        self.assertIn("<script>alert(1)</script>", self.browser.run("document.querySelector('.treemap').textContent"))

    def test_sorts(self):
        reported = sorted((int(row[4]) for row in report_rows(self.reports, "fileline")[1:]), reverse=True)
        click = ("[...document.querySelectorAll('[data-table=sites] th button')]"
                 ".find((button) => button.textContent === 'Cumulative bytes').click()")
        self.browser.run(click)
        self.assertEqual(self.column("sites", "Cumulative bytes"), reported[:100])
        self.browser.run(click)
        self.assertEqual(self.column("sites", "Cumulative bytes"), reported[::-1][:100])

    def test_searches(self):
        self.browser.run("document.querySelector('#search-sites').focus()")
        for letter in "function42(":
            self.browser.key(letter)
        wanted = sum("function42(" in row[14] for row in report_rows(self.reports, "fileline")[1:])
        self.assertGreater(wanted, 0)
        self.assertEqual(self.browser.run("document.querySelectorAll('[data-table=sites] tbody tr').length"), wanted)

    def test_zooms_all_charts_together(self):
        self.assertEqual(self.browser.run(RANGES), [[0, 399]] * 3)
        self.browser.run("document.querySelector('#range-controls button').click()")
        self.assertEqual(self.browser.run(RANGES), [[99.75, 299.25]] * 3)
        self.browser.run("document.querySelector('.chart').focus()")
        self.browser.key("0")
        self.assertEqual(self.browser.run(RANGES), [[0, 399]] * 3)
        box = self.browser.run("(({left, top}) => [left, top])(document.querySelector('.chart').getBoundingClientRect())")
        y = int(box[1]) + 100
        self.browser.drag((int(box[0]) + 300, y), (int(box[0]) + 500, y))
        ranges = self.browser.run(RANGES)
        self.assertEqual(ranges, [ranges[0]] * 3)
        self.assertGreater(ranges[0][0], 0)
        self.assertLess(ranges[0][1], 399)

    def test_tree_map_switches_measure_and_opens_levels(self):
        self.browser.run("((select) => { select.value = 'cumulative'; select.dispatchEvent(new Event('change')); })"
                         "(document.querySelector('#measure'))")
        total = sum(int(row[4]) for row in report_rows(self.reports, "fileline")[1:])
        self.assertAlmostEqual(self.browser.run("sizeTree(data.processes[0].tables[0], 'cumulative').value"), total)
        self.assertIn(f"{total / 1048576:.1f} MiB", self.browser.run("document.querySelector('[role=navigation]').textContent"))
        self.browser.run("document.querySelector('.treemap button').focus()")
        self.browser.key("\ue007")
        self.assertTrue(self.browser.run("document.querySelector('.treemap button').title.startsWith('/home')"))

    def test_follows_dark_mode(self):
        colours = "[getComputedStyle(document.body).backgroundColor, charts.graphs[0].getOption('gridLineColor')]"
        light = self.browser.run(colours)
        self.browser.dark(True)
        self.browser.wait_for(f"{colours}.every((colour, i) => colour !== arguments[0][i])", light)
        self.browser.dark(False)
        self.browser.wait_for(f"{colours}.every((colour, i) => colour === arguments[0][i])", light)

    def test_csv_is_the_report(self):
        self.browser.run("document.querySelector('[data-table=sites] .csv').click()")
        path = os.path.join(self.browser.downloads, "vii.sites.csv")
        deadline = time.time() + 10
        while not os.path.exists(path) and time.time() < deadline:
            time.sleep(0.05)
        with open(path, newline="") as file:
            rows = list(csv.reader(file))
        self.assertEqual([row[:15] for row in rows], report_rows(self.reports, "fileline"))
        self.assertEqual(rows[0][15:], ["Exact peak bytes", "Exact peak blocks"])
        self.assertEqual([int(row[15]) for row in rows[1:]], [2 * int(row[3]) for row in rows[1:]])

    def test_fits_a_small_screen(self):
        self.browser.devtools("Emulation.setDeviceMetricsOverride", width=360, height=640, deviceScaleFactor=1, mobile=True)
        self.browser.open(self.page)
        self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), 360)
        self.browser.devtools("Emulation.clearDeviceMetricsOverride")

    def test_giant_run_stays_small(self):
        with tempfile.TemporaryDirectory() as folder:
            reports, page = make_page(folder, 2000, 100000, 1000000)
            size = os.path.getsize(page)
            self.assertLess(size, 10_000_000)
            begin = time.time()
            self.browser.open(page)
            self.browser.run("document.querySelector('#range-controls button').click()")
            print(f"giant page: {size} bytes, usable and zoomed after {time.time() - begin:.2f} s", file=sys.stderr)
            self.assertEqual(len(self.browser.run(RANGES)), 3)
            self.assertEqual(self.browser.run("data.processes[0].charts[0].samples"), 1000000)
            shown, rest = self.browser.run("((table) => [d3.sum(columnOf(table, 'peak')), [table.rest_rows, table.rest[3]]])"
                                           "(data.processes[0].tables[0])")
            self.assertGreaterEqual(self.browser.run("flames.graph.trees.parents.length"), 100000)
            self.assertEqual(self.boxes(0), [["all", 0, 2 * (shown + rest[1])]])
            self.assertEqual(shown + rest[1], sum(int(row[3]) for row in report_rows(reports, "fileline")[1:]))
            self.assertIn(f"rest: {rest[0]:,} rows", self.browser.run("document.querySelector('[data-table=sites] tfoot').textContent"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
