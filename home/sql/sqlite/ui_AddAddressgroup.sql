INSERT INTO new_group VALUES(%u,'%s',%u,'%s')
