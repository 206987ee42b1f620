#include "odbc/OdbcError.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zaroruntime {

namespace {

// What the PostgreSQL server refuses once it will refuse again. Its driver reports whatever keeps it from connecting
// with one SQLSTATE, so there is only the text; in another language than English further attempts are made in vain.
constexpr const char* kPermanentRefusals[] = {
    "password authentication failed", "authentication failed for user", "no pg_hba.conf entry", "does not exist",
    "is not permitted to log in",     "permission denied for database", "no password supplied",
};

bool hasClass(const std::string& state, const char* stateClass) {
  return state.compare(0, 2, stateClass) == 0;
}

}  // namespace

OdbcError::OdbcError(std::string state, const std::string& text, bool connectionDead)
    : RuntimeError(text), m_state(std::move(state)), m_connectionDead(connectionDead) {}

bool OdbcError::isConnectionLost() const {
  return m_connectionDead || hasClass(m_state, "08") || m_state.compare(0, 3, "57P") == 0;
}

bool OdbcError::mayConnectLater() const {
  const std::string text = what();
  const bool refused = std::any_of(std::begin(kPermanentRefusals), std::end(kPermanentRefusals),
                                   [&](const char* refusal) { return text.find(refusal) != std::string::npos; });
  return !refused &&
         (hasClass(m_state, "08") || m_state == "HYT00" || m_state == "HYT01" || m_state.compare(0, 3, "57P") == 0);
}

}  // namespace zaroruntime
