-- Completes the policy rules, so that they decide mail, and counts the changes of what decides it. The rules that are
-- there stay, in the order of their identifiers, disabled; what has a quarantine area is to use it.
PRAGMA legacy_alter_table = ON;

CREATE TABLE policy_rule_completed (
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

INSERT INTO policy_rule_completed (id, name, quarantine_id, position, actions)
  SELECT id, name, quarantine_id, row_number() OVER (ORDER BY id),
    CASE WHEN quarantine_id IS NULL THEN '00000000000000000' ELSE '01000000000000000' END
  FROM policy_rule;

-- The identifiers of deleted rules are not given away again.
DELETE FROM sqlite_sequence WHERE name = 'policy_rule_completed';
INSERT INTO sqlite_sequence (name, seq) SELECT 'policy_rule_completed', seq FROM sqlite_sequence WHERE name = 'policy_rule';

DROP TABLE policy_rule;
ALTER TABLE policy_rule_completed RENAME TO policy_rule;

CREATE INDEX policy_rule_by_quarantine ON policy_rule (quarantine_id);
CREATE INDEX policy_rule_by_scope ON policy_rule (scope_id);
CREATE INDEX policy_rule_by_recipients ON policy_rule (recipients_id);

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

-- The audit trail of the columns that are new.
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

DROP TRIGGER new_group_is_stored;

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

DROP TRIGGER group_change_is_stored;

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

INSERT INTO schema_version (version) VALUES (3);
