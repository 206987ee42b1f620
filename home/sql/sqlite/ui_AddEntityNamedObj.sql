INSERT INTO named_object_owner(entity_id,object_id,object_type)VALUES(%u,%u,%d)
