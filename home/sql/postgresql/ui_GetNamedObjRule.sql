SELECT id AS "RuleID" FROM policy_rule WHERE quarantine_id=%u UNION ALL SELECT rule_id FROM policy_rule_object WHERE object_id=%u
