"""The stored policy as plain lists, and what the commands of zaroctl that write do to it.

The policy is the document that `zaroctl export` prints. `Model.predict` answers what a command must exit with, and what
the document is afterwards. A command is a name and its arguments by name, as `commands.py` spells them.
"""

import copy
import re

WILDCARD = 6
AREA = 3
GROUP = 5
TABLES = {"entities": ("id",), "administrators": ("id",), "objects": ("id",), "rules": ("id",), "settings": ("section", "name"),
          "servers": ("type", "number"), "rule_order": ("rank",)}
TYPES = {"quarantine": AREA, "group": GROUP}
KINDS = {"allow": 1, "block": 2, "weak-block": 4, "weak-allow": 8, "except-allow": 16, "except-block": 32}
COMPARISONS = {"envelope": 1, "header": 2, "both": 3}
# The position of each key in the bitmap is that of tests/mail/mailtest.py, which the command line hands in.
NEEDS = {"Quarantine": "quarantine", "SubjectTagging": "tag", "InsertXHeaderTag": "header_value", "Readdress": "address",
         "Bcc": "address", "Archive": "address"}
FILTER_GROUPS = ("Virus", "Attachment", "Size", "Spam", "Content", "Other")
HIGHEST_POSITION = 1000000000
HIGHEST_ID = 4294967294
LONGEST_NAME = 512
RESERVED = "OPP:"

NOT_THERE, USAGE, DATA, REFUSED = 1, 64, 65, 77


class Refusal(Exception):
    def __init__(self, status):
        super().__init__(status)
        self.status = status


def ascii_lower(text):
    return re.sub("[A-Z]+", lambda capitals: capitals.group().lower(), text)


def wrong_name(text):
    return not text or len(text) > LONGEST_NAME or any(ord(sign) < 32 or ord(sign) == 127 for sign in text)


def refuse_if(condition, status):
    if condition:
        raise Refusal(status)


def wrong_member(text):
    return (wrong_name(text) or any(tag in text for tag in ("<ma>", "</ma>", "<mas>", "</mas>")) or " " in text or
            ("@" not in text and text not in ("<>", "*")))


def distinct(addresses):
    """Each once; the spelling that comes first stays."""
    members = {}
    for address in addresses:
        members.setdefault(ascii_lower(address), address)
    return list(members.values())


def contains(pattern, address):
    """Whether a pattern contains an address, or a narrower pattern."""
    def split(text):
        name, _, domain = ("*@*" if text == "*" else text).partition("@")
        return name, domain.split(".")[::-1]
    name, labels = split(pattern)
    other_name, other_labels = split(address)
    if name not in ("*", other_name):
        return False
    if "*" not in labels:
        return labels == other_labels
    path = labels[:labels.index("*")]
    return len(other_labels) > len(path) and other_labels[:len(path)] == path


def normal(document):
    """The one form of a document: rows and sets in order."""
    for table, key in TABLES.items():
        document[table].sort(key=lambda row, key=key: [row[column] for column in key])
    for row in document["administrators"]:
        row["entities"].sort()
    for row in document["objects"]:
        row["owners"].sort()
    for row in document["rules"]:
        row["objects"].sort()
    return document


def is_wrong_document(document):
    """Whether rows do not go together."""
    entities = {row["id"]: row for row in document["entities"]}
    objects = {row["id"]: row for row in document["objects"]}
    uniques = [[(row["type"], row["name"]) for row in document["entities"]], [row["name"] for row in document["administrators"]],
               [row["position"] for row in document["rules"]]]
    uniques += [[tuple(row[column] for column in key) for row in document[table]] for table, key in TABLES.items()]
    if any(len(values) != len(set(values)) for values in uniques):
        return True
    wanted = [entity for row in document["administrators"] for entity in row["entities"]]
    wanted += [entity for row in document["objects"] for entity in row["owners"]]
    wanted += [row["scope"] for row in document["rules"] if row["scope"] is not None]
    used = [one for row in document["rules"] for one in row["objects"]]
    used += [row[key] for row in document["rules"] for key in ("recipients", "quarantine") if row[key] is not None]
    lists = [(row, one["group"]) for row in document["rules"] for one in row["lists"]]
    return (any(entity not in entities for entity in wanted) or any(one not in objects for one in used) or
            any(group not in row["objects"] or group not in objects or objects[group]["type"] != GROUP for row, group in lists) or
            any(row["members"] and row["type"] != GROUP for row in document["objects"]))


class Viewer:
    """An administrator who asks, and what that one sees."""

    def __init__(self, model, name):
        admin = next((row for row in model.rows("administrators") if row["name"] == name), None)
        refuse_if(admin is None or not (admin["root"] or admin["entities"]), NOT_THERE)
        self.model = model
        self.is_root = admin["root"]
        self.entities = list(admin["entities"])

    def _patterns(self):
        return {row["id"]: row["name"] for row in self.model.rows("entities") if row["type"] == WILDCARD}

    def verdict(self, row):
        """(seen, editable) of an object, as lists show it."""
        if row["name"].startswith(RESERVED):
            return False, False
        if self.is_root:
            return True, True
        patterns = self._patterns()
        seen, editable = False, True
        for owner in row["owners"]:
            others = [patterns[own] for own in self.entities if own != owner and own in patterns and owner in patterns]
            accounted = owner in self.entities or any(contains(other, patterns[owner]) for other in others)
            seen = seen or accounted or any(contains(patterns[owner], other) for other in others)
            editable = editable and accounted
        return seen, seen and editable

    def sees(self, row):
        return self.verdict(row)[0]

    def may_edit(self, row):
        return self.is_root or all(owner in self.entities for owner in row["owners"])

    def scopes(self):
        patterns = self._patterns()
        if self.is_root:
            return set(patterns)
        own = {entity for entity in self.entities if entity in patterns}
        return own | {one for one in patterns if any(contains(patterns[entity], patterns[one]) for entity in own)}

    def groups(self):
        return {row["id"]: row["name"] for row in self.model.rows("objects") if row["type"] == GROUP and self.sees(row)}

    def areas(self):
        seen = {row["id"] for row in self.model.rows("objects") if row["type"] == AREA and self.sees(row)}
        system = self.model.system_area()
        return seen if system is None else seen | {system}

    def sees_rule(self, rule):
        return self.is_root or (rule["scope"] is not None and rule["scope"] in self.scopes())

    def sees_all_of(self, rule):
        groups = self.groups()
        return (all(group in groups for group in self.model.groups_of(rule)) and
                (rule["quarantine"] is None or rule["quarantine"] in self.areas()))


class Model:
    def __init__(self, document, action_positions, bitmap_length):
        self.document = document
        self._positions = action_positions
        self._length = bitmap_length

    def rows(self, table):
        return self.document[table]

    def predict(self, name, arguments):
        """(status, document afterwards as a function of the command's own result)."""
        try:
            change = getattr(self, name)(**arguments)
        except Refusal as refusal:
            return refusal.status, None
        return 0, change

    # --- What rows say of each other ---

    def find(self, table, **values):
        return [row for row in self.rows(table) if all(row[key] == value for key, value in values.items())]

    def system_area(self):
        return min((row["id"] for row in self.find("objects", type=AREA) if row["name"].startswith(RESERVED)), default=None)

    @staticmethod
    def groups_of(rule):
        groups = {one["group"] for one in rule["lists"]}
        return groups if rule["recipients"] is None else groups | {rule["recipients"]}

    def is_used(self, identifier):
        return any(identifier in (rule["quarantine"], rule["recipients"], *rule["objects"]) for rule in self.rows("rules"))

    def is_used_as_listed(self, identifier):
        """As the library tells, which does not ask for recipients."""
        return any(identifier in (rule["quarantine"], *rule["objects"]) for rule in self.rows("rules"))

    @staticmethod
    def identifier(text):
        refuse_if(not re.fullmatch("-?[0-9]{1,18}", text) or not 1 <= int(text) <= HIGHEST_ID, USAGE)
        return int(text)

    def changed(self, change):
        """A copy of the document, changed."""
        document = copy.deepcopy(self.document)
        change(document)
        return normal(document)

    @staticmethod
    def row(document, table, identifier):
        return next(row for row in document[table] if row["id"] == identifier)

    def adding(self, table, row):
        """Adds a row, whose identifier is the one that the command answered, and new."""
        def apply(result):
            identifier = result["id"]
            assert not self.find(table, id=identifier), f"the identifier {identifier} is given twice"
            return self.changed(lambda document: document[table].append({"id": identifier, **row}))
        return apply

    def updating(self, table, identifier, change):
        return lambda _result: self.changed(lambda document: change(self.row(document, table, identifier)))

    def removing(self, table, gone):
        def change(document):
            document[table] = [row for row in document[table] if not gone(row)]
        return lambda _result: self.changed(change)

    # --- Administrators and managing groups ---

    def admin_add(self, name, root):
        refuse_if(wrong_name(name), USAGE)
        refuse_if(self.find("administrators", name=name), REFUSED)
        return self.adding("administrators", {"name": name, "root": root, "entities": []})

    def admin_remove(self, name):
        found = self.find("administrators", name=name)
        refuse_if(not found, NOT_THERE)
        refuse_if(found[0]["root"] and len(self.find("administrators", root=True)) < 2, REFUSED)
        return self.removing("administrators", lambda row: row["name"] == name)

    def entity(self, text, is_id):
        identifier = self.identifier(text) if is_id else None
        found = self.find("entities", id=identifier) if is_id else self.find("entities", name=text)
        refuse_if(not found, NOT_THERE)
        refuse_if(len(found) > 1, USAGE)
        return found[0]

    def assignment(self, name, entities, is_id):
        found = self.find("administrators", name=name)
        refuse_if(not found, NOT_THERE)
        return found[0], {self.entity(text, is_id)["id"] for text in entities}

    def admin_assign(self, name, entities, is_id):
        admin, wanted = self.assignment(name, entities, is_id)
        return self.updating("administrators", admin["id"], lambda row: row.update(entities=list(wanted | set(row["entities"]))))

    def admin_unassign(self, name, entities, is_id):
        admin, wanted = self.assignment(name, entities, is_id)
        refuse_if(wanted - set(admin["entities"]), REFUSED)
        return self.updating("administrators", admin["id"], lambda row: row.update(entities=list(set(row["entities"]) - wanted)))

    def entity_add(self, type, name):
        kind = {"ldap": 2, "wildcard": WILDCARD}.get(type, type)
        refuse_if(not re.fullmatch("[0-7]", str(kind)), USAGE)
        refuse_if(wrong_name(name), USAGE)
        stored = ascii_lower(name) if int(kind) == WILDCARD else name
        refuse_if(self.find("entities", type=int(kind), name=stored), REFUSED)
        return self.adding("entities", {"type": int(kind), "name": stored})

    def entity_remove(self, entity, is_id):
        found = self.entity(entity, is_id)["id"]
        refuse_if(any(found in row["owners"] for row in self.rows("objects")), REFUSED)
        refuse_if(self.find("rules", scope=found), REFUSED)

        def change(document):
            document["entities"] = [row for row in document["entities"] if row["id"] != found]
            for row in document["administrators"]:
                row["entities"] = [one for one in row["entities"] if one != found]
        return lambda _result: self.changed(change)

    # --- Objects ---

    @staticmethod
    def object_type(text):
        refuse_if(text not in TYPES and not re.fullmatch("-?[0-9]{1,9}", text), USAGE)
        return TYPES[text] if text in TYPES else int(text)

    @staticmethod
    def refuse_wrong_content(content):
        refuse_if(any(ord(sign) < 32 and sign not in "\n\r\t" or ord(sign) == 127 for sign in content), USAGE)

    @staticmethod
    def refuse_name_of_group(kind, name):
        refuse_if(kind == GROUP and name.count("'") > 40, USAGE)

    def object_add(self, admin, type, name, content):
        kind = self.object_type(type)
        refuse_if(wrong_name(name), USAGE)
        viewer = Viewer(self, admin)
        refuse_if(name.startswith(RESERVED), USAGE)
        self.refuse_name_of_group(kind, name)
        self.refuse_wrong_content(content)
        refuse_if(not viewer.entities, REFUSED)
        return self.adding("objects", {"type": kind, "name": name, "content": content, "owners": viewer.entities, "members": []})

    def locked(self, viewer, identifier):
        found = self.find("objects", id=identifier)
        refuse_if(not found, NOT_THERE)
        row = found[0]
        if not (row["name"].startswith(RESERVED) and viewer.is_root):
            refuse_if(not viewer.sees(row), NOT_THERE)
            refuse_if(not viewer.may_edit(row), REFUSED)
        return row

    def object_modify(self, admin, id, name=None, type=None, content=None):
        identifier = self.identifier(id)
        refuse_if(name is not None and wrong_name(name), USAGE)
        kind = None if type is None else self.object_type(type)
        viewer = Viewer(self, admin)
        refuse_if(name is not None and name.startswith(RESERVED), USAGE)
        if content is not None:
            self.refuse_wrong_content(content)
        row = self.locked(viewer, identifier)
        changes = {"name": row["name"] if name is None else name, "type": row["type"] if kind is None else kind,
                   "content": row["content"] if content is None else content}
        names_it = name is not None or kind is not None
        refuse_if(names_it and identifier == self.system_area(), REFUSED)
        if changes["type"] != row["type"]:
            refuse_if(row["members"] or self.is_used(identifier) or changes["name"].startswith(RESERVED), REFUSED)
        if names_it:
            self.refuse_name_of_group(changes["type"], changes["name"])
        return self.updating("objects", identifier, lambda changed: changed.update(changes))

    def object_remove(self, admin, id):
        identifier = self.identifier(id)
        row = self.locked(Viewer(self, admin), identifier)
        refuse_if(identifier == self.system_area() or self.is_used(identifier), REFUSED)
        return self.removing("objects", lambda one: one["id"] == row["id"])

    # --- Address groups ---

    @staticmethod
    def refuse_wrong_group_name(name):
        refuse_if(wrong_name(name) or name.count("'") > 40, USAGE)

    def group_add(self, admin, name, members, entity=None):
        self.refuse_wrong_group_name(name)
        refuse_if(any(wrong_member(member) for member in members), USAGE)
        identifier = None if entity is None else self.identifier(entity)
        viewer = Viewer(self, admin)
        refuse_if(name.startswith(RESERVED), USAGE)
        owners = [one for one in viewer.entities if identifier in (None, one)]
        if not owners and identifier is not None and viewer.is_root and self.find("entities", id=identifier):
            owners = [identifier]
        refuse_if(not owners, REFUSED)
        return self.adding("objects", {"type": GROUP, "name": name, "content": "", "owners": owners, "members": distinct(members)})

    def group(self, viewer, text, is_id):
        """The group that a command names, which the actor, if there is one, may edit."""
        identifier = self.identifier(text) if is_id else None
        found = self.find("objects", type=GROUP, **({"id": identifier} if is_id else {"name": text}))
        found = [row for row in found if viewer is None or viewer.sees(row)]
        refuse_if(not found, NOT_THERE)
        refuse_if(len(found) > 1, USAGE)
        refuse_if(viewer is not None and not viewer.may_edit(found[0]), REFUSED)
        return found[0]

    def actor(self, admin):
        return None if admin is None else Viewer(self, admin)

    @staticmethod
    def appended(members, added):
        known = {ascii_lower(member) for member in members}
        return members + [member for member in distinct(added) if ascii_lower(member) not in known]

    def group_modify(self, group, is_id, added, removed, name=None, admin=None):
        if name is not None:
            self.refuse_wrong_group_name(name)
        refuse_if(any(wrong_member(member) for member in added), USAGE)
        row = self.group(self.actor(admin), group, is_id)
        refuse_if(name is not None and name.startswith(RESERVED), USAGE)
        members = list(row["members"])
        for gone in distinct(removed):
            kept = [member for member in members if ascii_lower(member) != ascii_lower(gone)]
            refuse_if(len(kept) == len(members), REFUSED)
            members = kept
        changes = {"name": row["name"] if name is None else name, "members": self.appended(members, added)}
        return self.updating("objects", row["id"], lambda changed: changed.update(changes))

    def group_remove(self, group, is_id, admin=None):
        row = self.group(self.actor(admin), group, is_id)
        refuse_if(self.is_used(row["id"]), REFUSED)
        return self.removing("objects", lambda one: one["id"] == row["id"])

    def group_import(self, group, is_id, lines, append, admin=None):
        members = [line for line in lines if line.strip(" \t") and not line.startswith("#")]
        refuse_if(any(wrong_member(member) for member in members), DATA)
        row = self.group(self.actor(admin), group, is_id)
        changed = self.appended(row["members"] if append else [], members)
        return self.updating("objects", row["id"], lambda one: one.update(members=changed))

    # --- Rules ---

    def bitmap(self, keys):
        refuse_if(any(key not in self._positions for key in keys), USAGE)
        positions = {self._positions[key] for key in keys}
        return "".join("1" if position in positions else "0" for position in range(self._length))

    def resolve(self, viewer, change, rule):
        """Puts what a change names into a rule; what the viewer does not see is not there."""
        for key in ("name", "enabled", "reply", "tag", "header_value", "address"):
            rule[key] = change.get(key, rule[key])
        rule["compares"] = COMPARISONS.get(change.get("compare"), rule["compares"])
        rule["actions"] = self.bitmap(change["actions"]) if "actions" in change else rule["actions"]
        if change.get("for_all"):
            refuse_if(not viewer.is_root, REFUSED)
            rule["scope"] = None
        elif "scope" in change:
            found = self.find("entities", type=WILDCARD, name=change["scope"])
            refuse_if(not found, NOT_THERE)
            refuse_if(found[0]["id"] not in viewer.scopes(), REFUSED)
            rule["scope"] = found[0]["id"]
        if "recipients" in change:
            rule["recipients"] = self.group_seen(viewer, change["recipients"]) if change["recipients"] else None
        if "lists" in change:
            rule["lists"] = [{"group": self.group_seen(viewer, group), "kind": KINDS[kind]} for group, kind in change["lists"]]
        if "quarantine" in change:
            refuse_if(change["quarantine"] and int(change["quarantine"]) not in viewer.areas(), NOT_THERE)
            rule["quarantine"] = int(change["quarantine"]) if change["quarantine"] else None

    @staticmethod
    def group_seen(viewer, name):
        found = [identifier for identifier, known in viewer.groups().items() if known == name]
        refuse_if(not found, NOT_THERE)
        refuse_if(len(found) > 1, USAGE)
        return found[0]

    def refuse_wrong_change(self, change):
        if "name" in change:
            refuse_if(wrong_name(change["name"]), USAGE)
        if "position" in change:
            refuse_if(not 1 <= change["position"] <= HIGHEST_POSITION, USAGE)
        refuse_if(change.get("compare", "both") not in COMPARISONS, USAGE)
        refuse_if(any(kind not in KINDS or not group for group, kind in change.get("lists", [])), USAGE)
        if "actions" in change:
            self.bitmap(change["actions"])
        if change.get("quarantine"):
            self.identifier(change["quarantine"])
        for key in ("reply", "tag", "header_value"):
            refuse_if(change.get(key) and wrong_name(change[key]), USAGE)
        address = change.get("address")
        refuse_if(address and (wrong_member(address) or not re.fullmatch("[!-~]+", address) or re.search("[*<>]", address) or
                               "@" not in address), USAGE)

    def refuse_nonsense(self, viewer, rule):
        needed = [NEEDS[key] for key, position in self._positions.items() if rule["actions"][position] == "1" and key in NEEDS]
        refuse_if(any(not rule[need] for need in needed), USAGE)
        refuse_if(any(other["id"] != rule["id"] and other["name"] == rule["name"] and viewer.sees_rule(other)
                      for other in self.rows("rules")), REFUSED)

    @staticmethod
    def moved(rules, identifier, position):
        """Gives a rule a place; the rules from there on make room if it is taken."""
        rule = next(row for row in rules if row["id"] == identifier)
        if rule["position"] == position:
            return
        others = [row for row in rules if row is not rule]
        if any(row["position"] == position for row in others):
            refuse_if(max(row["position"] for row in others) >= HIGHEST_POSITION, REFUSED)
            for row in others:
                row["position"] += 1 if row["position"] >= position else 0
        rule["position"] = position

    def rule_add(self, admin, name, change):
        refuse_if(wrong_name(name), USAGE)
        self.refuse_wrong_change(change)
        refuse_if("scope" not in change and not change.get("for_all"), USAGE)
        viewer = Viewer(self, admin)
        rule = {"id": 0, "name": name, "position": 0, "enabled": True, "scope": None, "recipients": None, "compares": 1,
                "actions": self.bitmap([]), "quarantine": None, "reply": "", "tag": "", "header_value": "", "address": "",
                "objects": [], "lists": []}
        self.resolve(viewer, change, rule)
        self.refuse_nonsense(viewer, rule)
        last = max((row["position"] for row in self.rows("rules")), default=0)
        refuse_if(last >= HIGHEST_POSITION, REFUSED)
        rule["position"] = last + 1
        rule["objects"] = sorted(self.groups_of(rule))
        rules = copy.deepcopy(self.rows("rules")) + [rule]
        self.moved(rules, 0, change.get("position", last + 1))

        def apply(result):
            assert not self.find("rules", id=result["id"]), f"the identifier {result['id']} is given twice"
            rule["id"] = result["id"]
            return self.changed(lambda document: document.update(rules=rules))
        return apply

    def rule_seen(self, viewer, text, is_id):
        identifier = self.identifier(text) if is_id else None
        found = self.find("rules", id=identifier) if is_id else self.find("rules", name=text)
        found = [rule for rule in found if viewer.sees_rule(rule)]
        refuse_if(not found, NOT_THERE)
        refuse_if(len(found) > 1, USAGE)
        refuse_if(not viewer.sees_all_of(found[0]), REFUSED)
        return found[0]

    def rule_modify(self, admin, rule, is_id, change):
        self.refuse_wrong_change(change)
        refuse_if(not change, USAGE)
        viewer = Viewer(self, admin)
        nothing = {key: None for key in ("name", "enabled", "reply", "tag", "header_value", "address", "compares", "actions")}
        self.resolve(viewer, change, nothing)  # what it names is looked up before the rule is
        before = self.rule_seen(viewer, rule, is_id)
        after = copy.deepcopy(before)
        self.resolve(viewer, change, after)
        self.refuse_nonsense(viewer, after)
        after["objects"] = sorted((set(before["objects"]) - self.groups_of(before)) | self.groups_of(after))
        rules = [after if row["id"] == before["id"] else copy.deepcopy(row) for row in self.rows("rules")]
        self.moved(rules, before["id"], change.get("position", before["position"]))
        return lambda _result: self.changed(lambda document: document.update(rules=rules))

    def rule_move(self, admin, rule, is_id, position):
        return self.rule_modify(admin, rule, is_id, {"position": position})

    def rule_remove(self, admin, rule, is_id):
        found = self.rule_seen(Viewer(self, admin), rule, is_id)
        return self.removing("rules", lambda row: row["id"] == found["id"])

    def with_setting(self, section, name, value):
        def change(document):
            document["settings"] = [row for row in document["settings"] if (row["section"], row["name"]) != (section, name)]
            document["settings"].append({"section": section, "name": name, "value": value})
        return change

    def rules_set_order(self, groups, off):
        refuse_if(off == bool(groups), USAGE)
        known = {name.lower(): number for number, name in enumerate(FILTER_GROUPS, 1)}
        known.update({str(number): number for number in known.values()})
        refuse_if(any(group.lower() not in known for group in groups), USAGE)
        numbers = [known[group.lower()] for group in groups]
        refuse_if(len(numbers) != len(set(numbers)), USAGE)

        def change(document):
            if not off:
                document["rule_order"] = [{"rank": rank, "group": number, "name": FILTER_GROUPS[number - 1]}
                                          for rank, number in enumerate(numbers, 1)]
            self.with_setting("email-scan", "manualRuleOrder", "off" if off else "on")(document)
        return lambda _result: self.changed(change)

    # --- Settings and servers ---

    SETTINGS = {  # with what a value must be, and whether it is stored as a number
        "mail_filter.poll_secs": (lambda text: re.fullmatch("[0-9]{1,9}", text) and 1 <= int(text) <= 3600, False),
        "mail_filter.shadow": (lambda text: text.lower() in ("yes", "no"), False),
        "mail_filter.header": (lambda text: re.fullmatch("X-[A-Za-z0-9-]{1,60}", text), False),
        "policy_server.backlog": (lambda text: re.fullmatch("[0-9]{1,9}", text) and 1 <= int(text) <= 1000, True),
        "policy_server.threads": (lambda text: re.fullmatch("[0-9]{1,9}", text) and 1 <= int(text) <= 1000, True),
        "policy_server.max_threads": (lambda text: re.fullmatch("[0-9]{1,9}", text) and 2 <= int(text) <= 1000, True),
        "policy_client.host": (lambda text: re.fullmatch("([a-z.]+(,[a-z.]+)*)?", text), False),
    }

    def settings_set(self, values):
        names = [name for name, _ in values]
        for name, value in values:
            refuse_if(name not in self.SETTINGS or not self.SETTINGS[name][0](value), USAGE)
        refuse_if(len(names) != len(set(names)), USAGE)
        stored = {tuple(name.split(".")): str(int(value)) if self.SETTINGS[name][1] else value for name, value in values}
        document = self.document
        for (section, name), value in stored.items():
            document = copy.deepcopy(document)
            self.with_setting(section, name, value)(document)
        threads = {name: int(row["value"]) for row in document["settings"] for name in ("threads", "max_threads")
                   if (row["section"], row["name"]) == ("policy_server", name)}
        concerned = any(name in ("policy_server.threads", "policy_server.max_threads") for name in names)
        refuse_if(concerned and threads["max_threads"] < threads["threads"], USAGE)
        return lambda _result: normal(document)

    def servers_add(self, id, address, port):
        refuse_if(not 1 <= int(id) <= 2147483647 or not 1 <= int(port) <= 65535 or address == "no address", USAGE)
        refuse_if(self.find("servers", type="P", number=int(id)), REFUSED)
        row = {"type": "P", "number": int(id), "address": address, "port": int(port)}
        return lambda _result: self.changed(lambda document: document["servers"].append(row))

    def servers_remove(self, id):
        refuse_if(not 1 <= int(id) <= 2147483647, USAGE)
        refuse_if(not self.find("servers", type="P", number=int(id)), NOT_THERE)
        return self.removing("servers", lambda row: (row["type"], row["number"]) == ("P", int(id)))

    # --- Whole documents ---

    def import_(self, document, merge, trial, admin=None):
        refuse_if(admin is not None and not self.find("administrators", name=admin), NOT_THERE)
        refuse_if(not merge and any(table not in document for table in TABLES), DATA)
        whole = copy.deepcopy(self.document)
        for table, key in TABLES.items():
            if table in document:
                given = copy.deepcopy(document[table])
                keys = [tuple(row[column] for column in key) for row in given]
                refuse_if(len(keys) != len(set(keys)), DATA)
                keep = merge and table != "rule_order"
                whole[table] = given + [row for row in whole[table] if keep and
                                        tuple(row[column] for column in key) not in keys]
        refuse_if(is_wrong_document(whole), DATA)
        return lambda _result: self.document if trial else normal(whole)
