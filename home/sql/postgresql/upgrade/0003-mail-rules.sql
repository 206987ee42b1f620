-- Completes the policy rules, so that they decide mail, and counts the changes of what decides it. The rules that are
-- there stay, in the order of their identifiers, disabled; what has a quarantine area is to use it.
ALTER TABLE policy_rule
  ADD COLUMN position INTEGER,
  ADD COLUMN enabled SMALLINT NOT NULL DEFAULT 0,
  ADD COLUMN scope_id BIGINT REFERENCES entity (id) ON DELETE RESTRICT,
  ADD COLUMN recipients_id BIGINT REFERENCES named_object (id) ON DELETE RESTRICT,
  ADD COLUMN compares SMALLINT NOT NULL DEFAULT 1,
  ADD COLUMN actions TEXT NOT NULL DEFAULT '00000000000000000',
  ADD COLUMN reply TEXT NOT NULL DEFAULT '',
  ADD COLUMN tag TEXT NOT NULL DEFAULT '',
  ADD COLUMN header_value TEXT NOT NULL DEFAULT '',
  ADD COLUMN address TEXT NOT NULL DEFAULT '';

UPDATE policy_rule SET position = place,
    actions = CASE WHEN quarantine_id IS NULL THEN '00000000000000000' ELSE '01000000000000000' END
  FROM (SELECT id AS placed, row_number() OVER (ORDER BY id) AS place FROM policy_rule) AS places
  WHERE id = placed;

ALTER TABLE policy_rule
  ADD UNIQUE (position),
  ADD CHECK (position BETWEEN 1 AND 2147483647),
  ADD CHECK (enabled IN (0, 1)),
  ADD CHECK (compares BETWEEN 1 AND 3),
  ADD CHECK (length(actions) = 17 AND actions ~ '^[01]*$');

CREATE INDEX policy_rule_by_scope ON policy_rule (scope_id);
CREATE INDEX policy_rule_by_recipients ON policy_rule (recipients_id);

-- A rule without a position gets the last one.
CREATE FUNCTION place_rule () RETURNS TRIGGER LANGUAGE plpgsql AS $$
BEGIN
  IF NEW.position IS NULL THEN
    NEW.position := (SELECT coalesce(max(position), 0) + 1 FROM policy_rule);
  END IF;
  RETURN NEW;
END
$$;

CREATE TRIGGER policy_rule_is_placed BEFORE INSERT ON policy_rule FOR EACH ROW EXECUTE FUNCTION place_rule();

-- The address groups of senders that a rule asks, with their kinds, in their order. Kinds are those of address matching.
CREATE TABLE policy_rule_list (
  rule_id BIGINT NOT NULL,
  position INTEGER NOT NULL,
  group_id BIGINT NOT NULL,
  group_type INTEGER NOT NULL DEFAULT 5,
  kind SMALLINT NOT NULL,
  PRIMARY KEY (rule_id, position),
  -- So that the group is in use for everybody who asks.
  FOREIGN KEY (rule_id, group_id) REFERENCES policy_rule_object (rule_id, object_id) ON DELETE CASCADE,
  -- Without ON UPDATE CASCADE: a group in use stays a group.
  FOREIGN KEY (group_id, group_type) REFERENCES named_object (id, type) ON DELETE RESTRICT,
  CHECK (position BETWEEN 0 AND 2147483647),
  CHECK (group_type = 5),
  CHECK (kind IN (1, 2, 4, 8, 16, 32))
);

CREATE INDEX policy_rule_list_by_group ON policy_rule_list (group_id, rule_id);

CREATE TRIGGER policy_rule_list_is_changed AFTER INSERT OR UPDATE OR DELETE ON policy_rule_list
  FOR EACH ROW EXECUTE FUNCTION audit_change('group_id');
CREATE TRIGGER policy_rule_list_is_emptied AFTER TRUNCATE ON policy_rule_list
  FOR EACH STATEMENT EXECUTE FUNCTION audit_change();

-- The version of what decides mail: rules, groups, entities, objects and the order of filters. Every transaction that
-- changes them raises it by one, whichever program it is of. It does so when it commits, so that nobody else waits for it
-- longer than that.
CREATE TABLE policy_version (
  id SMALLINT NOT NULL PRIMARY KEY DEFAULT 1,
  version BIGINT NOT NULL,
  CHECK (id = 1)
);

INSERT INTO policy_version (version) VALUES (1);

-- The transactions in progress that have to raise it. Between transactions there is nothing in it.
CREATE TABLE policy_change (
  transaction_id BIGINT NOT NULL PRIMARY KEY
);

CREATE FUNCTION raise_policy_version () RETURNS TRIGGER
LANGUAGE plpgsql SECURITY DEFINER SET search_path FROM CURRENT AS $$
BEGIN
  UPDATE policy_version SET version = version + 1;
  DELETE FROM policy_change WHERE transaction_id = NEW.transaction_id;
  RETURN NULL;
END
$$;

CREATE CONSTRAINT TRIGGER policy_change_raises AFTER INSERT ON policy_change DEFERRABLE INITIALLY DEFERRED
FOR EACH ROW EXECUTE FUNCTION raise_policy_version();

-- For a statement with its changed rows.
CREATE FUNCTION note_policy_change () RETURNS TRIGGER
LANGUAGE plpgsql SECURITY DEFINER SET search_path FROM CURRENT AS $$
BEGIN
  IF EXISTS (SELECT 1 FROM changed) THEN
    INSERT INTO policy_change (transaction_id) VALUES (txid_current()) ON CONFLICT DO NOTHING;
  END IF;
  RETURN NULL;
END
$$;

-- The same, unless the rows are what they were.
CREATE FUNCTION note_policy_update () RETURNS TRIGGER
LANGUAGE plpgsql SECURITY DEFINER SET search_path FROM CURRENT AS $$
BEGIN
  IF EXISTS (SELECT * FROM changed EXCEPT SELECT * FROM before_change) THEN
    INSERT INTO policy_change (transaction_id) VALUES (txid_current()) ON CONFLICT DO NOTHING;
  END IF;
  RETURN NULL;
END
$$;

-- For a statement without, and for one row.
CREATE FUNCTION note_any_policy_change () RETURNS TRIGGER
LANGUAGE plpgsql SECURITY DEFINER SET search_path FROM CURRENT AS $$
BEGIN
  INSERT INTO policy_change (transaction_id) VALUES (txid_current()) ON CONFLICT DO NOTHING;
  RETURN NULL;
END
$$;

DO $$
DECLARE
  decisive TEXT;
BEGIN
  FOREACH decisive IN ARRAY ARRAY['policy_rule', 'policy_rule_list', 'named_object', 'address_group_member', 'entity',
                                  'manual_rule_order'] LOOP
    EXECUTE format('CREATE TRIGGER %1$I AFTER INSERT ON %2$I REFERENCING NEW TABLE AS changed
      FOR EACH STATEMENT EXECUTE FUNCTION note_policy_change()', decisive || '_added_is_noted', decisive);
    EXECUTE format('CREATE TRIGGER %1$I AFTER UPDATE ON %2$I REFERENCING NEW TABLE AS changed
      OLD TABLE AS before_change FOR EACH STATEMENT EXECUTE FUNCTION note_policy_update()',
      decisive || '_changed_is_noted', decisive);
    EXECUTE format('CREATE TRIGGER %1$I AFTER DELETE ON %2$I REFERENCING OLD TABLE AS changed
      FOR EACH STATEMENT EXECUTE FUNCTION note_policy_change()', decisive || '_removed_is_noted', decisive);
    EXECUTE format('CREATE TRIGGER %1$I AFTER TRUNCATE ON %2$I
      FOR EACH STATEMENT EXECUTE FUNCTION note_any_policy_change()', decisive || '_emptied_is_noted', decisive);
  END LOOP;
END
$$;

CREATE TRIGGER global_setting_added_is_noted AFTER INSERT ON global_setting FOR EACH ROW
WHEN (NEW.section = 'email-scan' AND NEW.name = 'manualRuleOrder') EXECUTE FUNCTION note_any_policy_change();

CREATE TRIGGER global_setting_changed_is_noted AFTER UPDATE ON global_setting FOR EACH ROW
WHEN (((OLD.section = 'email-scan' AND OLD.name = 'manualRuleOrder') OR
  (NEW.section = 'email-scan' AND NEW.name = 'manualRuleOrder')) AND OLD IS DISTINCT FROM NEW)
EXECUTE FUNCTION note_any_policy_change();

CREATE TRIGGER global_setting_emptied_is_noted AFTER TRUNCATE ON global_setting
FOR EACH STATEMENT EXECUTE FUNCTION note_any_policy_change();

CREATE TRIGGER global_setting_removed_is_noted AFTER DELETE ON global_setting FOR EACH ROW
WHEN (OLD.section = 'email-scan' AND OLD.name = 'manualRuleOrder') EXECUTE FUNCTION note_any_policy_change();

INSERT INTO schema_version (version) VALUES (3);
