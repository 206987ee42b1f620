SELECT address AS "MemberAddress" FROM address_group_member WHERE group_id=%u ORDER BY position
