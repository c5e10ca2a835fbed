#!/usr/bin/env python3
"""Makes the folders that were pulled from a fleet of phones, the same at every call.

fleet.py thirty FOLDER                        30 phones in three batches, with damaged files among theirs
fleet.py thousand FOLDER [PHONES [REPORTS]]   1,000 phones, unless told otherwise, with 40 files each and 100,000
                                              reports together, made on all processors
"""

import datetime
import gzip
import io
import multiprocessing
import pathlib
import random
import re
import sys
import tarfile
import typing

FIRST_DAY = datetime.datetime(2026, 11, 6)
DAYS = 20
DAY = 86400  # seconds
EMMC_DAY = 8  # the day, from 0, since which batch 2 fails: 14 November
ARCHIVE_BYTES = 35000  # of a record and a log together

BATCHES = [[f"phone{10 * batch + i:02}" for i in range(1, 11)] for batch in range(3)]
PHONES = sum(BATCHES, [])
WORST = "phone23"  # with half of the fleet's reports of touch_panel 20002
TWINS = ("phone07", "phone21")  # have a report each that agree in all but the phone
ODD = "phone08"  # has contents of bytes that are no text
PULLED_TWICE = "phone05"  # in two folders, of which the second has all
CUT, FLIPPED, EMPTY = "phone03", "phone04", "phone06"  # have a damaged file that costs no report
LOST = "phone14"  # has a report that stands in a cut archive only


class Report(typing.NamedTuple):
    phone: str
    when: datetime.datetime
    device: typing.Optional[str]  # None for a dump of its own, which has no head
    error: int
    content: bytes
    has_processes: bool = False


class Kind(typing.NamedTuple):
    device: str
    error: int
    text: str  # each "#" stands for a number
    a_day: int


KINDS = [
    Kind("touch_panel", 20002, "i2c timed out, retry #\n", 6),
    Kind("touch_panel", 20008, "firmware # does not match # of the panel\n", 3),
    Kind("dsm_lcd", 20100, "vsync # ms late, underflow #\n", 4),
    Kind("sensorhub", 20500, "no answer to command #, queue holds #\n", 5),
    Kind("dsm_pmu_coul", 1, "coulomb counter jumped from # to #\n", 4),
    Kind("dsm_charger", 10001, "input current # mA below limit\n", 4),
    Kind("dsm_wifi", 30001, "beacon lost # times, rssi -#\n", 2),
]
EMMC = Kind("emmc", 28000, "write timed out after # ms at sector #\n", 0)

PROCESSES = """User 4%, System 3%, IOW 0%, IRQ 0%
User 14 + Nice 0 + Sys 11 + Idle 301 + IOW 0 + IRQ 0 + SIRQ 0 = 326
  PID PR CPU% S  #THR     VSS     RSS PCY UID      Name
 2213  0   2% S    87 1650212K  96364K  fg system   system_server
  317  1   1% S    12  102340K   9012K  fg media    /system/bin/mediaserver
"""
LOG = "".join(f"<6>[{100 + i // 9}.{i * i % 9973:04}] [pid:{i % 13}] unit_{i % 7}: state {i % 97}, {i % 3} wait\n"
              for i in range(1000)).encode()


def number_filler(source):
    return lambda text: re.sub("#", lambda _: str(source.randrange(10 ** source.randint(1, 5))), text).encode()


def head_of(report):
    return (f"\n========Device Bugreport========\n[Date]:{report.when:%Y-%m-%d}\n[Time]:{report.when:%H:%M:%S}\n"
            f"[Device]:{report.device}\n[Error no]:{report.error:02}\n[Runing_test_switch]:on\n"
            + (f"[Temperature]:null\n[Process]:\n{PROCESSES}" if report.has_processes else "")
            + "[Content]:\n").encode()


def write_gzip(folder, report, kind, content):
    path = folder / f"dmd_dump_{report.error:05}_{report.when:%H%M%S}.{kind}.gz"
    second = int(report.when.replace(tzinfo=datetime.timezone.utc).timestamp())
    path.write_bytes(gzip.compress(content, 1, mtime=second))
    return path


def write_archive(folder, report, record_name, record):
    """Writes the archive that the daemon makes right after the last report of the record."""
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w", format=tarfile.USTAR_FORMAT) as archive:
        for name, content in ((f"data/kvdx_logs/dmd_log/{record_name}", record),
                              ("data/android_logs/kmsgcat-log", LOG[:ARCHIVE_BYTES - len(record)])):
            member = tarfile.TarInfo(name)
            member.size = len(content)
            member.mtime = int(report.when.replace(tzinfo=datetime.timezone.utc).timestamp())
            archive.addfile(member, io.BytesIO(content))
    return write_gzip(folder, report, "tar", packed.getvalue())


def write_pull(folder, reports, records, archived):
    """Writes the reports to so many records, and an archive for each report whose index is in `archived`."""
    folder.mkdir(parents=True)
    for report in reports:
        if report.device is None:
            write_gzip(folder, report, "txt", report.content)
    reports = [report for report in reports if report.device is not None]
    for number in range(records):
        name, record = f"dmd_record_{number}.txt", b""
        for i in range(number * len(reports) // records, (number + 1) * len(reports) // records):
            record += head_of(reports[i]) + reports[i].content
            if i in archived:
                write_archive(folder, reports[i], name, record)
        (folder / name).write_bytes(record)


def make_reports_of_thirty():
    source = random.Random(30)
    fill = number_filler(source)
    reports = []
    for day in range(DAYS):
        emmc = [EMMC] * max(0, day - EMMC_DAY + 1)  # one more each day
        for kind in [kind for kind in KINDS for _ in range(kind.a_day)] + emmc:
            phones = BATCHES[1] if kind is EMMC else PHONES
            if kind is KINDS[0]:
                phones = phones + [WORST] * len(phones)
            when = FIRST_DAY + datetime.timedelta(day, source.randrange(DAY))
            reports.append(Report(source.choice(phones), when, kind.device, kind.error, fill(kind.text),
                                  source.random() < 0.3))
    noon = FIRST_DAY + datetime.timedelta(hours=12)
    reports += [Report(phone, noon, "dsm_lcd", 20100, b"panel id reads as 0\n") for phone in TWINS]
    reports += [Report(phone, noon + datetime.timedelta(i), None, 20002, b"row 0: 12 14 11\n" * i)
                for i, phone in enumerate(BATCHES[0], 1)]
    reports += [Report(ODD, noon + datetime.timedelta(1, i), "dsm_nfc", 40001, content) for i, content in enumerate(
        (b"frame \xff\xc3\x00 refused\n", b"it said \"\\u0000\\\"\t'\x1b', \\N\r\n", b"registers \x00\x00 \\\x00\n",
         "4 µA, 漢 and \U0001f600\n".encode()))]
    reports.append(Report(LOST, noon, "dsm_fs", 50001, b"superblock does not match its checksum\n"))
    return sorted(reports, key=lambda report: (report.phone, report.when))


def make_thirty(folder):
    """Returns the reports that are to be found."""
    folder = pathlib.Path(folder)
    reports = make_reports_of_thirty()
    for phone in PHONES:
        mine = [report for report in reports if report.phone == phone and report.device != "dsm_fs"]
        archived = range(0, len(mine), 3)
        if phone == PULLED_TWICE:
            write_pull(folder / phone / "second", mine, 1, archived)
            write_pull(folder / phone / "first", mine[:len(mine) // 2], 1, archived)
        else:
            write_pull(folder / phone, mine, 1, archived)

    [lost] = [report for report in reports if report.device == "dsm_fs"]
    archives = {phone: min((folder / phone).glob("*.tar.gz")) for phone in (CUT, FLIPPED)}
    archives[LOST] = write_archive(folder / LOST, lost, "dmd_record_1.txt", head_of(lost) + lost.content)
    for phone, path in archives.items():
        content = bytearray(path.read_bytes())
        place = len(content) * 3 // 4  # within the log, behind the record
        content[place] ^= 0x10
        path.write_bytes(content if phone == FLIPPED else content[:place])
    (folder / EMPTY / "dmd_record_1.txt").touch()
    return reports


def make_one_of_thousand(task):
    folder, number, count = task
    source = random.Random(number)
    fill = number_filler(source)
    reports = []
    # Each at a time of day of its own: so no archive has the name of another.
    times = (datetime.timedelta(source.randrange(DAYS), second) for second in source.sample(range(DAY), count))
    for when in sorted(FIRST_DAY + time for time in times):
        kind = source.choice(KINDS)
        reports.append(Report(folder.name, when, kind.device, kind.error, fill(kind.text), source.random() < 0.3))
    write_pull(folder, reports, 4, {i * count // 36 for i in range(36)})


def make_thousand(folder, phones=1000, reports=100000):
    tasks = [(pathlib.Path(folder, f"phone{i:04}"), i, (reports + i) // phones) for i in range(phones)]
    with multiprocessing.Pool() as pool:
        pool.map(make_one_of_thousand, tasks)


if __name__ == "__main__":
    MAKERS = {"thirty": make_thirty, "thousand": make_thousand}
    if len(sys.argv) < 3 or sys.argv[1] not in MAKERS:
        sys.exit(__doc__)
    MAKERS[sys.argv[1]](sys.argv[2], *map(int, sys.argv[3:]))
