"""What can happen to a command at any of its calls, and the judgement of what is left then."""

import errno
import json
import os
import random
import re
import shlex
import subprocess
import time
from dataclasses import dataclass
from typing import Callable, Dict, List, Optional, Set

from scenarios import Scenario
from server import Server
from state import NOTE, SAVED, Broken, State, content_at, leftovers, state_of
from world import HUNG, NOBODY, PATIENCE, Run, World, call

FAULTPOINT_FAILED = 125
OUTCOMES = ("survived", "hung", "wrong", "silent", "mute", "stuck", "leftover")
FLUSHES = ("fsync", "fdatasync", "syncfs")
ERRORS = {"enospc": errno.ENOSPC, "eio": errno.EIO, "eacces": errno.EACCES, "eintr": errno.EINTR,
          "full-on": errno.ENOSPC, "eio-on": errno.EIO}
# What a message says of its cause, in the words of the system, of git or of SQLite.
CAUSES = {errno.ENOSPC: "no space left on device|unable to open database|disk is full|disk full|out of disk ?space|disk I/O error|readonly database",
          errno.EIO: "unable to open database|input/output error|disk I/O error|readonly database",
          errno.EACCES: "permission denied|read-?only|unable to open database|disk I/O error|access permission",
          errno.EINTR: "unable to open database|interrupted system call|disk I/O error|readonly database"}
LIBRARY = re.compile(r"/home/(\.orvanta|moved)(/|$)")
HOLD = "300"  # milliseconds that a command stands still at most
SPREAD = 0.02  # seconds between two commands that race


@dataclass
class Call:
    name: str
    bytes: int
    paths: str


@dataclass
class Verdict:
    outcome: str
    reason: str = ""
    where: str = ""


def failed(what: str, run: Run) -> Verdict:
    return Verdict("hung" if run.status == HUNG else "stuck", f"{what} ended with {run.status}: {run.err.strip()}")


class Place:
    """A world that is made once for a scenario, and again for each point, on a file system of its own if wanted."""

    def __init__(self, folder: str, program: str, faultpoint: str, wrapper: str, certificate: str):
        self.folder, self.faultpoint = folder, faultpoint
        self.mountpoint, self.kept, self.image = f"{folder}/m", f"{folder}/kept", f"{folder}/image"
        os.makedirs(self.mountpoint)
        root = f"{self.mountpoint}/world"
        self.world = World(root, program, wrapper, Server(f"{root}/server", certificate))
        self.old, self.new = State(), State()
        self.calls: List[Call] = []
        self.report: Dict[str, int] = {}  # of the last run that was traced

    def prepare(self, scenario: Scenario) -> None:
        self.scenario = scenario
        self.clear()
        for stale in (self.kept, self.image):
            subprocess.run(["rm", "-rf", stale], check=True)
        self.world.make()
        self.world.take(scenario.setup)
        call("cp", "-a", self.world.root, self.kept)
        self.old = state_of(self.world)
        log = f"{self.folder}/log"
        run = self.traced("-l", log)
        if run.status != 0:
            raise SystemExit(f"crash: '{scenario.run}', undisturbed, ended with {run.status}: {run.err}")
        self.new = state_of(self.world)
        if not self.old.differing(self.new):
            raise SystemExit(f"crash: '{scenario.run}', undisturbed, changed nothing")
        if leftovers(self.world):
            raise SystemExit(f"crash: '{scenario.run}', undisturbed, left {leftovers(self.world)}")
        with open(log, errors="replace") as file:
            lines = [line.rstrip("\n").split("\t") for line in file]
        self.calls = [Call(name, int(count), paths.replace(self.world.root, "")) for _, name, count, paths in lines]

    def traced(self, *options: str) -> Run:
        report = f"{self.folder}/report"
        if os.path.exists(report):
            os.remove(report)
        tracer = [self.faultpoint, "-p", self.world.root, "-r", report, *options, "--"]
        run = self.world.orvanta(self.scenario.run, tracer)
        if run.status == FAULTPOINT_FAILED:
            raise SystemExit(f"crash: {run.err}")
        self.report = {"calls": 0, "reached": False, "hook": 0}
        if os.path.exists(report):
            with open(report) as file:
                self.report = json.load(file)
        return run

    def clear(self) -> None:
        for _ in range(100):
            if not os.path.ismount(self.mountpoint):
                break
            if subprocess.run(["umount", self.mountpoint], capture_output=True).returncode != 0:
                time.sleep(0.05)  # somebody who was killed is still on the way out
        subprocess.run(["rm", "-rf", self.world.root], check=True)

    def renew(self) -> None:
        self.clear()
        call("cp", "-a", self.kept, self.world.root)

    def mount(self, *what: str) -> None:
        self.clear()
        call("mount", *what, self.mountpoint)

    # The judgement.

    def judge(self, run: Run, cause: str = "") -> Verdict:
        """Of what the fault left; `cause` is what the message has to say where the program reports an error."""
        if run.status == HUNG:
            return Verdict("hung", "the command did not end")
        try:
            verdict = self.raw(run) or self.healed() or self.repeated()
        except Broken as broken:
            return Verdict("wrong", str(broken))
        if verdict is None and cause and run.status != 0 and not re.search(cause, run.err, re.IGNORECASE):
            verdict = Verdict("mute", f"{run.status}: {run.err.strip()}")
        if verdict is None and leftovers(self.world):
            verdict = Verdict("leftover", ", ".join(leftovers(self.world)))
        return verdict or Verdict("survived")

    def raw(self, run: Run) -> Optional[Verdict]:
        """Before anything else is run."""
        for key in self.old.deployed.keys() & self.new.deployed.keys():
            before, after = self.old.deployed[key], self.new.deployed[key]
            found = {content_at(place) for place, _ in (before, after)}
            if not found & {before[1], after[1]}:
                return Verdict("wrong", f"{key[0]} does not stand at {key[1]} as it was or shall be")
        now = state_of(self.world)
        ours = (*self.old.deployed.values(), *self.new.deployed.values())
        deployed = {place[len(self.world.root):] for place, _ in ours}
        for key, was in self.old.values.items():
            is_foreign = key.startswith("/") and not LIBRARY.match(key) and key not in deployed and was != "folder"
            if is_foreign and now.values.get(key) not in (was, self.new.values.get(key)):
                return Verdict("wrong", f"{key} was {was} and is {now.values.get(key)}")
        if not now.history.endswith(self.old.history):
            return Verdict("wrong", f"of the snapshots {self.old.history} only these are left: {now.history}")
        missing = self.missing(now)
        return Verdict("silent", f"it said 0, but {missing}") if run.status == 0 and missing else None

    def healed(self) -> Optional[Verdict]:
        """After a command that only reads, which puts right what was interrupted."""
        run = self.world.orvanta("list --json")
        if run.status != 0:
            return failed("list", run)
        now = state_of(self.world)
        for key in sorted({*self.old.values, *self.new.values}):
            value = now.values.get(key)
            before, after = self.old.values.get(key), self.new.values.get(key)
            if not key.startswith((SAVED, NOTE)) and value not in (before, after):
                return Verdict("wrong", f"{key} was {before}, shall be {after}, is {value}")
        complaints = now.complaints - self.old.complaints - self.new.complaints | self.of_two_times(now)
        return Verdict("wrong", "; ".join(sorted(complaints))) if complaints else None

    def of_two_times(self, now: State) -> Set[str]:
        """Folders that are old where what is recorded of them is new, or the other way round."""
        pairs = [(key, f"/home/.orvanta/skills/{key[6:]}") for key in now.values if key.startswith("skill:")]
        pairs += [(f"target:{name}:{tool}", place[len(self.world.root):])
                  for (name, tool), (place, _) in now.deployed.items()]

        def is_new(key: str) -> bool:
            return now.values.get(key) == self.new.values.get(key)

        def changes(key: str) -> bool:
            return self.old.values.get(key) != self.new.values.get(key)

        return {f"{record} and {folder} are of different times" for record, folder in pairs
                if changes(record) and changes(folder) and is_new(record) != is_new(folder)}

    def repeated(self) -> Optional[Verdict]:
        """After what a user does next."""
        words = self.scenario.again or self.scenario.run
        if not self.scenario.once or self.missing(state_of(self.world)):
            run = self.world.orvanta(words)
            if run.status != 0:
                return failed("again, it", run)
        now = state_of(self.world)
        missing = self.missing(now)
        if missing:
            return Verdict("stuck", f"again, it said 0, but {missing}")
        more = sorted(now.values.keys() - self.old.values.keys() - self.new.values.keys())
        return Verdict("leftover", ", ".join(more)) if more else None

    def missing(self, now: State) -> str:
        """What is not as it shall be, of what was there or shall be there."""
        for key in now.differing(self.new):
            if key in self.new.values or key in self.old.values:
                return f"{key} shall be {self.new.values.get(key)} and is {now.values.get(key)}"
        return ""


# One point each: they take the place and the number of the point, and leave a verdict.


def at_call(place: Place, point: int, *options: str, cause: str = "") -> Verdict:
    place.renew()
    return place.judge(place.traced("-n", str(point), *options), cause)


def by_mode(mode: str) -> Callable[[Place, int], Verdict]:
    return lambda place, point: at_call(place, point, "-m", mode)


def by_error(mode: str, number: int) -> Callable[[Place, int], Verdict]:
    return lambda place, point: at_call(place, point, "-m", mode, "-e", str(number), cause=CAUSES[number])


def pause(place: Place, point: int) -> Verdict:
    """While it stands still, the same command runs, or at each second point one that reads."""
    words = "list" if point % 2 == 0 else place.scenario.run
    place.renew()
    hook = f"exec {shlex.join(place.world.words(words))} >/dev/null 2>&1"
    run = place.traced("-n", str(point), "-m", "hook", "-H", hook, "-w", HOLD)
    other = place.report["hook"]
    if words == "list" and other != 0 and run.status != HUNG:
        return Verdict("stuck", f"list, meanwhile, ended with {other}")
    if words != "list" and run.status != 0 and run.status != HUNG and other == 0:
        run = Run(0)
    return place.judge(run)


def race(place: Place, point: int) -> Verdict:
    """Two at once."""
    place.renew()
    distance = random.Random(point).uniform(0, SPREAD)
    first = place.world.start(place.scenario.run)
    time.sleep(distance)
    second = place.world.start(place.scenario.run)
    runs = [place.world.finish(process) for process in (first, second)]
    hung = any(run.status == HUNG for run in runs)
    return place.judge(Run(HUNG) if hung else min(runs, key=lambda run: run.status))


def make_image(place: Place) -> None:
    if os.path.exists(place.image):
        return
    with open(place.image, "wb") as file:
        file.truncate(64 << 20)
    call("mkfs.ext4", "-q", "-E", "lazy_itable_init=0,lazy_journal_init=0", "-J", "size=4", place.image)
    place.mount("-o", "loop", place.image)
    call("cp", "-a", place.kept, place.world.root)
    call("umount", place.mountpoint)


def power_cut(first: str) -> Callable[[Place, int], Verdict]:
    """The disk as it is at the call: of what was not flushed, only what `first` flushes has reached it."""

    def cut(place: Place, point: int) -> Verdict:
        make_image(place)
        live, after = f"{place.folder}/live", f"{place.folder}/after"
        place.clear()
        call("rm", "-f", live, after)
        call("cp", "--sparse=always", place.image, live)
        place.mount("-o", "loop,commit=300", live)  # nothing is written by itself while it is copied
        snapshot = f"{first.format(m=place.mountpoint, n=point)} cp --sparse=always {live} {after}"
        run = place.traced("-n", str(point), "-m", "cut", "-H", snapshot)
        if not place.report["reached"]:
            call("sh", "-c", snapshot)
        place.mount("-o", "loop", after)
        return place.judge(run)

    return cut


CUTS = {"cut": "",
        # The journal is written, and with it all names; contents that were not flushed are not.
        "cut-meta": "touch {m}/other; sync {m}/other;",
        "cut-some": "find {m}/world -type f -print0 | sort -z | awk -v s={n} "
                    "'BEGIN {{ RS = ORS = \"\\0\"; srand(s) }} rand() < .5' | xargs -0r sync;"}


def folders_written(place: Place) -> List[str]:
    """Where the program might write; the sources of skills are nothing of that."""
    folders = (folder[len(place.kept):] for folder, _, _ in os.walk(place.kept))
    others = re.compile(r"/server|/other|/home/(Downloads|Many)|.*/\.git/")
    return sorted(folder for folder in folders if not others.match(folder))


def read_only(place: Place, point: int) -> Verdict:
    """One folder may not be written by the user, who is not root."""
    place.renew()
    folder = place.world.root + folders_written(place)[point - 1]
    call("chown", "-R", str(NOBODY), place.world.root)
    mode = os.stat(folder).st_mode & 0o7777
    os.chmod(folder, mode & ~0o222)
    run = place.world.orvanta(place.scenario.run, user=NOBODY)
    if os.path.isdir(folder):
        os.chmod(folder, mode)
    call("chown", "-R", "0", place.world.root)
    verdict = place.judge(run, CAUSES[errno.EACCES])
    verdict.where = folder[len(place.world.root):] or "/"
    return verdict


def full(place: Place, point: int) -> Verdict:
    """A file system with little room to spare: first by steps of a page, then by larger ones."""
    room = 4 * (point - 1) if point <= 32 else 128 + 64 * (point - 33)
    place.mount("-t", "tmpfs", "-o", "size=1g", "tmpfs")
    call("cp", "-a", place.kept, place.world.root)
    used = int(call("df", "--output=used", "-k", place.mountpoint).split()[1])
    call("mount", "-o", f"remount,size={used + room}k", place.mountpoint)
    run = place.world.orvanta(place.scenario.run)
    call("mount", "-o", "remount,size=1g", place.mountpoint)
    verdict = place.judge(run, CAUSES[errno.ENOSPC])
    verdict.where = f"{room} KiB to spare"
    return verdict


@dataclass
class Mode:
    at: Callable[[Place, int], Verdict]
    points: Callable[[Place], List[int]]
    needs_root: bool = False


def every_call(place: Place) -> List[int]:
    return list(range(1, len(place.calls) + 1))


def every_write(place: Place) -> List[int]:
    return [point for point in every_call(place) if place.calls[point - 1].bytes > 1]


def calls_and_end(place: Place) -> List[int]:
    return list(range(1, len(place.calls) + 2))


def every_folder(place: Place) -> List[int]:
    return list(range(1, 1 + len(folders_written(place))))


MODES: Dict[str, Mode] = {
    "kill": Mode(by_mode("kill"), every_call),
    "torn": Mode(by_mode("torn"), every_write),
    "short": Mode(by_mode("short"), every_write),
    **{name: Mode(by_error("error", ERRORS[name]), every_call) for name in ("enospc", "eio", "eacces", "eintr")},
    **{name: Mode(by_error("error-on", ERRORS[name]), every_call) for name in ("full-on", "eio-on")},
    "pause": Mode(pause, every_call),
    "race": Mode(race, lambda place: list(range(1, 51))),
    **{name: Mode(power_cut(first), calls_and_end, True) for name, first in CUTS.items()},
    "readonly": Mode(read_only, every_folder, True),
    "full": Mode(full, lambda place: list(range(1, 65)), True),
}


def what_stands_at(place: Place, point: int) -> str:
    if point > len(place.calls):
        return "after the end"
    one = place.calls[point - 1]
    return f"{one.name} {one.paths}"


def evenly(points: List[int], count: int) -> List[int]:
    if len(points) <= count:
        return points
    return sorted({points[round(i * (len(points) - 1) / max(1, count - 1))] for i in range(count)})
