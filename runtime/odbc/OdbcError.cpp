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
    "is not permitted to log in",     "permission denied for database", "no password supplied",
};

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
FailureKind kindInSqlite(int number) {
  constexpr int kBusy = 5, kLocked = 6, kConstraint = 19;
  constexpr unsigned int kWithoutDetail = 0xFF;
  switch (static_cast<int>(static_cast<unsigned int>(number) & kWithoutDetail)) {
    case kBusy:
    case kLocked:
      return FailureKind::Contention;
    case kConstraint:
      return FailureKind::Constraint;
    default:
      return FailureKind::Other;
  }
}

FailureKind kindOf(const std::string& state, int native, const std::string& text, bool connectionDead) {
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
  return state == "HY000" && text.find("[SQLite]") != std::string::npos ? kindInSqlite(native) : FailureKind::Other;
}

}  // namespace

OdbcError::OdbcError(std::string state, int native, const std::string& text, bool connectionDead)
    : RuntimeError(text, kindOf(state, native, text, connectionDead)), m_state(std::move(state)) {}

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

}  // namespace zaroruntime
