// A TCP port on the loopback interface that is no database.
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace zarotest {

class LoopbackServer {
 public:
  enum class Manner { HangUp, KeepSilent };

  // Accepts connections; closes each at once, or says nothing.
  explicit LoopbackServer(Manner manner);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  std::string port() const { return std::to_string(m_port); }
  int accepted() const { return m_accepted; }

 private:
  void _serve(Manner manner);

  int m_listener;
  int m_port = 0;
  std::atomic<int> m_accepted{0};
  std::thread m_thread;
};

}  // namespace zarotest
