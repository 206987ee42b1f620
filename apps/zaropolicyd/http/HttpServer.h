// The policy server's connections: HTTP/1.1, plain or by TLS.
#pragma once

#include <chrono>
#include <memory>

#include "http/RequestHandler.h"
#include "metrics/ServerMetrics.h"
#include "service/ServiceLog.h"
#include "store/ServerSettings.h"

class HttpServer {
 public:
  // Reads the files of TLS, and listens; serves on threads of its own from `start` on. Throws RuntimeError. What it is
  // given must outlive it.
  HttpServer(const ServerSettings& settings, const RequestHandler& handler, ServerMetrics& metrics,
             const ServiceLog& log);
  // Breaks off what is still in flight.
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  void start();
  // New connections get what the files of TLS hold now; the others end with their next answer, which a held request
  // gets at once. Throws RuntimeError, and then nothing changes.
  void reloadTls();
  // Has held requests answered again. From any thread, also before `start`.
  void tellOfChange();
  // Accepts no further connection, answers held requests, and waits until what is in flight is finished. False when
  // that takes longer.
  bool finish(std::chrono::milliseconds longest);

 private:
  class Implementation;
  std::unique_ptr<Implementation> m_implementation;
};
