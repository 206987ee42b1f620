// A failed ODBC call.
#pragma once

#include <exception>
#include <string>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

class OdbcError : public RuntimeError {
 public:
  // `state` is the first SQLSTATE, `native` the driver's number beside it, `text` all diagnostics with the name of the
  // call.
  OdbcError(std::string state, int native, const std::string& text, bool connectionDead);

  // The session with the server is gone. Whether the statement was executed is not known: a server that shuts down says
  // the same before it runs a statement and after it has committed it.
  bool isConnectionLost() const { return kind() == FailureKind::ConnectionLost; }
  // Another attempt to connect may succeed: the server could not be reached, or is starting or stopping.
  bool mayConnectLater() const;
  // A COMMIT or ROLLBACK met no transaction. Not every database calls that a failure.
  bool saysNoTransaction() const;
  // The disk failed, so that what was written last may be on it or not.
  bool isDiskFailure() const { return m_isDiskFailure; }
  // First SQLSTATE.
  const std::string& state() const { return m_state; }

 private:
  std::string m_state;
  bool m_isDiskFailure;
};

// Whether a failure of a statement leaves open what became of it and of its session: the connection is lost, or the
// failure (memory that ran out) is none that the database has told.
bool leavesOutcomeOpen(const std::exception& failure) noexcept;

// Whether a failure of a COMMIT leaves open if it took effect. That is so as well where the disk failed: what SQLite had
// written to its log, and could not bring to the disk, may be found there by the next program that opens the database.
bool leavesCommitOpen(const std::exception& failure) noexcept;

}  // namespace zaroruntime
