SELECT change_group(%u,'%s','%s')
