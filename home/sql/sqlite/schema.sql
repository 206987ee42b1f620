-- Schema of the policy database, version 3, for SQLite.
--
-- schema.sql of the other dialect has the same tables, columns and constraints; change both together, raise the version
-- at the end, and write an upgrade script.
--
-- Identifiers are unsigned 32-bit numbers from 1 to 4294967294; the all-ones value means "none" to programs.
-- Names and addresses hold 1 to 512 characters, so that an index entry fits on a page of either database. They are
-- compared byte by byte.
--
-- STRICT makes a column refuse values of another type; AUTOINCREMENT never gives a deleted row's identifier away again.
-- Foreign keys hold only on connections that switch them on (FKSupport=1 of the ODBC driver).

-- People who sign in.
CREATE TABLE administrator (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL,
  -- 1: sees and edits every object.
  is_root INTEGER NOT NULL DEFAULT 0,
  UNIQUE (name),
  CHECK (id BETWEEN 1 AND 4294967294),
  CHECK (length(name) BETWEEN 1 AND 512),
  CHECK (is_root IN (0, 1))
) STRICT;

-- Managing groups, to which administrators are assigned and objects belong. Type 2 is an LDAP group (the name is its
-- distinguished name), type 6 a wildcard group (the name is an address pattern). Addresses are compared in lower case,
-- and a pattern with capitals would never be found, so there are none. Only ASCII letters count.
CREATE TABLE entity (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL,
  type INTEGER NOT NULL,
  UNIQUE (type, name),
  CHECK (id BETWEEN 1 AND 4294967294),
  CHECK (length(name) BETWEEN 1 AND 512),
  CHECK (type BETWEEN 0 AND 7),
  CHECK (type <> 6 OR name = lower(name))
) STRICT;

-- Which administrator belongs to which managing groups.
CREATE TABLE administrator_entity (
  administrator_id INTEGER NOT NULL REFERENCES administrator (id) ON DELETE CASCADE,
  entity_id INTEGER NOT NULL REFERENCES entity (id) ON DELETE CASCADE,
  PRIMARY KEY (administrator_id, entity_id)
) STRICT, WITHOUT ROWID;

CREATE INDEX administrator_entity_by_entity ON administrator_entity (entity_id);

-- Reusable parts of policy rules: type 3 is a quarantine area, type 5 an address group. Organisations that cannot see
-- each other may choose the same name, so names are not unique.
CREATE TABLE named_object (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  type INTEGER NOT NULL,
  name TEXT NOT NULL,
  content TEXT NOT NULL DEFAULT '',
  -- What owners and members refer to, so that their type is the object's.
  UNIQUE (id, type),
  CHECK (id BETWEEN 1 AND 4294967294),
  CHECK (type BETWEEN -2147483648 AND 2147483647),
  CHECK (length(name) BETWEEN 1 AND 512)
) STRICT;

CREATE INDEX named_object_by_type_and_name ON named_object (type, name);

-- The managing groups that own an object. A group that owns objects cannot be deleted: its objects would be left to
-- nobody.
CREATE TABLE named_object_owner (
  entity_id INTEGER NOT NULL REFERENCES entity (id) ON DELETE RESTRICT,
  object_id INTEGER NOT NULL,
  object_type INTEGER NOT NULL,
  PRIMARY KEY (object_id, entity_id),
  FOREIGN KEY (object_id, object_type) REFERENCES named_object (id, type) ON UPDATE CASCADE ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE INDEX named_object_owner_by_entity ON named_object_owner (entity_id);

-- Policy rules: what is done to mail for some recipients from some senders. A rule that only its name and area are known of
-- is not enabled. An object in use by a rule cannot be deleted.
CREATE TABLE policy_rule (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL,
  quarantine_id INTEGER REFERENCES named_object (id) ON DELETE RESTRICT,
  -- Order of precedence, the lowest first. A rule that is stored without one gets the last; see below.
  position INTEGER,
  enabled INTEGER NOT NULL DEFAULT 0,
  -- A wildcard entity: the rule is for recipients that its pattern contains. NULL: for all.
  scope_id INTEGER REFERENCES entity (id) ON DELETE RESTRICT,
  -- An address group that narrows the scope.
  recipients_id INTEGER REFERENCES named_object (id) ON DELETE RESTRICT,
  -- What of the sender is asked. 1: the envelope's, 2: the header's, 3: both.
  compares INTEGER NOT NULL DEFAULT 1,
  -- What a block does: the action bitmap.
  actions TEXT NOT NULL DEFAULT '00000000000000000',
  reply TEXT NOT NULL DEFAULT '',
  tag TEXT NOT NULL DEFAULT '',
  header_value TEXT NOT NULL DEFAULT '',
  address TEXT NOT NULL DEFAULT '',
  UNIQUE (position),
  CHECK (id BETWEEN 1 AND 4294967294),
  CHECK (length(name) BETWEEN 1 AND 512),
  CHECK (position BETWEEN 1 AND 2147483647),
  CHECK (enabled IN (0, 1)),
  CHECK (compares BETWEEN 1 AND 3),
  CHECK (length(actions) = 17 AND actions NOT GLOB '*[^01]*')
) STRICT;

CREATE INDEX policy_rule_by_quarantine ON policy_rule (quarantine_id);
CREATE INDEX policy_rule_by_scope ON policy_rule (scope_id);
CREATE INDEX policy_rule_by_recipients ON policy_rule (recipients_id);

-- The objects that a rule uses beside its area; for a rule that decides mail, its address groups.
CREATE TABLE policy_rule_object (
  rule_id INTEGER NOT NULL REFERENCES policy_rule (id) ON DELETE CASCADE,
  object_id INTEGER NOT NULL REFERENCES named_object (id) ON DELETE RESTRICT,
  PRIMARY KEY (rule_id, object_id)
) STRICT, WITHOUT ROWID;

CREATE INDEX policy_rule_object_by_object ON policy_rule_object (object_id);

-- The address groups of senders that a rule asks, with their kinds, in their order. Kinds are those of address matching.
CREATE TABLE policy_rule_list (
  rule_id INTEGER NOT NULL,
  position INTEGER NOT NULL,
  group_id INTEGER NOT NULL,
  group_type INTEGER NOT NULL DEFAULT 5,
  kind INTEGER NOT NULL,
  PRIMARY KEY (rule_id, position),
  -- So that the group is in use for everybody who asks.
  FOREIGN KEY (rule_id, group_id) REFERENCES policy_rule_object (rule_id, object_id) ON DELETE CASCADE,
  -- Without ON UPDATE CASCADE: a group in use stays a group.
  FOREIGN KEY (group_id, group_type) REFERENCES named_object (id, type) ON DELETE RESTRICT,
  CHECK (position BETWEEN 0 AND 2147483647),
  CHECK (group_type = 5),
  CHECK (kind IN (1, 2, 4, 8, 16, 32))
) STRICT, WITHOUT ROWID;

CREATE INDEX policy_rule_list_by_group ON policy_rule_list (group_id, rule_id);

-- The addresses of address groups, in the order in which they were given.
CREATE TABLE address_group_member (
  group_id INTEGER NOT NULL,
  group_type INTEGER NOT NULL DEFAULT 5,
  position INTEGER NOT NULL,
  address TEXT NOT NULL,
  PRIMARY KEY (group_id, position),
  -- Without ON UPDATE CASCADE: a group with members stays a group.
  FOREIGN KEY (group_id, group_type) REFERENCES named_object (id, type) ON DELETE CASCADE,
  CHECK (group_type = 5),
  CHECK (position BETWEEN 0 AND 2147483647),
  CHECK (length(address) BETWEEN 1 AND 512)
) STRICT, WITHOUT ROWID;

-- Letter case does not tell members apart.
CREATE INDEX address_group_member_by_address ON address_group_member (lower(address));

-- What the statement files write to instead of the tables: they have little room beside the data that they carry.
--
-- The members of a group come as one text, <mas><ma>ADDRESS</ma>...</mas>. Between the first address and the last it is
-- made a JSON array, which SQLite splits in one go.

-- A new group. It belongs to one managing group of the administrator, or for 0 to all of them; the administration root
-- may name any.
CREATE VIEW new_group (administrator_id, name, entity_id, members) AS SELECT 0, '', 0, '' WHERE 0;

CREATE TRIGGER new_group_is_stored INSTEAD OF INSERT ON new_group BEGIN
  INSERT INTO policy_change VALUES (1);
  SELECT RAISE(ABORT, 'the administrator has no such managing group') WHERE NOT EXISTS (
    SELECT 1 FROM administrator_entity
    WHERE administrator_id = NEW.administrator_id AND NEW.entity_id IN (0, entity_id)
    UNION ALL
    SELECT 1 FROM administrator JOIN entity ON entity.id = NEW.entity_id
    WHERE administrator.id = NEW.administrator_id AND is_root = 1);
  INSERT INTO named_object (type, name) VALUES (5, NEW.name);
  -- What follows inserts nothing with a rowid here, so the last one stays the group's.
  INSERT INTO named_object_owner (entity_id, object_id, object_type)
    SELECT entity_id, last_insert_rowid(), 5 FROM administrator_entity
    WHERE administrator_id = NEW.administrator_id AND NEW.entity_id = 0
    UNION ALL
    SELECT NEW.entity_id, last_insert_rowid(), 5 WHERE NEW.entity_id <> 0;
  INSERT INTO member_addition (group_id, position, addresses)
    SELECT last_insert_rowid(), 0,
      '[' || replace(json_quote(substr(NEW.members, 10, length(NEW.members) - 20)), '</ma><ma>', '","') || ']'
    WHERE NEW.members <> '<mas></mas>';
  INSERT INTO policy_change VALUES (-1);
END;

-- Another name and other members of a group.
CREATE VIEW group_change (group_id, name, members) AS SELECT 0, '', '' WHERE 0;

CREATE TRIGGER group_change_is_stored INSTEAD OF INSERT ON group_change BEGIN
  INSERT INTO policy_change VALUES (1);
  SELECT RAISE(ABORT, 'no such address group')
    WHERE NOT EXISTS (SELECT 1 FROM named_object WHERE id = NEW.group_id AND type = 5);
  UPDATE named_object SET name = NEW.name WHERE id = NEW.group_id;
  INSERT INTO member_removal (group_id) VALUES (NEW.group_id);
  INSERT INTO member_addition (group_id, position, addresses)
    SELECT NEW.group_id, 0,
      '[' || replace(json_quote(substr(NEW.members, 10, length(NEW.members) - 20)), '</ma><ma>', '","') || ']'
    WHERE NEW.members <> '<mas></mas>';
  INSERT INTO policy_change VALUES (-1);
END;

-- An object that is to go, and whether it was there. It stays while a rule uses it.
CREATE VIEW object_removal (object_id, existed) AS SELECT 0, 0 WHERE 0;

CREATE TRIGGER object_removal_is_done INSTEAD OF INSERT ON object_removal BEGIN
  DELETE FROM named_object WHERE id = NEW.object_id
    AND NOT EXISTS (SELECT 1 FROM policy_rule WHERE quarantine_id = NEW.object_id)
    AND NOT EXISTS (SELECT 1 FROM policy_rule_object WHERE object_id = NEW.object_id);
END;

-- Settings that all hosts of the gateway share; the files of one host's configuration come before them.
CREATE TABLE global_setting (
  section TEXT NOT NULL,
  name TEXT NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (section, name),
  CHECK (length(section) BETWEEN 1 AND 255),
  CHECK (length(name) BETWEEN 1 AND 255)
) STRICT, WITHOUT ROWID;

-- What runs where: one row for each part of the gateway on each host. Type P is a policy server.
CREATE TABLE component (
  scanner_id INTEGER NOT NULL,
  type TEXT NOT NULL,
  ip_addr TEXT NOT NULL,
  agent_port INTEGER NOT NULL,
  PRIMARY KEY (type, scanner_id),
  -- Programs hold it in a signed number.
  CHECK (scanner_id BETWEEN 1 AND 2147483647),
  CHECK (length(type) = 1 AND type BETWEEN 'A' AND 'Z'),
  CHECK (length(ip_addr) BETWEEN 1 AND 255),
  CHECK (agent_port BETWEEN 1 AND 65535)
) STRICT, WITHOUT ROWID;

-- The administrators' own order of rule filters. Wrong numbers and names are for the program that reads them to report,
-- so they can be stored.
CREATE TABLE manual_rule_order (
  rule_order INTEGER NOT NULL PRIMARY KEY,
  filter_id INTEGER NOT NULL,
  filter_type TEXT NOT NULL,
  CHECK (rule_order BETWEEN -2147483648 AND 2147483647),
  CHECK (filter_id BETWEEN -2147483648 AND 2147483647)
) STRICT, WITHOUT ROWID;

-- The audit trail: every change of the policy, whichever program made it. Triggers write it. Values are JSON.
--
-- SQLite knows neither users nor hosts, so a program tells them, in its transaction, by the row of audit_actor.
CREATE TABLE audit (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  -- UTC, as YYYY-MM-DDTHH:MM:SS.mmmZ.
  changed_at TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
  -- On whose behalf; empty where no program told.
  administrator TEXT NOT NULL,
  -- Who signed in to the database, from where, with which program; empty where it is not known.
  login TEXT NOT NULL,
  host TEXT NOT NULL,
  program TEXT NOT NULL,
  change TEXT NOT NULL,
  -- The table.
  subject TEXT NOT NULL,
  -- The named object that it is about, if any.
  object_id INTEGER,
  value_before TEXT,
  value_after TEXT,
  CHECK (change IN ('added', 'changed', 'removed', 'trimmed'))
) STRICT;

CREATE INDEX audit_by_object ON audit (object_id);
CREATE INDEX audit_by_time ON audit (changed_at);

-- Who acts: a program writes the row when its transaction begins, and removes it before the commit.
CREATE TABLE audit_actor (
  one INTEGER PRIMARY KEY DEFAULT 1,
  administrator TEXT NOT NULL,
  login TEXT NOT NULL,
  host TEXT NOT NULL,
  program TEXT NOT NULL,
  CHECK (one = 1)
) STRICT;

-- The groups whose members are written many at a time, with one entry for all; empty between statements.
CREATE TABLE audit_bulk (
  group_id INTEGER PRIMARY KEY
) STRICT;

-- An entry, with who acts.
CREATE VIEW audit_entry (change, subject, object_id, value_before, value_after) AS SELECT '', '', 0, '', '' WHERE 0;

CREATE TRIGGER audit_entry_is_stored INSTEAD OF INSERT ON audit_entry BEGIN
  INSERT INTO audit (administrator, login, host, program, change, subject, object_id, value_before, value_after)
    SELECT coalesce(max(administrator), ''), coalesce(max(login), ''), coalesce(max(host), ''),
      coalesce(max(program), ''), NEW.change, NEW.subject, NEW.object_id, NEW.value_before, NEW.value_after
    FROM audit_actor;
END;

-- A row as it was and as it is. Of contents beyond 4096 characters the length and both ends are kept, and no value of
-- settings that may be passwords.
CREATE TRIGGER administrator_is_added AFTER INSERT ON administrator BEGIN
  INSERT INTO audit_entry VALUES ('added', 'administrator', NULL, NULL,
    json_object('id', NEW.id, 'name', NEW.name, 'is_root', NEW.is_root));
END;

CREATE TRIGGER administrator_is_changed AFTER UPDATE ON administrator
WHEN (OLD.id, OLD.name, OLD.is_root) IS NOT
  (NEW.id, NEW.name, NEW.is_root) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'administrator', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'is_root', OLD.is_root),
    json_object('id', NEW.id, 'name', NEW.name, 'is_root', NEW.is_root));
END;

CREATE TRIGGER administrator_is_removed AFTER DELETE ON administrator BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'administrator', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'is_root', OLD.is_root), NULL);
END;

CREATE TRIGGER entity_is_added AFTER INSERT ON entity BEGIN
  INSERT INTO audit_entry VALUES ('added', 'entity', NULL, NULL,
    json_object('id', NEW.id, 'name', NEW.name, 'type', NEW.type));
END;

CREATE TRIGGER entity_is_changed AFTER UPDATE ON entity
WHEN (OLD.id, OLD.name, OLD.type) IS NOT
  (NEW.id, NEW.name, NEW.type) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'entity', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'type', OLD.type),
    json_object('id', NEW.id, 'name', NEW.name, 'type', NEW.type));
END;

CREATE TRIGGER entity_is_removed AFTER DELETE ON entity BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'entity', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'type', OLD.type), NULL);
END;

CREATE TRIGGER administrator_entity_is_added AFTER INSERT ON administrator_entity BEGIN
  INSERT INTO audit_entry VALUES ('added', 'administrator_entity', NULL, NULL,
    json_object('administrator_id', NEW.administrator_id, 'entity_id', NEW.entity_id));
END;

CREATE TRIGGER administrator_entity_is_changed AFTER UPDATE ON administrator_entity
WHEN (OLD.administrator_id, OLD.entity_id) IS NOT
  (NEW.administrator_id, NEW.entity_id) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'administrator_entity', NULL,
    json_object('administrator_id', OLD.administrator_id, 'entity_id', OLD.entity_id),
    json_object('administrator_id', NEW.administrator_id, 'entity_id', NEW.entity_id));
END;

CREATE TRIGGER administrator_entity_is_removed AFTER DELETE ON administrator_entity BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'administrator_entity', NULL,
    json_object('administrator_id', OLD.administrator_id, 'entity_id', OLD.entity_id), NULL);
END;

CREATE TRIGGER named_object_is_added AFTER INSERT ON named_object BEGIN
  INSERT INTO audit_entry VALUES ('added', 'named_object', NEW.id, NULL,
    json_object('id', NEW.id, 'type', NEW.type, 'name', NEW.name,
      'content', json(CASE WHEN length(NEW.content) <= 4096 THEN json_quote(NEW.content) ELSE
      json_object('length', length(NEW.content),
      'begin', substr(NEW.content, 1, 1000), 'end', substr(NEW.content, -1000)) END)));
END;

CREATE TRIGGER named_object_is_changed AFTER UPDATE ON named_object
WHEN (OLD.id, OLD.type, OLD.name, OLD.content) IS NOT
  (NEW.id, NEW.type, NEW.name, NEW.content) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'named_object', NEW.id,
    json_object('id', OLD.id, 'type', OLD.type, 'name', OLD.name,
      'content', json(CASE WHEN length(OLD.content) <= 4096 THEN json_quote(OLD.content) ELSE
      json_object('length', length(OLD.content),
      'begin', substr(OLD.content, 1, 1000), 'end', substr(OLD.content, -1000)) END)),
    json_object('id', NEW.id, 'type', NEW.type, 'name', NEW.name,
      'content', json(CASE WHEN length(NEW.content) <= 4096 THEN json_quote(NEW.content) ELSE
      json_object('length', length(NEW.content),
      'begin', substr(NEW.content, 1, 1000), 'end', substr(NEW.content, -1000)) END)));
END;

-- Before, while a group has its members. Those go without entries of their own.
CREATE TRIGGER named_object_is_removed BEFORE DELETE ON named_object BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'named_object', OLD.id,
    json_object('id', OLD.id, 'type', OLD.type, 'name', OLD.name,
      'content', json(CASE WHEN length(OLD.content) <= 4096 THEN json_quote(OLD.content) ELSE
      json_object('length', length(OLD.content),
      'begin', substr(OLD.content, 1, 1000), 'end', substr(OLD.content, -1000)) END),
      'members', (SELECT count(*) FROM address_group_member WHERE group_id = OLD.id),
      'addresses', json((SELECT json_group_array(address) FROM
        (SELECT address FROM address_group_member WHERE group_id = OLD.id ORDER BY position LIMIT 500)))),
    NULL);
END;

CREATE TRIGGER named_object_owner_is_added AFTER INSERT ON named_object_owner BEGIN
  INSERT INTO audit_entry VALUES ('added', 'named_object_owner', NEW.object_id, NULL,
    json_object('entity_id', NEW.entity_id, 'object_id', NEW.object_id, 'object_type', NEW.object_type));
END;

CREATE TRIGGER named_object_owner_is_changed AFTER UPDATE ON named_object_owner
WHEN (OLD.entity_id, OLD.object_id, OLD.object_type) IS NOT
  (NEW.entity_id, NEW.object_id, NEW.object_type) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'named_object_owner', NEW.object_id,
    json_object('entity_id', OLD.entity_id, 'object_id', OLD.object_id, 'object_type', OLD.object_type),
    json_object('entity_id', NEW.entity_id, 'object_id', NEW.object_id, 'object_type', NEW.object_type));
END;

CREATE TRIGGER named_object_owner_is_removed AFTER DELETE ON named_object_owner BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'named_object_owner', OLD.object_id,
    json_object('entity_id', OLD.entity_id, 'object_id', OLD.object_id, 'object_type', OLD.object_type), NULL);
END;

CREATE TRIGGER policy_rule_is_added AFTER INSERT ON policy_rule BEGIN
  INSERT INTO audit_entry VALUES ('added', 'policy_rule', NULL, NULL,
    json_object('id', NEW.id, 'name', NEW.name, 'quarantine_id', NEW.quarantine_id, 'position', NEW.position,
      'enabled', NEW.enabled, 'scope_id', NEW.scope_id, 'recipients_id', NEW.recipients_id, 'compares', NEW.compares,
      'actions', NEW.actions, 'reply', NEW.reply, 'tag', NEW.tag, 'header_value', NEW.header_value,
      'address', NEW.address));
END;

CREATE TRIGGER policy_rule_is_changed AFTER UPDATE ON policy_rule
WHEN (OLD.id, OLD.name, OLD.quarantine_id, OLD.position, OLD.enabled, OLD.scope_id, OLD.recipients_id, OLD.compares,
    OLD.actions, OLD.reply, OLD.tag, OLD.header_value, OLD.address) IS NOT
  (NEW.id, NEW.name, NEW.quarantine_id, NEW.position, NEW.enabled, NEW.scope_id, NEW.recipients_id, NEW.compares,
    NEW.actions, NEW.reply, NEW.tag, NEW.header_value, NEW.address) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'policy_rule', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'quarantine_id', OLD.quarantine_id, 'position', OLD.position,
      'enabled', OLD.enabled, 'scope_id', OLD.scope_id, 'recipients_id', OLD.recipients_id, 'compares', OLD.compares,
      'actions', OLD.actions, 'reply', OLD.reply, 'tag', OLD.tag, 'header_value', OLD.header_value,
      'address', OLD.address),
    json_object('id', NEW.id, 'name', NEW.name, 'quarantine_id', NEW.quarantine_id, 'position', NEW.position,
      'enabled', NEW.enabled, 'scope_id', NEW.scope_id, 'recipients_id', NEW.recipients_id, 'compares', NEW.compares,
      'actions', NEW.actions, 'reply', NEW.reply, 'tag', NEW.tag, 'header_value', NEW.header_value,
      'address', NEW.address));
END;

CREATE TRIGGER policy_rule_is_removed AFTER DELETE ON policy_rule BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'policy_rule', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'quarantine_id', OLD.quarantine_id, 'position', OLD.position,
      'enabled', OLD.enabled, 'scope_id', OLD.scope_id, 'recipients_id', OLD.recipients_id, 'compares', OLD.compares,
      'actions', OLD.actions, 'reply', OLD.reply, 'tag', OLD.tag, 'header_value', OLD.header_value,
      'address', OLD.address), NULL);
END;

CREATE TRIGGER policy_rule_object_is_added AFTER INSERT ON policy_rule_object BEGIN
  INSERT INTO audit_entry VALUES ('added', 'policy_rule_object', NEW.object_id, NULL,
    json_object('rule_id', NEW.rule_id, 'object_id', NEW.object_id));
END;

CREATE TRIGGER policy_rule_object_is_changed AFTER UPDATE ON policy_rule_object
WHEN (OLD.rule_id, OLD.object_id) IS NOT
  (NEW.rule_id, NEW.object_id) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'policy_rule_object', NEW.object_id,
    json_object('rule_id', OLD.rule_id, 'object_id', OLD.object_id),
    json_object('rule_id', NEW.rule_id, 'object_id', NEW.object_id));
END;

CREATE TRIGGER policy_rule_object_is_removed AFTER DELETE ON policy_rule_object BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'policy_rule_object', OLD.object_id,
    json_object('rule_id', OLD.rule_id, 'object_id', OLD.object_id), NULL);
END;

CREATE TRIGGER policy_rule_list_is_added AFTER INSERT ON policy_rule_list BEGIN
  INSERT INTO audit_entry VALUES ('added', 'policy_rule_list', NEW.group_id, NULL,
    json_object('rule_id', NEW.rule_id, 'position', NEW.position, 'group_id', NEW.group_id, 'kind', NEW.kind));
END;

CREATE TRIGGER policy_rule_list_is_changed AFTER UPDATE ON policy_rule_list
WHEN (OLD.rule_id, OLD.position, OLD.group_id, OLD.kind) IS NOT
  (NEW.rule_id, NEW.position, NEW.group_id, NEW.kind) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'policy_rule_list', NEW.group_id,
    json_object('rule_id', OLD.rule_id, 'position', OLD.position, 'group_id', OLD.group_id, 'kind', OLD.kind),
    json_object('rule_id', NEW.rule_id, 'position', NEW.position, 'group_id', NEW.group_id, 'kind', NEW.kind));
END;

CREATE TRIGGER policy_rule_list_is_removed AFTER DELETE ON policy_rule_list BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'policy_rule_list', OLD.group_id,
    json_object('rule_id', OLD.rule_id, 'position', OLD.position, 'group_id', OLD.group_id, 'kind', OLD.kind), NULL);
END;

CREATE TRIGGER global_setting_is_added AFTER INSERT ON global_setting BEGIN
  INSERT INTO audit_entry VALUES ('added', 'global_setting', NULL, NULL,
    json_object('section', NEW.section, 'name', NEW.name,
      'value', CASE WHEN NEW.name LIKE '%passw%' OR NEW.name LIKE '%pwd%' OR NEW.name LIKE '%secret%'
      THEN '(not kept)' ELSE NEW.value END));
END;

CREATE TRIGGER global_setting_is_changed AFTER UPDATE ON global_setting
WHEN (OLD.section, OLD.name, OLD.value) IS NOT
  (NEW.section, NEW.name, NEW.value) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'global_setting', NULL,
    json_object('section', OLD.section, 'name', OLD.name,
      'value', CASE WHEN OLD.name LIKE '%passw%' OR OLD.name LIKE '%pwd%' OR OLD.name LIKE '%secret%'
      THEN '(not kept)' ELSE OLD.value END),
    json_object('section', NEW.section, 'name', NEW.name,
      'value', CASE WHEN NEW.name LIKE '%passw%' OR NEW.name LIKE '%pwd%' OR NEW.name LIKE '%secret%'
      THEN '(not kept)' ELSE NEW.value END));
END;

CREATE TRIGGER global_setting_is_removed AFTER DELETE ON global_setting BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'global_setting', NULL,
    json_object('section', OLD.section, 'name', OLD.name,
      'value', CASE WHEN OLD.name LIKE '%passw%' OR OLD.name LIKE '%pwd%' OR OLD.name LIKE '%secret%'
      THEN '(not kept)' ELSE OLD.value END), NULL);
END;

CREATE TRIGGER component_is_added AFTER INSERT ON component BEGIN
  INSERT INTO audit_entry VALUES ('added', 'component', NULL, NULL,
    json_object('scanner_id', NEW.scanner_id, 'type', NEW.type, 'ip_addr', NEW.ip_addr,
      'agent_port', NEW.agent_port));
END;

CREATE TRIGGER component_is_changed AFTER UPDATE ON component
WHEN (OLD.scanner_id, OLD.type, OLD.ip_addr, OLD.agent_port) IS NOT
  (NEW.scanner_id, NEW.type, NEW.ip_addr, NEW.agent_port) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'component', NULL,
    json_object('scanner_id', OLD.scanner_id, 'type', OLD.type, 'ip_addr', OLD.ip_addr,
      'agent_port', OLD.agent_port),
    json_object('scanner_id', NEW.scanner_id, 'type', NEW.type, 'ip_addr', NEW.ip_addr,
      'agent_port', NEW.agent_port));
END;

CREATE TRIGGER component_is_removed AFTER DELETE ON component BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'component', NULL,
    json_object('scanner_id', OLD.scanner_id, 'type', OLD.type, 'ip_addr', OLD.ip_addr,
      'agent_port', OLD.agent_port), NULL);
END;

CREATE TRIGGER manual_rule_order_is_added AFTER INSERT ON manual_rule_order BEGIN
  INSERT INTO audit_entry VALUES ('added', 'manual_rule_order', NULL, NULL,
    json_object('rule_order', NEW.rule_order, 'filter_id', NEW.filter_id, 'filter_type', NEW.filter_type));
END;

CREATE TRIGGER manual_rule_order_is_changed AFTER UPDATE ON manual_rule_order
WHEN (OLD.rule_order, OLD.filter_id, OLD.filter_type) IS NOT
  (NEW.rule_order, NEW.filter_id, NEW.filter_type) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'manual_rule_order', NULL,
    json_object('rule_order', OLD.rule_order, 'filter_id', OLD.filter_id, 'filter_type', OLD.filter_type),
    json_object('rule_order', NEW.rule_order, 'filter_id', NEW.filter_id, 'filter_type', NEW.filter_type));
END;

CREATE TRIGGER manual_rule_order_is_removed AFTER DELETE ON manual_rule_order BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'manual_rule_order', NULL,
    json_object('rule_order', OLD.rule_order, 'filter_id', OLD.filter_id, 'filter_type', OLD.filter_type), NULL);
END;

-- Members: those of a statement are one entry, with up to 500 of them by name. SQLite runs triggers row by row, so who
-- writes many at a time does so by member_addition and member_removal.
CREATE TRIGGER address_group_member_is_added AFTER INSERT ON address_group_member
WHEN NOT EXISTS (SELECT 1 FROM audit_bulk WHERE group_id = NEW.group_id) BEGIN
  INSERT INTO audit_entry VALUES ('added', 'address_group_member', NEW.group_id, NULL,
    json_object('group_id', NEW.group_id, 'members', 1, 'addresses', json_array(NEW.address)));
END;

CREATE TRIGGER address_group_member_is_changed AFTER UPDATE ON address_group_member
WHEN (OLD.group_id, OLD.address) IS NOT (NEW.group_id, NEW.address) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'address_group_member', NEW.group_id,
    json_object('group_id', OLD.group_id, 'members', 1, 'addresses', json_array(OLD.address)),
    json_object('group_id', NEW.group_id, 'members', 1, 'addresses', json_array(NEW.address)));
END;

CREATE TRIGGER address_group_member_is_removed AFTER DELETE ON address_group_member
WHEN NOT EXISTS (SELECT 1 FROM audit_bulk WHERE group_id = OLD.group_id)
  AND EXISTS (SELECT 1 FROM named_object WHERE id = OLD.group_id) BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'address_group_member', OLD.group_id,
    json_object('group_id', OLD.group_id, 'members', 1, 'addresses', json_array(OLD.address)), NULL);
END;

-- New members of a group, as a JSON array, from a position on.
CREATE VIEW member_addition (group_id, position, addresses) AS SELECT 0, 0, '' WHERE 0;

CREATE TRIGGER member_addition_is_stored INSTEAD OF INSERT ON member_addition BEGIN
  INSERT INTO audit_bulk (group_id) VALUES (NEW.group_id);
  INSERT INTO address_group_member (group_id, position, address)
    SELECT NEW.group_id, NEW.position + key, value FROM json_each(NEW.addresses);
  INSERT INTO audit_entry VALUES ('added', 'address_group_member', NEW.group_id, NULL,
    json_object('group_id', NEW.group_id, 'members', json_array_length(NEW.addresses), 'addresses',
      json((SELECT json_group_array(value) FROM (SELECT value FROM json_each(NEW.addresses) LIMIT 500)))));
  DELETE FROM audit_bulk WHERE group_id = NEW.group_id;
END;

-- A group whose members all go.
CREATE VIEW member_removal (group_id) AS SELECT 0 WHERE 0;

CREATE TRIGGER member_removal_is_done INSTEAD OF INSERT ON member_removal
WHEN EXISTS (SELECT 1 FROM address_group_member WHERE group_id = NEW.group_id) BEGIN
  INSERT INTO audit_bulk (group_id) VALUES (NEW.group_id);
  INSERT INTO audit_entry VALUES ('removed', 'address_group_member', NEW.group_id,
    json_object('group_id', NEW.group_id, 'members',
      (SELECT count(*) FROM address_group_member WHERE group_id = NEW.group_id), 'addresses',
      json((SELECT json_group_array(address) FROM
        (SELECT address FROM address_group_member WHERE group_id = NEW.group_id ORDER BY position LIMIT 500)))), NULL);
  DELETE FROM address_group_member WHERE group_id = NEW.group_id;
  DELETE FROM audit_bulk WHERE group_id = NEW.group_id;
END;

-- The version of what decides mail: rules, groups, entities, objects and the order of filters. Every transaction that
-- changes them raises it, whichever program it is of. SQLite does not tell transactions apart, so that a program that makes
-- several changes in one collects them (`policy_change`); without that, each changed row raises the version.
CREATE TABLE policy_version (
  id INTEGER NOT NULL PRIMARY KEY DEFAULT 1,
  version INTEGER NOT NULL,
  -- How many collect changes, one within the other, and whether they have one.
  collecting INTEGER NOT NULL DEFAULT 0,
  is_changed INTEGER NOT NULL DEFAULT 0,
  CHECK (id = 1),
  CHECK (collecting >= 0),
  CHECK (is_changed IN (0, 1))
) STRICT;

INSERT INTO policy_version (version) VALUES (1);

-- 1: changes are collected from here on. 0: there is one. -1: the collection ends, and raises the version if it has any.
CREATE VIEW policy_change (step) AS SELECT 0 WHERE 0;

CREATE TRIGGER policy_change_is_noted INSTEAD OF INSERT ON policy_change BEGIN
  UPDATE policy_version SET
    version = version + CASE NEW.step WHEN 0 THEN collecting = 0 WHEN -1 THEN collecting = 1 AND is_changed = 1 ELSE 0 END,
    is_changed = CASE NEW.step WHEN 0 THEN collecting > 0 WHEN -1 THEN collecting > 1 AND is_changed = 1 ELSE is_changed END,
    collecting = collecting + NEW.step;
END;

-- What a removed object or rule takes along is one change with it.
CREATE TRIGGER named_object_removed_begins BEFORE DELETE ON named_object BEGIN
  INSERT INTO policy_change VALUES (1);
END;

CREATE TRIGGER named_object_removed_ends AFTER DELETE ON named_object BEGIN
  INSERT INTO policy_change VALUES (0);
  INSERT INTO policy_change VALUES (-1);
END;

CREATE TRIGGER policy_rule_removed_begins BEFORE DELETE ON policy_rule BEGIN
  INSERT INTO policy_change VALUES (1);
END;

CREATE TRIGGER policy_rule_removed_ends AFTER DELETE ON policy_rule BEGIN
  INSERT INTO policy_change VALUES (0);
  INSERT INTO policy_change VALUES (-1);
END;

-- A rule without a position gets the last one. Not before the insertion: one that is ignored for a conflict would leave the
-- collection open.
CREATE TRIGGER policy_rule_is_placed AFTER INSERT ON policy_rule BEGIN
  INSERT INTO policy_change VALUES (1);
  UPDATE policy_rule SET position = (SELECT coalesce(max(position), 0) + 1 FROM policy_rule)
    WHERE id = NEW.id AND position IS NULL;
  INSERT INTO policy_change VALUES (0);
  INSERT INTO policy_change VALUES (-1);
END;

-- Everything else row by row, unless an update leaves a row as it was; the condition on the version keeps a load of many
-- members fast.
CREATE TRIGGER named_object_added_is_noted AFTER INSERT ON named_object
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER named_object_changed_is_noted AFTER UPDATE ON named_object
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.id, OLD.type, OLD.name, OLD.content) IS NOT
  (NEW.id, NEW.type, NEW.name, NEW.content) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER policy_rule_changed_is_noted AFTER UPDATE ON policy_rule
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.id, OLD.name, OLD.quarantine_id, OLD.position, OLD.enabled, OLD.scope_id, OLD.recipients_id,
    OLD.compares, OLD.actions, OLD.reply, OLD.tag, OLD.header_value, OLD.address) IS NOT
  (NEW.id, NEW.name, NEW.quarantine_id, NEW.position, NEW.enabled, NEW.scope_id, NEW.recipients_id,
    NEW.compares, NEW.actions, NEW.reply, NEW.tag, NEW.header_value, NEW.address) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER policy_rule_list_added_is_noted AFTER INSERT ON policy_rule_list
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER policy_rule_list_changed_is_noted AFTER UPDATE ON policy_rule_list
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.rule_id, OLD.position, OLD.group_id, OLD.kind) IS NOT
  (NEW.rule_id, NEW.position, NEW.group_id, NEW.kind) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER policy_rule_list_removed_is_noted AFTER DELETE ON policy_rule_list
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER address_group_member_added_is_noted AFTER INSERT ON address_group_member
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER address_group_member_changed_is_noted AFTER UPDATE ON address_group_member
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.group_id, OLD.position, OLD.address) IS NOT
  (NEW.group_id, NEW.position, NEW.address) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER address_group_member_removed_is_noted AFTER DELETE ON address_group_member
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER entity_added_is_noted AFTER INSERT ON entity
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER entity_changed_is_noted AFTER UPDATE ON entity
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.id, OLD.name, OLD.type) IS NOT
  (NEW.id, NEW.name, NEW.type) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER entity_removed_is_noted AFTER DELETE ON entity
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER manual_rule_order_added_is_noted AFTER INSERT ON manual_rule_order
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER manual_rule_order_changed_is_noted AFTER UPDATE ON manual_rule_order
WHEN (SELECT is_changed FROM policy_version) = 0 AND
  (OLD.rule_order, OLD.filter_id, OLD.filter_type) IS NOT
  (NEW.rule_order, NEW.filter_id, NEW.filter_type) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER manual_rule_order_removed_is_noted AFTER DELETE ON manual_rule_order
WHEN (SELECT is_changed FROM policy_version) = 0 BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER global_setting_added_is_noted AFTER INSERT ON global_setting
WHEN (SELECT is_changed FROM policy_version) = 0 AND NEW.section = 'email-scan' AND NEW.name = 'manualRuleOrder' BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER global_setting_changed_is_noted AFTER UPDATE ON global_setting
WHEN (SELECT is_changed FROM policy_version) = 0 AND (
  (OLD.section = 'email-scan' AND OLD.name = 'manualRuleOrder') OR
  (NEW.section = 'email-scan' AND NEW.name = 'manualRuleOrder')) AND
  (OLD.section, OLD.name, OLD.value) IS NOT (NEW.section, NEW.name, NEW.value) BEGIN
  INSERT INTO policy_change VALUES (0);
END;

CREATE TRIGGER global_setting_removed_is_noted AFTER DELETE ON global_setting
WHEN (SELECT is_changed FROM policy_version) = 0 AND OLD.section = 'email-scan' AND OLD.name = 'manualRuleOrder' BEGIN
  INSERT INTO policy_change VALUES (0);
END;

-- One row for each version that this database has been brought to; the highest is in force.
CREATE TABLE schema_version (
  version INTEGER NOT NULL PRIMARY KEY,
  applied_at TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP,
  CHECK (version >= 1)
) STRICT, WITHOUT ROWID;

INSERT INTO schema_version (version) VALUES (3);
