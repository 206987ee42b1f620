#include "odbc/OdbcError.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace zaroruntime {

namespace {

// What the PostgreSQL server refuses once it will refuse again. Its driver reports whatever keeps it from connecting
// with one SQLSTATE, so there is only the text; in another language than English further attempts are made in vain.
constexpr const char* kPermanentRefusals[] = {
    "password authentication failed", "authentication failed for user", "no pg_hba.conf entry", "does not exist",
    "is not permitted to log in",     "permission denied for database", "no password supplied", "does not support SSL",
};

// Those that name what is not there.
constexpr const char* kWrongTargets[] = {"does not exist", "does not support SSL"};

// SQLite's, and Microsoft SQL Server's.
constexpr const char* kNoTransaction[] = {"no transaction is active", "has no corresponding BEGIN TRANSACTION"};

template <std::size_t Count>
bool holdsAny(std::string_view text, const char* const (&parts)[Count]) {
  return std::any_of(std::begin(parts), std::end(parts),
                     [&](const char* part) { return text.find(part) != std::string_view::npos; });
}

bool hasClass(const std::string& state, const char* stateClass) {
  return state.compare(0, 2, stateClass) == 0;
}

// SQLite reports everything with one SQLSTATE and its own number.
struct SqliteRow {
  int number;
  FailureKind kind;
};

constexpr SqliteRow kSqliteKinds[] = {
    {3, FailureKind::Refused},      // access permission denied
    {5, FailureKind::Contention},   // busy
    {6, FailureKind::Contention},   // locked
    {8, FailureKind::Refused},      // read-only
    {10, FailureKind::File},        // input or output
    {11, FailureKind::Data},        // malformed
    {13, FailureKind::File},        // full
    {14, FailureKind::File},        // cannot be opened
    {19, FailureKind::Constraint},  // constraint
    {26, FailureKind::Data},        // not a database
};

constexpr int kSqliteInputOutput = 10;

bool isOfSqlite(const std::string& state, const std::string& text) {
  return state == "HY000" && text.find("[SQLite]") != std::string::npos;
}

int withoutDetail(int number) {
  return static_cast<int>(static_cast<unsigned int>(number) & 0xFFU);
}

FailureKind kindInSqlite(int number) {
  const auto* const row = std::find_if(std::begin(kSqliteKinds), std::end(kSqliteKinds),
                                       [&](const SqliteRow& known) { return known.number == withoutDetail(number); });
  return row != std::end(kSqliteKinds) ? row->kind : FailureKind::Other;
}

// Insufficient privilege, a wrong password or user, a transaction that may only read.
constexpr const char* kRefusals[] = {"42501", "28000", "28P01", "25006"};

FailureKind kindOf(const std::string& state, int native, const std::string& text, bool connectionDead) {
  // The driver says 08001 for a server that is down, and for one that will refuse again.
  if (state == "08001" && holdsAny(text, kPermanentRefusals)) {
    return holdsAny(text, kWrongTargets) ? FailureKind::Configuration : FailureKind::Refused;
  }
  if (connectionDead || hasClass(state, "08") || state.compare(0, 3, "57P") == 0) {
    return FailureKind::ConnectionLost;
  }
  // Serialization failure, deadlock, lock not available.
  if (state == "40001" || state == "40P01" || state == "55P03") {
    return FailureKind::Contention;
  }
  if (hasClass(state, "22") || hasClass(state, "23")) {
    return FailureKind::Constraint;
  }
  if (std::find(std::begin(kRefusals), std::end(kRefusals), state) != std::end(kRefusals)) {
    return FailureKind::Refused;
  }
  // The driver manager finds no driver; a database that is not there.
  if (hasClass(state, "IM") || state == "3D000") {
    return FailureKind::Configuration;
  }
  return isOfSqlite(state, text) ? kindInSqlite(native) : FailureKind::Other;
}

}  // namespace

OdbcError::OdbcError(std::string state, int native, const std::string& text, bool connectionDead)
    : RuntimeError(text, kindOf(state, native, text, connectionDead)),
      m_state(std::move(state)),
      m_isDiskFailure(isOfSqlite(m_state, text) && withoutDetail(native) == kSqliteInputOutput) {}

bool OdbcError::mayConnectLater() const {
  return !holdsAny(what(), kPermanentRefusals) &&
         (hasClass(m_state, "08") || m_state == "HYT00" || m_state == "HYT01" || m_state.compare(0, 3, "57P") == 0);
}

bool OdbcError::saysNoTransaction() const {
  return holdsAny(what(), kNoTransaction);
}

bool leavesOutcomeOpen(const std::exception& failure) noexcept {
  const auto* const told = dynamic_cast<const OdbcError*>(&failure);
  return told == nullptr || told->isConnectionLost();
}

bool leavesCommitOpen(const std::exception& failure) noexcept {
  const auto* const told = dynamic_cast<const OdbcError*>(&failure);
  return leavesOutcomeOpen(failure) || told->isDiskFailure();
}

}  // namespace zaroruntime
