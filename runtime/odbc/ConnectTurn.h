// PostgreSQL's driver sets the LC_CTYPE of the process to that of the environment while it connects, and reads it: two
// threads that connect at once can read freed memory, and the process would go on with another locale than its own.
#pragma once

#include <string>

namespace zaroruntime {

// The right to connect, which one thread of the process has at a time.
class ConnectTurn {
 public:
  // Waits for it, `timeOut` seconds at most if that is above 0, and then throws OdbcError.
  explicit ConnectTurn(int timeOut);
  // Puts back the LC_CTYPE that the process had. What another thread set meanwhile is lost.
  ~ConnectTurn();
  ConnectTurn(const ConnectTurn&) = delete;
  ConnectTurn& operator=(const ConnectTurn&) = delete;

 private:
  std::string m_ctype;
};

}  // namespace zaroruntime
