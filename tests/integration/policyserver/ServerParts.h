// What tests of the server's threads need: a gate that keeps them busy for as long as a test wants, and its metrics.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "metrics/ServerMetrics.h"

namespace zarotest {

// No test waits that long; a wait that does ends in a failure.
constexpr std::chrono::seconds kPatience{60};

// Threads wait at it while it is closed.
class Gate {
 public:
  explicit Gate(bool isOpen) : m_isOpen(isOpen) {}

  void close() { _set(false); }
  void open() { _set(true); }
  void pass() {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_waiting;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_isOpen; });
    --m_waiting;
  }
  // Returns when so many threads wait at the gate; false if that takes too long.
  bool isReachedBy(unsigned int count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, kPatience, [&] { return m_waiting == count; });
  }

 private:
  void _set(bool isOpen) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isOpen = isOpen;
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOpen;
  unsigned int m_waiting = 0;
};

inline bool hasMetric(ServerMetrics& metrics, const std::string& line) {
  return metrics.text().find("\n" + line + "\n") != std::string::npos;
}

inline void waitForMetric(ServerMetrics& metrics, const std::string& line) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!hasMetric(metrics, line)) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << line;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace zarotest
