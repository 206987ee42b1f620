// Policy delegation: answers a mail server that asks about one recipient at a time, on one thread.
//
// It refuses and postpones recipients, and nothing more: what is done at the end of a message takes the milter. A
// recipient that would be dropped silently is refused, since nothing here can drop one.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DecisionDesk.h"
#include "delegation/PolicyRequest.h"
#include "service/SocketFile.h"

struct DelegationLimits {
  std::size_t connections = 1000;  // one more takes the place of the one that has asked nothing for the longest
  std::chrono::milliseconds idle = std::chrono::minutes(10);  // without a whole request; longer than mail servers idle
};

class PolicyListener {
 public:
  // Listens at the `policy_socket` of the settings from now on; throws RuntimeError naming it. The desk must outlive it.
  explicit PolicyListener(const DecisionDesk& desk, const DelegationLimits& limits = DelegationLimits());
  ~PolicyListener();
  PolicyListener(const PolicyListener&) = delete;
  PolicyListener& operator=(const PolicyListener&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  struct Connection {
    int descriptor;
    std::string received;
    std::string unsent;
    Clock::time_point lastRequest;  // or when it was accepted
  };

  static constexpr int kClosed = -1;

  void _serve();
  // Waits for events, and does what they ask for. False when the listener is to end.
  bool _serveOnce();
  int _longestWait() const;
  // There must be a connection.
  std::vector<Connection>::const_iterator _idlest() const;
  void _accept();
  // False when the connection is over.
  bool _exchange(Connection& connection, short events) const;
  bool _receive(Connection& connection) const;
  static bool _send(Connection& connection);

  const DecisionDesk& m_desk;
  const DelegationLimits m_limits;
  SocketFile m_file;
  int m_listening;
  int m_stopRead = -1;
  int m_stopWrite = -1;
  std::vector<Connection> m_connections;
  bool m_acceptFailed = false;
  std::thread m_thread;
};

// The action for a request, decided and logged.
std::string policyAction(const DecisionDesk& desk, const PolicyRequest& request);
