#!/usr/bin/env python3
"""Uses the page of dmd-report --html in a browser as a person does: report_page_test.py DMD_REPORT"""

import collections
import contextlib
import http.client
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import typing

import fleet

HOSTILE = ("</script><script>document.title='ran'</script><!-- <b>bold</b><img src=http://127.0.0.1:9/x onerror=ran()>"
           "\"'`&amp; \u2028 \u202eturned\u202c \x1b[31m \\u003c /*document*/ /*report_page.js*/ ]]\n\tend ")


class Report(typing.NamedTuple):
    date: str
    time: str
    device: str
    error: int
    test_switch: str
    content: str


REPORTS = [
    Report("2026-11-25", "10:11:12", "touch_panel", 20002, "on", "no answer from the panel"),
    Report("2026-11-25", "10:11:12", "touch_panel", 20002, "off", "no answer again"),
    Report("2026-11-25", "11:30:00", "touch_panel", 20008, "off", "wrong firmware"),
    Report("2026-11-26", "00:00:00", "charger", 10001, "off", HOSTILE),
    Report("2026-03-29", "02:30:00", "charger", 10001, "off", "in an hour that summer time skips where some look"),
]
UNDATED = Report("2026-02-30", "10:00:00", "charger", 10001, "off", "on a day that does not exist")
BROWSER_OPTIONS = """--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking
    --disable-component-update --disable-sync --disable-dev-shm-usage --window-size=1280,1000
    --remote-debugging-pipe""".split()  # a pipe: the driver would look its socket up by a name
PATIENCE = 300  # seconds; the machine may have much else to do
KEY_DOWN, KEY_RIGHT, KEY_HOME, KEY_END, KEY_ENTER = "\ue015", "\ue014", "\ue011", "\ue010", "\ue007"
AXE = pathlib.Path(__file__).parents[1] / "build/npm/node_modules/axe-core/axe.min.js"
OPENS_IN, FILTERS_IN = 4, 0.2  # seconds, with 100,000 reports on an idle machine
FACTOR = 3                     # of these, which a busy one is allowed


class Browser:
    """What a person does with a browser, by way of its driver at the port."""

    def __init__(self, port, folder):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        self.session = ""
        self.session = "/" + self.call("POST", "", capabilities={"alwaysMatch": {
            "goog:chromeOptions": {"args": BROWSER_OPTIONS + [f"--user-data-dir={folder}"]},
            "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"},
            "timeouts": {"script": 1000 * PATIENCE}}})["sessionId"]
        self.tell("Performance.enable", timeDomain="threadTicks")
        self.open("about:blank")
        self.log("performance")  # what the browser's own first page asked for

    def call(self, method, path, **body):
        self.connection.request(method, f"/session{self.session}{path}", json.dumps(body) if method == "POST" else None)
        value = json.load(self.connection.getresponse())["value"]
        if isinstance(value, dict) and "error" in value:
            raise RuntimeError(value["message"])
        return value

    def open(self, url):
        self.call("POST", "/url", url="about:blank")  # a new fragment alone would not load the page anew
        self.call("POST", "/url", url=url)
        self.settle()

    def settle(self):
        """Waits until the page has been drawn: it draws its timeline once more when the size of it has changed."""
        self.call("POST", "/execute/async", args=[], script="const done = arguments[0];"
                  "requestAnimationFrame(() => requestAnimationFrame(() => done()))")

    def get(self, expression):
        return self.call("POST", "/execute/sync", script=f"return {expression}", args=[])

    def wait_for(self, condition):
        self.call("POST", "/execute/async", args=[], script="const done = arguments[0];"
                  f"(function again() {{ ({condition}) ? done() : setTimeout(again, 20); }})()")

    def element(self, selector, action, **body):
        [found] = self.call("POST", "/element", using="css selector", value=selector).values()
        self.call("POST", f"/element/{found}/{action}", **body)
        self.settle()

    def click(self, selector):
        self.element(selector, "click")

    def type(self, text, selector="body"):
        self.element(selector, "value", text=text)

    def drag(self, y, start, end):
        steps = [{"type": "pointerMove", "x": int(start), "y": int(y)}, {"type": "pointerDown", "button": 0},
                 {"type": "pointerMove", "x": int(end), "y": int(y)}, {"type": "pointerUp", "button": 0}]
        self.call("POST", "/actions", actions=[{"type": "pointer", "id": "mouse", "actions": steps}])
        self.settle()

    def tell(self, command, **params):
        return self.call("POST", "/goog/cdp/execute", cmd=command, params=params)

    def look(self, width, height, scheme):
        """Sets the size of the window, and whether its colours are light or dark."""
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.tell("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def work(self):
        """Seconds that the page's thread has worked, however busy the machine is with other things."""
        return next(metric["value"] for metric in self.tell("Performance.getMetrics")["metrics"]
                    if metric["name"] == "ThreadTime")

    def log(self, kind):
        return self.call("POST", "/se/log", type=kind)

    def shown(self):
        """How many lanes, reports in marks, and rows there are."""
        return self.get("[document.querySelectorAll('#lanes text.lane').length, [...document.querySelectorAll("
                        "'#lanes .mark')].reduce((sum, mark) => sum + Number(mark.dataset.count), 0),"
                        "document.querySelector('#dated table').ariaRowCount - 1]")

    def rows(self, table):
        """The rows of the table, each a dictionary by the names of the columns."""
        return self.get(
            f"[...document.querySelectorAll('#{table} tr[data-index]')].map(row => Object.fromEntries([...row.cells]"
            f".map((cell, i) => [document.querySelectorAll('#{table} th')[i].dataset.name,"
            "cell.querySelector('svg')?.ariaLabel ?? cell.textContent])))")

    def content(self):
        return self.get("document.getElementById('content')?.textContent ?? ''")


@contextlib.contextmanager
def started_browser(folder):
    # In a time zone in which one of the hours does not exist: no time is to go through it.
    command, environment = ["chromedriver", "--port=0"], {**os.environ, "TZ": "Europe/Berlin"}
    with contextlib.ExitStack() as ends:
        try:
            driver = ends.enter_context(subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment))
            ends.callback(driver.terminate)
            started = (re.search(r"successfully on port (\d+)", line) for line in driver.stdout)
            browser = Browser(int(next(filter(None, started))[1]), folder)
        except (OSError, RuntimeError, StopIteration) as error:
            sys.exit(f"the browser, or its driver, does not start: {error!r}")
        ends.callback(browser.call, "DELETE", "")
        yield browser


def write_record(folder, reports):
    folder.mkdir(parents=True)
    (folder / "dmd_record_0.txt").write_bytes("".join(
        f"\n========Device Bugreport========\n[Date]:{report.date}\n[Time]:{report.time}\n[Device]:{report.device}\n"
        f"[Error no]:{report.error}\n[Runing_test_switch]:{report.test_switch}\n[Content]:\n{report.content}"
        for report in reports).encode())


def make_page(dmd_report, folder):
    page = folder.with_suffix(".html")
    subprocess.run([dmd_report, "--html", page, folder], stderr=subprocess.DEVNULL)  # which tells of damaged files
    return page.as_uri()


def expect(what, actual, wanted):
    if actual != wanted:
        sys.exit(f"{what}: {actual!r} instead of {wanted!r}")


def check_few(browser, url):
    browser.open(url)
    expect("lanes, marks and rows", browser.shown(), [3, 5, 5])
    expect("rows without a date", [row["begins"] for row in browser.rows("undated")], [UNDATED.content])
    facts = browser.get("document.getElementById('facts').innerText")
    expect("the phone's times in the head", re.findall(r"\d+-\d+-\d+ [\d:]+", facts)[:2],
           ["2026-03-29 02:30:00", "2026-11-26 00:00:00"])
    # Half a year before the others, as if a clock were wrong, is no part of the bars.
    expect("the bars of the summary", browser.get("groups.map(({bars}) => bars.join())"), ["0,1", "2,0", "1,0"])

    contents = []
    for mark in browser.get("[...document.querySelectorAll('#lanes .mark')].map(mark => mark.dataset)"):
        for _ in range(int(mark["count"])):  # of one second: a click shows the one, another click the other
            browser.click(f"#lanes .mark[data-number='{mark['number']}']")
            contents.append(browser.content())
    expect("contents of the clicked marks", sorted(contents), sorted(report.content for report in REPORTS))
    expect("title, scripts and images, which no content is to change", browser.get(
        "[document.title, document.scripts.length, document.images.length]"), ["Device bug reports", 2, 0])

    browser.click("#device option[value=charger]")
    expect("what the device's filter leaves", browser.shown(), [1, 2, 2])
    browser.type("SUMMER", "#text")
    expect("what the search leaves", browser.shown(), [1, 1, 1])
    browser.click("#dated tr[data-index]")
    # The address follows with a delay, and holds the report that was chosen before until then.
    browser.wait_for("[['text', 'SUMMER'], ['report', state.report.number]].every(([name, value]) => "
                     "new URLSearchParams(location.hash.slice(1)).get(name) === String(value))")
    browser.open(browser.get("location.href"))
    expect("what the address brings back", [browser.shown(), browser.content(), browser.get(
        "document.querySelector('#content mark').textContent")], [[1, 1, 1], REPORTS[4].content, "summer"])

    browser.click("#clear")
    box = browser.get("document.getElementById('lanes').getBoundingClientRect()")
    browser.drag(box["top"] + 50, box["left"] + box["width"] * 0.6, box["right"] - 5)
    expect("what a range of time leaves", browser.shown(), [3, 4, 4])
    browser.type("0")
    expect("the whole time", browser.shown(), [3, 5, 5])
    browser.type("/")
    expect("the focus", browser.get("document.activeElement.id"), "text")


def check_nothing(browser, few_url, empty_url):
    """Looks at pages that leave no time, which nothing must stumble over."""
    browser.open(empty_url)
    expect("what is said of nothing", browser.get("document.getElementById('facts').innerText")[:10], "No reports")
    browser.open(few_url + "#from=2030-01-01T00:00:00")
    expect("what has no time", [browser.shown()[2], len(browser.rows("undated"))], [0, 0])


def check_answers(browser, url, reports):
    """Asks what breaks most, on how many phones, on which, since when, and is it getting worse."""
    browser.open(url)
    kinds = collections.defaultdict(list)
    for report in reports:
        kinds[report.device or "(dump)", str(report.error)].append(report)
    groups = browser.rows("groups")
    expect("reports and phones of each failure, and since when",
           sorted((row["device"], row["error"], row["count"], row["phones"], row["first"]) for row in groups),
           sorted((*kind, str(len(found)), f"{len({report.phone for report in found})} of {len(fleet.PHONES)}",
                   f"{min(report.when for report in found):%Y-%m-%d %H:%M}") for kind, found in kinds.items()))
    counts = [int(row["count"]) for row in groups]
    expect("what breaks most comes first", counts, sorted(counts, reverse=True))
    [emmc] = [index for index, row in enumerate(groups) if row["device"] == "emmc"]
    days = [0] * fleet.EMMC_DAY + list(range(1, fleet.DAYS - fleet.EMMC_DAY + 1))
    expect("each day's reports, which become more", groups[emmc]["bars"].split(": ")[1], " ".join(map(str, days)))
    browser.click("#groups th[data-name=bars] button")
    expect("what gets worse most", browser.rows("groups")[0]["device"], "emmc")
    browser.click("#groups th[data-name=count] button")

    browser.click(f"#groups-{emmc}")
    expect("what the row leaves", browser.shown(), [1, sum(days), sum(days)])
    expect("the phones that have it", browser.get(
        "[...document.querySelectorAll('#phone option')].slice(1).map(option => option.value)"), fleet.BATCHES[1])
    browser.click(f"#groups-{emmc}")
    worst = max(collections.Counter((report.phone, report.device, report.error) for report in reports).items(),
                key=lambda item: item[1])
    browser.click("#phone-map .level-5 text")
    expect("what the darkest cell leaves", [browser.shown(), {row["phone"] for row in browser.rows("dated")}],
           [[1, worst[1], worst[1]], {worst[0][0]}])

    browser.click("#clear")
    browser.click("#with-texts")
    like = {(row["device"], row["like"], row["count"]) for row in browser.rows("groups")}
    wanted = {(kind.device, kind.text.strip(), str(kind.a_day * fleet.DAYS or sum(days)))
              for kind in fleet.KINDS + [fleet.EMMC]}
    expect("texts that are alike but for their numbers", wanted - like, set())


def check_folded(browser, url, folder):
    browser.open(url)
    facts = browser.get("document.getElementById('head').innerText")
    made = rf"made 20\d\d-\d\d-\d\d \d\d:\d\d .*by dmd-report \S+.* from {re.escape(str(folder))}"
    expect(f"when, by which version and from what it was made, in {facts}", bool(re.search(made, facts)), True)
    expect("the problems, as long as they are folded", re.findall("⚠.*", facts),
           ["⚠ 4 problems while reading, on 4 phones"])
    browser.click("#problems summary")
    expect("the phones of the problems", browser.get(
        "document.getElementById('problem-list').innerText.match(/phone\\d+/g)"),
           [fleet.CUT, fleet.FLIPPED, fleet.EMPTY, fleet.LOST])
    browser.get("choose(reports.find(report => columns.places_count[report.index] > 3))")
    expect("whether the places are unfolded, and whether they are there", browser.get(
        "[document.querySelector('#detail details').open,"
        "document.querySelectorAll('#detail details li').length > 3]"), [False, True])


def check_keys(browser, url):
    browser.open(url)
    browser.type(KEY_END)
    browser.wait_for("scrollY + innerHeight > document.documentElement.scrollHeight - 2")
    expect("the report that the page's end chooses", browser.get("state.report"), None)
    browser.type(KEY_END, "#dated table")
    expect("the last report", browser.get("state.report === dated.at(-1)"), True)
    browser.type(KEY_DOWN * 2 + KEY_ENTER, "#groups table")
    chosen = browser.get("document.querySelector('#groups [aria-selected=true]').cells[1].textContent")
    expect("the failure of the keys", browser.get("state.error"), chosen)
    browser.type(KEY_RIGHT + KEY_ENTER, "#phone-map")
    expect("the phone of the keys", browser.get(
        "state.phone !== '' && dated.every(({phone}) => phone === state.phone)"), True)
    browser.click("#clear")
    browser.type(KEY_HOME + KEY_DOWN + KEY_END + KEY_ENTER, "#lanes")
    expect("the mark of the keys", browser.get("state.from !== null || state.report !== dated.at(-1)"), True)


def check_narrow(browser, url):
    browser.look(360, 740, "light")
    browser.open(url)
    expect("the ticks of the axis", browser.get("document.querySelectorAll('#lanes .tick').length >= 3"), True)
    expect("the first report within two screens, and nothing beside the screen", browser.get(
        "[document.querySelector('#dated-0').getBoundingClientRect().bottom < 2 * innerHeight,"
        "document.documentElement.scrollWidth <= innerWidth]"), [True, True])


def check_access(browser, url):
    """Has the rules of accessibility checked, with the details of a report and all that is folded open."""
    if not AXE.exists():
        print(f"not checked for accessibility: there is no {AXE}")
        return
    for width, height, scheme in ((1400, 1000, "light"), (1400, 1000, "dark"), (360, 740, "light"), (360, 740, "dark")):
        browser.look(width, height, scheme)
        browser.open(url)
        browser.get("[step(1), document.querySelectorAll('details').forEach(fold => { fold.open = true; })]")
        browser.call("POST", "/execute/sync", script=AXE.read_text(), args=[])
        found = browser.call("POST", "/execute/async", args=[], script="const done = arguments[0];"
                             "axe.run({preload: false}).then(({violations}) => done(violations.map("
                             "({id, nodes}) => [id, nodes.map(({html}) => html.slice(0, 200))])))")
        expect(f"what is hard to use at {width} pixels, {scheme}", found, [])


def check_speed(browser, url, count):
    browser.look(1280, 1000, "light")
    browser.open(url)
    opening = browser.work()  # of a process of its own
    expect("lanes, and the reports of the rows", [browser.shown()[0] > 10, browser.shown()[2]], [True, count])
    expect("rows that exist are few", len(browser.rows("dated")) < 200, True)
    filtering = []
    for change in ("device: 'device_3'", "phone: 'phone7'", "text: 'report 77'", "text: '', phone: '', device: ''"):
        start = browser.work()
        browser.get(f"change({{{change}}})")
        browser.settle()
        filtering.append(browser.work() - start)
    print(f"{count} reports: opened in {opening:.2f} s, filtered in",
          ", ".join(f"{seconds:.3f} s" for seconds in filtering))
    expect("quick enough", [opening < OPENS_IN * FACTOR, max(filtering) < FILTERS_IN * FACTOR], [True, True])


def check_quiet(browser, urls):
    expect("the console", browser.log("browser"), [])
    events = [json.loads(entry["message"])["message"] for entry in browser.log("performance")]
    requests = {event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"}
    expect("requests", requests - {"about:blank"}, set(urls))


def main():
    many, on_one = 100000, 334
    with tempfile.TemporaryDirectory(prefix="report_page_", ignore_cleanup_errors=True) as name:
        folder = pathlib.Path(name)
        write_record(folder / "few", REPORTS + [UNDATED])
        write_record(folder / "empty", [])
        thirty = fleet.make_thirty(folder / "thirty")
        for first in range(0, many, on_one):
            write_record(folder / f"many/phone{first // on_one}", [
                Report(f"2026-{1 + i // 9000:02}-{1 + i % 28:02}", f"{i % 24:02}:{i % 60:02}:{i % 59:02}",
                       f"device_{i % 13}", 20000 + i % 40, "off", f"report {i} of many, with some more to say\n" * 4)
                for i in range(first, min(first + on_one, many))])
        urls = [make_page(sys.argv[1], folder / name) for name in ("few", "empty", "thirty", "many")]
        few_url, empty_url, thirty_url, many_url = urls
        with started_browser(folder / "profile") as browser:
            check_few(browser, few_url)
            check_nothing(browser, few_url, empty_url)
            check_answers(browser, thirty_url, thirty)
            check_folded(browser, thirty_url, folder / "thirty")
            check_keys(browser, thirty_url)
            check_narrow(browser, thirty_url)
            check_access(browser, thirty_url)
            check_speed(browser, many_url, many)
            check_quiet(browser, urls)


if os.getpid() != 1:  # as the first process of its own, all that it starts ends with it, however it ends
    user = ["--map-root-user"] if os.geteuid() != 0 else []
    os.execvp("unshare", ["unshare", *user, "--pid", "--fork", "--kill-child", "--mount-proc",
                         "--propagation", "unchanged", *sys.argv])  # of a root that need not be a mount
main()
