// Changes of the stored policy: each is one transaction on one connection, and there is no other way.
//
// 1. The change does all its reading and writing over the connection that it is given: with the library's operations on
//    `library()` and with SQL of its own. The operations that open a connection of their own (those of AddressGroup,
//    getOPPQuarantineArea, getPolicyServerInfo) do not belong into it: they see nothing of it, and on SQLite a write
//    there waits for the change that waits for it.
// 2. What the change reads and then relies on it locks first: rows with `forUpdate()`, or with `forReference()` where they
//    must only stay; a change that relies on rows being
//    absent locks the table with `lockTable`. Rows of a table are locked in the order of their identifiers, and a
//    referenced row before its referrers, so that two changes seldom wait for each other. SQLite's transactions hold the
//    whole database.
// 3. The change may run more than once, since another program can be in its way: for as long as that lasts it waits and
//    runs again. So whatever it does outside the database (reading a file, asking, printing) stands before or behind it.
// 4. When it throws, nothing is stored.
// 5. The audit trail is told who acts: the administrator of `actAs`, and what the database cannot know by itself.
// 6. It does not begin on a schema of another version, also where that was brought there since the program connected.
#pragma once

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "store/Database.h"

// `inTransaction` without a result.
void runInTransaction(const std::function<void(StoreConnection&)>& change);

// From now on changes are made on behalf of that administrator, as the audit trail tells.
void actAs(const std::string& administrator);

// Whether this program has committed a change, or made one that it has told of. What fails afterwards does not undo it.
bool hasCommittedChange();
// A change that is no transaction of the policy is made, such as a new installation.
void tellCommittedChange();

// Runs a change and commits it; returns what the change does.
//   - Contention (locks, deadlocks, serialization) is waited for. Pauses grow, at random, and no attempt begins after 15
//     seconds; one waits 5 seconds for a lock. Then DatabaseError says that nothing is changed.
//   - Where the database refuses the data (FailureKind::Constraint), the change runs once more: what it looked for and
//     did not find may have come meanwhile.
//   - Any other failure of the platform while the change ran, also one that the library answered with a code or with
//     false, is thrown as DatabaseError instead of what the change made of it, unless that is a DatabaseError as well.
//   - A commit that fails is told as one: nothing is changed. One whose answer was lost is told as not known.
// What else the change throws goes on to the caller.
template <typename Change>
auto inTransaction(Change change) {
  using Result = std::invoke_result_t<Change, StoreConnection&>;
  if constexpr (std::is_void_v<Result>) {
    runInTransaction(change);
  } else {
    std::optional<Result> result;
    runInTransaction([&](StoreConnection& db) { result.emplace(change(db)); });
    return *std::move(result);
  }
}
