// Failures of the runtime's own operations.
#pragma once

#include <stdexcept>
#include <string>

namespace zaroruntime {

// What a failure means to a caller that may try again, and to an administrator who mends it.
enum class FailureKind {
  None,            // nothing failed
  Contention,      // another transaction was in the way; nothing is stored, and another attempt may succeed
  Constraint,      // the database refuses the data as it stands: a value taken, a row referred to, a text too long
  ConnectionLost,  // the database was not reached, or went away; an open transaction is rolled back
  CommitInDoubt,   // the connection went away while a transaction was committed: it is stored or it is not
  Other,
  Configuration,  // the installation lacks a file, section or key, or one is wrong
  Data,           // what was given, read or stored is not as it must be
  File,           // a file, a terminal or a pipe could not be read or written
  Creation,       // a file or directory could not be made
  Refused         // not permitted, or what is stored stands against it
};

// The kind of a failed file operation; `otherwise` unless a permission is missing.
FailureKind kindOfFileError(int error, FailureKind otherwise = FailureKind::File);

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
