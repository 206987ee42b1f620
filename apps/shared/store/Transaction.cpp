#include "store/Transaction.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "ZaroRuntime/LastFailure.h"

using zaroruntime::Dialect;
using zaroruntime::FailureKind;
using zaroruntime::sqlLiteral;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

std::atomic<bool>& committedChange() {
  static std::atomic<bool> committed{false};
  return committed;
}

constexpr std::chrono::seconds kLastBegin{15};
constexpr const char* kLockTimeOut =
    "SET LOCAL lock_timeout = '5s'";  // SQLite: kSqliteDefaults in runtime/odbc/ConnectionString.cpp
constexpr milliseconds kFirstPause{10};
constexpr milliseconds kLongestPause{1000};

// Pauses that grow, at random, so that two programs in each other's way do not meet again.
class Pauses {
 public:
  void wait() {
    std::uniform_int_distribution<milliseconds::rep> some(m_next.count() / 2, m_next.count());
    std::this_thread::sleep_for(milliseconds(some(m_random)));
    m_next = std::min(2 * m_next, kLongestPause);
  }

 private:
  std::mt19937 m_random{std::random_device()()};
  milliseconds m_next = kFirstPause;
};

std::string& actingAdministrator() {
  static std::string name;
  return name;
}

std::string hostName() {
  char name[256] = "";
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::string userName() {
  const passwd* user = getpwuid(geteuid());
  return user != nullptr ? user->pw_name : std::to_string(geteuid());
}

// Tells the audit trail what the database does not know, for this transaction.
void tellWhoActs(StoreConnection& db) {
  const std::string administrator = sqlLiteral(actingAdministrator());
  const std::string program = sqlLiteral(program_invocation_short_name);
  switch (db.dialect()) {
    case Dialect::PostgreSQL:
      db.run("SELECT set_config('zaro.administrator', " + administrator + ", true), set_config('zaro.program', " +
             program + ", true)");
      break;
    case Dialect::SQLite:
      db.run("INSERT OR REPLACE INTO audit_actor (one, administrator, login, host, program) VALUES (1, " +
             administrator + ", " + sqlLiteral(userName()) + ", " + sqlLiteral(hostName()) + ", " + program + ")");
      break;
    case Dialect::Other:
      break;
  }
}

void forgetWhoActs(StoreConnection& db) {
  if (db.dialect() == Dialect::SQLite) {
    db.run("DELETE FROM audit_actor");
  }
}

void begin(StoreConnection& db) {
  if (!db.library().startTransaction()) {
    throw DatabaseError::because("the change could not begin");
  }
  if (db.dialect() == zaroruntime::Dialect::PostgreSQL) {
    db.run(kLockTimeOut);
  }
  db.requireOwnSchema();
  tellWhoActs(db);
}

void commit(StoreConnection& db) {
  forgetWhoActs(db);
  if (db.library().commitTransaction()) {
    committedChange() = true;
    return;
  }
  const std::string reason = zaroruntime::lastFailure();
  const FailureKind kind = zaroruntime::lastFailureKind();
  if (kind == FailureKind::CommitInDoubt) {
    throw DatabaseError(
        "the change was being committed at a failure, and whether it is stored is not known; look before you repeat it: " +
            reason,
        kind);
  }
  throw DatabaseError("the change was not committed, and nothing is changed: " + reason, kind);
}

// With SQLite all changes of the transaction raise the version of the policy together; PostgreSQL sees to that itself.
enum class Collection { Begins = 1, Ends = -1 };

void collectPolicyChanges(StoreConnection& db, Collection step) {
  if (db.dialect() == zaroruntime::Dialect::SQLite) {
    db.run("INSERT INTO policy_change VALUES (" + std::to_string(static_cast<int>(step)) + ")");
  }
}

// A failure that the change did not notice, or gave another reason for.
void throwUnnoticedFailure() {
  if (zaroruntime::lastFailureKind() != FailureKind::None) {
    throw DatabaseError(zaroruntime::lastFailure(), zaroruntime::lastFailureKind());
  }
}

void runOnce(const std::function<void(StoreConnection&)>& change) {
  zaroruntime::forgetFailures();
  StoreConnection db;
  begin(db);
  collectPolicyChanges(db, Collection::Begins);
  try {
    change(db);
  } catch (const DatabaseError&) {
    throw;
  } catch (...) {
    throwUnnoticedFailure();
    throw;
  }
  throwUnnoticedFailure();
  collectPolicyChanges(db, Collection::Ends);
  commit(db);
}

}  // namespace

void actAs(const std::string& administrator) {
  actingAdministrator() = administrator;
}

bool hasCommittedChange() {
  return committedChange();
}

void tellCommittedChange() {
  committedChange() = true;
}

void runInTransaction(const std::function<void(StoreConnection&)>& change) {
  const auto end = Clock::now() + kLastBegin;
  Pauses pauses;
  bool refused = false;
  for (;;) {
    try {
      runOnce(change);
      return;
    } catch (const DatabaseError& failure) {
      const bool again = failure.kind() == FailureKind::Contention && Clock::now() < end;
      if (!again && (failure.kind() != FailureKind::Constraint || refused)) {
        if (failure.kind() == FailureKind::Contention) {
          throw DatabaseError(
              std::string("other programs kept the database busy, and nothing is changed: ") + failure.what(),
              failure.kind());
        }
        throw;
      }
      refused = refused || failure.kind() == FailureKind::Constraint;
    }
    pauses.wait();
  }
}
