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

CREATE INDEX address_group_member_by_address ON address_group_member (address);

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
