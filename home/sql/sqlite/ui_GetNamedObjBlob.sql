SELECT content AS "Content",name AS "Name" FROM named_object WHERE id=%u
