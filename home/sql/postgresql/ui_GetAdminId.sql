SELECT id AS "AdminID" FROM administrator WHERE name='%s'
