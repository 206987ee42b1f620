SELECT scanner_id AS "scanner_id", ip_addr AS "ip_addr", agent_port AS "agent_port" FROM component WHERE type='%s' ORDER BY scanner_id
