#include "policyclient/ScriptedHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

namespace {

std::uint32_t crc32(const std::string& text) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (const char byte : text) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

std::string littleEndian(std::uint32_t number, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) {
    text += static_cast<char>(number >> (8U * static_cast<unsigned int>(i)));
  }
  return text;
}

}  // namespace

ScriptedHttpServer::ScriptedHttpServer(Script script)
    : m_script(std::move(script)), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
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
  m_thread = std::thread([this] { _serve(); });
}

ScriptedHttpServer::~ScriptedHttpServer() {
  shutdown(m_listener, SHUT_RDWR);  // wakes the accept
  m_thread.join();
  close(m_listener);
  for (const int peer : m_silent) {
    close(peer);
  }
}

std::vector<std::string> ScriptedHttpServer::requests() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_requests;
}

void ScriptedHttpServer::waitForRequests(std::size_t count) const {
  while (requests().size() < count) {
    std::this_thread::yield();
  }
}

void ScriptedHttpServer::_serve() {
  for (int peer = accept(m_listener, nullptr, nullptr); peer >= 0; peer = accept(m_listener, nullptr, nullptr)) {
    _answer(peer);
  }
}

void ScriptedHttpServer::_answer(int peer) {
  std::string request;
  char piece[4096];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t count = recv(peer, piece, sizeof piece, 0);
    if (count <= 0) {
      break;
    }
    request.append(piece, static_cast<std::size_t>(count));
    if (request[0] != 'G') {
      break;  // not HTTP
    }
  }
  const std::optional<std::string> answer = m_script(request);
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.push_back(request);
  }
  if (!answer) {
    m_silent.push_back(peer);
    return;
  }
  for (std::size_t at = 0; at < answer->size();) {
    const ssize_t count = send(peer, answer->data() + at, answer->size() - at, MSG_NOSIGNAL);
    if (count <= 0) {
      break;
    }
    at += static_cast<std::size_t>(count);
  }
  close(peer);
}

std::string httpResponse(int status, const std::string& body, const std::string& headers) {
  return "HTTP/1.1 " + std::to_string(status) + " Status\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         headers + "Connection: close\r\n\r\n" + body;
}

std::string asGzip(const std::string& text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  const std::string head("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\xff", 10);
  const std::string lastStoredBlock("\x01", 1);
  return head + lastStoredBlock + littleEndian(size, 2) + littleEndian(~size & 0xFFFFU, 2) + text +
         littleEndian(crc32(text), 4) + littleEndian(size, 4);
}
