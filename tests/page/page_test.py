"""The page in a browser: its figures are those of the reports, and what one clicks happens.

Arguments: the command, a program to profile and the library, then unittest's own."""
import glob
import os
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

import made_up_run

COMMAND, PROGRAM = sys.argv[1:3]
work = tempfile.TemporaryDirectory()


def setUpModule():
    global browser
    options = webdriver.ChromeOptions()
    for option in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1400,1000",
                   f"--user-data-dir={work.name}/browser"):
        options.add_argument(option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    browser = webdriver.Chrome(options=options)
    unittest.addModuleCleanup(browser.quit)
    profile("real", "/usr/share/common-licenses/GPL-3")
    profile("later", "/usr/share/common-licenses/GPL-3", "/usr/share/common-licenses/GPL-2")


def profile(name, *arguments):
    environment = dict(os.environ, KORVANE_MEM_PROFILE_ALL="1", KORVANE_MEM_PROFILE_CALL_PATHS="1",
                       KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD="500",
                       KORVANE_MEM_REPORT_DIRECTORY=f"{work.name}/{name}")
    subprocess.run([PROGRAM, *arguments], env=environment, check=True, stdout=subprocess.DEVNULL)


def report(name):
    """The rows of the fileline report, summed per line, highest peak first."""
    with open(glob.glob(f"{work.name}/{name}/mem_tbb_fileline.*")[0], encoding="utf8") as lines:
        rows = [line.rstrip("\n").split("\t") for line in lines if "\t" in line]
    header, sums = rows[0], {}
    for row in rows[1:]:
        if row[0].startswith("Time spent"):
            continue
        cells = dict(zip(header, row))
        total = sums.setdefault(f"{os.path.basename(cells['File'])}:{cells['Line']}",
                                dict.fromkeys(made_up_run.FIGURES, 0))
        for figure in total:
            total[figure] += int(cells[figure])
    return sorted(sums.items(), key=lambda item: -item[1]["Peak bytes"])


def find(selector):
    return browser.find_element(By.CSS_SELECTOR, selector)


def find_all(selector):
    return browser.find_elements(By.CSS_SELECTOR, selector)


def texts(selector):
    return browser.execute_script(
        "return [...document.querySelectorAll(arguments[0])].map((e) => e.textContent)", selector)


def open_page(*arguments):
    page = f"{work.name}/{len(os.listdir(work.name))}.html"
    subprocess.run([COMMAND, *arguments, page], check=True)
    browser.get(f"file://{page}")
    return page


def open_run(name):
    return open_page("html", f"{work.name}/{name}", "-o")


def exact(cells):
    """Of cells that show "227 KiB", the numbers behind."""
    return [int(c.get_attribute("title").split()[0].replace(",", "").replace("\u2212", "-")) for c in cells]


class PageTest(unittest.TestCase):
    def tearDown(self):
        self.assertEqual(browser.get_log("browser"), [])


class RealRun(PageTest):
    def setUp(self):
        open_run("real")
        self.expected = report("real")

    def test_first_rows_have_the_figures_of_the_report(self):
        browser.execute_script("document.querySelectorAll('.menu input').forEach((box) => box.checked || box.click())")
        for index, (place, figures) in enumerate(self.expected[:6]):
            cells = find_all(f"#Allocation-sites-{index} .cell")
            self.assertTrue(cells[0].text.startswith(place), cells[0].text)
            self.assertEqual(exact(cells[2:]), list(figures.values()), place)
        self.assertIn(self.expected[0][0], texts(".finding code"))

    def test_sorts_and_searches(self):
        find("[data-key=cumulative_blocks]").click()
        wanted = sorted((figures["Cumulative blocks"] for _, figures in self.expected), reverse=True)
        self.assertEqual(exact(find_all(".grid .row .cell:last-child"))[:5], wanted[:5])
        ActionChains(browser).send_keys("/", "LINE_store.cpp").perform()
        self.assertTrue(all(name.startswith("line_store.cpp") for name in texts(".place-name")))
        find("#sites .search button").click()
        find("#search").send_keys("(")
        self.assertIn("Invalid regular expression", find("#search-error").text)
        find("#search").clear()
        find("#search").send_keys(r"index\.cpp:3[12] ")
        self.assertEqual({name[:16] for name in texts(".place-name")}, {"word_index.cpp:3"})

    def test_opens_a_row_by_keyboard_and_closes_it(self):
        find(".grid").send_keys(Keys.DOWN, Keys.ENTER)
        self.assertEqual(exact(find_all(".details .figures dd[title]")), list(self.expected[1][1].values()))
        self.assertTrue(texts(".details .address")[0].startswith("0x"))
        find(".grid").send_keys(Keys.ESCAPE)
        self.assertFalse(find(".details").is_displayed())

    def test_going_down_the_map_narrows_the_table(self):
        find_all(".icicle .cell")[0].click()
        module = find(".path [aria-current]").text
        self.assertEqual(set(texts(".grid .cell.module bdi")), {module})
        shown = sum(exact(find_all(".grid .cell:nth-child(5)")))
        self.assertIn(f"{shown:,} bytes", find(".read").text)
        find(".icicle").find_element(By.CSS_SELECTOR, "button").send_keys(Keys.ESCAPE)
        self.assertGreater(len(set(texts(".grid .cell.module bdi"))), 1)

    def test_shows_leaks_and_what_other_threads_freed(self):
        for view, figure in (("Never freed", "Current bytes"), ("Freed by another thread", "Cumulative mismatched bytes")):
            find_all(".choice button")[[b.text for b in find_all(".choice button")].index(view)].click()
            wanted = [place for place, figures in self.expected if figures[figure] > 0]
            self.assertCountEqual(texts(".place-name"), wanted)

    def test_callers_of_a_line_have_its_figure(self):
        find(".grid").send_keys(Keys.ENTER)
        find(".details .who").click()
        place, figures = self.expected[0]
        self.assertIn(place, find("#callers code").text)
        self.assertEqual(sum(exact(find_all("#callers .scroller:first-child td[title]"))), figures["Peak bytes"])
        self.assertIn(f"({sum(figures['Peak bytes'] for _, figures in self.expected):,} bytes)", find("#paths .read").text)

    def test_dragging_zooms_the_timeline(self):
        plot = find(".plot")
        change = texts(".legend tr.all td:last-child")
        ActionChains(browser).move_to_element_with_offset(plot, -100, 0).click_and_hold().move_by_offset(160, 0).release().perform()
        self.assertTrue(find("#reset-zoom").is_enabled())
        self.assertNotEqual(texts(".legend tr.all td:last-child"), change)
        find("#reset-zoom").click()
        self.assertEqual(texts(".legend tr.all td:last-child"), change)

    def test_shows_what_changed_since_another_run(self):
        open_page("diff", f"{work.name}/real", f"{work.name}/later", "--html")
        before, after = dict(self.expected), dict(report("later"))
        row = find("#Differences-0")
        place = row.find_element(By.CSS_SELECTOR, ".place-name").text
        values = [rows[place]["Peak bytes"] for rows in (before, after)]
        self.assertEqual(exact(row.find_elements(By.CSS_SELECTOR, ".number")), [*values, values[1] - values[0]])
        self.assertIn("\u25b2 +", row.text)


class CallPaths(PageTest):
    """Two ways to the function that allocates: by 0x20, and by 0x30 that calls itself."""

    def setUp(self):
        self.write("paths", 3000)
        open_run("paths")

    def write(self, name, recursive):
        self.write_paths(name, b"/a.c", [
            ((0x10, 0x20, 0x40), 1, 1, [100, 1000, 1500, 1, 1, 2, 0]),
            ((0x10, 0x30, 0x30, 0x40), 1, 2, [0, recursive, 9000, 0, 3, 8, 5])], [b"input", b"index"])

    def write_paths(self, name, file, paths, bins=()):
        sites = [(b"host", file, 1, b"allocate", made_up_run.figures(4000)), (b"host", file, 9, b"other", made_up_run.figures(0))]
        made_up_run.write_sites(f"{work.name}/{name}", sites)
        made_up_run.write_call_paths(f"{work.name}/{name}", paths, sites, bins)

    def choose(self, label, text):
        Select(browser.find_element(By.XPATH, f"//section[@id='paths']//label[span='{label}']/select")).select_by_visible_text(text)

    def told(self, *keys):
        find(".flames").send_keys(*keys)
        return find("#paths .read").text

    def test_flame_graph_shows_what_is_chosen(self):
        self.assertRegex(self.told(Keys.DOWN), r"\(4,000 bytes\), 100 % of all host\+0x10")
        self.assertRegex(self.told(Keys.DOWN), r"\(3,000 bytes\), 75 % of all host\+0x30")
        self.assertRegex(self.told(Keys.RIGHT, Keys.ENTER, Keys.DOWN), r"\(1,000 bytes\), 25 % of all allocate")
        find("#search-frames").send_keys("0x20")
        self.assertIn("1 frame found, in 25 % of it", find("#paths [role=status]").text)
        find_all("#paths .choice button")[1].click()
        self.choose("Of", "Temporary blocks")
        self.assertRegex(self.told(Keys.DOWN, Keys.DOWN, Keys.DOWN), r"\(5 blocks\), 100 % of all host\+0x30")
        self.choose("Phase", "input")
        self.assertIn("Nothing to draw", find("#paths [role=status]").text)

    def press(self, button):
        browser.find_element(By.XPATH, f"//section[@id='paths']//button[.='{button}']").click()

    def sides(self):
        """Of callers and of callees the exact figures of each."""
        return [[(row.find_element(By.TAG_NAME, "th").text, *exact(row.find_elements(By.CSS_SELECTOR, "td[title]")))
                 for row in find_all(f"#callers > div > :nth-child({n}) tbody tr")] for n in (1, 3)]

    def test_callers_and_callees(self):
        self.told(Keys.DOWN, Keys.DOWN, "c")
        self.assertEqual(find("#callers code").text, "host+0x30")
        self.assertEqual(self.sides(), [[("host+0x10", 3000)], [("allocate", 3000)]])
        find(".grid").send_keys(Keys.ENTER)
        find(".details .who").click()
        self.assertEqual(self.sides(), [[("host+0x30", 3000), ("host+0x20", 1000)], []])
        self.choose("Per", "line")
        find("#callers .link").click()
        self.assertEqual(find("#callers code").text, "host+0x30")
        self.assertEqual(self.sides()[1], [("allocate a.c:1", 3000)])

    def test_what_is_below_zero_counts_in_both_directions(self):
        self.write_paths("below", b"/a.c", [((0x10, 0x40), 1, 0, [100] * 7), ((0x10, 0x30, 0x40), 1, 0, [-30] * 7),
                                            ((0x30, 0x41), 2, 0, [-50] * 7)])
        open_run("below")
        for keys, told in (((), "20 bytes"), ((Keys.DOWN,), "70 bytes")):
            for direction in ("From main", "From the line"):
                self.press(direction)
                self.assertIn(f"({told})", self.told(*keys), direction)
        self.assertEqual(find("#paths .read").text, "70 B (70 bytes), 350 % of all allocate /a.c, host")

    def test_what_changed_has_the_figures_of_both_runs(self):
        figures = lambda peak: [0, peak, 0, 0, 0, 0, 0]
        self.write_paths("before", b"/a.c", [
            ((0x10, 0x20, 0x40), 1, 0, figures(1000)), ((0x10, 0x30, 0x40), 1, 0, figures(3000)),
            ((0x10, 0x30, 0x30, 0x40), 1, 0, figures(200)), ((0x10, 0x60, 0x41), 2, 0, figures(70))])
        self.write_paths("after", b"/moved/a.c", [  # one grew, one shrank, one came, one went
            ((0x10, 0x30, 0x40), 1, 0, figures(8000)), ((0x10, 0x30, 0x30, 0x40), 1, 0, figures(150)),
            ((0x10, 0x50, 0x40), 1, 0, figures(40)), ((0x10, 0x60, 0x41), 2, 0, figures(70))])
        open_page("diff", f"{work.name}/before", f"{work.name}/after", "--html")
        self.assertIn("\u25b2 +3.90 KiB (3,990 bytes), 4.17 KiB \u2192 8.07 KiB", self.told())
        self.assertEqual(self.told(Keys.DOWN, Keys.DOWN)[-14:], "host+0x30 host")
        self.assertIn("\u25bc \u22121000 B (\u22121,000 bytes), 1000 B \u2192 0 B host+0x20", self.told(Keys.RIGHT))
        self.assertIn("(40 bytes), 0 B \u2192 40 B host+0x50", self.told(Keys.RIGHT))
        self.assertIn("0x50", self.told(Keys.RIGHT), "what has not changed has no width")
        self.press("From the line")
        self.assertIn("(3,990 bytes), 4.10 KiB \u2192 8.00 KiB allocate", self.told(Keys.DOWN))
        self.press("Callers and callees")
        whole = [("host+0x30", 3200, 8150, 4950), ("host+0x20", 1000, 0, -1000), ("host+0x50", 0, 40, 40)]
        self.assertEqual(self.sides(), [whole, []])
        self.assertEqual([cell.get_attribute("title") for cell in find_all("#callers dd")], ["4,200 bytes \u2192 8,190 bytes"] * 2)
        find("#callers .link").click()
        self.assertEqual(self.sides(), [[("host+0x10", 3200, 8150, 4950)], [("allocate", 3200, 8150, 4950)]])
        self.press("All")
        self.assertIn("other", self.told(Keys.RIGHT), "as wide as what there is")
        find_all("#sites .choice button")[3].click()
        find("#Differences-0").click()
        find(".details .who").click()
        self.assertEqual((find("#callers code").text, self.sides()), ("a.c:1", [whole, []]))

    def test_a_run_without_call_paths_can_not_be_compared_by_them(self):
        made_up_run.write_sites(f"{work.name}/without", [(b"host", b"/a.c", 1, b"allocate", made_up_run.figures(4000))])
        open_page("diff", f"{work.name}/without", f"{work.name}/paths", "--html")
        self.assertEqual(texts(".sides .note"), ["Note: There are no call paths to compare with those of the other run."])
        self.assertEqual(find_all("#paths"), [])


class MadeUpRuns(PageTest):
    def test_hostile_names_are_shown_as_text(self):
        long_name = b"f<" + b"std::pair<int, " * 700 + b">"
        names = [b"<script>window.broken = 1</script>", b"</script><img src=x onerror='window.broken=1'>",
                 b"\"quoted' & &lt;", b"not\xff\xfeUTF-8", "line\u2028break \u202eturned".encode(), b"<!--", long_name]
        shown = ["<script>window.broken = 1</script>", "</script><img src=x onerror='window.broken=1'>",
                 "\"quoted' & &lt;", "not\ufffd\ufffdUTF-8", "line\\u2028break \\u202eturned", "<!--"]
        made_up_run.write_sites(f"{work.name}/hostile", [
            (name[:200].replace(b"/", b""), b"/" + name[:200].replace(b"/", b"_") + b".c", 7, name, made_up_run.figures(10**6 - i))
            for i, name in enumerate(names)])
        made_up_run.write_timelines(f"{work.name}/hostile", [names[0], names[1]], 8, lambda i: names[i % 5])
        made_up_run.write_run(f"{work.name}/hostile", 1, [b"host", *names, b"a\\tb"])
        open_run("hostile")
        self.assertEqual(texts(".grid .function")[:len(shown)], shown)
        self.assertIn("a\\tb", find(".run-line").text)
        find(".grid").send_keys(Keys.END, Keys.ENTER)
        self.assertEqual(texts(".details .names dd")[0], long_name.decode())
        self.assertIsNone(browser.execute_script("return window.broken ?? null"))
        self.assertEqual(find_all("main script, main img"), [])

    def test_a_run_without_samples_has_its_table(self):
        made_up_run.write_sites(f"{work.name}/short", [(b"m", b"/a.c", 1, b"f", made_up_run.figures(1000))])
        made_up_run.write_timelines(f"{work.name}/short", [b"m%d" % n for n in range(12)], 0)
        open_run("short")
        self.assertEqual(texts(".place-name"), ["a.c:1"])

    def test_processes_are_summed_or_chosen(self):
        for pid, peak in ((10, 1000), (11, 4000)):
            made_up_run.write_run(f"{work.name}/tree/{pid}", pid, [b"host"])
            made_up_run.write_sites(f"{work.name}/tree/{pid}", [(b"m", b"/a.c", 1, b"f", made_up_run.figures(peak))])
        open_run("tree")
        peak = lambda: exact(find_all(".grid .cell:nth-child(5)"))
        self.assertEqual(peak(), [5000])
        find_all("#processes button.link")[2].click()
        self.assertEqual(peak(), [4000])

    def test_a_large_run_stays_quick(self):
        made_up_run.write_large(f"{work.name}/large")
        began = time.monotonic()
        page = open_run("large")
        script = """const began = performance.now(); arguments[0].click?.();
            if (arguments[1]) { arguments[0].value = arguments[1]; arguments[0].dispatchEvent(new Event('input')); }
            document.body.offsetHeight; return performance.now() - began"""
        self.assertEqual(len(texts("#paths canvas")), 1)
        timing = browser.execute_script("return performance.timing.loadEventEnd - performance.timing.navigationStart")
        sort = browser.execute_script(script, find("[data-key=current_bytes]"))
        search = browser.execute_script(script, find("#search"), "insert_29")
        turn = browser.execute_script(script, find_all("#paths .choice button")[1])
        print(f"10,000 sites, 20,000 samples of 20, 100,000 call paths: {os.path.getsize(page) / 1e6:.1f} MB, opened in {timing} ms, "
              f"sorted in {sort:.0f} ms, searched in {search:.0f} ms, "
              f"turned the flame graph in {turn:.0f} ms; all {time.monotonic() - began:.1f} s")
        self.assertLess(os.path.getsize(page), 15e6)
        self.assertGreater(len(texts(".place-name")), 10)
        self.assertLess(len(find_all(".grid .row")), 100)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
