// Hands the metrics out by HTTP: GET /metrics, and nothing else.
#pragma once

#include <memory>
#include <string>

#include "metrics/FilterMetrics.h"

class MetricsServer {
 public:
  // Serves on one thread of its own from now on. `address` is ADDRESS:PORT or [ADDRESS]:PORT; throws RuntimeError when
  // it cannot be listened at. The metrics must outlive the server.
  MetricsServer(const std::string& address, FilterMetrics& metrics);
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

 private:
  struct Daemon;
  std::unique_ptr<Daemon> m_daemon;
};
