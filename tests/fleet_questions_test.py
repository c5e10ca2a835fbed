#!/usr/bin/env python3
"""Asks what docs/reports.md asks about a fleet, in its words: fleet_questions_test.py terminal|sqlite|postgresql DMD_REPORT

Where there is no PostgreSQL as Debian installs it, ends with status 77.
"""

import collections
import contextlib
import datetime
import json
import os
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile

import fleet

PAGE = (pathlib.Path(__file__).parents[1] / "docs/reports.md").read_text()


def blocks_of(heading, language):
    [section] = re.findall(rf"^## {heading}\n(.*?)(?=^## )", PAGE, re.DOTALL | re.MULTILINE)
    return re.findall(rf"^```{language}\n(.*?)^```$", section, re.DOTALL | re.MULTILINE)


def what_breaks_most(reports):
    found = collections.defaultdict(list)
    for report in reports:
        if report.device is not None:
            found[report.device, report.error].append((str(report.when.date()), report.phone))
    rows = [(*kind, len(those), len({phone for _, phone in those}), min(those)[0], max(those)[0])
            for kind, those in found.items()]
    return sorted(rows, key=lambda row: (-row[2], row))


def on_which_phones(reports):
    days = collections.defaultdict(list)
    for report in reports:
        if report.device == "emmc":
            days[report.phone].append(str(report.when.date()))
    return sorted(((phone, len(those), min(those)) for phone, those in days.items()), key=lambda row: (-row[1], row))


def is_it_getting_worse(reports):
    latest = max(report.when for report in reports).date()
    weeks = collections.defaultdict(lambda: [0, 0])
    for report in reports:
        week = (latest - report.when.date()).days // 7
        if report.device is not None and week < 2:
            weeks[report.device, report.error][week] += 1
    return sorted(((*kind, *counts) for kind, counts in weeks.items()), key=lambda row: (row[3] - row[2], row))


def expect(what, actual, wanted):
    if actual != wanted:
        sys.exit(f"{what}: {actual!r} instead of {wanted!r}")


def lines_on_a_terminal(command):
    """What a terminal of 80 columns shows of a command, but for colours."""
    shown = subprocess.run(["script", "--quiet", "--command", f"stty cols 80; {command}", "/dev/null"],
                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout
    return re.sub(r"\x1b\[[0-9;]*[mK]", "", shown).replace("\r\n", "\n").splitlines()


def ask_terminal(reports):
    summary = subprocess.run("dmd-report --summary pulled", shell=True, check=False, text=True, stdout=subprocess.PIPE)
    rows = [line.split("\t") for line in summary.stdout.splitlines()[1:]]
    told = [(device, int(error), int(count), int(phones), first[:10], last[:10])
            for device, error, count, phones, first, last, *_ in rows if device != "(dump)"]
    expect("what --summary tells", sorted(told, key=lambda row: (-row[2], row)), what_breaks_most(reports))
    by_phone = subprocess.run("dmd-report --summary --by phone --error 28000 pulled", shell=True, check=False, text=True,
                              stdout=subprocess.PIPE)
    rows = [line.split("\t") for line in by_phone.stdout.splitlines()[1:]]
    told = [(phone, int(count), first[:10]) for phone, count, _, first, *_ in rows]
    expect("on which phones", sorted(told, key=lambda row: (-row[1], row)), on_which_phones(reports))

    os.environ["PAGER"] = "sed s/^/paged:/"
    lines = lines_on_a_terminal("dmd-report --summary pulled")
    [emmc] = [line for line in lines if line.startswith("paged:emmc ")]
    expect("the row of emmc", emmc.split()[1:6], ["28000", "78", "10", "11-14", "11-25"])
    expect("its days", re.search(r" +[▁▂▃▄▅▆▇█]+$", emmc)[0], "      ▂▃▄▆▇█")
    lines = lines_on_a_terminal("dmd-report --no-pager -n 100 pulled")
    expect("lines that are too long", [line for line in lines[:-1] if len(line) > 80 and "dmd-report: " not in line], [])
    expect("the last line", lines[-1].split(",")[0], "100 reports of 655")


def ask_sqlite(reports):
    subprocess.run("dmd-report --sqlite fleet.db pulled", shell=True, check=False)  # 1: some files are damaged
    questions = blocks_of("A database", "sql")
    answers = what_breaks_most, on_which_phones, is_it_getting_worse
    expect("questions", len(questions), len(answers))
    with contextlib.closing(sqlite3.connect("fleet.db")) as database:
        for question, answer in zip(questions, answers):
            expect(question, database.execute(question).fetchall(), answer(reports))


def ask_postgresql(reports):
    [script] = blocks_of("PostgreSQL", "sql")
    pathlib.Path("add.sql").write_text(script)
    create, add = blocks_of("PostgreSQL", "sh")
    for command in (create, add, add):  # added twice, each report is there once
        subprocess.run(command, shell=True, check=True)
    for question, answer in zip(blocks_of("A database", "sql"), (what_breaks_most, on_which_phones)):
        rows = ["|".join(map(str, row)) for row in answer(reports)]
        expect(question, query_postgresql(question).splitlines(), rows)
    contents = query_postgresql("SELECT json_agg(content ORDER BY time) FROM reports WHERE device = 'dsm_nfc'")
    expect("contents of bytes that are no text", json.loads(contents),
           [report.content.decode(errors="replace").replace("\0", "\ufffd")
            for report in reports if report.device == "dsm_nfc"])


def query_postgresql(text):
    return subprocess.run(["psql", "--no-align", "--tuples-only", f"--command={text}", "fleet"],
                          check=True, text=True, stdout=subprocess.PIPE).stdout


@contextlib.contextmanager
def started_server():
    """Runs a server with its data and its socket in the current folder, for the programs started meanwhile."""
    folder = os.getcwd()
    os.environ.update(PGHOST=folder, PGUSER="tester", PGDATA=f"{folder}/data")
    subprocess.run("initdb --no-sync --no-locale --auth=trust --username=tester", shell=True, check=True)
    options = f"-c unix_socket_directories={folder} -c listen_addresses= -c fsync=off"
    subprocess.run(["pg_ctl", "start", "--wait", "--log=log", f"--options={options}"], check=True)
    try:
        yield
    finally:
        subprocess.run("pg_ctl stop --mode=immediate", shell=True, check=True)


def main():
    kind, dmd_report = sys.argv[1:]
    servers = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"), key=lambda path: float(path.parent.name))
    if kind == "postgresql" and not servers:
        print("skipped: Debian's package postgresql is not installed")
        sys.exit(77)
    os.environ["PATH"] = os.pathsep.join(map(str, [pathlib.Path(dmd_report).parent, *servers[-1:], os.environ["PATH"]]))
    with tempfile.TemporaryDirectory(prefix="fleet_") as folder, contextlib.chdir(folder):
        reports = fleet.make_thirty("pulled")
        if kind == "postgresql":
            with started_server():
                ask_postgresql(reports)
        else:
            {"terminal": ask_terminal, "sqlite": ask_sqlite}[kind](reports)


if os.getpid() != 1:  # as the first process of its own, all that it starts ends with it; and no server runs as root
    os.execvp("unshare", ["unshare", "--user", "--map-user=nobody", "--map-group=nogroup", "--pid", "--fork",
                          "--kill-child", *sys.argv])
main()
