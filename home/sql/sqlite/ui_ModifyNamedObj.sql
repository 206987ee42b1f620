UPDATE named_object SET type=%d,name='%s',content='%s'WHERE id=%u
