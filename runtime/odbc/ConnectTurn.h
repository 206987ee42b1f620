// PostgreSQL's driver reads the locale of the process while it connects, as it sets it: two threads that connect at
// once can read freed memory.
#pragma once

namespace zaroruntime {

// The right to connect, which one thread of the process has at a time.
class ConnectTurn {
 public:
  // Waits for it, `timeOut` seconds at most if that is above 0, and then throws OdbcError.
  explicit ConnectTurn(int timeOut);
  ~ConnectTurn();
  ConnectTurn(const ConnectTurn&) = delete;
  ConnectTurn& operator=(const ConnectTurn&) = delete;
};

}  // namespace zaroruntime
