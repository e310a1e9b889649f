"""The world of one run: a user of its own with a home, agents, sources of skills, and files that are not Orvanta's."""

import os
import signal
import subprocess
import sys
import zipfile
from dataclasses import dataclass
from typing import Callable, Optional, Sequence, Union

from server import Server

PATIENCE = 20  # seconds after which a command counts as hung
HUNG = 124
NOBODY = 65534

Step = Union[str, Callable[["World"], None]]


@dataclass
class Run:
    status: int  # HUNG where the clock ended it
    out: str = ""
    err: str = ""


def call(*command: str, env: Optional[dict] = None, cwd: Optional[str] = None) -> str:
    """Runs a command that must succeed; returns what it printed."""
    done = subprocess.run(command, env=env, cwd=cwd, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"crash: {' '.join(command)} failed with {done.returncode}: {done.stderr.strip()}")
    return done.stdout


def skill_text(name: str, text: str = "one") -> str:
    return f"---\nname: {name}\ndescription: The skill {name}\n---\n{text}\n"


class World:
    """Lies in the folder `root`, which `make` fills; paths are relative to it, those in commands to its home."""

    def __init__(self, root: str, program: str, wrapper: str, server: Server):
        self.root, self.program, self.server = root, program, server
        self.home, self.temp = f"{root}/home", f"{root}/temp"
        self.names = {"git": f"{server.http}/git", "http": server.http, "site": server.https.split("//")[1]}
        self.env = {
            "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "TERM": "xterm", "TMPDIR": self.temp,
            "LD_PRELOAD": wrapper, "NSS_WRAPPER_PASSWD": f"{root}/passwd", "NSS_WRAPPER_GROUP": f"{root}/group",
            "GIT_CONFIG_GLOBAL": f"{root}/gitconfig", "GIT_CONFIG_NOSYSTEM": "1", "SSL_CERT_FILE": server.certificate,
        }

    def make(self) -> None:
        for folder in (self.home, self.temp):
            os.makedirs(folder)
        users = {os.getuid(): "user", NOBODY: "other"}
        self.write("passwd", "".join(f"{name}:x:{uid}:{uid}::{self.home}:/bin/sh\n" for uid, name in users.items()))
        self.write("group", "".join(f"{name}:x:{uid}:\n" for uid, name in users.items()))
        self.write("gitconfig", "[user]\n\tname = a\n\temail = a@example.com\n[init]\n\tdefaultBranch = main\n"
                   f'[url "{self.server.http}/git/"]\n\tinsteadOf = https://github.com/\n[safe]\n\tdirectory = *\n')
        for name in ("pdf", "docx", "lint"):
            self.skill(f"home/Downloads/{name}")
        for name in "abcdef":
            self.skill(f"home/Many/{name}")
        with zipfile.ZipFile(f"{self.home}/zipped.zip", "w") as archive:
            archive.writestr("zipped/SKILL.md", skill_text("zipped"))
            archive.writestr("zipped/notes.md", "notes\n" * 2000)
        for agent in (".cursor", ".claude", ".codex"):
            self.skill(f"home/{agent}/skills/mine")
            self.write(f"home/{agent}/settings.json", "{}\n")

    def write(self, path: str, text: str) -> None:
        path = f"{self.root}/{path}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as file:
            file.write(text)

    def skill(self, path: str, text: str = "one") -> None:
        """A skill's folder: some small files, one that takes several writes, a link."""
        self.write(f"{path}/SKILL.md", skill_text(os.path.basename(path), text))
        self.write(f"{path}/scripts/run.sh", "#!/bin/sh\n")
        os.chmod(f"{self.root}/{path}/scripts/run.sh", 0o755)
        self.write(f"{path}/reference.md", "A line to read.\n" * 20_000)
        if not os.path.lexists(f"{self.root}/{path}/run"):
            os.symlink("scripts/run.sh", f"{self.root}/{path}/run")

    def commit(self, repository: str, message: str = "more") -> None:
        """A commit of all that lies in the repository's folder below server/git."""
        folder = f"{self.root}/server/git/{repository}.git"
        env = {**self.env, "GIT_AUTHOR_DATE": "@1700000000 +0000", "GIT_COMMITTER_DATE": "@1700000000 +0000"}
        if not os.path.isdir(f"{folder}/.git"):
            call("git", "init", "-q", folder, env=env)
        call("git", "add", "-A", env=env, cwd=folder)
        call("git", "commit", "-q", "-m", message, env=env, cwd=folder)

    def take(self, steps: Sequence[Step]) -> None:
        """Steps are what they do to the world, or words for the program, which must succeed."""
        for step in steps:
            if callable(step):
                step(self)
                continue
            run = self.orvanta(step)
            if run.status != 0:
                sys.exit(f"crash: 'orvanta {step}' failed with {run.status} while the world was made: {run.err}")

    def words(self, words: str) -> list:
        return [self.program, *words.format(**self.names).split()]

    def orvanta(self, words: str, before: Sequence[str] = (), user: Optional[int] = None) -> Run:
        """Runs to the end, or until it hangs; `before` is a command that runs the program."""
        return self.finish(self.start(words, before, user))

    def start(self, words: str, before: Sequence[str] = (), user: Optional[int] = None) -> subprocess.Popen:
        other = {} if user is None else {"user": user, "group": user, "extra_groups": []}
        return subprocess.Popen([*before, *self.words(words)], cwd=self.home, env=self.env, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace",
                                start_new_session=True, **other)

    @staticmethod
    def finish(process: subprocess.Popen) -> Run:
        try:
            out, err = process.communicate(timeout=PATIENCE)
            return Run(process.returncode, out, err)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            return Run(HUNG)
