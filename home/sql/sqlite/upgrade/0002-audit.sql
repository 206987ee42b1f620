-- Version 2 of the schema, for SQLite: the audit trail.

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
    json_object('id', NEW.id, 'name', NEW.name, 'quarantine_id', NEW.quarantine_id));
END;

CREATE TRIGGER policy_rule_is_changed AFTER UPDATE ON policy_rule
WHEN (OLD.id, OLD.name, OLD.quarantine_id) IS NOT
  (NEW.id, NEW.name, NEW.quarantine_id) BEGIN
  INSERT INTO audit_entry VALUES ('changed', 'policy_rule', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'quarantine_id', OLD.quarantine_id),
    json_object('id', NEW.id, 'name', NEW.name, 'quarantine_id', NEW.quarantine_id));
END;

CREATE TRIGGER policy_rule_is_removed AFTER DELETE ON policy_rule BEGIN
  INSERT INTO audit_entry VALUES ('removed', 'policy_rule', NULL,
    json_object('id', OLD.id, 'name', OLD.name, 'quarantine_id', OLD.quarantine_id), NULL);
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

-- The members of a group that a statement file writes are one entry.
DROP TRIGGER new_group_is_stored;

CREATE TRIGGER new_group_is_stored INSTEAD OF INSERT ON new_group BEGIN
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
END;

DROP TRIGGER group_change_is_stored;

CREATE TRIGGER group_change_is_stored INSTEAD OF INSERT ON group_change BEGIN
  SELECT RAISE(ABORT, 'no such address group')
    WHERE NOT EXISTS (SELECT 1 FROM named_object WHERE id = NEW.group_id AND type = 5);
  UPDATE named_object SET name = NEW.name WHERE id = NEW.group_id;
  INSERT INTO member_removal (group_id) VALUES (NEW.group_id);
  INSERT INTO member_addition (group_id, position, addresses)
    SELECT NEW.group_id, 0,
      '[' || replace(json_quote(substr(NEW.members, 10, length(NEW.members) - 20)), '</ma><ma>', '","') || ']'
    WHERE NEW.members <> '<mas></mas>';
END;

INSERT INTO schema_version (version) VALUES (2);
