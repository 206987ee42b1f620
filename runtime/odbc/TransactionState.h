// What is known of a connection's transaction.
//
//   None --begun--> Open --committed, rolledBack--> None
//                   Open --lostWithConnection, undone--> Lost --rolledBack--> None
//                   Open --leftInDoubt--> Unknown             --rolledBack--> None
//
// `KxDbConnect::Impl::_noteFailure` and `_commit` decide which failure leads where.
//
// 1. None means that no BEGIN was seen, not that there is no transaction: a server may have begun one by itself, or in a
//    batch. So a COMMIT is sent in this state too.
// 2. In Lost and Unknown nothing is open in the database any more. Statements are refused all the same until the caller
//    that began the transaction rolls back: executed, they would be committed one by one.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "common/ThrownText.h"

namespace zaroruntime {

constexpr char kInDoubt[] = "whether the transaction was committed is not known";

// Throws what the failure of a COMMIT says that leaves its outcome open, with that failure nested in it. For use where
// it is being handled.
[[noreturn]] inline void throwInDoubt(const std::exception& failure) {
  std::throw_with_nested(RuntimeError(std::string(failure.what()) + "; " + kInDoubt, FailureKind::CommitInDoubt));
}

class TransactionState {
 public:
  bool isNone() const { return m_state == State::None; }
  bool isOpen() const { return m_state == State::Open; }
  // Lost or Unknown: over, and its user has not taken note yet.
  bool isOver() const { return m_state == State::Lost || m_state == State::Unknown; }
  // Throws why statements are refused, when it is over.
  [[noreturn]] void refuse() const {
    throw RuntimeError(m_cause.empty() ? m_refusal : std::string(m_refusal) + ": " + m_cause, m_kind);
  }

  void begun() noexcept { _enter(State::Open, "", FailureKind::None); }
  void committed() noexcept { _enter(State::None, "", FailureKind::None); }
  void rolledBack() noexcept { _enter(State::None, "", FailureKind::None); }
  // The connection is gone; the database rolls back.
  void lostWithConnection() noexcept {
    _enter(State::Lost, "the connection was lost in a transaction, which was rolled back", FailureKind::ConnectionLost);
  }
  // Rolled back although the connection lives: by the database at a failure, or by us since it could not be committed.
  void undone(const std::exception& cause) noexcept {
    _enter(State::Lost, "the transaction was rolled back after a failure", kindOf(cause));
    try {
      m_cause = cause.what();
    } catch (const std::bad_alloc&) {
      m_cause.clear();
    }
  }
  // A COMMIT was sent and the connection lost before its answer.
  void leftInDoubt() noexcept { _enter(State::Unknown, kInDoubt, FailureKind::CommitInDoubt); }

 private:
  enum class State { None, Open, Lost, Unknown };

  void _enter(State state, const char* refusal, FailureKind kind) noexcept {
    m_state = state;
    m_refusal = refusal;
    m_kind = kind;
    m_cause.clear();
  }

  State m_state = State::None;
  const char* m_refusal = "";
  std::string m_cause;  // of the refusal, if there is memory for it
  FailureKind m_kind = FailureKind::None;
};

}  // namespace zaroruntime
