SELECT name AS "Name",id AS "ID",content AS "Content" FROM named_object WHERE type=%d ORDER BY id
