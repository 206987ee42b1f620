SELECT id AS "EntityID",name AS "EntityName" FROM entity WHERE type=%d ORDER BY id
