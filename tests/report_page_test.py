#!/usr/bin/env python3
"""Uses the page of dmd-report --html in a browser as a person does: report_page_test.py DMD_REPORT"""

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

HOSTILE = ("</script><script>document.title='ran'</script><!-- <b>bold</b><img src=http://127.0.0.1:9/x onerror=ran()>"
           "\"'`&amp; \u2028 \u202eturned\u202c \x1b[31m \\u003c {\"reports\":[]} /*report_page.js*/ ]]\n\tend ")


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
BROWSER_OPTIONS = """--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking
    --disable-component-update --disable-sync --disable-dev-shm-usage --window-size=1280,1000
    --remote-debugging-pipe""".split()  # a pipe: the driver would look its socket up by a name
PATIENCE = 300  # seconds; the machine may have much else to do
KEY_DOWN, KEY_HOME, KEY_END = "\ue015", "\ue011", "\ue010"


class Browser:
    """What a person does with a browser, by way of its driver at the port."""

    def __init__(self, port, folder):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        self.session = ""
        self.session = "/" + self.call("POST", "", capabilities={"alwaysMatch": {
            "goog:chromeOptions": {"args": BROWSER_OPTIONS + [f"--user-data-dir={folder}"]},
            "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"},
            "timeouts": {"script": 1000 * PATIENCE}}})["sessionId"]
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

    def log(self, kind):
        return self.call("POST", "/se/log", type=kind)

    def shown(self):
        """How many lanes, reports in marks, and rows there are."""
        return self.get("[document.querySelectorAll('#lanes text.lane').length, [...document.querySelectorAll("
                        "'#lanes .mark')].reduce((sum, mark) => sum + Number(mark.dataset.count), 0),"
                        "document.querySelectorAll('#dated tr[data-index]').length]")

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


def make_page(dmd_report, folder, reports):
    folder.mkdir()
    (folder / "dmd_record_0.txt").write_bytes("".join(
        f"\n========Device Bugreport========\n[Date]:{report.date}\n[Time]:{report.time}\n[Device]:{report.device}\n"
        f"[Error no]:{report.error}\n[Runing_test_switch]:{report.test_switch}\n[Content]:\n{report.content}"
        for report in reports).encode())
    page = folder / "page.html"
    subprocess.run([dmd_report, "--html", page, folder], check=True)
    return page.as_uri()


def expect(what, actual, wanted):
    if actual != wanted:
        sys.exit(f"{what}: {actual!r} instead of {wanted!r}")


def check_few(browser, url):
    browser.open(url)
    expect("lanes, marks and rows", browser.shown(), [3, 5, 5])
    summary = browser.get("document.getElementById('summary').innerText")
    expect("the phone's times in the summary", re.findall(r"\d+-\d+-\d+ [\d:]+", summary),
           ["2026-03-29 02:30:00", "2026-11-26 00:00:00"])

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
    browser.type(KEY_HOME + KEY_DOWN)
    expect("the row of the keys", browser.get("document.querySelector('[aria-selected=true]').dataset.index"), "1")
    browser.type("/")
    expect("the focus", browser.get("document.activeElement.id"), "text")


def check_many(browser, url, reports):
    browser.open(url)
    lanes, marks, rows = browser.shown()
    expect("lanes and marks", [lanes, marks], [13, len(reports)])
    expect("rows that exist are few", 20 < rows < 200, True)
    expect("rows", browser.get("document.querySelector('#dated table').ariaRowCount"), str(len(reports) + 1))
    browser.type(KEY_END)
    expect("the last report", browser.content(), max(reports).content)


def check_quiet(browser, urls):
    expect("the console", browser.log("browser"), [])
    events = [json.loads(entry["message"])["message"] for entry in browser.log("performance")]
    requests = {event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"}
    expect("requests", requests - {"about:blank"}, set(urls))


def main():
    many = [Report(f"2026-{1 + i // 1000:02}-{1 + i % 28:02}", f"{i % 24:02}:{i % 60:02}:{i % 59:02}",
                   f"device_{i % 13}", 20002, "off", f"report {i}") for i in range(10000)]
    with tempfile.TemporaryDirectory(prefix="report_page_", ignore_cleanup_errors=True) as folder:
        urls = [make_page(sys.argv[1], pathlib.Path(folder, name), reports)
                for name, reports in (("few", REPORTS), ("many", many))]
        with started_browser(pathlib.Path(folder, "profile")) as browser:
            check_few(browser, urls[0])
            check_many(browser, urls[1], many)
            check_quiet(browser, urls)


if os.getpid() != 1:  # as the first process of its own, all that it starts ends with it, however it ends
    user = ["--map-root-user"] if os.geteuid() != 0 else []
    os.execvp("unshare", ["unshare", *user, "--pid", "--fork", "--kill-child", "--mount-proc",
                         "--propagation", "unchanged", *sys.argv])  # of a root that need not be a mount
main()
