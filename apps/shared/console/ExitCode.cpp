#include "console/ExitCode.h"

using zaroruntime::FailureKind;

ExitCode exitCodeOf(FailureKind kind) {
  switch (kind) {
    case FailureKind::Contention:
    case FailureKind::ConnectionLost:
      return ExitCode::TryAgain;
    case FailureKind::None:  // the database answered, but not with what is read
    case FailureKind::Constraint:
    case FailureKind::Data:
      return ExitCode::Data;
    case FailureKind::Configuration:
      return ExitCode::Configuration;
    case FailureKind::File:
      return ExitCode::InputOutput;
    case FailureKind::Creation:
      return ExitCode::CannotCreate;
    case FailureKind::Refused:
      return ExitCode::Refused;
    case FailureKind::CommitInDoubt:  // another attempt could make the change twice
    case FailureKind::Other:
      break;
  }
  return ExitCode::Unavailable;
}
