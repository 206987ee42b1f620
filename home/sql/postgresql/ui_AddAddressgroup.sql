SELECT add_group(%u,'%s',%u,'%s')
