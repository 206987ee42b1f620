-- A made-up company, to try things on: example.test with its sales and engineering departments, and example.org, a
-- customer whose mail it also handles. Both databases take this file. Rows are found by name, never by number.

INSERT INTO administrator (name, is_root) VALUES
  ('admin', 1),
  ('postmaster', 0),
  ('sales-admin', 0),
  ('engineering-admin', 0),
  ('customer-admin', 0),
  ('auditor', 0);

-- *@*.example.test contains the patterns of both departments, *@*.sales.example.test those of regions of sales, and
-- *@example.test the head office alone.
INSERT INTO entity (type, name) VALUES
  (0, 'Headquarters'),
  (0, 'Service Desk'),
  (2, 'cn=mail-administrators,ou=groups,dc=example,dc=test'),
  (2, 'cn=sales,ou=groups,dc=example,dc=test'),
  (6, '*@example.test'),
  (6, '*@*.example.test'),
  (6, '*@sales.example.test'),
  (6, '*@*.sales.example.test'),
  (6, '*@engineering.example.test'),
  (6, '*@example.org');

-- The auditor stays without a managing group: there are such administrators, and they see nothing.
INSERT INTO administrator_entity (administrator_id, entity_id)
WITH assignment (administrator, type, entity) AS (VALUES
  ('admin', 0, 'Headquarters'),
  ('postmaster', 0, 'Headquarters'),
  ('postmaster', 2, 'cn=mail-administrators,ou=groups,dc=example,dc=test'),
  ('postmaster', 6, '*@example.test'),
  ('postmaster', 6, '*@*.example.test'),
  ('sales-admin', 2, 'cn=sales,ou=groups,dc=example,dc=test'),
  ('sales-admin', 6, '*@sales.example.test'),
  ('sales-admin', 6, '*@*.sales.example.test'),
  ('engineering-admin', 0, 'Service Desk'),
  ('engineering-admin', 6, '*@engineering.example.test'),
  ('customer-admin', 6, '*@example.org'))
SELECT administrator.id, entity.id
FROM assignment
JOIN administrator ON administrator.name = assignment.administrator
JOIN entity ON entity.type = assignment.type AND entity.name = assignment.entity;

INSERT INTO named_object (type, name, content) VALUES
  (3, 'OPP:System quarantine', 'days=30;notify=no'),
  (3, 'Company quarantine', 'days=14;notify=yes'),
  (3, 'Sales quarantine', 'days=7;notify=yes'),
  (3, 'Customer quarantine', 'days=30;notify=yes'),
  (5, 'Board', ''),
  (5, 'Sales team', ''),
  (5, 'Partners', ''),
  (5, 'Build robots', ''),
  (1, 'Confidential words', 'confidential, strictly private'),
  (2, 'Company disclaimer', 'This message is meant for its recipients only.'),
  (4, 'Office hours', 'mon-fri 08:00-18:00');

-- Partners is shared between sales and the whole company; the disclaimer by everybody at example.test.
INSERT INTO named_object_owner (entity_id, object_id, object_type)
WITH ownership (type, entity, object_type, object) AS (VALUES
  (0, 'Headquarters', 3, 'OPP:System quarantine'),
  (6, '*@example.test', 3, 'Company quarantine'),
  (6, '*@sales.example.test', 3, 'Sales quarantine'),
  (6, '*@example.org', 3, 'Customer quarantine'),
  (0, 'Headquarters', 5, 'Board'),
  (6, '*@sales.example.test', 5, 'Sales team'),
  (6, '*@example.test', 5, 'Partners'),
  (6, '*@sales.example.test', 5, 'Partners'),
  (6, '*@engineering.example.test', 5, 'Build robots'),
  (2, 'cn=mail-administrators,ou=groups,dc=example,dc=test', 1, 'Confidential words'),
  (6, '*@example.test', 2, 'Company disclaimer'),
  (6, '*@sales.example.test', 2, 'Company disclaimer'),
  (6, '*@engineering.example.test', 2, 'Company disclaimer'),
  (2, 'cn=sales,ou=groups,dc=example,dc=test', 4, 'Office hours'))
SELECT entity.id, named_object.id, named_object.type
FROM ownership
JOIN entity ON entity.type = ownership.type AND entity.name = ownership.entity
JOIN named_object ON named_object.type = ownership.object_type AND named_object.name = ownership.object;

INSERT INTO address_group_member (group_id, position, address)
WITH member (name, position, address) AS (VALUES
  ('Board', 1, 'chair@example.test'),
  ('Board', 2, 'treasurer@example.test'),
  ('Board', 3, 'secretary@example.test'),
  ('Sales team', 1, 'head@sales.example.test'),
  ('Sales team', 2, '*@north.sales.example.test'),
  ('Sales team', 3, '*@south.sales.example.test'),
  ('Partners', 1, '*@example.com'),
  ('Partners', 2, 'orders@example.net'),
  ('Partners', 3, '*@*.example.net'),
  ('Build robots', 1, 'builds@engineering.example.test'),
  ('Build robots', 2, 'releases@engineering.example.test'))
SELECT named_object.id, member.position, member.address
FROM member
JOIN named_object ON named_object.type = 5 AND named_object.name = member.name;

INSERT INTO policy_rule (name, quarantine_id)
SELECT 'Hold confidential mail to partners', id FROM named_object WHERE type = 3 AND name = 'Company quarantine';
INSERT INTO policy_rule (name) VALUES ('Deliver builds at once');

INSERT INTO policy_rule_object (rule_id, object_id)
WITH condition (rule, type, object) AS (VALUES
  ('Hold confidential mail to partners', 5, 'Partners'),
  ('Hold confidential mail to partners', 1, 'Confidential words'),
  ('Deliver builds at once', 5, 'Build robots'))
SELECT policy_rule.id, named_object.id
FROM condition
JOIN policy_rule ON policy_rule.name = condition.rule
JOIN named_object ON named_object.type = condition.type AND named_object.name = condition.object;

-- Addresses that are set aside for documentation; P is a policy server, S a scanner.
INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES
  (1, 'P', '192.0.2.10', 15505),
  (2, 'P', '192.0.2.11', 15505),
  (3, 'P', '2001:db8::12', 15505),
  (1, 'S', '192.0.2.10', 15506),
  (4, 'S', '192.0.2.20', 15506);

-- Spam is filtered right after viruses; the other groups keep their usual order.
INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', 'on');
INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES
  (1, 1, 'Virus'),
  (2, 4, 'Spam'),
  (3, 2, 'Attachment'),
  (4, 3, 'Size'),
  (5, 5, 'Content'),
  (6, 6, 'Other');

-- Awkward texts: letters beyond ASCII, quotes, backslashes, line ends, markup of the statement files, long ones.
INSERT INTO administrator (id, name) VALUES (4294967294, 'Zoë "the" O''Neil \');
INSERT INTO named_object (id, type, name, content) VALUES
  (4294967293, 5, '組 </ma><ma> "A"', ''),
  (4294967292, -7, 'two
lines', 'first
second	"third" \ ''fourth''');
INSERT INTO named_object_owner (entity_id, object_id, object_type)
SELECT entity.id, 4294967293, 5 FROM entity WHERE name = '*@example.test';
INSERT INTO address_group_member (group_id, position, address) VALUES
  (4294967293, 7, '"a,b"@example.test'),
  (4294967293, 2147483647, 'ünïcode@example.test'),
  (4294967293, 9, 'O''Neil@EXAMPLE.test');
INSERT INTO global_setting (section, name, value) VALUES ('LDAP', 'bind_password', 'not for the trail'), ('empty', 'empty', '');
INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (-2147483648, 77, '');
