SELECT remove_object(%u,%u)AS "retId"
