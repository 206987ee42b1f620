// An HTTP server on the loopback interface that answers as a test says, byte by byte.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class ScriptedHttpServer {
 public:
  // The bytes that a request is answered with, after which the connection is closed; nothing keeps it open in silence.
  using Script = std::function<std::optional<std::string>(const std::string& request)>;

  explicit ScriptedHttpServer(Script script);
  ~ScriptedHttpServer();
  ScriptedHttpServer(const ScriptedHttpServer&) = delete;
  ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

  unsigned int port() const { return m_port; }
  // What came so far: request lines and headers.
  std::vector<std::string> requests() const;
  // Waits until so many have come.
  void waitForRequests(std::size_t count) const;

 private:
  void _serve();
  void _answer(int peer);

  Script m_script;
  int m_listener;
  unsigned int m_port = 0;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_requests;
  std::vector<int> m_silent;
  std::thread m_thread;
};

// A response with the headers that go with its body; `headers` are more of them, each with its line end.
std::string httpResponse(int status, const std::string& body, const std::string& headers = {});
// A gzip file that holds the text, not compressed; of at most 65535 bytes.
std::string asGzip(const std::string& text);
