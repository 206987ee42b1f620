#include "odbc/OdbcError.h"

#include <utility>

namespace zaroruntime {

namespace {

bool hasClass(const std::string& state, const char* stateClass) {
  return state.compare(0, 2, stateClass) == 0;
}

}  // namespace

OdbcError::OdbcError(std::string state, const std::string& text, bool connectionDead)
    : RuntimeError(text), m_state(std::move(state)), m_connectionDead(connectionDead) {}

bool OdbcError::isConnectionLost() const {
  return m_connectionDead || hasClass(m_state, "08") || isRefusedByShutdown();
}

bool OdbcError::isRefusedByShutdown() const {
  return hasClass(m_state, "57") && m_state.compare(2, 1, "P") == 0;
}

bool OdbcError::mayConnectLater() const {
  // The PostgreSQL driver reports whatever keeps it from connecting as 08001. What the server itself refuses (user,
  // password, database) it will refuse again, unless it says that it is on its way up or down, or full.
  const std::string text = what();
  if (text.find("FATAL:") != std::string::npos) {
    return text.find("the database system is") != std::string::npos || text.find("too many") != std::string::npos ||
           text.find("connection slots") != std::string::npos;
  }
  return hasClass(m_state, "08") || m_state == "HYT00" || m_state == "HYT01" || isRefusedByShutdown();
}

}  // namespace zaroruntime
