SELECT add_object(%d,'%s','%s')AS "objectId"
