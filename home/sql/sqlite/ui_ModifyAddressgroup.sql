INSERT INTO group_change VALUES(%u,'%s','%s')
