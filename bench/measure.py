#!/usr/bin/env python3
"""Measures the library beside its yardsticks and prints one table; scripts/bench calls it.

usage: bench/measure.py BUILD-FOLDER [--quick] [--record]

Every quantity is measured in rounds in which the library and its yardsticks take turns, in the
same folder, so that a slow spell of the machine meets all of them. Exit status 1 when something
could not be measured; a limit that does not hold is no failure.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import plistlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import call_cost_plot
import results
import servers

FULL = 1001  # As many reports as the library keeps.
FEW = 20  # Calls in a row, within which the depth is still what the table says.
ON_THEIR_WAY = 3  # Reports that are sent at a time.
# By the depth as the table calls it: the reports that are there before the first of the timed
# calls, besides those that are on their way, which a long queue has among its reports; and how
# many calls are timed in a row. The queue that is nearly full takes fewer.
BURSTS = {0: (ON_THEIR_WAY, 200), 1: (1 + ON_THEIR_WAY, 200), 10: (10 + ON_THEIR_WAY, 200),
          100: (100, 200), 1000: (FULL - 1 - 60, 60)}
PAUSE_MS = 20
FRAME_US = 16000  # At 60 pictures a second.
FIRST_CALL = "first ad attempt of an installation"
LIFECYCLE = "lifecycle calls at depth 1000"
FIRST_OF_START = "first ad attempt of a start with 1001 stored reports"
START_EMPTY = "initialize and start, nothing stored, first launch"
START_STORED = f"initialize and start, {FULL} stored"
REST_UNUSED = "resident memory, started, nothing sent yet"
REST_IDLE = "resident memory, started, nothing owed"
REST_FULL = f"resident memory at depth {FULL}"
ONE_REPORT = "resident memory of libcurl after one report"
POSTING_WAYS = ("libcurl", "resumed", "openssl")
PROJECT = pathlib.Path(__file__).resolve().parent.parent
APPLICATION = "com.example.bench"


class NotMeasured(Exception):
    """A number that would not be what the table says."""


class Rounds:
    def __init__(self, quick):
        self.calls = 4 if quick else 12
        self.paused = 1 if quick else 4
        self.load = 3 if quick else 9
        self.delivery = 2 if quick else 9
        self.start = 20 if quick else 50
        self.lifecycle = 2 if quick else 5
        self.restore = 3 if quick else 9
        self.rest = 1 if quick else 3


def file_system_of(folder):
    return subprocess.run(["df", "--output=fstype", folder], check=True, capture_output=True,
                          text=True).stdout.split()[-1]


class Home:
    """A player's home in one of the folders, made anew for every run of a game."""

    def __init__(self, name, folder, build, certificates):
        self.name = name
        self.folder = folder
        self.environment = {
            "HOME": str(folder / "home"),
            "XDG_DATA_HOME": str(folder / "home/data"),
            "XDG_CONFIG_HOME": str(folder / "home/config"),
            "SSL_CERT_FILE": str(certificates.authority),
            "PATH": os.environ["PATH"],
            "LANG": "en_US.UTF-8",
        }
        self.reports = self._library_folder() / "reporting/reports.json"
        self.kept = folder / "kept"
        self.scratch = folder / "yardstick.plist"
        self.file_system = file_system_of(folder)
        self._build = build

    def _library_folder(self):
        return self.folder / "home/data" / APPLICATION / "com.zelnor.sdk"

    def clear(self):
        """A home as the system makes it, in which no application has run yet."""
        shutil.rmtree(self.folder / "home", ignore_errors=True)
        (self.folder / "home/data").mkdir(parents=True)
        (self.folder / "home/config").mkdir()

    def clear_for_ads_alone(self, failures=3):
        """A home whose settings switch off the reports about sessions and are not due."""
        self.clear()
        prefix = "ConfigSerializationKey"
        settings = {prefix + "ConfigUpdateInterval": 30 * 86400, "lastUpdate": time.time(),
                    prefix + "ReportTemporaryFailureLimit": failures}
        for kind in ("Start", "Stop", "First"):
            settings[f"{prefix}Send{kind}SessionReports"] = False
        file = self._library_folder() / "data/config.dat"
        file.parent.mkdir(parents=True, mode=0o700)
        file.write_bytes(plistlib.dumps(settings))

    def keep(self):
        shutil.rmtree(self.kept, ignore_errors=True)
        shutil.copytree(self.folder / "home", self.kept)

    def bring_back(self):
        shutil.rmtree(self.folder / "home", ignore_errors=True)
        shutil.copytree(self.kept, self.folder / "home")

    def play(self, command, *numbers):
        return self.run("report_game", command, self.reports, *numbers)

    def run(self, program, *words):
        """Runs a program of the build and returns what it says: {name: [number, ...]}."""
        done = subprocess.run([self._build / "bench" / program, *map(str, words)], text=True,
                              env=self.environment, capture_output=True, timeout=120)
        if done.returncode != 0 or done.stderr:
            raise NotMeasured(f"{program} {' '.join(map(str, words))}: status {done.returncode}, "
                              f"says {done.stderr.strip()[-500:]!r}")
        said = {}
        for line in done.stdout.splitlines():
            name, value = line.split()
            said.setdefault(name, []).append(float(value))
        return said

    def expect_stored(self, count, file=None):
        stored = len(plistlib.loads((file or self.reports).read_bytes()))
        if stored != count:
            raise NotMeasured(f"{stored} reports are in the file where {count} must be")


class Bench:
    def __init__(self, build, homes, certificates, rounds):
        self.homes = homes
        self.build = build
        self.certificates = certificates
        self.rounds = rounds
        self.rows = []
        self.raw = {}
        self.costs = {}

    def keep_samples(self, quantity, home, who, samples):
        """Adds a round, and returns all rounds so far."""
        kept = self.raw.setdefault(quantity, {}).setdefault(home.name, {}).setdefault(who, [])
        kept.append(samples)
        return kept

    def samples(self, quantity, home, who):
        return self.raw[quantity][home.name][who]

    # ---- Calls ----

    def measure_calls(self):
        for pause, rounds, depths in ((0, self.rounds.calls, BURSTS),
                                      (PAUSE_MS, self.rounds.paused, (0, 100, 1000))):
            for _ in range(rounds):
                for home in self.homes:
                    for depth in depths:
                        self._measure_calls_once(home, depth, pause)
        for _ in range(self.rounds.calls):
            for home in self.homes:
                self._measure_first_call(home)
        for home in self.homes:
            self._first_call_row(home)
            for depth in BURSTS:
                self._call_rows(home, depth)
            for depth in (0, 100, 1000):
                self._paused_row(home, depth)
            self.costs[f"{home.name} folder ({home.file_system})"] = {
                who: {depth: self._call_cost(home, depth, who) for depth in BURSTS}
                for who in ("ours", "whole", "tail")}

    def _call_cost(self, home, depth, who):
        return statistics.median(sum(self._first_few(depth, home, who), []))

    def _first_few(self, depth, home, who):
        return [calls[:FEW] for calls in self.samples(self.calls_name(depth, 0), home, who)]

    @staticmethod
    def calls_name(depth, pause):
        return f"ad attempt, {pause} ms apart, depth {depth}"

    def _measure_calls_once(self, home, depth, pause):
        quantity = self.calls_name(depth, pause)
        begin, calls = BURSTS[depth]
        if pause > 0:
            calls = FEW
        home.clear_for_ads_alone()
        said = home.play("calls", begin, calls, pause)
        home.expect_stored(begin + calls)
        self.keep_samples(quantity, home, "ours", said["call_us"])
        for who in ("whole", "tail"):
            said = home.run("saving_yardstick", who, "calls", home.scratch, begin, calls, pause)
            home.expect_stored(begin + calls, home.scratch)
            self.keep_samples(quantity, home, who, said["call_us"])

    def _measure_first_call(self, home):
        home.clear_for_ads_alone()
        self.keep_samples(FIRST_CALL, home, "ours", home.play("calls", 0, 1, 0)["call_us"])
        said = home.run("saving_yardstick", "tail", "calls", home.scratch, 0, 1, 0)
        self.keep_samples(FIRST_CALL, home, "tail", said["call_us"])

    def _first_call_row(self, home):
        ours, tail = (self.samples(FIRST_CALL, home, who) for who in ("ours", "tail"))
        self.rows.append(results.ratio_row(f"{FIRST_CALL}, p50", home.name, ours, tail, "us",
                                           name="F "))

    def _call_rows(self, home, depth):
        ours, whole, tail = (self._first_few(depth, home, who) for who in ("ours", "whole", "tail"))
        must, aim = (3, 2) if depth in (0, 100) else (None, 2.5 if depth == 1000 else None)
        name = f"ad attempt at depth {depth}"
        self.rows.append(results.ratio_row(f"{name}, p50", home.name, ours, tail, "us", must, aim,
                                           "F "))
        self.rows.append(results.ratio_row(f"{name}, p50", home.name, ours, whole, "us",
                                           1.3 if depth == 1000 else None, None, "E "))
        ours, tail = (self.samples(self.calls_name(depth, 0), home, who) for who in ("ours", "tail"))
        self.rows.append(results.p99_row(f"{name}, {BURSTS[depth][1]} in a row, p99", home.name,
                                         ours, tail, "us", 4 if depth in (0, 100, 1000) else None,
                                         "F "))

    def _paused_row(self, home, depth):
        ours, tail = (self.samples(self.calls_name(depth, PAUSE_MS), home, who)
                      for who in ("ours", "tail"))
        self.rows.append(results.ratio_row(
            f"ad attempt at depth {depth}, {PAUSE_MS} ms after another, p50", home.name, ours, tail,
            "us", name="F "))

    # ---- Taking up what is stored ----

    def store_full_queue(self):
        for home in self.homes:
            home.clear_for_ads_alone()
            home.play("fill", FULL)
            home.expect_stored(FULL)
            home.keep()

    def measure_load(self):
        quantity = f"{FULL} stored reports loaded"
        for home in self.homes:
            self._expect_every_save(home)
        for _ in range(self.rounds.load):
            for home in self.homes:
                home.bring_back()
                said = home.play("load")
                home.expect_stored(FULL)
                self.keep_samples(quantity, home, "ours", self._ms(said["load_us"]))
                home.bring_back()
                self.keep_samples(FIRST_OF_START, home, "ours",
                                  home.play("first-attempt")["call_us"])
                said = home.run("saving_yardstick", "whole", "take-up", home.scratch, FULL)
                home.expect_stored(FULL, home.scratch)
                self.keep_samples(quantity, home, "whole", self._ms(said["take_up_us"]))
        for home in self.homes:
            ours, whole = (self.samples(quantity, home, who) for who in ("ours", "whole"))
            self.rows.append(results.ratio_row(f"{quantity}, {FULL} saves", home.name, ours, whole,
                                               "ms", 0.4, None, "E "))
            medians = [statistics.median(a) for a in ours]
            self.rows.append(results.value_row(f"{quantity}, time alone", home.name,
                                               statistics.median(medians), medians, "ms", None, 40))
            first = sum(self.samples(FIRST_OF_START, home, "ours"), [])
            self.rows.append(results.value_row(f"{FIRST_OF_START}, p50", home.name,
                                               statistics.median(first), first, "us", 1000))

    def measure_restoring(self):
        """With no server on the port every report fails at once and is held."""
        for home in self.homes:
            for held in (100, 300, FULL - 11):
                quantity = f"WillEnterForeground with {held} held reports"
                for _ in range(self.rounds.restore):
                    home.clear_for_ads_alone(failures=1)
                    said = home.play("restore", held)
                    self.keep_samples(quantity, home, "ours", self._ms(said["restore_us"]))
                times = sum(self.samples(quantity, home, "ours"), [])
                self.rows.append(results.value_row(f"{quantity}, p50", home.name,
                                                   statistics.median(times), times, "ms", 5, 1))

    @staticmethod
    def _ms(samples):
        return [us / 1000 for us in samples]

    def _expect_every_save(self, home):
        home.bring_back()
        saves = home.play("saves")["saves"]
        self.keep_samples("saves while loading", home, "ours", saves)
        if saves != [FULL]:
            raise NotMeasured(f"{saves[0]:.0f} saves were made while {FULL} reports were loaded")

    # ---- Delivering ----

    def measure_delivery(self, server):
        for _ in range(self.rounds.delivery):
            for home in self.homes:
                said = self._deliver(server, home)
                self._keep_delivery(home, "ours", said)
                self.keep_samples("threads while delivering", home, "ours", said["threads"])
                for way in POSTING_WAYS:
                    self._keep_delivery(home, way, self._post(home, way, FULL))
        for home in self.homes:
            self._delivery_rows(home)

    @staticmethod
    def _deliver(server, home):
        home.bring_back()
        before = server.requests()
        said = home.play("deliver")
        delivered = server.requests() - before - 1
        if delivered != FULL:
            raise NotMeasured(f"{delivered} reports came to the server where {FULL} must")
        return said

    def _post(self, home, way, count):
        return home.run("posting_yardstick", way, count, servers.PORT, self.certificates.authority)

    def _keep_delivery(self, home, who, said):
        seconds = said["delivery_us"][0] / 1e6
        self.keep_samples("delivered reports per second", home, who, [FULL / seconds])
        self.keep_samples("client CPU per report", home, who,
                          [said["processor_us"][0] / 1000 / FULL])

    def _delivery_rows(self, home):
        for who, name, must, aim in (("ours", f"delivery of {FULL} reports, saves included", 1.4, 1.6),
                                     ("resumed", "libcurl with resumption", None, None),
                                     ("openssl", "OpenSSL with resumption, no libcurl", None, None)):
            rates, bare = (self.samples("delivered reports per second", home, each)
                           for each in (who, "libcurl"))
            self.rows.append(results.ratio_row(name, home.name, rates, bare, "/s", must, aim,
                                               "libcurl ", at_least=True))
            times, bare = (self.samples("client CPU per report", home, each)
                           for each in (who, "libcurl"))
            self.rows.append(results.ratio_row(f"{name}: client CPU per report", home.name, times,
                                               bare, "ms", 0.65 if must else None,
                                               name="libcurl "))
        threads = sum(self.samples("threads while delivering", home, "ours"), [])
        self.rows.append(results.value_row("threads while delivering, most", home.name,
                                           max(threads), threads, "", 5))

    # ---- Starting ----

    def measure_start(self):
        cases = {START_EMPTY: Home.clear, START_STORED: Home.bring_back}
        for _ in range(self.rounds.start):
            for home in self.homes:
                for quantity, prepare in cases.items():
                    prepare(home)
                    said = home.play("start")
                    self.keep_samples(quantity, home, "ours", self._ms(said["start_us"]))
        for home in self.homes:
            for quantity in cases:
                times = sum(self.samples(quantity, home, "ours"), [])
                self.rows.append(results.value_row(f"{quantity}, p50", home.name,
                                                   statistics.median(times), times, "ms",
                                                   None if quantity == START_EMPTY else 0.6))

    # ---- The application's life ----

    def measure_lifecycle(self):
        for _ in range(self.rounds.lifecycle):
            for home in self.homes:
                home.clear()
                for name, times in home.play("lifecycle", FULL - 2 - FEW, FEW).items():
                    self.keep_samples(LIFECYCLE, home, name, times)
        for home in self.homes:
            self._lifecycle_row(home)

    def _lifecycle_row(self, home):
        """The slowest kind of event beside the ad attempts of the same processes."""
        kinds = dict(self.raw[LIFECYCLE][home.name])
        calls = kinds.pop("call_us")
        middles = {kind: statistics.median(sum(times, [])) for kind, times in kinds.items()}
        slowest = max(middles, key=middles.get)
        row = results.ratio_row(f"slowest lifecycle call at depth 1000 ({slowest}), p50", home.name,
                                kinds[slowest], calls, "us", name="ad attempt ")
        row.must = "<= ad attempt + 50 us"
        row.holds = results.verdict(middles[slowest], statistics.median(sum(calls, [])) + 50)
        self.rows.append(row)

    # ---- Size, memory, threads at rest ----

    def measure_size(self):
        stripped = self.build / "stripped.so"
        subprocess.run(["strip", "-o", stripped, self.build / "libZLNSessionReporting.so"],
                       check=True)
        size = stripped.stat().st_size / 1024
        self.raw["stripped shared library, KB"] = size
        self.rows.append(results.value_row("stripped shared library", "-", size, [size], "KB", 256,
                                           128))

    def measure_rest_full(self):
        for _ in range(self.rounds.rest):
            for home in self.homes:
                home.clear_for_ads_alone()
                said = home.play("rest", FULL)
                home.expect_stored(FULL)
                self._keep_memory(REST_FULL, home, said)

    def measure_rest_unused(self):
        for _ in range(self.rounds.rest):
            for home in self.homes:
                home.clear_for_ads_alone()
                self._keep_memory(REST_UNUSED, home, home.play("rest", 0))
        for home in self.homes:
            self._memory_row(REST_UNUSED, home, "bare libcurl",
                             self.samples(REST_UNUSED, home, "libcurl"), 2)

    def measure_rest_idle(self, server):
        for _ in range(self.rounds.rest):
            for home in self.homes:
                home.clear()
                before = server.requests()
                said = home.play("rest", 0)
                home.expect_stored(0)
                if server.requests() - before - 1 != 2:
                    raise NotMeasured("the first session and the request for settings did not come")
                self._keep_memory(REST_IDLE, home, said)
                self._keep_memory_of_one_report(home)
                self.keep_samples("threads, nothing owed", home, "ours", said["threads"])
        for home in self.homes:
            self._memory_rows(REST_IDLE, home, 2, 1.2)
            self._memory_rows(REST_FULL, home, 5, 2.5)
            threads = sum(self.samples("threads, nothing owed", home, "ours"), [])
            self.rows.append(results.value_row("threads, nothing owed", home.name, max(threads),
                                               threads, "", 2))

    def _keep_memory(self, quantity, home, said):
        self.keep_samples(quantity, home, "ours", [said["resident_kb"][0] / 1024])
        bare = home.run("bare_curl")["resident_kb"][0]
        self.keep_samples(quantity, home, "libcurl", [bare / 1024])

    def _keep_memory_of_one_report(self, home):
        said = self._post(home, "libcurl", 1)
        self.keep_samples(ONE_REPORT, home, "libcurl", [said["resident_kb"][0] / 1024])

    def _memory_rows(self, quantity, home, must, must_over_one_report):
        self._memory_row(quantity, home, "bare libcurl", self.samples(quantity, home, "libcurl"),
                         must)
        self._memory_row(quantity, home, "libcurl after one report",
                         self.samples(ONE_REPORT, home, "libcurl"), must_over_one_report)

    def _memory_row(self, quantity, home, yardstick, samples, must):
        bare = statistics.median(sum(samples, []))
        above = [resident - bare for resident in sum(self.samples(quantity, home, "ours"), [])]
        self.rows.append(results.value_row(f"{quantity}, over {yardstick}", home.name,
                                           statistics.median(above), above, "MB", must, None,
                                           f"{results.number(bare)} MB"))

    # ---- All of it ----

    def measure(self):
        with servers.SilentServer():
            step("calls", self.measure_calls)
            step("stored reports", self.store_full_queue)
            step("loading", self.measure_load)
            step("starting", self.measure_start)
            step("lifecycle", self.measure_lifecycle)
            step("memory of a full queue", self.measure_rest_full)
            step("memory before the first request", self.measure_rest_unused)
        step("restoring", self.measure_restoring)
        with servers.TakingServer(self.certificates) as server:
            step("delivery", self.measure_delivery, server)
            step("memory and threads at rest", self.measure_rest_idle, server)
        self.measure_size()


def step(name, run, *words):
    begin = time.monotonic()
    run(*words)
    print(f"{name}: {time.monotonic() - begin:.0f} s", file=sys.stderr)


# ---- What comes out ----


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.machine()


def machine(homes):
    folders = ", ".join(f"{home.name} on {home.file_system}" for home in homes)
    return (f"{processor()}, {os.cpu_count()} cores, {platform.system()} {platform.release()}; "
            f"folders: {folders}")


def frame_table(bench):
    """What share of a frame the game's thread gives away, in the default folder."""
    home = bench.homes[0]
    lines = ["| The game calls | p50 | of a frame | p99 | of a frame |",
             "| --- | --- | --- | --- | --- |"]
    for words, quantity, who, unit in (
            ("an ad attempt, nothing owed", bench.calls_name(0, 0), "ours", 1),
            ("an ad attempt, 100 reports owed", bench.calls_name(100, 0), "ours", 1),
            ("an ad attempt, 1000 reports owed", bench.calls_name(1000, 0), "ours", 1),
            ("to the background, 1000 reports owed", LIFECYCLE, "DidEnterBackground", 1),
            (f"initialize and start, {FULL} stored", START_STORED, "ours", 1000)):
        times = [time * unit for time in sum(bench.samples(quantity, home, who), [])]
        p50, p99 = (results.percentile(times, percent) for percent in (50, 99))
        lines.append(f"| {words} | {results.number(p50)} us | {frame_share(p50)} | "
                     f"{results.number(p99)} us | {frame_share(p99)} |")
    return "\n".join(lines) + "\n"


def frame_share(us):
    return f"{results.number(100 * us / FRAME_US)} %"


def write_results(folder, bench, heading):
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "frame.md").write_text(frame_table(bench))
    (folder / "raw.json").write_text(json.dumps({"run": heading, "samples": bench.raw}, indent=1))
    (folder / "table.md").write_text(heading + "\n\n" + results.markdown(bench.rows))
    (folder / "call-cost.svg").write_text(call_cost_plot.draw(bench.costs))


def record(folder):
    """Puts the results of a run into the documentation."""
    page = PROJECT / "docs/performance.md"
    text = page.read_text()
    for name in ("table", "frame"):
        begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->\n"
        before, rest = text.split(begin)
        text = before + begin + (folder / f"{name}.md").read_text() + end + rest.split(end)[1]
    page.write_text(text)
    shutil.copyfile(folder / "call-cost.svg", PROJECT / "docs/call-cost.svg")


def measure_in(default_folder, tmpfs_folder, options):
    build = options.build.resolve()
    secrets = default_folder / "server"
    secrets.mkdir()
    certificates = servers.Certificates(secrets)
    homes = [Home("default", default_folder, build, certificates),
             Home("tmpfs", tmpfs_folder, build, certificates)]
    bench = Bench(build, homes, certificates, Rounds(options.quick))
    bench.measure()
    command = " ".join(["scripts/bench"] + ["--quick"] * options.quick +
                       ["--record"] * options.record)
    heading = f"{datetime.date.today().isoformat()}, `{command}`, {machine(homes)}"
    write_results(build / "results", bench, heading)
    print(heading + "\n")
    print(results.plain(bench.rows))


def leave(*_):
    sys.exit(130)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--record", action="store_true")
    options = parser.parse_args()
    for what in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
        signal.signal(what, leave)
    with tempfile.TemporaryDirectory(prefix="zln-bench-") as default_folder, \
         tempfile.TemporaryDirectory(prefix="zln-bench-", dir="/dev/shm") as tmpfs_folder:
        try:
            measure_in(pathlib.Path(default_folder), pathlib.Path(tmpfs_folder), options)
        except (NotMeasured, OSError, RuntimeError, subprocess.SubprocessError) as problem:
            print(f"Could not be measured: {problem}", file=sys.stderr)
            return 1
    if options.record:
        record(options.build / "results")
    return 0


if __name__ == "__main__":
    sys.exit(main())
