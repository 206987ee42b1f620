// The policy out of the database.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "policy/ArrivingPolicy.h"
#include "policy/MailPolicy.h"
#include "policy/PolicyError.h"
#include "store/Database.h"

// Reads all of the policy as it is at one moment, in a transaction of its own that waits for no writer and keeps none
// waiting (with SQLite, writers wait for it unless the database has a write-ahead log). `db` must not be in one. Throws
// DatabaseError, and UnreadablePolicy for rows that make no policy: SQLite checks neither numbers nor references for
// programs that do not ask for it.
MailPolicy loadMailPolicy(StoreConnection& db);

// The same without the members of address groups.
MailPolicy loadMailPolicyWithoutMembers(StoreConnection& db);

// The same as loadMailPolicy, but the members of address groups are still to come. The transaction ends, and `db` with
// it, when they are read or the result ends. Waiting for them throws the same.
ArrivingPolicy beginMailPolicy(std::unique_ptr<StoreConnection> db);

// The rules alone, by position, in two statements: `db` is in a transaction that reads of one moment, or holds the lock
// of the rules. Throws DatabaseError and PolicyError.
std::vector<MailPolicy::Rule> storedRules(StoreConnection& db);

// The counter of the policy: another number than before tells that the policy is another. One row is read.
std::uint64_t storedPolicyVersion(StoreConnection& db);
