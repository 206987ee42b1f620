SELECT id AS "EntityID",type AS "EntityType",name AS "EntityName" FROM entity ORDER BY id
