SELECT value AS "value" FROM global_setting WHERE section='%s' AND name='%s'
