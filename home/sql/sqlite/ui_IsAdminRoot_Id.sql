SELECT is_root AS "IsAdminRoot" FROM administrator WHERE id=%u
