#include "support/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

namespace zarotest {

LoopbackServer::LoopbackServer(Manner manner) : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (m_listener < 0 || bind(m_listener, any, length) != 0 || listen(m_listener, 16) != 0 ||
      getsockname(m_listener, any, &length) != 0) {
    throw std::runtime_error("cannot listen on the loopback interface");
  }
  m_port = ntohs(address.sin_port);
  m_thread = std::thread([this, manner] { _serve(manner); });
}

LoopbackServer::~LoopbackServer() {
  shutdown(m_listener, SHUT_RDWR);  // wakes the accept
  m_thread.join();
  close(m_listener);
}

void LoopbackServer::_serve(Manner manner) {
  std::vector<int> silent;
  for (int peer = accept(m_listener, nullptr, nullptr); peer >= 0; peer = accept(m_listener, nullptr, nullptr)) {
    ++m_accepted;
    if (manner == Manner::HangUp) {
      close(peer);
    } else {
      silent.push_back(peer);
    }
  }
  for (const int peer : silent) {
    close(peer);
  }
}

}  // namespace zarotest
