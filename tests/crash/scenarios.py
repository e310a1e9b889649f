"""The commands that change something, each with the world it begins in."""

from dataclasses import dataclass, field
from typing import Callable, List, Optional, Tuple

from world import Step, World, call


@dataclass
class Scenario:
    name: str
    run: str
    setup: List[Step] = field(default_factory=list)
    again: Optional[str] = None  # what a user does after the fault; by default the same
    once: bool = False  # cannot be done again: the user repeats it only if it is not done yet
    # What a verdict says, as a regular expression, and why it is as it should be: such points are counted apart.
    exceptions: List[Tuple[str, str]] = field(default_factory=list)


def changed(path: str) -> Callable[[World], None]:
    return lambda world: world.skill(f"home/{path}", "two")


def skill(path: str) -> Callable[[World], None]:
    return lambda world: world.skill(f"home/{path}")


def published(text: str = "one") -> Callable[[World], None]:
    def publish(world: World) -> None:
        for name in ("pdf", "lint"):
            world.skill(f"server/git/acme/skills.git/skills/{name}", text)
        world.commit("acme/skills", text)

    return publish


def site(world: World) -> None:
    folder = "server/site/.well-known/skills"
    world.write(f"{folder}/index.json", '{"skills":[{"name":"pdf","description":"d","files":["SKILL.md","run.sh"]},'
                '{"name":"lint","skill-md":"---\\nname: lint\\n---\\n"}]}')
    world.write(f"{folder}/pdf/SKILL.md", "---\nname: pdf\n---\n")
    world.write(f"{folder}/pdf/run.sh", "run\n" * 5000)


def removed(path: str) -> Callable[[World], None]:
    return lambda world: call("rm", "-rf", f"{world.home}/{path}") and None


def remote(world: World) -> None:
    """An empty repository to push to."""
    folder = f"{world.root}/server/git/mine"
    call("git", "init", "-q", "--bare", folder)
    call("git", "-C", folder, "config", "http.receivepack", "true")
    call("git", "-C", folder, "symbolic-ref", "HEAD", "refs/heads/main")


def elsewhere(world: World) -> None:
    """A snapshot from another computer: one skill changed, one new."""
    folder = f"{world.root}/other"
    call("git", "clone", "-q", f"{world.root}/server/git/mine", folder, env=world.env)
    world.skill("other/pdf", "two")
    world.skill("other/new")
    call("git", "add", "-A", env=world.env, cwd=folder)
    call("git", "commit", "-q", "-m", "from elsewhere", env=world.env, cwd=folder)
    call("git", "push", "-q", env=world.env, cwd=folder)


def first_snapshot(world: World) -> None:
    folder = f"{world.home}/.orvanta/skills"
    world.names["snapshot"] = call("git", "rev-parse", "HEAD", env=world.env, cwd=folder).strip()


ALL = ["install Downloads --all"]
COPY = "config set sync_mode copy"
TO_CURSOR = "deploy pdf --to cursor"
GIT = "install acme/skills --all"
OWN_AGENT = "agent add own --name Own --dir own/skills"
PRESET = "preset create review pdf docx"
REMOTE = "backup remote {git}/mine"
TO_ALL = "deploy pdf docx --to cursor claude_code codex"
PROJECT = "project add site"
EXPORTED = [*ALL, skill("site/.cursor/skills/own"), PROJECT, "project export site pdf docx --agent cursor"]
BACKED = [*ALL, "backup init"]
PUSHED = [*BACKED, remote, REMOTE, "backup push"]

UNREMOVED = ("wrong: .*(is not recorded|is disabled and stands)",
             "A file that cannot be taken out stays where it is; its record goes, and the command says so and fails.")
GITS_WORDS = ("mute: .*git [a-z-]+ failed", "Git says what failed, and not always why.")
UNZIPS_WORDS = ("mute: .*write error", "The program unzip says that it cannot write, and not why.")
REMOTES_LOCK = ("stuck: .*remote: error: cannot lock ref", "The lock is the remote's, which was cut off as well.")

SCENARIOS = [
    Scenario("install", "install Downloads/pdf"),
    Scenario("install-all", "install Downloads --all --to cursor", ["list"]),
    Scenario("install-archive", "install zipped.zip", ALL, exceptions=[UNZIPS_WORDS]),
    Scenario("install-git", "install acme/skills --all", [published("other"), *ALL], exceptions=[GITS_WORDS]),
    Scenario("install-site", "install well-known:{site} --all", [site]),
    Scenario("install-directory", "install plazza:acme/skills/pdf", [published(), "config set plazza_url {http}"],
             exceptions=[GITS_WORDS]),
    Scenario("deploy", TO_CURSOR, ALL),
    Scenario("deploy-copy", TO_CURSOR, [*ALL, COPY]),
    Scenario("deploy-copy-again", TO_CURSOR, [*ALL, COPY, TO_CURSOR, changed(".orvanta/skills/pdf")]),
    Scenario("deploy-force", f"{TO_CURSOR} --force --yes", [*ALL, skill(".cursor/skills/pdf")]),
    Scenario("deploy-other-mode", TO_CURSOR, [*ALL, TO_CURSOR, COPY]),
    Scenario("deploy-moved", TO_CURSOR, [*ALL, COPY, TO_CURSOR, "agent path cursor elsewhere/skills"],
             exceptions=[UNREMOVED]),
    Scenario("deploy-many", "deploy a b c d e f --to cursor claude_code codex", ["install Many --all"]),
    Scenario("undeploy", "undeploy pdf --from cursor", [*ALL, TO_CURSOR], once=True, exceptions=[UNREMOVED]),
    Scenario("undeploy-copy", "undeploy pdf --from cursor", [*ALL, COPY, TO_CURSOR], once=True, exceptions=[UNREMOVED]),
    Scenario("disable", "disable pdf", [*ALL, TO_ALL], exceptions=[UNREMOVED]),
    Scenario("enable", "enable pdf", [*ALL, TO_ALL, "disable pdf"]),
    Scenario("remove", "remove pdf --yes", [*ALL, TO_ALL], once=True, exceptions=[UNREMOVED]),
    Scenario("repair", "repair", [*ALL, TO_CURSOR, COPY, "deploy docx --to cursor", changed(".orvanta/skills/docx"),
                                  removed(".cursor/skills/pdf")]),
    Scenario("import", "import .cursor/skills/mine --agent cursor", ALL),
    Scenario("import-adopt", "import .cursor/skills/mine --agent cursor --adopt --yes", ALL, once=True),
    Scenario("delete-unmanaged", "delete-unmanaged .cursor/skills/mine --agent cursor --yes", ALL, once=True),
    Scenario("edit", "edit pdf --name pdf-tools --description d", [*ALL, TO_CURSOR], once=True),
    Scenario("tag", "tag set pdf one two", ALL),
    Scenario("agent-path", "agent path cursor elsewhere/skills", [*ALL, TO_ALL]),
    Scenario("agent-remove", "agent remove own", [*ALL, OWN_AGENT, "deploy pdf --to own"], once=True,
             exceptions=[UNREMOVED]),
    Scenario("preset-apply", "preset apply review", [*ALL, PRESET]),
    Scenario("preset-exclusive", "preset apply review --exclusive --yes",
             [*ALL, PRESET, "deploy lint --to cursor codex"], exceptions=[UNREMOVED]),
    Scenario("preset-deactivate", "preset deactivate review", [*ALL, PRESET, "preset apply review"],
             exceptions=[UNREMOVED]),
    Scenario("project-export", "project export site pdf docx --agent cursor",
             [*ALL, skill("site/.cursor/skills/own"), PROJECT]),
    Scenario("project-pull", "project pull site pdf --yes", [*EXPORTED, changed(".orvanta/skills/pdf")]),
    Scenario("project-push", "project push site pdf --yes",
             [*EXPORTED, COPY, TO_CURSOR, changed("site/.cursor/skills/pdf")]),
    Scenario("project-disable", "project disable site pdf", EXPORTED, once=True),
    Scenario("project-enable", "project enable site pdf", [*EXPORTED, "project disable site pdf"], once=True),
    Scenario("project-delete", "project delete site pdf --yes", EXPORTED, once=True),
    Scenario("update", "update pdf --yes", [published(), GIT, COPY, TO_CURSOR, published("two"), "check"],
             exceptions=[GITS_WORDS]),
    Scenario("reimport", "reimport pdf --yes", [*ALL, COPY, TO_CURSOR, changed("Downloads/pdf")]),
    Scenario("reimport-shared", "reimport pdf --yes",
             [*ALL, COPY, "agent path codex .cursor/skills", "deploy pdf --to cursor codex", changed("Downloads/pdf")]),
    Scenario("backup-init", "backup init", ALL, exceptions=[GITS_WORDS]),
    Scenario("backup-now", "backup now", [*BACKED, changed(".orvanta/skills/pdf")], exceptions=[GITS_WORDS]),
    Scenario("backup-push", "backup push", [*BACKED, remote, REMOTE, changed(".orvanta/skills/pdf")],
             exceptions=[GITS_WORDS, REMOTES_LOCK]),
    Scenario("backup-pull", "backup pull", [*PUSHED, TO_CURSOR, "remove docx --yes", elsewhere],
             exceptions=[GITS_WORDS]),
    Scenario("backup-restore", "backup restore {snapshot} --yes",
             [*BACKED, TO_CURSOR, first_snapshot, changed("Downloads/pdf"), "reimport pdf --yes", "backup now"],
             exceptions=[GITS_WORDS]),
    Scenario("backup-clone", "backup clone {git}/mine", [*PUSHED, removed(".orvanta")], once=True,
             exceptions=[GITS_WORDS]),
    Scenario("library-move", "library move moved", [*ALL, TO_ALL]),
    Scenario("library-reset", "library reset", [*ALL, TO_ALL, "library move moved"]),
    Scenario("config", "config set sync_mode copy", ALL),
]
