"""Drives the commands of zaroctl that write at random and compares the stored policy with a model of it after each.

Usage: commands.py [--seconds N] [--sequences N] [--seed N] [--database sqlite|postgresql]
ZAROCTL_PATH names the program. So many sequences are made to their ends, and more until the seconds have passed.

A command must exit with the status that the model expects; one that fails changes nothing. What administrators see is compared
from time to time. A sequence that differs is made as short as possible and printed as shell commands; the status is 1 then.
PostgreSQL is the server of `scripts/with-postgres`.
"""

import argparse
import collections
import copy
import json
import os
import pathlib
import random
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
import uuid

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "mail"))
os.environ.setdefault("ZAROFILTERD_PATH", "")
import filter_postgresql as server  # noqa: E402
import mailtest  # noqa: E402
import policy_model  # noqa: E402
from policy_model import AREA, GROUP, RESERVED, WILDCARD, Model, Refusal, Viewer  # noqa: E402

# Sequences begin with an empty policy, so that they stay small and can be made short.
STEPS_OF_A_SEQUENCE = 60
STEPS_BETWEEN_LISTINGS = 6
SECONDS_TO_MAKE_SHORT = 120

Step = collections.namedtuple("Step", "name arguments")
Done = collections.namedtuple("Done", "status output error")


class Different(Exception):
    """The program and the model differ."""


# --- Commands as the shell has them ---

def options(**values):
    return [text for name, value in values.items() if value is not None for text in (f"--{name.replace('_', '-')}", value)]


def flags(**values):
    return [f"--{name.replace('_', '-')}" for name, given in values.items() if given]


def rule_options(change):
    words = options(name=change.get("name"), recipients=change.get("recipients"), compare=change.get("compare"),
                    quarantine=change.get("quarantine"), reply=change.get("reply"), tag=change.get("tag"),
                    header_value=change.get("header_value"), address=change.get("address"))
    words += options(position=str(change["position"]) if "position" in change else None)
    words += options(**{"for": change.get("scope")}) + flags(for_all=change.get("for_all"))
    if "enabled" in change:
        words += flags(enabled=change["enabled"], disabled=not change["enabled"])
    for group, kind in change.get("lists", []):
        words += ["--list", f"{group}:{kind}"]
    if change.get("lists") == []:
        words += ["--list", ""]
    if "actions" in change:
        words += ["--action", ",".join(change["actions"])]
    return words


def words_of(name, a):
    """The words behind `zaroctl`, and what is given on standard input."""
    is_id = flags(id=a.get("is_id"))
    table = {
        "admin_add": lambda: ["admin", "add", *flags(root=a["root"]), "--", a["name"]],
        "admin_remove": lambda: ["admin", "remove", "--", a["name"]],
        "admin_assign": lambda: ["admin", "assign", *is_id, "--", a["name"], *a["entities"]],
        "admin_unassign": lambda: ["admin", "unassign", *is_id, "--", a["name"], *a["entities"]],
        "entity_add": lambda: ["entity", "add", "--type", a["type"], "--", a["name"]],
        "entity_remove": lambda: ["entity", "remove", *is_id, "--", a["entity"]],
        "object_add": lambda: ["object", "add", "--as", a["admin"], "--type", a["type"], "--content", a["content"], "--",
                               a["name"]],
        "object_modify": lambda: ["object", "modify", "--as", a["admin"],
                                  *options(name=a.get("name"), type=a.get("type"), content=a.get("content")), "--", a["id"]],
        "object_remove": lambda: ["object", "remove", "--as", a["admin"], "--", a["id"]],
        "group_add": lambda: ["group", "add", "--as", a["admin"], *options(entity=a.get("entity")), "--", a["name"],
                              *a["members"]],
        "group_modify": lambda: ["group", "modify", *options(**{"as": a.get("admin")}), *is_id, *options(name=a.get("name")),
                                 *[word for member in a["added"] for word in ("--add", member)],
                                 *[word for member in a["removed"] for word in ("--remove", member)], "--", a["group"]],
        "group_remove": lambda: ["group", "remove", *options(**{"as": a.get("admin")}), *is_id, "--", a["group"]],
        "group_import": lambda: ["group", "import", *options(**{"as": a.get("admin")}), *is_id, *flags(append=a["append"]),
                                 "--", a["group"], "-"],
        "rule_add": lambda: ["rule", "add", "--as", a["admin"], *rule_options(a["change"]), "--", a["name"]],
        "rule_modify": lambda: ["rule", "modify", "--as", a["admin"], *is_id, *rule_options(a["change"]), "--", a["rule"]],
        "rule_move": lambda: ["rule", "move", "--as", a["admin"], *is_id, "--position", str(a["position"]), "--", a["rule"]],
        "rule_remove": lambda: ["rule", "remove", "--as", a["admin"], *is_id, "--", a["rule"]],
        "rules_set_order": lambda: ["rules", "set-order", *flags(off=a["off"]), *a["groups"]],
        "settings_set": lambda: ["settings", "set", *[f"{key}={value}" for key, value in a["values"]]],
        "servers_add": lambda: ["servers", "add", a["id"], a["address"], a["port"]],
        "servers_remove": lambda: ["servers", "remove", a["id"]],
        "import_": lambda: ["import", *flags(merge=a["merge"], dry_run=a["trial"]), *options(**{"as": a.get("admin")}), "-"],
    }
    given = ""
    if name == "group_import":
        given = "".join(line + "\n" for line in a["lines"])
    elif name == "import_":
        given = json.dumps(a["document"])
    return table[name](), given


def shell_line(step):
    words, given = words_of(*step)
    text = "zaroctl " + shlex.join(words)
    return text + (f" <<<{shlex.quote(given)}" if given else "")


# --- Installations ---

class Installation:
    """One with an empty policy, which many can be copied from."""

    def __init__(self, home, given="", options=()):
        self.home = home
        done = self.zaroctl(["init", *options, str(home)], given)
        if done.status != 0:
            raise SystemExit(f"zaroctl init: {done.error}")

    def zaroctl(self, words, given=""):
        environment = {key: value for key, value in os.environ.items() if not key.startswith("ZARO_")}
        done = subprocess.run([mailtest.ZAROCTL, *words], env={**environment, "ZARO_HOME": str(self.home)}, input=given,
                              capture_output=True, text=True, timeout=mailtest.PATIENCE, check=False)
        return Done(done.returncode, done.stdout, done.stderr)


class Sqlite(Installation):
    def renew(self, directory):
        copied = copy.copy(self)
        copied.home = directory / uuid.uuid4().hex
        shutil.copytree(self.home, copied.home)
        return copied

    def remove(self):
        shutil.rmtree(self.home)


class Postgresql(Installation):
    def __init__(self, home):
        self.database = "commands_" + uuid.uuid4().hex
        server.sql(f"CREATE DATABASE {self.database}")
        where = server.SERVER
        super().__init__(home, where["PASSWORD"] + "\n", ["--db", "postgresql", "--host", where["HOST"], "--port", where["PORT"],
                                                          "--user", where["USER"], "--database", self.database])

    def renew(self, directory):
        copied = copy.copy(self)
        copied.home = directory / uuid.uuid4().hex
        copied.database = "commands_" + uuid.uuid4().hex
        server.sql(f"CREATE DATABASE {copied.database} TEMPLATE {self.database}")
        shutil.copytree(self.home, copied.home)
        ini = copied.home / "config/database.ini"
        ini.write_text(ini.read_text(encoding="utf-8").replace(self.database, copied.database), encoding="utf-8")
        return copied

    def remove(self):
        server.sql(f"DROP DATABASE {self.database} WITH (FORCE)")
        shutil.rmtree(self.home)


# --- One sequence ---

class Run:
    """A policy in the database and in the model, from the first step on."""

    def __init__(self, installation):
        self.installation = installation
        self.model = Model(policy_model.normal(self.exported()), mailtest.ACTIONS, mailtest.BITMAP_LENGTH)

    def exported(self):
        return self.json(["export"])

    def json(self, words):
        done = self.installation.zaroctl(["--json", *words])
        if done.status != 0:
            raise Different(f"zaroctl {shlex.join(words)} exits with {done.status}: {done.error}")
        return json.loads(done.output)

    def take(self, step):
        status, change = self.model.predict(step.name, step.arguments)
        words, given = words_of(*step)
        done = self.installation.zaroctl(["--json", *words], given)
        if done.status != status:
            raise Different(f"exits with {done.status} instead of {status}: {done.error}")
        if change is not None:
            try:
                self.model.document = change(json.loads(done.output))
            except AssertionError as fault:
                raise Different(str(fault)) from fault
        self.compare("the policy", policy_model.normal(copy.deepcopy(self.model.document)), self.exported())
        return status

    @staticmethod
    def compare(what, wanted, found):
        if wanted == found:
            return
        if isinstance(wanted, dict):
            keys = [key for key in wanted if wanted[key] != found.get(key)] or ["keys"]
            raise Different(f"{what} differs in {keys[0]}:\n model:  {json.dumps(wanted.get(keys[0]))}\n stored: "
                            f"{json.dumps(found.get(keys[0]))}")
        raise Different(f"{what} differs:\n model:  {json.dumps(wanted)}\n stored: {json.dumps(found)}")

    def compare_listings(self, admin):
        """What an administrator sees."""
        try:
            viewer = Viewer(self.model, admin)
        except Refusal as refusal:
            done = self.installation.zaroctl(["object", "list", "--as", admin])
            if done.status != refusal.status:
                raise Different(f"object list --as {admin} exits with {done.status} instead of {refusal.status}") from None
            return
        objects = self.json(["object", "list", "--as", admin])
        self.compare(f"the objects that {admin} sees", self.objects_seen(viewer), sorted(
            [row["id"], row["name"], row["editable"], row["modifiable"], row["deletable"]] for row in objects))
        groups = self.json(["group", "list", "--as", admin])
        self.compare(f"the groups that {admin} sees", sorted(
            [row["id"], row["name"], len(row["members"]), viewer.may_edit(row)] for row in self.model.rows("objects")
            if row["type"] == GROUP and viewer.sees(row)), sorted(
            [row["id"], row["name"], row["members"], row["modifiable"]] for row in groups))
        rules = self.json(["rule", "list", "--as", admin])
        self.compare(f"the rules that {admin} sees", [
            [row["id"], row["position"], row["actions"], viewer.sees_all_of(row)]
            for row in sorted(self.model.rows("rules"), key=lambda row: row["position"]) if viewer.sees_rule(row)],
            [[row["id"], row["position"], row["bitmap"], row["modifiable"]] for row in rules])

    def objects_seen(self, viewer):
        rows = []
        for row in self.model.rows("objects"):
            seen, editable = viewer.verdict(row)
            if seen:
                deletable = editable and not viewer.is_root and not self.model.is_used_as_listed(row["id"])
                rows.append([row["id"], row["name"], editable, editable and viewer.may_edit(row), deletable])
        return sorted(rows)


# --- Random steps ---

ADMINS = ["chief", "anna", "bert", "O'Hara", "\u00c7a"]
PATTERNS = ["*@*", "*@a.test", "*@*.a.test", "*@x.a.test", "u@a.test", "*@*.x.a.test", "u@b.test", "U@B.test"]
OBJECTS = ["area", "Area", "50%d 'q' \\", "\u00fcber", RESERVED + " mine"]
GROUPS = ["friends", "Friends", "it's", "\u6f22\u5b57"]
RULES = ["first", "second", "third; --", "vierte \u00e4"]
MEMBERS = ["a@b.test", "A@B.test", "*@c.test", "u@*.d.test", "*", "<>", "\u00fc@b.test", "\u00dc@b.test", "o'hara@b.test", "\\x@b"]
WRONG_MEMBERS = ["no address", "name", "a\x01@b", "<ma>@b", ""]
WRONG_NAMES = ["", "a\nb", "x" * 513]
TEXTS = ["", "text", "it's 100% \u00e4", "\\"]


class Dice:
    def __init__(self, seed, run):
        self.random = random.Random(seed)
        self.run = run

    def one(self, choices):
        return self.random.choice(choices)

    def happens(self, one_in):
        return self.random.randrange(one_in) == 0

    def some(self, choices, most):
        return [self.one(choices) for _ in range(self.random.randrange(most + 1))]

    def name(self, choices):
        return self.one(WRONG_NAMES) if self.happens(25) else self.one(choices)

    def admin(self):
        able = [row["name"] for row in self.run.model.rows("administrators") if row["entities"]]
        return self.one(ADMINS) if not able or self.happens(10) else self.one(able)

    def maybe_admin(self):
        return self.admin() if self.happens(2) else None

    def id_of(self, table, **values):
        known = [row["id"] for row in self.run.model.find(table, **values)]
        if not known or self.happens(15):
            return self.one(["0", "999999", "x", "-1", "4294967295", "007"])
        return str(self.one(known))

    def stored(self, table, names, **values):
        """A name that is stored, mostly."""
        known = [row["name"] for row in self.run.model.find(table, **values)]
        return self.one(names) if not known or self.happens(5) else self.one(known)

    def pattern(self):
        return self.stored("entities", PATTERNS, type=WILDCARD)

    def entity(self):
        if self.happens(2):
            return {"entity": self.id_of("entities"), "is_id": True}
        return {"entity": self.stored("entities", PATTERNS), "is_id": False}

    def members(self, most=4):
        return [self.one(WRONG_MEMBERS) if self.happens(30) else self.one(MEMBERS) for _ in range(self.random.randrange(most + 1))]

    def group(self):
        if self.happens(3):
            return {"group": self.id_of("objects", type=GROUP), "is_id": True}
        return {"group": self.group_name(), "is_id": False}

    def group_name(self):
        return self.stored("objects", GROUPS, type=GROUP)

    def rule(self):
        if self.happens(3):
            return {"rule": self.id_of("rules"), "is_id": True}
        return {"rule": self.stored("rules", RULES), "is_id": False}

    def position(self):
        odd = [0, policy_model.HIGHEST_POSITION, policy_model.HIGHEST_POSITION + 1]
        return self.one(odd) if self.happens(8) else self.one([1, 1, 2, 3, 4, 7])

    def change(self):
        keys = list(mailtest.ACTIONS)
        makers = {
            "position": self.position,
            "enabled": lambda: self.happens(2),
            "scope": self.pattern,
            "recipients": lambda: self.one([self.group_name(), ""]),
            "lists": lambda: [(self.group_name(), self.one([*policy_model.KINDS])) for _ in range(self.random.randrange(3))],
            "compare": lambda: self.one(["envelope", "header", "both"] * 5 + ["none"]),
            "actions": lambda: self.some(keys, 2),
            "quarantine": lambda: "" if self.happens(3) else self.id_of("objects", type=AREA),
            "reply": lambda: self.one(TEXTS),
            "tag": lambda: self.one(TEXTS),
            "header_value": lambda: self.one(TEXTS),
            "address": lambda: self.one(["", "no address", "<>"] + ["a@b.test"] * 9),
        }
        change = {key: make() for key, make in makers.items() if self.happens(4)}
        if self.happens(3):
            change.pop("scope", None)
            change["for_all"] = True
        return change

    def step(self):
        name = self.random.choices([maker for maker, _ in self.WEIGHTS], [weight for _, weight in self.WEIGHTS])[0]
        return Step(name, getattr(self, name)())

    def admin_add(self):
        return {"name": self.name(ADMINS), "root": self.happens(3)}

    def admin_remove(self):
        return {"name": self.one(ADMINS)}

    def admin_assign(self):
        is_id = self.happens(3)
        entities = [self.id_of("entities") if is_id else self.pattern() for _ in range(1 + self.random.randrange(3))]
        return {"name": self.admin(), "entities": entities, "is_id": is_id}

    def admin_unassign(self):
        name = self.admin()
        own = [str(one) for row in self.run.model.find("administrators", name=name) for one in row["entities"]]
        return self.admin_assign() if not own or self.happens(4) else {"name": name, "entities": [self.one(own)], "is_id": True}

    def entity_add(self):
        return {"type": self.one(["wildcard"] * 6 + ["ldap", "3", "8", "none"]), "name": self.name(PATTERNS)}

    def entity_remove(self):
        return self.entity()

    def object_add(self):
        return {"admin": self.admin(), "type": self.one(["quarantine", "quarantine", "group", "7", "-2", "none"]),
                "name": self.name(OBJECTS), "content": self.content()}

    def content(self):
        return self.one(["", "days=3", "a\nb\tc", "it's 100%s", "x" * 9000, "\x02", "\u00e4" * 20])

    def object_modify(self):
        change = {"name": self.name(OBJECTS), "type": self.one(["quarantine", "group", "7"]), "content": self.content()}
        return {"admin": self.admin(), "id": self.id_of("objects"),
                **{key: value for key, value in change.items() if self.happens(2)}}

    def object_remove(self):
        return {"admin": self.admin(), "id": self.id_of("objects")}

    def group_add(self):
        wanted = {"admin": self.admin(), "name": self.name(GROUPS), "members": self.members()}
        return {**wanted, "entity": self.id_of("entities")} if self.happens(3) else wanted

    def group_modify(self):
        group = self.group()
        members = [member for row in self.run.model.find("objects", type=GROUP) for member in row["members"]]
        wanted = {**group, "added": self.members(3), "removed": self.some(members or MEMBERS, 1), "admin": self.maybe_admin()}
        return {**wanted, "name": self.name([*GROUPS, RESERVED])} if self.happens(4) else wanted

    def group_remove(self):
        return {**self.group(), "admin": self.maybe_admin()}

    def group_import(self):
        lines = [self.one(["# comment", "", *MEMBERS[:-1]]) for _ in range(self.random.randrange(6))]
        return {**self.group(), "lines": lines + ([self.one(["name", "a b@c"])] if self.happens(8) else []),
                "append": self.happens(2), "admin": self.maybe_admin()}

    def rule_add(self):
        change = self.change()
        if "for_all" not in change and not self.happens(8):
            change["scope"] = self.pattern()
        return {"admin": self.admin(), "name": self.name(RULES), "change": change}

    def rule_modify(self):
        change = self.change()
        if self.happens(4):
            change["name"] = self.name(RULES)
        return {"admin": self.admin(), **self.rule(), "change": change}

    def rule_move(self):
        return {"admin": self.admin(), **self.rule(), "position": self.position()}

    def rule_remove(self):
        return {"admin": self.admin(), **self.rule()}

    def rules_set_order(self):
        return {"groups": self.some(["Virus", "spam", "3", "ATTACHMENT", "6", "7"], 3), "off": self.happens(5)}

    def settings_set(self):
        values = {"mail_filter.poll_secs": ["1", "3600", "0", "x"], "mail_filter.shadow": ["yes", "No", "maybe"],
                  "mail_filter.header": ["X-A", "Subject"], "policy_server.backlog": ["7", "0010", "1001"],
                  "policy_server.threads": ["8", "20", "200"], "policy_server.max_threads": ["16", "64", "1"],
                  "policy_client.host": ["", "a.test,b.test", "a b"], "mail_filter.nothing": [""]}
        keys = self.some(list(values), 2) or ["mail_filter.shadow"]
        return {"values": [(key, self.one(values[key])) for key in keys]}

    def servers_add(self):
        return {"id": self.one(["1", "2", "003", "0"]), "address": self.one(["192.0.2.1", "2001:db8::1", "no address"]),
                "port": self.one(["5060", "65535", "65536"])}

    def servers_remove(self):
        return {"id": self.one(["1", "2", "3", "4"])}

    def import_(self):
        document = copy.deepcopy(self.run.model.document)
        for _ in range(1 + self.random.randrange(3)):
            self.one([self.rename, self.swap_names, self.swap_positions, self.drop_row, self.change_members, self.change_recipients,
                      self.copy_row])(document)
        merge = self.happens(2)
        if self.happens(3):
            document.pop(self.one(list(policy_model.TABLES)))
        return {"document": document, "merge": merge, "trial": self.happens(4), "admin": self.maybe_admin()}

    def rename(self, document):
        table = self.one(["administrators", "objects", "rules"])
        if document[table]:
            self.one(document[table])["name"] = self.one(OBJECTS)

    def swap_names(self, document):
        table = self.one(["administrators", "entities", "objects"])
        if len(document[table]) > 1:
            one, other = self.random.sample(document[table], 2)
            one["name"], other["name"] = other["name"], one["name"]
        for row in document["entities"]:
            row["name"] = policy_model.ascii_lower(row["name"]) if row["type"] == WILDCARD else row["name"]

    def swap_positions(self, document):
        if len(document["rules"]) > 1:
            one, other = self.random.sample(document["rules"], 2)
            one["position"], other["position"] = other["position"], one["position"]

    def drop_row(self, document):
        table = self.one(list(policy_model.TABLES))
        if document[table] and table != "settings":
            document[table].remove(self.one(document[table]))

    def change_members(self, document):
        groups = [row for row in document["objects"] if row["type"] == GROUP]
        if groups:
            row = self.one(groups)
            row["members"] = self.some(MEMBERS, 4)

    def change_recipients(self, document):
        if document["rules"] and document["objects"]:
            self.one(document["rules"])["recipients"] = self.one(document["objects"])["id"]

    def copy_row(self, document):
        table = self.one(["entities", "administrators", "objects", "rules"])
        if document[table]:
            row = copy.deepcopy(self.one(document[table]))
            row["id"] += self.random.randrange(1, 5)
            row["name"] += self.one(["", "-copy"])
            if table == "rules":
                row["position"] = self.position() or 1
            document[table].append(row)

    WEIGHTS = [("admin_add", 4), ("admin_remove", 1), ("admin_assign", 6), ("admin_unassign", 2), ("entity_add", 6),
               ("entity_remove", 2), ("object_add", 6), ("object_modify", 5), ("object_remove", 3), ("group_add", 7),
               ("group_modify", 8), ("group_remove", 2), ("group_import", 4), ("rule_add", 9), ("rule_modify", 8), ("rule_move", 4),
               ("rule_remove", 2), ("rules_set_order", 2), ("settings_set", 3), ("servers_add", 2), ("servers_remove", 1),
               ("import_", 4)]

    def first_steps(self):
        """Without administrators and managing groups little else would succeed."""
        return [Step("admin_add", {"name": "chief", "root": True}), Step("admin_add", {"name": "anna", "root": False}),
                Step("entity_add", {"type": "wildcard", "name": "*@*.a.test"}), Step("entity_add", {"type": "wildcard", "name": "*@a.test"}),
                Step("admin_assign", {"name": "anna", "entities": ["*@*.a.test"], "is_id": False}),
                Step("admin_assign", {"name": "chief", "entities": ["*@a.test"], "is_id": False})]


# --- Sequences, and short ones ---

Finding = collections.namedtuple("Finding", "steps text effective")  # the steps before the last that changed the policy


def sequence(template, directory, seed, deadline, counts):
    """Makes one up until its end; answers what differs, if anything does."""
    installation = template.renew(directory)
    steps = []
    effective = []
    try:
        run = Run(installation)
        dice = Dice(seed, run)
        first = dice.first_steps()
        while len(steps) < STEPS_OF_A_SEQUENCE and time.monotonic() < deadline:
            steps.append(first.pop(0) if first else dice.step())
            status = run.take(steps[-1])
            counts[(steps[-1].name, status)] += 1
            effective += [steps[-1]] if status == 0 else []
            if len(steps) % STEPS_BETWEEN_LISTINGS == 0:
                run.compare_listings(dice.admin())
    except Different as difference:
        return Finding(steps, str(difference), effective)
    finally:
        installation.remove()
    return None


def replay(template, directory, steps):
    """The same of steps that are there. Listings are compared for every administrator at the end."""
    installation = template.renew(directory)
    try:
        run = Run(installation)
        for number, step in enumerate(steps):
            try:
                run.take(step)
            except Different as difference:
                return Finding(steps[:number + 1], str(difference), [])
        try:
            for admin in ADMINS:
                run.compare_listings(admin)
        except Different as difference:
            return Finding(steps, str(difference), [])
    finally:
        installation.remove()
    return None


def shortened(template, directory, finding):
    """Leaves out steps, those that were refused first, as long as something differs."""
    end = time.monotonic() + SECONDS_TO_MAKE_SHORT
    best = (replay(template, directory, finding.effective + finding.steps[-1:]) or
            replay(template, directory, finding.steps) or finding)
    size = max(1, len(best.steps) // 2)
    while size >= 1 and time.monotonic() < end:
        at = 0
        while at < len(best.steps) and time.monotonic() < end:
            shorter = replay(template, directory, best.steps[:at] + best.steps[at + size:])
            if shorter is not None:
                best = shorter
            else:
                at += size
        size //= 2
    return best


def report(seed, database, finding):
    print(f"seed {seed} on {database}: {finding.text}")
    print("as short as it gets:")
    for step in finding.steps:
        print("  " + shell_line(step))
    print(f"again: tests/sequence/commands.py --database {database} --seed {seed}")


def parsed():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=0)
    parser.add_argument("--sequences", type=int, default=1)
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--database", choices=["sqlite", "postgresql"], default="sqlite")
    return parser.parse_args()


def main():
    arguments = parsed()
    if arguments.database == "postgresql" and not server.SERVER["CTL"]:
        print("the PostgreSQL server is not ours: run this through scripts/with-postgres")
        sys.exit(77)
    first = arguments.seed if arguments.seed is not None else random.randrange(1000000)
    deadline = time.monotonic() + arguments.seconds
    counts = collections.Counter()
    memory = pathlib.Path("/dev/shm")
    sequences = 0
    with tempfile.TemporaryDirectory(prefix="zaro-commands-", dir=memory if memory.is_dir() else None) as name:
        directory = pathlib.Path(name)
        template = (Sqlite if arguments.database == "sqlite" else Postgresql)(directory / "template")
        try:
            seed = first
            while sequences < arguments.sequences or time.monotonic() < deadline:
                end = float("inf") if sequences < arguments.sequences else deadline
                finding = sequence(template, directory, seed, end, counts)
                if finding is not None:
                    report(seed, arguments.database, shortened(template, directory, finding))
                    sys.exit(1)
                sequences += 1
                seed += 1
        finally:
            template.remove()
    succeeded = sum(count for (_, status), count in counts.items() if status == 0)
    total = sum(counts.values())
    print(f"{arguments.database}: {sequences} sequences from seed {first} on, {total} commands, {succeeded} of which changed the "
          f"policy and {total - succeeded} of which were refused, no difference")


if __name__ == "__main__":
    main()
