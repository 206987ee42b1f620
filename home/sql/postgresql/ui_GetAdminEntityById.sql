SELECT e.id AS "EntityID",e.type AS "EntityType",e.name AS "EntityName" FROM administrator_entity a JOIN entity e ON e.id=a.entity_id WHERE a.administrator_id=%u ORDER BY e.id
