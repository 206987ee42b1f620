// The policy out of the database.
#pragma once

#include <cstdint>
#include <vector>

#include "policy/MailPolicy.h"
#include "store/Database.h"

// Reads all of the policy as it is at one moment, in a transaction of its own that waits for no writer and keeps none
// waiting (with SQLite, writers wait for it unless the database has a write-ahead log). `db` must not be in one. Throws
// DatabaseError, and RuntimeError for stored numbers that are none.
MailPolicy loadMailPolicy(StoreConnection& db);

// The rules alone, by position.
std::vector<MailPolicy::Rule> storedRules(StoreConnection& db);

// The counter of the policy: another number than before tells that the policy is another. One row is read.
std::uint64_t storedPolicyVersion(StoreConnection& db);
