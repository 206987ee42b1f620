SELECT entity_id AS "EntityID" FROM named_object_owner WHERE object_id=%u ORDER BY entity_id
