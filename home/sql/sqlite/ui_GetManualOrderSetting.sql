SELECT filter_id AS "FilterID", rule_order AS "RuleOrder", filter_type AS "FilterType" FROM manual_rule_order ORDER BY rule_order
