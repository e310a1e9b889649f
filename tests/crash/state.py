"""What stands in a world: its files and records as a flat dictionary, without what differs from run to run."""

import hashlib
import json
import os
import re
import shutil
import sqlite3
import subprocess
import tempfile
from dataclasses import dataclass, field
from typing import Dict, List, Set, Tuple

from world import World

# What may be neither old nor new for a while: the files of the newest snapshot, of which there may be one more, and
# what is noted of a deployment that failed.
SAVED = "backup:saved"
NOTE = "note"

# Not compared: the database and the lock are looked into or left alone, caches and logs may be lost at any time, and
# the backup's manifest holds times and ids.
VOLATILE = re.compile(r"/orvanta\.db(-wal|-shm|-journal)?$|/\.orvanta\.lock$|/(cache|logs|bin|\.git)$"
                      r"|/skills/\.orvanta$")
LEFTOVER = re.compile(r"^\.(orvanta-stage|installing|removing|replacing|updating|changing|\.?moving)|\.tmp$|\.lock$"
                      r"|^orvanta-")
KEPT = (".orvanta.lock",)
CHANGING = [(re.compile(r"\b[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\b"), "ID"),
            (re.compile(r"\b[0-9a-f]{40}\b"), "COMMIT")]
AGENT_FOLDERS = (".cursor/skills", ".claude/skills", ".codex/skills", "elsewhere/skills", "own/skills")

RECORDS = {
    "skill": """SELECT central_path, name, description, source_type, source_ref, source_subpath, source_branch,
                       source_revision, content_hash, enabled FROM skills""",
    "target": "SELECT s.central_path, t.tool, t.target_path, t.mode, t.source_hash, s.enabled "
              "FROM skill_targets t JOIN skills s ON s.id = t.skill_id",
    NOTE: "SELECT s.central_path, t.tool, t.status FROM skill_targets t JOIN skills s ON s.id = t.skill_id",
    "tag": "SELECT s.central_path, t.tag FROM skill_tags t JOIN skills s ON s.id = t.skill_id",
    "preset": "SELECT name, description, icon, sort_order FROM scenarios",
    "member": "SELECT p.name, s.central_path, m.sort_order FROM scenario_skills m "
              "JOIN scenarios p ON p.id = m.scenario_id JOIN skills s ON s.id = m.skill_id",
    "switch": "SELECT p.name, s.central_path, w.tool, w.enabled FROM scenario_skill_tools w "
              "JOIN scenarios p ON p.id = w.scenario_id JOIN skills s ON s.id = w.skill_id",
    "active": "SELECT a.key, p.name FROM active_scenario a JOIN scenarios p ON p.id = a.scenario_id",
    "project": "SELECT path, name, workspace_type, linked_agent_key, disabled_path FROM projects",
    "setting": "SELECT key, value FROM settings",
    "conflict": "SELECT s.central_path, c.theirs_path FROM pending_conflicts c JOIN skills s ON s.id = c.skill_id",
}
KEY_COLUMNS = {"tag": 2, "target": 2, NOTE: 2, "member": 2, "switch": 3}


class Broken(Exception):
    """What should be whole at any time is not."""


@dataclass
class State:
    values: Dict[str, str] = field(default_factory=dict)
    deployed: Dict[Tuple[str, str], Tuple[str, str]] = field(default_factory=dict)  # → place, content
    history: str = ""  # the backup's snapshots, newest first
    complaints: Set[str] = field(default_factory=set)  # where files and records contradict each other

    def differing(self, other: "State") -> List[str]:
        """The keys of `other` that have another value here, or none."""
        return sorted(key for key in {*self.values, *other.values} if self.values.get(key) != other.values.get(key))


def digest(path: str) -> str:
    """Of a file, a link, or a folder with all in it."""
    total = hashlib.sha256()
    if os.path.islink(path):
        total.update(b"link" + os.readlink(path).encode())
    elif os.path.isdir(path):
        for name in sorted(os.listdir(path)):
            if name != ".git":
                total.update(f"{name}\0{digest(f'{path}/{name}')}\n".encode())
    else:
        with open(path, "rb") as file:
            total.update(b"x" if os.stat(path).st_mode & 0o100 else b"-")
            total.update(file.read())
    return total.hexdigest()[:16]


def described(path: str) -> str:
    if os.path.islink(path):
        return f"link to {os.readlink(path)}"
    if not os.path.isdir(path):
        return f"file {digest(path)}"
    return f"skill {digest(path)}" if os.path.lexists(f"{path}/SKILL.md") else "folder"


def add_files(values: Dict[str, str], folder: str, root: str) -> None:
    """A skill's folder counts as one, so that its files are all old or all new. Empty folders do not matter."""
    for name in sorted(os.listdir(folder)):
        path = f"{folder}/{name}"
        if VOLATILE.search(path):
            continue
        text = described(path)
        if text != "folder" or any(not LEFTOVER.search(child) for child in os.listdir(path)):
            values[path[len(root):]] = text
        if text == "folder":
            add_files(values, path, root)


def library_of(world: World) -> str:
    try:
        with open(f"{world.home}/.config/orvanta/repo-config.json") as file:
            return json.load(file)["repo_path"]
    except (OSError, ValueError, KeyError):
        return f"{world.home}/.orvanta"


def records_of(library: str) -> Dict[str, List[tuple]]:
    """Read from a copy, so that the next who opens the database finds it as it was left."""
    if not os.path.exists(f"{library}/orvanta.db"):
        return {kind: [] for kind in RECORDS}
    with tempfile.TemporaryDirectory() as folder:
        for end in ("", "-wal", "-journal"):
            if os.path.exists(f"{library}/orvanta.db{end}"):
                shutil.copy(f"{library}/orvanta.db{end}", f"{folder}/orvanta.db{end}")
        try:
            database = sqlite3.connect(f"{folder}/orvanta.db")
            check = database.execute("PRAGMA quick_check").fetchone()[0]
            if check != "ok":
                raise Broken(f"the database: {check}")
            return {kind: rows(database, query) for kind, query in RECORDS.items()}
        except sqlite3.Error as error:
            raise Broken(f"the database: {error}") from error
        finally:
            database.close()


def rows(database: sqlite3.Connection, query: str) -> List[tuple]:
    try:
        return database.execute(query).fetchall()
    except sqlite3.OperationalError as error:
        if "no such" in str(error):  # the database is being made
            return []
        raise


def add_records(values: Dict[str, str], records: Dict[str, List[tuple]], root: str) -> None:
    for kind, rows in records.items():
        for row in rows:
            row = tuple(os.path.basename(str(row[0])) if i == 0 and "central" in RECORDS[kind].split(",")[0] else each
                        for i, each in enumerate(row))
            count = KEY_COLUMNS.get(kind, 1)
            text = str(row[count:]).replace(root, "")
            for pattern, word in CHANGING:
                text = pattern.sub(word, text)
            values[":".join([kind, *map(str, row[:count])])] = text


def add_backup(state: State, library: str) -> None:
    folder = f"{library}/skills"
    if not os.path.isdir(f"{folder}/.git"):
        return

    def git(*words: str) -> str:
        words = ("git", "-c", "safe.directory=*", "-C", folder, *words)
        return subprocess.run(words, capture_output=True, text=True).stdout

    state.history = git("log", "--format=%H %s")
    files = git("ls-tree", "-r", "HEAD").splitlines(True)
    state.values[SAVED] = "".join(line for line in files if "manifest" not in line)
    state.values["backup:remote"] = git("remote", "-v")


def contradictions(records: Dict[str, List[tuple]], world: World, library: str) -> Set[str]:
    found = set()
    for central, tool, place, mode, _, enabled in records["target"]:
        name = os.path.basename(central)
        stands = os.path.lexists(place)
        if enabled and mode == "symlink" and (not os.path.islink(place) or os.readlink(place) != central):
            found.add(f"{name} is recorded as a link at {tool}, where is {described(place) if stands else 'nothing'}")
        if enabled and mode == "copy" and (os.path.islink(place) or not os.path.exists(f"{place}/SKILL.md")):
            found.add(f"{name} is recorded as a copy at {tool}, where is {described(place) if stands else 'nothing'}")
        if not enabled and stands:
            found.add(f"{name} is disabled and stands at {tool}")
    places = {row[2] for row in records["target"]}
    for folder in AGENT_FOLDERS:
        for name in children(f"{world.home}/{folder}"):
            place = f"{world.home}/{folder}/{name}"
            if place not in places and not LEFTOVER.search(name):
                found.add(f"{folder}/{name}, a {described(place)}, is not recorded")
    folders = {row[0] for row in records["skill"]}
    for name in children(f"{library}/skills"):
        if name not in (".git", ".orvanta", ".gitignore") and not LEFTOVER.search(name):
            if f"{library}/skills/{name}" not in folders:
                found.add(f"the library's folder {name} is not recorded")
    for folder in folders:
        if not os.path.isdir(folder):
            found.add(f"the folder of {os.path.basename(folder)} is gone")
    return found


def children(folder: str) -> List[str]:
    return os.listdir(folder) if os.path.isdir(folder) else []


def content_at(place: str) -> str:
    """The content of a deployed skill, by way of a link as well; empty where it cannot be read."""
    try:
        return digest(os.path.realpath(place)) if os.path.isfile(f"{place}/SKILL.md") else ""
    except OSError:
        return ""


def state_of(world: World) -> State:
    """Throws Broken where the database cannot be read."""
    state, library = State(), library_of(world)
    records = records_of(library)
    add_files(state.values, world.home, world.root)
    add_records(state.values, records, world.root)
    add_backup(state, library)
    state.complaints = contradictions(records, world, library)
    for central, tool, place, _, _, enabled in records["target"]:
        if enabled and content_at(place):
            state.deployed[os.path.basename(central), tool] = (place, content_at(place))
    return state


def leftovers(world: World) -> List[str]:
    found = []
    for folder, folders, files in os.walk(world.root):
        if folder == world.root and "server" in folders:
            folders.remove("server")
        found += [f"{folder}/{name}" for name in folders + files if LEFTOVER.search(name) and name not in KEPT]
    return found + [f"{world.temp}/{name}" for name in children(world.temp) if not LEFTOVER.search(name)]
