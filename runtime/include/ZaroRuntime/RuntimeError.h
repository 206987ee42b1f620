// Failures of the runtime's own operations.
#pragma once

#include <stdexcept>
#include <string>

namespace zaroruntime {

// What a failure means to whoever thinks of trying again.
enum class FailureKind {
  None,            // nothing failed
  Contention,      // another transaction was in the way; nothing is stored, and another attempt may succeed
  Constraint,      // the database refuses the data as it stands: a value taken, a row referred to, a text too long
  ConnectionLost,  // the database was not reached, or went away; an open transaction is rolled back
  CommitInDoubt,   // the connection went away while a transaction was committed: it is stored or it is not
  Other
};

// What failed, on what, why, and what to do; one line, never with a password in it.
class RuntimeError : public std::runtime_error {
 public:
  explicit RuntimeError(const std::string& text, FailureKind kind = FailureKind::Other)
      : runtime_error(text), m_kind(kind) {}

  FailureKind kind() const { return m_kind; }

 private:
  FailureKind m_kind;
};

}  // namespace zaroruntime
