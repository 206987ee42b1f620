-- Schema of the policy database, version 1, for SQLite.
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

-- Policy rules, as far as they refer to objects: the quarantine area that a rule's action sends mail to, and the
-- objects that its conditions use. An object in use by a rule cannot be deleted.
CREATE TABLE policy_rule (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL,
  quarantine_id INTEGER REFERENCES named_object (id) ON DELETE RESTRICT,
  CHECK (id BETWEEN 1 AND 4294967294),
  CHECK (length(name) BETWEEN 1 AND 512)
) STRICT;

CREATE INDEX policy_rule_by_quarantine ON policy_rule (quarantine_id);

CREATE TABLE policy_rule_object (
  rule_id INTEGER NOT NULL REFERENCES policy_rule (id) ON DELETE CASCADE,
  object_id INTEGER NOT NULL REFERENCES named_object (id) ON DELETE RESTRICT,
  PRIMARY KEY (rule_id, object_id)
) STRICT, WITHOUT ROWID;

CREATE INDEX policy_rule_object_by_object ON policy_rule_object (object_id);

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
  SELECT RAISE(ABORT, 'the administrator has no such managing group') WHERE NOT EXISTS (
    SELECT 1 FROM administrator_entity
    WHERE administrator_id = NEW.administrator_id AND NEW.entity_id IN (0, entity_id)
    UNION ALL
    SELECT 1 FROM administrator JOIN entity ON entity.id = NEW.entity_id
    WHERE administrator.id = NEW.administrator_id AND is_root = 1);
  INSERT INTO named_object (type, name) VALUES (5, NEW.name);
  -- The tables below have no rowid, so the last one stays the group's.
  INSERT INTO named_object_owner (entity_id, object_id, object_type)
    SELECT entity_id, last_insert_rowid(), 5 FROM administrator_entity
    WHERE administrator_id = NEW.administrator_id AND NEW.entity_id = 0
    UNION ALL
    SELECT NEW.entity_id, last_insert_rowid(), 5 WHERE NEW.entity_id <> 0;
  INSERT INTO address_group_member (group_id, position, address)
    SELECT last_insert_rowid(), key, value
    FROM json_each('[' || replace(json_quote(substr(NEW.members, 10, length(NEW.members) - 20)), '</ma><ma>', '","') || ']')
    WHERE NEW.members <> '<mas></mas>';
END;

-- Another name and other members of a group.
CREATE VIEW group_change (group_id, name, members) AS SELECT 0, '', '' WHERE 0;

CREATE TRIGGER group_change_is_stored INSTEAD OF INSERT ON group_change BEGIN
  SELECT RAISE(ABORT, 'no such address group')
    WHERE NOT EXISTS (SELECT 1 FROM named_object WHERE id = NEW.group_id AND type = 5);
  UPDATE named_object SET name = NEW.name WHERE id = NEW.group_id;
  DELETE FROM address_group_member WHERE group_id = NEW.group_id;
  INSERT INTO address_group_member (group_id, position, address)
    SELECT NEW.group_id, key, value
    FROM json_each('[' || replace(json_quote(substr(NEW.members, 10, length(NEW.members) - 20)), '</ma><ma>', '","') || ']')
    WHERE NEW.members <> '<mas></mas>';
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

-- One row for each version that this database has been brought to; the highest is in force.
CREATE TABLE schema_version (
  version INTEGER NOT NULL PRIMARY KEY,
  applied_at TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP,
  CHECK (version >= 1)
) STRICT, WITHOUT ROWID;

INSERT INTO schema_version (version) VALUES (1);
