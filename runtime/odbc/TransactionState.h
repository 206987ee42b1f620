// What is known of a connection's transaction.
//
//   None --begun--> Open --committed, rolledBack--> None
//                   Open --lostWithConnection, undone--> Lost --rolledBack--> None
//                   Open --leftInDoubt--> Unknown             --rolledBack--> None
//
// 1. None means that no BEGIN was seen, not that there is no transaction: a server may have begun one by itself, or in a
//    batch. So a COMMIT is sent in this state too.
// 2. In Lost and Unknown nothing is open in the database any more. Statements are refused all the same until the ROLLBACK
//    of whoever began the transaction: executed, they would be committed one by one.
#pragma once

#include <string>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

class TransactionState {
 public:
  bool isNone() const { return m_state == State::None; }
  bool isOpen() const { return m_state == State::Open; }
  // Lost or Unknown: over, and its user has not taken note yet.
  bool isOver() const { return m_state == State::Lost || m_state == State::Unknown; }
  // Throws why statements are refused, when it is over.
  [[noreturn]] void refuse() const { throw RuntimeError(m_refusal, m_kind); }

  void begun() { _enter(State::Open, {}, FailureKind::None); }
  void committed() { _enter(State::None, {}, FailureKind::None); }
  void rolledBack() { _enter(State::None, {}, FailureKind::None); }
  // The connection is gone; the database rolls back.
  void lostWithConnection() {
    _enter(State::Lost, "the connection was lost in a transaction, which was rolled back", FailureKind::ConnectionLost);
  }
  // Rolled back although the connection lives: by the database at a failure, or by us since it could not be committed.
  void undone(const RuntimeError& cause) {
    _enter(State::Lost, std::string("the transaction was rolled back after a failure: ") + cause.what(), cause.kind());
  }
  // A COMMIT was sent and the connection lost before its answer.
  void leftInDoubt() {
    _enter(State::Unknown, "whether the transaction was committed is not known", FailureKind::CommitInDoubt);
  }

 private:
  enum class State { None, Open, Lost, Unknown };

  void _enter(State state, std::string refusal, FailureKind kind) {
    m_state = state;
    m_refusal = std::move(refusal);
    m_kind = kind;
  }

  State m_state = State::None;
  std::string m_refusal;
  FailureKind m_kind = FailureKind::None;
};

}  // namespace zaroruntime
