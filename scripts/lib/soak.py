#!/usr/bin/env python3
"""Runs the UI element tool for a while under load on a virtual desktop and checks what it did.

    soak.py MINUTES TOOL CTL

TOOL is the tool built with the sanitizers, CTL the ui-element-ctl that drives it. Everything
runs in a private temporary directory (sockets, fixture, descriptions). The load:

- 1000 watched collections (UIET_SOAK_COLLECTIONS) over 48 elements of three applications;
- the fixture changes every phase: half the buttons of the mixer vanish and come back; the busy
  application answers nothing in time every third phase; a group of the third application dies
  after a few calls every other phase (elements that die in the middle of a walk);
- storms of stop and start commands for 50 collections at a time;
- the report peer quits for a while and comes back.

At the end it prints the figures and exits 1 when the tool crashed, a sanitizer spoke, platform
objects were left, or a report contradicted the fixture.
"""

import json
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

# UIET_SOAK_COLLECTIONS makes a smaller run, whose phases and passes are shorter (for a quick try).
COLLECTIONS = int(os.environ.get("UIET_SOAK_COLLECTIONS", "1000"))
MIXER_BUTTONS = 40
OTHER_BUTTONS = 4
TARGETS = MIXER_BUTTONS + 2 * OTHER_BUTTONS
TICK_SECONDS = 0.125  # the tool's shortest interval: 8 or more collections tick at this rate
FULL_PASS = COLLECTIONS * TICK_SECONDS
STORM_SIZE = 50
# A report states what the fixture held when the tool looked; the file takes a moment to load.
RELOAD_SLACK = 3.0


def log(text):
    print(time.strftime("%H:%M:%S"), text, flush=True)


def button(prefix, index, x, y):
    return {"id": f"{prefix}{index}", "role": "AXButton", "title": f"{prefix} {index}",
            "frame": {"x": x, "y": y, "width": 50, "height": 30}, "actions": [{"name": "AXPress"}]}


def mixer_present(index, phase):
    """Even buttons always; odd ones only in even phases."""
    return index % 2 == 0 or phase % 2 == 0


def fixture(phase):
    mixer = [button("mix", i, 20 + (i % 10) * 60, 60 + (i // 10) * 40)
             for i in range(MIXER_BUTTONS) if mixer_present(i, phase)]
    busy_app = {"pid": 7002, "id": "busy", "name": "Busy", "bundleId": "org.example.soak.busy",
                "executable": "busy",
                "windows": [{"windowId": 2, "id": "busyWindow", "title": "Busy",
                             "frame": {"x": 0, "y": 400, "width": 400, "height": 100},
                             "children": [button("busy", i, 20 + i * 60, 430)
                                          for i in range(OTHER_BUTTONS)]}]}
    if phase % 3 == 1:
        busy_app["busy"] = {"delayMs": 20}
    group = {"id": "dyingGroup", "role": "AXGroup",
             "frame": {"x": 0, "y": 620, "width": 400, "height": 60},
             "children": [button("dying", i, 20 + i * 60, 630) for i in range(OTHER_BUTTONS)]}
    if phase % 2 == 1:
        group["faults"] = {"diesAfterCalls": 25}
    return {
        "screens": [{"frame": {"x": 0, "y": 0, "width": 1200, "height": 800}}],
        "applications": [
            {"pid": 7001, "id": "mixer", "name": "Mixer", "bundleId": "org.example.soak.mixer",
             "executable": "mixer", "active": True,
             "windows": [{"windowId": 1, "id": "mixerWindow", "title": "Mixer",
                          "frame": {"x": 0, "y": 0, "width": 700, "height": 300},
                          "children": mixer}]},
            busy_app,
            {"pid": 7003, "id": "dying", "name": "Dying", "bundleId": "org.example.soak.dying",
             "executable": "dying",
             "windows": [{"windowId": 3, "id": "dyingWindow", "title": "Dying",
                          "frame": {"x": 0, "y": 600, "width": 400, "height": 100},
                          "children": [group]}]},
        ],
    }


def write_fixture(path, phase):
    # Whole or not at all: the desktop reloads the file when it changes.
    partial = path + ".new"
    with open(partial, "w") as out:
        json.dump(fixture(phase), out)
    os.replace(partial, path)


def target_point(target):
    if target < MIXER_BUTTONS:
        return 20 + (target % 10) * 60 + 25, 60 + (target // 10) * 40 + 15
    index = (target - MIXER_BUTTONS) % OTHER_BUTTONS
    return 20 + index * 60 + 25, (430 if target < MIXER_BUTTONS + OTHER_BUTTONS else 630) + 15


def target_of(collection):
    return collection % TARGETS


def resident_kb(pid):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


class Soak:
    def __init__(self, minutes, tool, ctl):
        self.seconds = minutes * 60
        self.tool_path, self.ctl = tool, ctl
        self.dir = tempfile.mkdtemp(prefix="uiet-soak-")
        self.env = dict(os.environ, TMPDIR=self.dir)
        self.fixture = os.path.join(self.dir, "desktop.json")
        # Phase 0 has every element and no fault, for the captures; the run starts in phase 1,
        # with half the mixer gone, the busy application busy and the dying group dying.
        self.phase = 1
        self.phases = [(0.0, 1)]          # (time, phase) from the start
        self.peer_away = []               # (from, to) times without the report peer
        self.reports = []                 # (time, collection, found)
        self.reports_lock = threading.Lock()
        self.failures = []
        self.start = None

    def now(self):
        return time.monotonic() - self.start

    def run_ctl(self, *arguments):
        result = subprocess.run([self.ctl, *arguments], env=self.env, capture_output=True, text=True)
        if result.returncode != 0:
            raise RuntimeError(f"ui-element-ctl {' '.join(arguments)}: {result.stderr.strip()}")
        return result.stdout

    def capture(self):
        write_fixture(self.fixture, 0)
        for target in range(TARGETS):
            x, y = target_point(target)
            self.run_ctl("capture", "--desktop", self.fixture, f"{x},{y}", self.description(target))
            # A vanished button must not be taken for its neighbour, as the built-in matching
            # would by its place among its siblings.
            self.run_ctl("edit", "--desktop", self.fixture, self.description(target), "--matching", "strict")

    def description(self, target):
        return os.path.join(self.dir, f"target-{target}.ini")

    def start_tool(self):
        env = dict(self.env, UIET_ACCESSIBILITY=f"virtual:{self.fixture}")
        self.tool_log = os.path.join(self.dir, "tool.log")
        self.tool_lines = []  # (time, line)
        self.tool = subprocess.Popen([self.tool_path], env=env, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, text=True, errors="replace")
        running = threading.Event()
        self.tool_reader = threading.Thread(target=self.read_tool_log, args=(running,), daemon=True)
        self.tool_reader.start()
        if not running.wait(60):
            raise RuntimeError("the tool did not start")

    def read_tool_log(self, running):
        # Each line with its time, so that a report the tool could not deliver can be placed.
        with open(self.tool_log, "w") as log_file:
            for line in self.tool.stdout:
                moment = self.now()
                self.tool_lines.append((moment, line.rstrip("\n")))
                log_file.write(f"{moment:9.3f} {line}")
                log_file.flush()
                if "tool running" in line:
                    running.set()

    def start_peer(self):
        self.peer = subprocess.Popen([self.ctl, "reports"], env=self.env, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, text=True)
        threading.Thread(target=self.read_reports, args=(self.peer,), daemon=True).start()
        time.sleep(0.5)  # listening before the next report is sent

    def read_reports(self, peer):
        for line in peer.stdout:
            match = re.fullmatch(r"(\d+) (found|not found)", line.strip())
            if match:
                with self.reports_lock:
                    self.reports.append((self.now(), int(match.group(1)), match.group(2) == "found"))

    def watch(self, collection):
        self.run_ctl("watch", str(collection), self.description(target_of(collection)))

    def storm(self):
        chosen = random.sample(range(1, COLLECTIONS + 1), STORM_SIZE)
        for collection in chosen:
            self.run_ctl("stop", str(collection))
        for collection in chosen:
            self.watch(collection)

    def next_phase(self):
        self.phase += 1
        write_fixture(self.fixture, self.phase)
        self.phases.append((self.now(), self.phase))

    def phase_at(self, moment):
        current = 0
        for start, phase in self.phases:
            if start <= moment:
                current = phase
        return current

    def check_tool_alive(self):
        if self.tool.poll() is not None:
            self.failures.append(f"the tool ended with status {self.tool.returncode} during the run")
            return False
        return True

    def run(self):
        log(f"soak in {self.dir}: {COLLECTIONS} collections, {self.seconds / 60:g} min")
        self.capture()
        write_fixture(self.fixture, self.phase)
        self.start = time.monotonic()
        self.start_tool()
        self.start_peer()
        for collection in range(1, COLLECTIONS + 1):
            self.watch(collection)
        log(f"watching {COLLECTIONS} collections; a full pass takes {FULL_PASS:.0f} s")
        run_start = self.now()
        end = run_start + self.seconds
        # Phases outlast two passes, so that every collection sees every phase.
        phase_length = max(2.2 * FULL_PASS, 20.0)
        next_phase = run_start + phase_length
        next_storm = run_start + 15
        away_from = run_start + self.seconds * 0.4
        away_until = away_from + max(20.0, self.seconds * 0.1)
        rss_first_minute = None
        while self.now() < end and self.check_tool_alive():
            moment = self.now()
            if rss_first_minute is None and moment - run_start >= min(60.0, self.seconds / 2):
                rss_first_minute = resident_kb(self.tool.pid)
            if moment >= next_phase:
                self.next_phase()
                log(f"phase {self.phase}")
                next_phase += phase_length
            if moment >= next_storm:
                self.storm()
                next_storm += 30
            if away_from is not None and moment >= away_from:
                self.peer.terminate()
                self.peer.wait()
                away_start = self.now()
                log("report peer away")
                away_from = None
            if away_from is None and away_until is not None and moment >= away_until:
                self.start_peer()
                self.peer_away.append((away_start, self.now()))
                log("report peer back")
                away_until = None
            time.sleep(0.5)
        return self.finish(rss_first_minute or resident_kb(self.tool.pid))

    def finish(self, rss_first_minute):
        alive = self.tool.poll() is None
        rss_end = resident_kb(self.tool.pid) if alive else 0
        if alive:
            for collection in range(1, COLLECTIONS + 1):
                self.run_ctl("stop", str(collection))
            self.tool.send_signal(signal.SIGTERM)
            try:
                status = self.tool.wait(timeout=120)
            except subprocess.TimeoutExpired:
                self.tool.kill()
                status = "killed after 120 s"
            if status != 0:
                self.failures.append(f"the tool exited with status {status}")
        self.peer.terminate()
        self.tool_reader.join(timeout=30)  # the last lines of the tool's log
        output = "\n".join(line for _, line in self.tool_lines)
        findings = len(re.findall(r"ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:", output))
        objects = re.search(r"(\d+) platform objects alive, (\d+) at start", output)
        errors = output.count("attempt to find UI element failed with error code")

        contradictions, flips, delivered = self.account()
        # The tool does not retry a report it could not deliver within its time-out; it logs it.
        undelivered = sum(1 for moment, line in self.tool_lines
                          if "failed to send message back" in line
                          and not any(a <= moment <= b + RELOAD_SLACK for a, b in self.peer_away))
        log("== soak figures")
        print(f"crashes: {0 if alive and not self.failures else 1}")
        print(f"sanitizer findings: {findings}")
        if objects:
            print(f"platform objects: {objects.group(1)} alive at exit, {objects.group(2)} at start")
        print(f"resident memory: {rss_first_minute} kB after the first minute, {rss_end} kB at the end")
        print(f"reports received: {len(self.reports)}; flips of watched elements that the peer was there "
              f"to hear: {flips}, of them reported: {delivered}; reports that contradict the fixture: "
              f"{contradictions}")
        print(f"reports the tool could not deliver in time while the peer was there (logged): {undelivered}")
        print(f"resolutions that failed with an error (logged): {errors}")
        if findings:
            self.failures.append(f"{findings} sanitizer findings (see {self.tool_log})")
        if not objects or int(objects.group(1)) > int(objects.group(2)):
            self.failures.append("platform objects were left alive")
        if contradictions:
            self.failures.append(f"{contradictions} reports contradict the fixture")
        if flips - delivered > undelivered:
            self.failures.append(f"{flips - delivered - undelivered} flips were neither reported nor logged "
                                 "as undelivered")
        for failure in self.failures:
            print("FAILED:", failure)
        return 1 if self.failures else 0

    def account(self):
        """Checks the mixer's collections, whose elements only vanish and come back: a report
        must state the fixture of its moment (or of the phase before, within the reload slack),
        and every flip that a collection went through while the peer was there must be reported
        within a pass."""
        contradictions = 0
        by_collection = {}
        for moment, collection, found in self.reports:
            target = target_of(collection)
            if target >= MIXER_BUTTONS:
                continue
            by_collection.setdefault(collection, []).append((moment, found))
            states = {mixer_present(target, self.phase_at(moment)),
                      mixer_present(target, self.phase_at(moment - RELOAD_SLACK))}
            if found not in states:
                contradictions += 1
        flips = delivered = 0
        end = self.now()
        for start, phase in self.phases[1:]:
            for collection in range(1, COLLECTIONS + 1):
                target = target_of(collection)
                if target >= MIXER_BUTTONS or target % 2 == 0:
                    continue  # these never flip
                # Storms move collections in the watch order: allow half a pass more.
                window = (start, start + 1.5 * FULL_PASS + RELOAD_SLACK)
                if window[1] > end or any(a < window[1] and b > window[0] for a, b in self.peer_away):
                    continue
                flips += 1
                expected = mixer_present(target, phase)
                if any(window[0] <= moment <= window[1] and found == expected
                       for moment, found in by_collection.get(collection, [])):
                    delivered += 1
        return contradictions, flips, delivered


def main():
    if len(sys.argv) != 4:
        print(__doc__.strip().splitlines()[2].strip(), file=sys.stderr)
        return 2
    random.seed(1)
    soak = Soak(float(sys.argv[1]), sys.argv[2], sys.argv[3])
    try:
        return soak.run()
    finally:
        for process in ("tool", "peer"):
            if hasattr(soak, process) and getattr(soak, process).poll() is None:
                getattr(soak, process).kill()


if __name__ == "__main__":
    sys.exit(main())
