WITH x AS(SELECT 1)INSERT INTO named_object VALUES(NULL,%d,'%s','%s')RETURNING id"objectId"
