DELETE FROM named_object WHERE id=%u AND type=5
